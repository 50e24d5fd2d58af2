// The built-in default input of `tesselux demo`: a generated clip with moving
// gradients, shapes and lettering, and a mask clip to go with it.
#pragma once

#include "io/media.h"

namespace cli {

// Frame k of the demo clip (straight RGBA, 8-bit).
Picture demoFrame(int k, int width, int height, int frames);
// Frame k of the demo mask: a soft white disc and a band sweeping over black.
Picture demoMaskFrame(int k, int width, int height, int frames);

// A picture scaled down by a whole factor (box filter), 8-bit.
Picture shrink(const Picture& picture, int factor);

// Draws `text` (capitals, digits, spaces) in a 5x7 block font, `scale`
// pixels per dot, top-left at (x, y).
void drawText(Picture& picture, const char* text, int x, int y, int scale, const uint8_t rgba[4]);

}  // namespace cli
