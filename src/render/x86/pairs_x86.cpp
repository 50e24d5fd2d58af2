// Pairs of attempts eight at a time in 256-bit lanes, the AVX2 twin of
// pairsFromDrawsPortable (pairs.h): the same pairs, bit for bit.
#include "render/x86/dsp_x86.h"

#if TESSELUX_X86_SIMD

#include <immintrin.h>

#include "render/pairs.h"
#include "render/x86/fast_divide_avx2.h"

namespace tesselux_kernel {

namespace {

// One coordinate of eight pairs: the moved coordinate of the block along one
// axis, clamped as pairFromDraws does, or the block's own where it may not
// move. Since a moved coordinate at or past the last block becomes the last
// one allowed, the clamp is a minimum with that one, then a maximum with 0.
TESSELUX_AVX2_FN inline __m256i movedAlongAvx2(__m256i own, __m256i draw, const FastDivisor& span, A_long halfSpan,
                                               A_long last, bool partial) {
  __m256i moved = _mm256_sub_epi32(_mm256_add_epi32(own, fastModAvx2(draw, span)), _mm256_set1_epi32(halfSpan));
  moved = _mm256_min_epi32(moved, _mm256_set1_epi32(partial ? last - 1 : last));
  moved = _mm256_max_epi32(moved, _mm256_setzero_si256());
  if (!partial) return moved;
  // Blocks of a partial last column or row stay where they are.
  return _mm256_blendv_epi8(moved, own, _mm256_cmpeq_epi32(own, _mm256_set1_epi32(last)));
}

}  // namespace

// The draws of eight attempts are three registers of interleaved (first,
// second, third) triples; two blends pick one draw of each triple, in a
// fixed shuffled order, and a permutation puts them in attempt order. A
// count that is not a multiple of eight leaves its tail to the portable form.
TESSELUX_AVX2_FN void pairsFromDrawsAvx2(const ShuffleSetup& s, const uint32_t* draws, uint32_t (*pairs)[2],
                                         long long count) {
  const __m256i order0 = _mm256_setr_epi32(0, 3, 6, 1, 4, 7, 2, 5);
  const __m256i order1 = _mm256_setr_epi32(1, 4, 7, 2, 5, 0, 3, 6);
  const __m256i order2 = _mm256_setr_epi32(2, 5, 0, 3, 6, 1, 4, 7);
  const __m256i columns = _mm256_set1_epi32(static_cast<int>(s.columns));
  long long t = 0;
  for (; t + 8 <= count; t += 8) {
    const uint32_t* p = draws + 3 * t;
    const __m256i r0 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
    const __m256i r1 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + 8));
    const __m256i r2 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + 16));
    // Draw 3t + c sits in register (3t + c) / 8, lane (3t + c) % 8.
    const __m256i first =
        _mm256_permutevar8x32_epi32(_mm256_blend_epi32(_mm256_blend_epi32(r0, r1, 0x92), r2, 0x24), order0);
    const __m256i second =
        _mm256_permutevar8x32_epi32(_mm256_blend_epi32(_mm256_blend_epi32(r0, r1, 0x24), r2, 0x49), order1);
    const __m256i third =
        _mm256_permutevar8x32_epi32(_mm256_blend_epi32(_mm256_blend_epi32(r0, r1, 0x49), r2, 0x92), order2);

    const __m256i a = fastModAvx2(first, s.byBlocks);
    const __m256i ay = fastDivAvx2(a, s.byColumns);
    const __m256i ax = _mm256_sub_epi32(a, _mm256_mullo_epi32(ay, columns));
    const __m256i tx = s.alongX ? movedAlongAvx2(ax, second, s.bySpanX, s.halfSpanX, s.lastCol, s.partialW) : ax;
    const __m256i ty = s.alongY ? movedAlongAvx2(ay, third, s.bySpanY, s.halfSpanY, s.lastRow, s.partialH) : ay;
    const __m256i b = _mm256_add_epi32(_mm256_mullo_epi32(ty, columns), tx);

    // (a, b) pairs in attempt order: the unpacks interleave within each
    // 128-bit half, the permutes put the halves in order.
    const __m256i lo = _mm256_unpacklo_epi32(a, b), hi = _mm256_unpackhi_epi32(a, b);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(pairs[t]), _mm256_permute2x128_si256(lo, hi, 0x20));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(pairs[t + 4]), _mm256_permute2x128_si256(lo, hi, 0x31));
  }
  pairsFromDrawsPortable(s, draws + 3 * t, pairs + t, count - t);
}

}  // namespace tesselux_kernel

#endif  // TESSELUX_X86_SIMD
