// How an attempt of the shuffle turns three draws of the shuffle stream into
// a pair of blocks. The pairs depend on the shuffle stream alone, so the
// attempt loop makes a whole chunk of them before deciding any: one at a
// time here, eight at a time in vector lanes in the AVX2 twin
// (x86/pairs_x86.cpp), with the same result bit for bit.
#pragma once

#include <stdint.h>

#include "aesdk/aesdk.h"
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
inline void pairsFromDrawsPortable(const ShuffleSetup& s, const uint32_t* draws, uint32_t (*pairs)[2],
                                   long long count) {
  for (long long t = 0; t < count; ++t) pairFromDraws(s, draws + 3 * t, &pairs[t][0], &pairs[t][1]);
}

}  // namespace tesselux_kernel
