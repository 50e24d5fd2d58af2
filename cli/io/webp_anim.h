// Animated WebP through libwebp's own animation decoder: libavformat 5
// reads only single-frame WebP, and OpenImageIO gives the frames without
// their timing.
#pragma once

#include <memory>
#include <string>

#include "io/media.h"

namespace cli {

// An extended WebP file whose header has the animation flag set.
bool isAnimatedWebp(const std::string& path);

// Every frame as shown (composited on the canvas), with its time.
std::unique_ptr<FrameSource> openAnimatedWebp(const std::string& path);

}  // namespace cli
