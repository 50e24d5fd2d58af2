// Clips, and the fake effect's expected pictures, for the tests that render through the headless host.
#pragma once

#include <cstring>
#include <type_traits>
#include <memory>
#include <vector>

#include "thost/render.h"

namespace thost_test {

// Frame k of a clip: every channel a function of (k, x, y, channel), in the
// channel's type; frames are w x h at (originX, originY).
template <typename T>
T channelValue(int k, int x, int y, int c) {
  const int v = (k * 37 + x * 11 + y * 5 + c * 53) % 251;
  if constexpr (sizeof(T) == 1) return static_cast<T>(v);
  if constexpr (sizeof(T) == 2 && !std::is_floating_point_v<T>) return static_cast<T>(v * 128);
  return static_cast<T>(v / 250.0f);
}

inline thost::Image patternFrame(int k, thost::Depth depth, int w, int h, int salt = 0) {
  thost::Image img(w, h, depth);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      for (int c = 0; c < 4; ++c) {
        switch (depth) {
          case thost::Depth::Bits8:
            img.row(y)[4 * x + c] = channelValue<uint8_t>(k + salt, x, y, c);
            break;
          case thost::Depth::Bits16: {
            const uint16_t v = channelValue<uint16_t>(k + salt, x, y, c);
            std::memcpy(img.row(y) + 8 * x + 2 * c, &v, 2);
            break;
          }
          case thost::Depth::Float32: {
            const float v = channelValue<float>(k + salt, x, y, c);
            std::memcpy(img.row(y) + 16 * x + 4 * c, &v, 4);
            break;
          }
        }
      }
  return img;
}

inline std::shared_ptr<thost::MemoryClip> patternClip(int frames, int w, int h, int salt = 0) {
  return std::make_shared<thost::MemoryClip>(
      frames, [=](int k, thost::Depth d) { return patternFrame(k, d, w, h, salt); });
}

// What the fake effect draws: the input averaged in turn with each time
// frame, alpha replaced by the mask's red where the mask has a pixel.
template <typename T>
thost::Image fakeExpected(const thost::Image& input, const std::vector<const thost::Image*>& times,
                          const thost::Image* mask) {
  thost::Image out(input.width, input.height, input.depth);
  out.originX = input.originX;
  out.originY = input.originY;
  auto px = [](const thost::Image& img, int x, int y, int c) {
    T v;
    std::memcpy(&v, img.row(y) + (4 * x + c) * sizeof(T), sizeof(T));
    return v;
  };
  for (int y = 0; y < input.height; ++y)
    for (int x = 0; x < input.width; ++x)
      for (int c = 0; c < 4; ++c) {
        T v = px(input, x, y, c);
        for (const thost::Image* t : times)
          if (x < t->width && y < t->height)
            v = static_cast<T>((static_cast<double>(v) + static_cast<double>(px(*t, x, y, c))) / 2);
        if (c == 0 && mask && x < mask->width && y < mask->height) v = px(*mask, x, y, 1);
        std::memcpy(out.row(y) + (4 * x + c) * sizeof(T), &v, sizeof(T));
      }
  return out;
}

}  // namespace thost_test
