// Pictures turned upright: the EXIF orientation of a still and the display
// matrix (rotation) of a video are applied to the pixels on reading, as
// ffmpeg's autorotate and image viewers do, so the effect's blocks line up
// with what the viewer sees and no output needs a tag to show it right.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

namespace cli {

// EXIF orientation codes: 1 upright, 2 mirrored, 3 turned 180, 4 flipped,
// 5 transposed, 6 needs 90 degrees clockwise, 7 transversed, 8 needs 90
// counter-clockwise.
inline bool swapsSides(int orientation) { return orientation >= 5 && orientation <= 8; }

// Size of the upright picture for a stored one of w x h.
inline std::pair<int, int> uprightSize(int orientation, int w, int h) {
  return swapsSides(orientation) ? std::pair<int, int>{h, w} : std::pair<int, int>{w, h};
}

// The stored pixel shown at upright position (x, y); w, h the stored size.
inline std::pair<int, int> storedPixel(int orientation, int x, int y, int w, int h) {
  switch (orientation) {
    case 2: return {w - 1 - x, y};
    case 3: return {w - 1 - x, h - 1 - y};
    case 4: return {x, h - 1 - y};
    case 5: return {y, x};
    case 6: return {y, h - 1 - x};
    case 7: return {w - 1 - y, h - 1 - x};
    case 8: return {w - 1 - y, x};
    default: return {x, y};
  }
}

// Copies a stored w x h picture of `pixelBytes` per pixel into `dst`, upright.
inline void orientPixels(int orientation, const uint8_t* src, size_t srcRow, int w, int h, size_t pixelBytes,
                         uint8_t* dst, size_t dstRow) {
  const auto [uw, uh] = uprightSize(orientation, w, h);
  for (int y = 0; y < uh; ++y) {
    uint8_t* out = dst + static_cast<size_t>(y) * dstRow;
    for (int x = 0; x < uw; ++x, out += pixelBytes) {
      const auto [sx, sy] = storedPixel(orientation, x, y, w, h);
      std::memcpy(out, src + static_cast<size_t>(sy) * srcRow + static_cast<size_t>(sx) * pixelBytes, pixelBytes);
    }
  }
}

// The orientation code for a clockwise turn of `degrees` (a multiple of 90).
inline int orientationForTurn(int degrees) {
  switch (((degrees % 360) + 360) % 360) {
    case 90: return 6;
    case 180: return 3;
    case 270: return 8;
    default: return 1;
  }
}

}  // namespace cli
