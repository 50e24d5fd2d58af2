// Pictures as files hold them (RGBA, 8/16-bit or float) and the conversions
// to and from the host's ARGB worlds.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "thost/render.h"

namespace cli {

// Sample types of pictures in memory. Half-float files are read and written
// through F32.
enum class SampleType { U8, U16, F32 };

inline int sampleBytes(SampleType t) { return t == SampleType::U8 ? 1 : t == SampleType::U16 ? 2 : 4; }
const char* sampleName(SampleType t);

// Pixel memory as the host's images hold it: not cleared when it grows (every
// picture is written in full right after it is made, and zero-filling
// megabytes per frame first costs as much as the conversion itself), with room
// past its end for swscale's whole-vector reads and writes.
using PixelBytes = thost::PixelStore;

// A picture in straight RGBA, rows tightly packed; new pictures are not cleared.
struct Picture {
  int width = 0, height = 0;
  SampleType type = SampleType::U8;
  PixelBytes data;

  Picture() = default;
  Picture(int w, int h, SampleType t)
      : width(w), height(h), type(t),
        data(static_cast<size_t>(w) * static_cast<size_t>(h) * 4 * static_cast<size_t>(sampleBytes(t))) {}
  size_t rowBytes() const { return static_cast<size_t>(width) * 4 * static_cast<size_t>(sampleBytes(type)); }
  uint8_t* row(int y) { return data.data() + static_cast<size_t>(y) * rowBytes(); }
  const uint8_t* row(int y) const { return data.data() + static_cast<size_t>(y) * rowBytes(); }
  bool operator==(const Picture& o) const {
    return width == o.width && height == o.height && type == o.type && data == o.data;
  }
};

// The host depth a file of this sample type renders at under `--depth auto`.
thost::Depth autoDepth(SampleType fileType);

// A file picture as a host world of the given depth, at origin (0, 0).
thost::Image toHost(const Picture& picture, thost::Depth depth,
                    std::shared_ptr<thost::PixelPool> pool = nullptr);
// A host world as a file picture of the given sample type.
Picture fromHost(const thost::Image& image, SampleType type);
// A file picture in another sample type, through the host conversions' rules
// for file-to-file (8 <-> 16 by rounding, float by clamping).
Picture convert(const Picture& picture, SampleType type);

// Single-sample conversions (exposed for tests).
namespace px {
inline uint16_t u8ToHost16(uint32_t v) { return static_cast<uint16_t>((v * 32768u + 127u) / 255u); }
inline float u8ToFloat(uint32_t v) { return static_cast<float>(v) / 255.0f; }
inline uint16_t u16ToHost16(uint32_t v) { return static_cast<uint16_t>((v * 32768u + 32767u) / 65535u); }
inline uint8_t u16ToU8(uint32_t v) { return static_cast<uint8_t>((v * 255u + 32767u) / 65535u); }
inline float u16ToFloat(uint32_t v) { return static_cast<float>(v) / 65535.0f; }
inline uint8_t host16ToU8(uint32_t a) { return static_cast<uint8_t>((a * 255u + 16384u) / 32768u); }
inline uint16_t host16ToU16(uint32_t a) { return static_cast<uint16_t>((a * 65535u + 16384u) / 32768u); }
inline float clamp01(float f) { return f < 0.0f ? 0.0f : f > 1.0f ? 1.0f : f; }
// NaN goes to 0: clamp01 lets it through, so it is caught first.
inline uint8_t floatToU8(float f) { return f != f ? 0 : static_cast<uint8_t>(static_cast<int>(clamp01(f) * 255.0f + 0.5f)); }
inline uint16_t floatToU16(float f) { return f != f ? 0 : static_cast<uint16_t>(static_cast<int>(clamp01(f) * 65535.0f + 0.5f)); }
inline uint16_t floatToHost16(float f) { return f != f ? 0 : static_cast<uint16_t>(static_cast<int>(clamp01(f) * 32768.0f + 0.5f)); }
inline float host16ToFloat(uint32_t a) { return static_cast<float>(a) / 32768.0f; }
inline uint16_t u8ToU16(uint32_t v) { return static_cast<uint16_t>(v * 257u); }
}  // namespace px

}  // namespace cli
