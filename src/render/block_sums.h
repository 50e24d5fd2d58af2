// Channel sums over blocks of contiguous pixels, per depth: the inner loop
// of the mask values, in their portable versions (the x86 ones are in
// x86/block_sums_x86.cpp; the renderer reaches all of them through the
// table in dsp.h). Integer sums are exact, so the 8- and 16-bit versions
// may add in whatever order is fastest. Float sums are single precision and
// must not be reordered: each channel keeps one running sum, added pixel by
// pixel in row-major order.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "aesdk/aesdk.h"

namespace tesselux_kernel {

// Row-ordered sums: a whole block row at once, its pixel rows read front to
// back so that the frame is one streaming read, with one accumulator per
// block column. `columns` blocks of `bw` pixels start at `base`; the last of
// them is `lastCols` wide. sums[c] receives A, R, G, B of block c. At most
// kSumColumns blocks per call; the caller walks wider grids in chunks.
constexpr A_long kSumColumns = 256;

// Widest block the row-ordered 8- and 16-bit sums take: one pixel row may
// then add at most 65536 * 65535 to a 32-bit lane. Wider blocks are summed
// one at a time.
constexpr A_long kRowSumMaxWidth = 65536;

inline uint16_t load16(const unsigned char* p) {
  uint16_t v;
  memcpy(&v, p, sizeof v);
  return v;
}

inline float loadFloat(const unsigned char* p) {
  float v;
  memcpy(&v, p, sizeof v);
  return v;
}

// 8-bit ARGB: sums[0..3] += A, R, G, B over `rows` rows of `cols` pixels.
inline void sumBlock8Portable(const unsigned char* base, ptrdiff_t rowbytes, A_long cols, A_long rows,
                              uint64_t* sums) {
  uint64_t s[4] = {0, 0, 0, 0};
  for (A_long y = 0; y < rows; ++y) {
    const unsigned char* p = base + y * rowbytes;
    for (A_long x = 0; x < cols; ++x)
      for (int c = 0; c < 4; ++c) s[c] += p[4 * x + c];
  }
  for (int c = 0; c < 4; ++c) sums[c] += s[c];
}

// 16-bit ARGB: sums[0..3] += A, R, G, B.
inline void sumBlock16Portable(const unsigned char* base, ptrdiff_t rowbytes, A_long cols, A_long rows,
                               uint64_t* sums) {
  uint64_t s[4] = {0, 0, 0, 0};
  for (A_long y = 0; y < rows; ++y) {
    const unsigned char* p = base + y * rowbytes;
    for (A_long x = 0; x < cols; ++x)
      for (int c = 0; c < 4; ++c) s[c] += load16(p + 8 * x + 2 * c);
  }
  for (int c = 0; c < 4; ++c) sums[c] += s[c];
}

// Float ARGB: sums[0..3] += A, R, G, B, pixel by pixel in row-major order.
inline void sumBlock32Portable(const unsigned char* base, ptrdiff_t rowbytes, A_long cols, A_long rows,
                               float* sums) {
  for (A_long y = 0; y < rows; ++y) {
    const unsigned char* p = base + y * rowbytes;
    for (A_long x = 0; x < cols; ++x)
      for (int c = 0; c < 4; ++c) sums[c] += loadFloat(p + 16 * x + 4 * c);
  }
}

// 8-bit row sums.
inline void sumBlockRow8Portable(const unsigned char* base, ptrdiff_t rowbytes, A_long rows, A_long bw,
                                 A_long columns, A_long lastCols, uint64_t (*sums)[4]) {
  for (A_long c = 0; c < columns; ++c) sums[c][0] = sums[c][1] = sums[c][2] = sums[c][3] = 0;
  for (A_long y = 0; y < rows; ++y) {
    const unsigned char* p = base + y * rowbytes;
    for (A_long c = 0; c < columns; ++c, p += 4 * static_cast<ptrdiff_t>(bw)) {
      const A_long cols = c == columns - 1 ? lastCols : bw;
      for (A_long x = 0; x < cols; ++x)
        for (int k = 0; k < 4; ++k) sums[c][k] += p[4 * x + k];
    }
  }
}

// 16-bit row sums.
inline void sumBlockRow16Portable(const unsigned char* base, ptrdiff_t rowbytes, A_long rows, A_long bw,
                                  A_long columns, A_long lastCols, uint64_t (*sums)[4]) {
  for (A_long c = 0; c < columns; ++c) sums[c][0] = sums[c][1] = sums[c][2] = sums[c][3] = 0;
  for (A_long y = 0; y < rows; ++y) {
    const unsigned char* p = base + y * rowbytes;
    for (A_long c = 0; c < columns; ++c, p += 8 * static_cast<ptrdiff_t>(bw)) {
      const A_long cols = c == columns - 1 ? lastCols : bw;
      for (A_long x = 0; x < cols; ++x)
        for (int k = 0; k < 4; ++k) sums[c][k] += load16(p + 8 * x + 2 * k);
    }
  }
}

// Float row sums: each block keeps its own four running sums, and a block's
// pixels still arrive in its own row-major order, so every rounding is the
// same as in sumBlock32Portable.
inline void sumBlockRow32Portable(const unsigned char* base, ptrdiff_t rowbytes, A_long rows, A_long bw,
                                  A_long columns, A_long lastCols, float (*sums)[4]) {
  for (A_long c = 0; c < columns; ++c) sums[c][0] = sums[c][1] = sums[c][2] = sums[c][3] = 0.0f;
  for (A_long y = 0; y < rows; ++y) {
    const unsigned char* p = base + y * rowbytes;
    for (A_long c = 0; c < columns; ++c, p += 16 * static_cast<ptrdiff_t>(bw)) {
      const A_long cols = c == columns - 1 ? lastCols : bw;
      for (A_long x = 0; x < cols; ++x)
        for (int k = 0; k < 4; ++k) sums[c][k] += loadFloat(p + 16 * x + 4 * k);
    }
  }
}

}  // namespace tesselux_kernel
