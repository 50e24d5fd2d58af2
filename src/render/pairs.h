// How an attempt of the shuffle turns three draws of the shuffle stream into
// a pair of blocks. The pairs depend on the shuffle stream alone, so the
// attempt loop makes a whole chunk of them before deciding any: eight at a
// time in vector lanes where the processor has AVX2, one at a time
// otherwise, with the same result bit for bit.
#pragma once

#include <stdint.h>

#include "aesdk/aesdk.h"
#include "render/cpu_features.h"
#include "render/fast_divide.h"

namespace tesselux_kernel {

// The shuffle's fixed quantities. Every division of an attempt is by one of
// four numbers that stay the same for the whole loop.
struct ShuffleSetup {
  FastDivisor byBlocks, byColumns, bySpanX, bySpanY;
  uint32_t columns;
  A_long lastCol, lastRow, halfSpanX, halfSpanY;
  bool partialW, partialH, alongX, alongY;
};

// The setup of a grid of columns x rows blocks, whose last column or row may
// be partial, for a spread of 0..1024 and a direction (0 all, 1 horizontal,
// 2 vertical).
inline ShuffleSetup makeShuffleSetup(A_long columns, A_long rows, bool partialW, bool partialH, A_long spread,
                                     A_long direction) {
  ShuffleSetup s;
  const A_long spanX = ((columns * spread) >> 9) + 2;
  const A_long spanY = ((rows * spread) >> 9) + 2;
  s.byBlocks = makeDivisor(static_cast<uint32_t>(columns) * static_cast<uint32_t>(rows));
  s.byColumns = makeDivisor(static_cast<uint32_t>(columns));
  s.bySpanX = makeDivisor(static_cast<uint32_t>(spanX));
  s.bySpanY = makeDivisor(static_cast<uint32_t>(spanY));
  s.columns = static_cast<uint32_t>(columns);
  s.lastCol = columns - 1;
  s.lastRow = rows - 1;
  s.halfSpanX = spanX >> 1;
  s.halfSpanY = spanY >> 1;
  s.partialW = partialW;
  s.partialH = partialH;
  s.alongX = direction == 0 || direction == 1;
  s.alongY = direction == 0 || direction == 2;
  return s;
}

// Compilers that do not know the attribute ignore it.
#define TESSELUX_ALWAYS_INLINE [[gnu::always_inline]] inline

// Steps 1 to 4 of an attempt: three draws of the shuffle stream make a pair.
// A block of a partial last column or row stays in it; full blocks never
// reach it. Pairs are therefore always of equal size.
TESSELUX_ALWAYS_INLINE void pairFromDraws(const ShuffleSetup& s, const uint32_t* draws, uint32_t* pa,
                                          uint32_t* pb) {
  const uint32_t a = fastMod(draws[0], s.byBlocks);
  const uint32_t ay32 = fastDiv(a, s.byColumns);
  const A_long ax = static_cast<A_long>(a - ay32 * s.columns), ay = static_cast<A_long>(ay32);
  A_long tx = ax;
  if (s.alongX && !(s.partialW && ax == s.lastCol)) {
    tx = ax + static_cast<A_long>(fastMod(draws[1], s.bySpanX)) - s.halfSpanX;
    if (tx >= s.lastCol) tx = s.partialW ? s.lastCol - 1 : s.lastCol;
    if (tx < 0) tx = 0;
  }
  A_long ty = ay;
  if (s.alongY && !(s.partialH && ay == s.lastRow)) {
    ty = ay + static_cast<A_long>(fastMod(draws[2], s.bySpanY)) - s.halfSpanY;
    if (ty >= s.lastRow) ty = s.partialH ? s.lastRow - 1 : s.lastRow;
    if (ty < 0) ty = 0;
  }
  *pa = a;
  *pb = static_cast<uint32_t>(ty) * s.columns + static_cast<uint32_t>(tx);
}

// Pairs of `count` attempts, one at a time: pairs[t] from draws[3t, 3t + 3).
inline void pairsFromDrawsPlain(const ShuffleSetup& s, const uint32_t* draws, uint32_t (*pairs)[2], long long count) {
  for (long long t = 0; t < count; ++t) pairFromDraws(s, draws + 3 * t, &pairs[t][0], &pairs[t][1]);
}

#if TESSELUX_AVX2
// One coordinate of eight pairs: the moved coordinate of the block along one
// axis, clamped as pairFromDraws does, or the block's own where it may not
// move. Since a moved coordinate at or past the last block becomes the last
// one allowed, the clamp is a minimum with that one, then a maximum with 0.
__attribute__((target("avx2"))) inline __m256i movedAlongAvx2(__m256i own, __m256i draw, const FastDivisor& span,
                                                               A_long halfSpan, A_long last, bool partial) {
  __m256i moved = _mm256_sub_epi32(_mm256_add_epi32(own, fastModAvx2(draw, span)), _mm256_set1_epi32(halfSpan));
  moved = _mm256_min_epi32(moved, _mm256_set1_epi32(partial ? last - 1 : last));
  moved = _mm256_max_epi32(moved, _mm256_setzero_si256());
  if (!partial) return moved;
  // Blocks of a partial last column or row stay where they are.
  return _mm256_blendv_epi8(moved, own, _mm256_cmpeq_epi32(own, _mm256_set1_epi32(last)));
}

// As pairsFromDrawsPlain, eight attempts at a time. The draws of eight
// attempts are three registers of interleaved (first, second, third)
// triples; two blends pick one draw of each triple, in a fixed shuffled
// order, and a permutation puts them in attempt order.
__attribute__((target("avx2"))) inline void pairsFromDrawsAvx2(const ShuffleSetup& s, const uint32_t* draws,
                                                               uint32_t (*pairs)[2], long long count) {
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
  pairsFromDrawsPlain(s, draws + 3 * t, pairs + t, count - t);
}
#endif

// Pairs of `count` attempts, in vector lanes where the processor allows.
inline void pairsFromDraws(const ShuffleSetup& s, const uint32_t* draws, uint32_t (*pairs)[2], long long count) {
#if TESSELUX_AVX2
  if (cpuHasAvx2()) {
    pairsFromDrawsAvx2(s, draws, pairs, count);
    return;
  }
#endif
  pairsFromDrawsPlain(s, draws, pairs, count);
}

}  // namespace tesselux_kernel
