// Channel sums over one block of contiguous pixels, per depth: the inner
// loop of the mask values. Integer sums are exact, so the 8- and 16-bit
// versions add in whatever order is fastest. Float sums are single precision
// and must not be reordered: each channel keeps one running sum, added pixel
// by pixel in row-major order (four independent sums fit one SSE register
// without changing a single rounding).
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "aesdk/aesdk.h"
#include "render/cpu_features.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace tesselux_kernel {

#if defined(__SSE2__)
inline uint64_t laneSum32(__m128i v) {
  uint32_t lanes[4];
  _mm_storeu_si128(reinterpret_cast<__m128i*>(lanes), v);
  return static_cast<uint64_t>(lanes[0]) + lanes[1] + lanes[2] + lanes[3];
}
#endif

// 8-bit ARGB: sums[0..3] += A, R, G, B over `rows` rows of `cols` pixels.
inline void sumBlock8(const unsigned char* base, ptrdiff_t rowbytes, A_long cols, A_long rows, uint64_t* sums) {
  uint64_t s[4] = {0, 0, 0, 0};
  A_long vecCols = 0;
#if defined(__SSE2__)
  // Four pixels per step. The low byte of each 16-bit lane is A or G, the
  // high byte R or B, so one mask and one shift split the channels into
  // 16-bit lanes. After 128 steps (at most 32640 a lane, inside the signed
  // range that madd reads) the lanes are folded into 32-bit lanes, and those
  // into 64-bit totals every 32768 folds, long before they could overflow.
  vecCols = cols & ~3;
  if (vecCols > 0) {
    const __m128i low = _mm_set1_epi16(0x00FF);
    const __m128i even = _mm_set1_epi32(0x00000001);
    const __m128i odd = _mm_set1_epi32(0x00010000);
    const __m128i zero = _mm_setzero_si128();
    __m128i a32 = zero, r32 = zero, g32 = zero, b32 = zero, ag = zero, rb = zero;
    A_long room = 128;  // steps left before the 16-bit lanes must be folded
    int folds = 0;
    for (A_long y = 0; y < rows; ++y) {
      const unsigned char* p = base + y * rowbytes;
      A_long x = 0;
      while (x < vecCols) {
        const A_long steps = (vecCols - x) / 4 < room ? (vecCols - x) / 4 : room;
        const unsigned char* q = p + 4 * x;
        for (A_long k = 0; k < steps; ++k, q += 16) {
          const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(q));
          ag = _mm_add_epi16(ag, _mm_and_si128(v, low));
          rb = _mm_add_epi16(rb, _mm_srli_epi16(v, 8));
        }
        x += 4 * steps;
        room -= steps;
        const bool last = y == rows - 1 && x == vecCols;
        if (room == 0 || last) {
          a32 = _mm_add_epi32(a32, _mm_madd_epi16(ag, even));
          g32 = _mm_add_epi32(g32, _mm_madd_epi16(ag, odd));
          r32 = _mm_add_epi32(r32, _mm_madd_epi16(rb, even));
          b32 = _mm_add_epi32(b32, _mm_madd_epi16(rb, odd));
          ag = rb = zero;
          room = 128;
          if (++folds == 32768 || last) {
            s[0] += laneSum32(a32);
            s[1] += laneSum32(r32);
            s[2] += laneSum32(g32);
            s[3] += laneSum32(b32);
            a32 = r32 = g32 = b32 = zero;
            folds = 0;
          }
        }
      }
    }
  }
#endif
  if (vecCols < cols) {
    for (A_long y = 0; y < rows; ++y) {
      const unsigned char* p = base + y * rowbytes;
      for (A_long x = vecCols; x < cols; ++x)
        for (int c = 0; c < 4; ++c) s[c] += p[4 * x + c];
    }
  }
  for (int c = 0; c < 4; ++c) sums[c] += s[c];
}

// 16-bit ARGB: sums[0..3] += A, R, G, B.
inline void sumBlock16(const unsigned char* base, ptrdiff_t rowbytes, A_long cols, A_long rows, uint64_t* sums) {
  uint64_t s[4] = {0, 0, 0, 0};
  A_long vecCols = 0;
#if defined(__SSE2__)
  // Two pixels per step, widened to one 32-bit lane per channel. A lane
  // gains at most 2 * 65535 a step, so it is emptied every 16384 steps.
  vecCols = cols & ~1;
  if (vecCols > 0) {
    const __m128i zero = _mm_setzero_si128();
    __m128i acc = zero;
    A_long room = 16384;  // steps left before the 32-bit lanes must be emptied
    for (A_long y = 0; y < rows; ++y) {
      const unsigned char* p = base + y * rowbytes;
      A_long x = 0;
      while (x < vecCols) {
        const A_long steps = (vecCols - x) / 2 < room ? (vecCols - x) / 2 : room;
        const unsigned char* q = p + 8 * x;
        for (A_long k = 0; k < steps; ++k, q += 16) {
          const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(q));
          acc = _mm_add_epi32(acc, _mm_add_epi32(_mm_unpacklo_epi16(v, zero), _mm_unpackhi_epi16(v, zero)));
        }
        x += 2 * steps;
        room -= steps;
        if (room == 0 || (y == rows - 1 && x == vecCols)) {
          uint32_t lanes[4];
          _mm_storeu_si128(reinterpret_cast<__m128i*>(lanes), acc);
          for (int c = 0; c < 4; ++c) s[c] += lanes[c];
          acc = zero;
          room = 16384;
        }
      }
    }
  }
#endif
  if (vecCols < cols) {
    for (A_long y = 0; y < rows; ++y) {
      const unsigned char* p = base + y * rowbytes;
      for (A_long x = vecCols; x < cols; ++x)
        for (int c = 0; c < 4; ++c) {
          uint16_t v;
          memcpy(&v, p + 8 * x + 2 * c, sizeof v);
          s[c] += v;
        }
    }
  }
  for (int c = 0; c < 4; ++c) sums[c] += s[c];
}

// Float ARGB: sums[0..3] += A, R, G, B, pixel by pixel in row-major order.
inline void sumBlock32(const unsigned char* base, ptrdiff_t rowbytes, A_long cols, A_long rows, float* sums) {
#if defined(__SSE2__)
  __m128 acc = _mm_loadu_ps(sums);
  for (A_long y = 0; y < rows; ++y) {
    const unsigned char* p = base + y * rowbytes;
    for (A_long x = 0; x < cols; ++x) acc = _mm_add_ps(acc, _mm_loadu_ps(reinterpret_cast<const float*>(p + 16 * x)));
  }
  _mm_storeu_ps(sums, acc);
#else
  for (A_long y = 0; y < rows; ++y) {
    const unsigned char* p = base + y * rowbytes;
    for (A_long x = 0; x < cols; ++x)
      for (int c = 0; c < 4; ++c) {
        float v;
        memcpy(&v, p + 16 * x + 4 * c, sizeof v);
        sums[c] += v;
      }
  }
#endif
}


// Row-ordered sums: a whole block row at once, its pixel rows read front to
// back so that the frame is one streaming read, with one accumulator per
// block column. `columns` blocks of `bw` pixels start at `base`; the last of
// them is `lastCols` wide. sums[c] receives A, R, G, B of block c. At most
// kSumColumns blocks per call; the caller walks wider grids in chunks.
constexpr A_long kSumColumns = 256;

// Widest block the row-ordered 8- and 16-bit sums take: one pixel row may
// then add at most 65536 * 65535 to a 32-bit lane.
constexpr A_long kRowSumMaxWidth = 65536;

#if TESSELUX_AVX2
// Widest block the 256-bit 8-bit sums take: a block's pixel row is then at
// most 256 steps (eight pixels, or four at the end), and a 16-bit lane holds
// 256 values of 255.
constexpr A_long kWideSumMaxWidth = 2040;

// 8-bit with 256-bit registers: eight pixels a step, a last step of four
// with the upper half zero, and single pixels after that. Each block column
// keeps 16-bit lanes (even lanes A or R, odd ones G or B) across as many
// pixel rows as stay within 256 steps, so the lanes are widened into 32-bit
// totals once per group of rows rather than once per block and row; those
// are emptied into 64-bit totals before a lane could pass 2^32.
__attribute__((target("avx2"))) inline void sumBlockRow8Avx2(const unsigned char* base, ptrdiff_t rowbytes,
                                                             A_long rows, A_long bw, A_long columns,
                                                             A_long lastCols, uint64_t (*sums)[4]) {
  for (A_long c = 0; c < columns; ++c) sums[c][0] = sums[c][1] = sums[c][2] = sums[c][3] = 0;
  const __m256i low = _mm256_set1_epi16(0x00FF);
  const __m256i zero = _mm256_setzero_si256();
  __m256i ag16[kSumColumns], rb16[kSumColumns], ag[kSumColumns], rb[kSumColumns];
  for (A_long c = 0; c < columns; ++c) ag16[c] = rb16[c] = ag[c] = rb[c] = zero;
  const A_long stepsPerRow = (bw + 7) / 8;
  const A_long widenEvery = 256 / stepsPerRow;
  const A_long flushEvery = static_cast<A_long>(0xFFFFFFFFu / (static_cast<uint32_t>(bw) * 255u));
  A_long sinceWiden = 0, sinceFlush = 0;
  for (A_long y = 0; y < rows; ++y) {
    const unsigned char* p = base + y * rowbytes;
    for (A_long c = 0; c < columns; ++c, p += 4 * static_cast<ptrdiff_t>(bw)) {
      const A_long cols = c == columns - 1 ? lastCols : bw;
      __m256i a16 = ag16[c], r16 = rb16[c];
      A_long x = 0;
      for (; x + 8 <= cols; x += 8) {
        const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + 4 * x));
        a16 = _mm256_add_epi16(a16, _mm256_and_si256(v, low));
        r16 = _mm256_add_epi16(r16, _mm256_srli_epi16(v, 8));
      }
      if (x + 4 <= cols) {
        const __m256i v = _mm256_zextsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 4 * x)));
        a16 = _mm256_add_epi16(a16, _mm256_and_si256(v, low));
        r16 = _mm256_add_epi16(r16, _mm256_srli_epi16(v, 8));
        x += 4;
      }
      ag16[c] = a16;
      rb16[c] = r16;
      for (; x < cols; ++x)
        for (int k = 0; k < 4; ++k) sums[c][k] += p[4 * x + k];
    }
    const bool last = y == rows - 1;
    const bool flush = ++sinceFlush == flushEvery || last;
    if (++sinceWiden == widenEvery || flush) {
      for (A_long c = 0; c < columns; ++c) {
        ag[c] = _mm256_add_epi32(ag[c], _mm256_add_epi32(_mm256_unpacklo_epi16(ag16[c], zero),
                                                         _mm256_unpackhi_epi16(ag16[c], zero)));
        rb[c] = _mm256_add_epi32(rb[c], _mm256_add_epi32(_mm256_unpacklo_epi16(rb16[c], zero),
                                                         _mm256_unpackhi_epi16(rb16[c], zero)));
        ag16[c] = rb16[c] = zero;
      }
      sinceWiden = 0;
    }
    if (flush) {
      for (A_long c = 0; c < columns; ++c) {
        uint32_t l[8], m[8];
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(l), ag[c]);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(m), rb[c]);
        sums[c][0] += static_cast<uint64_t>(l[0]) + l[2] + l[4] + l[6];
        sums[c][2] += static_cast<uint64_t>(l[1]) + l[3] + l[5] + l[7];
        sums[c][1] += static_cast<uint64_t>(m[0]) + m[2] + m[4] + m[6];
        sums[c][3] += static_cast<uint64_t>(m[1]) + m[3] + m[5] + m[7];
        ag[c] = rb[c] = zero;
      }
      sinceFlush = 0;
    }
  }
}

#endif

// 8-bit. Each block's run of a pixel row is summed as in sumBlock8 (channel
// pairs in 16-bit lanes, at most 128 steps), widened into the column's
// 32-bit lanes, and those are emptied into 64-bit totals before a lane could
// pass 2^32. `wide` allows the 256-bit version where the processor has it.
inline void sumBlockRow8(const unsigned char* base, ptrdiff_t rowbytes, A_long rows, A_long bw, A_long columns,
                         A_long lastCols, uint64_t (*sums)[4], bool wide = true) {
#if TESSELUX_AVX2
  if (wide && bw <= kWideSumMaxWidth && cpuHasAvx2()) {
    sumBlockRow8Avx2(base, rowbytes, rows, bw, columns, lastCols, sums);
    return;
  }
#else
  (void)wide;
#endif
  for (A_long c = 0; c < columns; ++c) sums[c][0] = sums[c][1] = sums[c][2] = sums[c][3] = 0;
#if defined(__SSE2__)
  const __m128i low = _mm_set1_epi16(0x00FF);
  const __m128i zero = _mm_setzero_si128();
  __m128i ag[kSumColumns], rb[kSumColumns];  // 32-bit lanes A, G, A, G and R, B, R, B
  for (A_long c = 0; c < columns; ++c) ag[c] = rb[c] = zero;
  const A_long flushEvery = static_cast<A_long>(0xFFFFFFFFu / (static_cast<uint32_t>(bw) * 255u));
  A_long sinceFlush = 0;
  for (A_long y = 0; y < rows; ++y) {
    const unsigned char* p = base + y * rowbytes;
    for (A_long c = 0; c < columns; ++c, p += 4 * static_cast<ptrdiff_t>(bw)) {
      const A_long cols = c == columns - 1 ? lastCols : bw;
      const A_long vecCols = cols & ~3;
      A_long x = 0;
      while (x < vecCols) {
        const A_long steps = (vecCols - x) / 4 < 128 ? (vecCols - x) / 4 : 128;
        const unsigned char* q = p + 4 * x;
        __m128i a16 = zero, r16 = zero;
        for (A_long k = 0; k < steps; ++k, q += 16) {
          const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(q));
          a16 = _mm_add_epi16(a16, _mm_and_si128(v, low));
          r16 = _mm_add_epi16(r16, _mm_srli_epi16(v, 8));
        }
        ag[c] = _mm_add_epi32(ag[c], _mm_add_epi32(_mm_unpacklo_epi16(a16, zero), _mm_unpackhi_epi16(a16, zero)));
        rb[c] = _mm_add_epi32(rb[c], _mm_add_epi32(_mm_unpacklo_epi16(r16, zero), _mm_unpackhi_epi16(r16, zero)));
        x += 4 * steps;
      }
      for (; x < cols; ++x)
        for (int k = 0; k < 4; ++k) sums[c][k] += p[4 * x + k];
    }
    if (++sinceFlush == flushEvery || y == rows - 1) {
      for (A_long c = 0; c < columns; ++c) {
        uint32_t l[4], m[4];
        _mm_storeu_si128(reinterpret_cast<__m128i*>(l), ag[c]);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(m), rb[c]);
        sums[c][0] += static_cast<uint64_t>(l[0]) + l[2];
        sums[c][2] += static_cast<uint64_t>(l[1]) + l[3];
        sums[c][1] += static_cast<uint64_t>(m[0]) + m[2];
        sums[c][3] += static_cast<uint64_t>(m[1]) + m[3];
        ag[c] = rb[c] = zero;
      }
      sinceFlush = 0;
    }
  }
#else
  for (A_long y = 0; y < rows; ++y) {
    const unsigned char* p = base + y * rowbytes;
    for (A_long c = 0; c < columns; ++c, p += 4 * static_cast<ptrdiff_t>(bw)) {
      const A_long cols = c == columns - 1 ? lastCols : bw;
      for (A_long x = 0; x < cols; ++x)
        for (int k = 0; k < 4; ++k) sums[c][k] += p[4 * x + k];
    }
  }
#endif
}

// 16-bit: two pixels per step straight into the column's 32-bit lanes, which
// are emptied into 64-bit totals before they could pass 2^32.
inline void sumBlockRow16(const unsigned char* base, ptrdiff_t rowbytes, A_long rows, A_long bw, A_long columns,
                          A_long lastCols, uint64_t (*sums)[4]) {
  for (A_long c = 0; c < columns; ++c) sums[c][0] = sums[c][1] = sums[c][2] = sums[c][3] = 0;
#if defined(__SSE2__)
  const __m128i zero = _mm_setzero_si128();
  __m128i acc[kSumColumns];  // 32-bit lanes A, R, G, B
  for (A_long c = 0; c < columns; ++c) acc[c] = zero;
  const A_long flushEvery = static_cast<A_long>(0xFFFFFFFFu / (static_cast<uint32_t>(bw) * 65535u));
  A_long sinceFlush = 0;
  for (A_long y = 0; y < rows; ++y) {
    const unsigned char* p = base + y * rowbytes;
    for (A_long c = 0; c < columns; ++c, p += 8 * static_cast<ptrdiff_t>(bw)) {
      const A_long cols = c == columns - 1 ? lastCols : bw;
      const A_long vecCols = cols & ~1;
      __m128i a = acc[c];
      const unsigned char* q = p;
      for (A_long x = 0; x < vecCols; x += 2, q += 16) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(q));
        a = _mm_add_epi32(a, _mm_add_epi32(_mm_unpacklo_epi16(v, zero), _mm_unpackhi_epi16(v, zero)));
      }
      acc[c] = a;
      if (vecCols < cols)
        for (int k = 0; k < 4; ++k) {
          uint16_t v;
          memcpy(&v, p + 8 * vecCols + 2 * k, sizeof v);
          sums[c][k] += v;
        }
    }
    if (++sinceFlush == flushEvery || y == rows - 1) {
      for (A_long c = 0; c < columns; ++c) {
        uint32_t l[4];
        _mm_storeu_si128(reinterpret_cast<__m128i*>(l), acc[c]);
        for (int k = 0; k < 4; ++k) sums[c][k] += l[k];
        acc[c] = zero;
      }
      sinceFlush = 0;
    }
  }
#else
  for (A_long y = 0; y < rows; ++y) {
    const unsigned char* p = base + y * rowbytes;
    for (A_long c = 0; c < columns; ++c, p += 8 * static_cast<ptrdiff_t>(bw)) {
      const A_long cols = c == columns - 1 ? lastCols : bw;
      for (A_long x = 0; x < cols; ++x)
        for (int k = 0; k < 4; ++k) {
          uint16_t v;
          memcpy(&v, p + 8 * x + 2 * k, sizeof v);
          sums[c][k] += v;
        }
    }
  }
#endif
}

// Float: each block keeps its own four running sums, and a block's pixels
// still arrive in its own row-major order, so every rounding is the same as
// in sumBlock32.
inline void sumBlockRow32(const unsigned char* base, ptrdiff_t rowbytes, A_long rows, A_long bw, A_long columns,
                          A_long lastCols, float (*sums)[4]) {
#if defined(__SSE2__)
  __m128 acc[kSumColumns];
  for (A_long c = 0; c < columns; ++c) acc[c] = _mm_setzero_ps();
  for (A_long y = 0; y < rows; ++y) {
    const unsigned char* p = base + y * rowbytes;
    for (A_long c = 0; c < columns; ++c, p += 16 * static_cast<ptrdiff_t>(bw)) {
      const A_long cols = c == columns - 1 ? lastCols : bw;
      __m128 a = acc[c];
      for (A_long x = 0; x < cols; ++x) a = _mm_add_ps(a, _mm_loadu_ps(reinterpret_cast<const float*>(p + 16 * x)));
      acc[c] = a;
    }
  }
  for (A_long c = 0; c < columns; ++c) _mm_storeu_ps(sums[c], acc[c]);
#else
  for (A_long c = 0; c < columns; ++c) sums[c][0] = sums[c][1] = sums[c][2] = sums[c][3] = 0.0f;
  for (A_long y = 0; y < rows; ++y) {
    const unsigned char* p = base + y * rowbytes;
    for (A_long c = 0; c < columns; ++c, p += 16 * static_cast<ptrdiff_t>(bw)) {
      const A_long cols = c == columns - 1 ? lastCols : bw;
      for (A_long x = 0; x < cols; ++x)
        for (int k = 0; k < 4; ++k) {
          float v;
          memcpy(&v, p + 16 * x + 4 * k, sizeof v);
          sums[c][k] += v;
        }
    }
  }
#endif
}

}  // namespace tesselux_kernel
