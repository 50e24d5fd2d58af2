// The mask sums in 128-bit (SSE2) and 256-bit (AVX2) registers, the twins
// of the portable sums in block_sums.h; the same totals, bit for bit.
#include "render/x86/dsp_x86.h"

#if TESSELUX_X86_SIMD

#include <immintrin.h>

#include "render/block_sums.h"

namespace tesselux_kernel {

namespace {

uint64_t laneSum32(__m128i v) {
  uint32_t lanes[4];
  _mm_storeu_si128(reinterpret_cast<__m128i*>(lanes), v);
  return static_cast<uint64_t>(lanes[0]) + lanes[1] + lanes[2] + lanes[3];
}

// The pixels right of the vector part: sums[0..3] += A, R, G, B of columns
// from..cols of every row.
void addTail8(const unsigned char* base, ptrdiff_t rowbytes, A_long from, A_long cols, A_long rows, uint64_t* s) {
  for (A_long y = 0; y < rows; ++y) {
    const unsigned char* p = base + y * rowbytes;
    for (A_long x = from; x < cols; ++x)
      for (int c = 0; c < 4; ++c) s[c] += p[4 * x + c];
  }
}

void addTail16(const unsigned char* base, ptrdiff_t rowbytes, A_long from, A_long cols, A_long rows, uint64_t* s) {
  for (A_long y = 0; y < rows; ++y) {
    const unsigned char* p = base + y * rowbytes;
    for (A_long x = from; x < cols; ++x)
      for (int c = 0; c < 4; ++c) s[c] += load16(p + 8 * x + 2 * c);
  }
}

}  // namespace

void sumBlock8Sse2(const unsigned char* base, ptrdiff_t rowbytes, A_long cols, A_long rows, uint64_t* sums) {
  uint64_t s[4] = {0, 0, 0, 0};
  // Four pixels per step. The low byte of each 16-bit lane is A or G, the
  // high byte R or B, so one mask and one shift split the channels into
  // 16-bit lanes. After 128 steps (at most 32640 a lane, inside the signed
  // range that madd reads) the lanes are folded into 32-bit lanes, and those
  // into 64-bit totals every 32768 folds, long before they could overflow.
  const A_long vecCols = cols & ~3;
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
  if (vecCols < cols) addTail8(base, rowbytes, vecCols, cols, rows, s);
  for (int c = 0; c < 4; ++c) sums[c] += s[c];
}

void sumBlock16Sse2(const unsigned char* base, ptrdiff_t rowbytes, A_long cols, A_long rows, uint64_t* sums) {
  uint64_t s[4] = {0, 0, 0, 0};
  // Two pixels per step, widened to one 32-bit lane per channel. A lane
  // gains at most 2 * 65535 a step, so it is emptied every 16384 steps.
  const A_long vecCols = cols & ~1;
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
  if (vecCols < cols) addTail16(base, rowbytes, vecCols, cols, rows, s);
  for (int c = 0; c < 4; ++c) sums[c] += s[c];
}

// Four independent channel sums fit one register without changing a single
// rounding.
void sumBlock32Sse2(const unsigned char* base, ptrdiff_t rowbytes, A_long cols, A_long rows, float* sums) {
  __m128 acc = _mm_loadu_ps(sums);
  for (A_long y = 0; y < rows; ++y) {
    const unsigned char* p = base + y * rowbytes;
    for (A_long x = 0; x < cols; ++x) acc = _mm_add_ps(acc, _mm_loadu_ps(reinterpret_cast<const float*>(p + 16 * x)));
  }
  _mm_storeu_ps(sums, acc);
}

// 8-bit. Each block's run of a pixel row is summed as in sumBlock8Sse2
// (channel pairs in 16-bit lanes, at most 128 steps), widened into the
// column's 32-bit lanes, and those are emptied into 64-bit totals before a
// lane could pass 2^32.
void sumBlockRow8Sse2(const unsigned char* base, ptrdiff_t rowbytes, A_long rows, A_long bw, A_long columns,
                      A_long lastCols, uint64_t (*sums)[4]) {
  for (A_long c = 0; c < columns; ++c) sums[c][0] = sums[c][1] = sums[c][2] = sums[c][3] = 0;
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
}

// 16-bit: two pixels per step straight into the column's 32-bit lanes, which
// are emptied into 64-bit totals before they could pass 2^32.
void sumBlockRow16Sse2(const unsigned char* base, ptrdiff_t rowbytes, A_long rows, A_long bw, A_long columns,
                       A_long lastCols, uint64_t (*sums)[4]) {
  for (A_long c = 0; c < columns; ++c) sums[c][0] = sums[c][1] = sums[c][2] = sums[c][3] = 0;
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
        for (int k = 0; k < 4; ++k) sums[c][k] += load16(p + 8 * vecCols + 2 * k);
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
}

// Float: one register of four running sums per block, added in the block's
// own row-major order, so every rounding is the same as in sumBlock32Sse2.
void sumBlockRow32Sse2(const unsigned char* base, ptrdiff_t rowbytes, A_long rows, A_long bw, A_long columns,
                       A_long lastCols, float (*sums)[4]) {
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
}

// Widest block the 256-bit 8-bit sums take: a block's pixel row is then at
// most 256 steps (eight pixels, or four at the end), and a 16-bit lane holds
// 256 values of 255. Wider blocks take the 128-bit version.
constexpr A_long kWideSumMaxWidth = 2040;

namespace {

// One block's run of one pixel row into its 16-bit lanes: eight pixels a
// step, a last step of four with the upper half zero, single pixels after
// that straight into the totals.
TESSELUX_AVX2_INLINE void addRunAvx2(const unsigned char* p, A_long cols, __m256i& a16, __m256i& r16,
                                     uint64_t* sums) {
  const __m256i low = _mm256_set1_epi16(0x00FF);
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
  for (; x < cols; ++x)
    for (int k = 0; k < 4; ++k) sums[k] += p[4 * x + k];
}

// The 32-bit lanes of one block into its 64-bit totals (even lanes A or R,
// odd ones G or B).
TESSELUX_AVX2_INLINE void flushLanesAvx2(__m256i& ag, __m256i& rb, uint64_t* sums) {
  uint32_t l[8], m[8];
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(l), ag);
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(m), rb);
  sums[0] += static_cast<uint64_t>(l[0]) + l[2] + l[4] + l[6];
  sums[2] += static_cast<uint64_t>(l[1]) + l[3] + l[5] + l[7];
  sums[1] += static_cast<uint64_t>(m[0]) + m[2] + m[4] + m[6];
  sums[3] += static_cast<uint64_t>(m[1]) + m[3] + m[5] + m[7];
  ag = rb = _mm256_setzero_si256();
}

}  // namespace

// 8-bit with 256-bit registers. Each block column keeps 16-bit lanes across
// as many pixel rows as stay within 256 steps, so the lanes are widened into
// 32-bit totals once per group of rows rather than once per block and row;
// those are emptied into 64-bit totals before a lane could pass 2^32.
TESSELUX_AVX2_FN void sumBlockRow8Avx2(const unsigned char* base, ptrdiff_t rowbytes, A_long rows, A_long bw,
                                       A_long columns, A_long lastCols, uint64_t (*sums)[4]) {
  if (bw > kWideSumMaxWidth) {
    sumBlockRow8Sse2(base, rowbytes, rows, bw, columns, lastCols, sums);
    return;
  }
  for (A_long c = 0; c < columns; ++c) sums[c][0] = sums[c][1] = sums[c][2] = sums[c][3] = 0;
  const __m256i zero = _mm256_setzero_si256();
  __m256i ag16[kSumColumns], rb16[kSumColumns], ag[kSumColumns], rb[kSumColumns];
  for (A_long c = 0; c < columns; ++c) ag16[c] = rb16[c] = ag[c] = rb[c] = zero;
  const A_long stepsPerRow = (bw + 7) / 8;
  const A_long widenEvery = 256 / stepsPerRow;
  const A_long flushEvery = static_cast<A_long>(0xFFFFFFFFu / (static_cast<uint32_t>(bw) * 255u));
  A_long sinceWiden = 0, sinceFlush = 0;
  for (A_long y = 0; y < rows; ++y) {
    const unsigned char* p = base + y * rowbytes;
    for (A_long c = 0; c < columns; ++c, p += 4 * static_cast<ptrdiff_t>(bw))
      addRunAvx2(p, c == columns - 1 ? lastCols : bw, ag16[c], rb16[c], sums[c]);
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
      for (A_long c = 0; c < columns; ++c) flushLanesAvx2(ag[c], rb[c], sums[c]);
      sinceFlush = 0;
    }
  }
}

}  // namespace tesselux_kernel

#endif  // TESSELUX_X86_SIMD
