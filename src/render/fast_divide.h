// Division and remainder by a divisor fixed for a whole kernel run, without
// a hardware divide: with c = ceil(2^64 / d), n / d and n % d are exact for
// every 32-bit n and d (the 64-bit fraction c / 2^64 carries enough bits).
// Making a pair takes four divisions, which otherwise cost more than the
// rest of an attempt.
//
// Vector lanes have no 64 x 64-bit product, so eight lanes at once
// (x86/fast_divide_avx2.h) use the 32-bit form instead (Granlund and
// Montgomery, "Division by invariant integers using multiplication", figure
// 4.1): with l = ceil(log2 d) and
// m = floor(2^32 * (2^l - d) / d) + 1, t = (m * n) >> 32 gives
// n / d = (t + ((n - t) >> min(l, 1))) >> max(l - 1, 0), exact for every
// 32-bit n and d.
#pragma once

#include <stdint.h>

namespace tesselux_kernel {

struct FastDivisor {
  uint32_t d;
  uint64_t c;  // ceil(2^64 / d); 0 when d is 1
  uint32_t m;  // the 32-bit form's multiplier and shifts
  uint32_t shift1, shift2;
};

inline FastDivisor makeDivisor(uint32_t d) {
  FastDivisor f;
  f.d = d;
  f.c = UINT64_C(0xFFFFFFFFFFFFFFFF) / d + 1;
  uint32_t l = 0;
  while (l < 32 && (UINT64_C(1) << l) < d) ++l;
  // 2^(l-1) < d gives 2^l - d < 2^31, so the shifted value fits 64 bits,
  // and m stays below 2^32.
  f.m = static_cast<uint32_t>((((UINT64_C(1) << l) - d) << 32) / d + 1);
  f.shift1 = l < 1 ? l : 1;
  f.shift2 = l > 1 ? l - 1 : 0;
  return f;
}

// The high 64 bits of a 64 x 64-bit product from four 32 x 32-bit ones, for
// compilers without a 128-bit integer; a test checks it against the native one.
inline uint64_t mulHigh64Portable(uint64_t a, uint64_t b) {
  const uint64_t aLo = a & 0xFFFFFFFFu, aHi = a >> 32, bLo = b & 0xFFFFFFFFu, bHi = b >> 32;
  const uint64_t lo = aLo * bLo, mid1 = aHi * bLo, mid2 = aLo * bHi;
  const uint64_t carry = ((lo >> 32) + (mid1 & 0xFFFFFFFFu) + (mid2 & 0xFFFFFFFFu)) >> 32;
  return aHi * bHi + (mid1 >> 32) + (mid2 >> 32) + carry;
}

#if defined(__SIZEOF_INT128__)
inline uint64_t mulHigh64(uint64_t a, uint64_t b) {
  return static_cast<uint64_t>((static_cast<unsigned __int128>(a) * b) >> 64);
}
#else
inline uint64_t mulHigh64(uint64_t a, uint64_t b) { return mulHigh64Portable(a, b); }
#endif

inline uint32_t fastMod(uint32_t n, const FastDivisor& f) {
  const uint64_t low = f.c * n;  // the fraction n / d, in 64 bits
  return static_cast<uint32_t>(mulHigh64(low, f.d));
}
inline uint32_t fastDiv(uint32_t n, const FastDivisor& f) {
  if (f.d == 1) return n;  // c wrapped to 0
  return static_cast<uint32_t>(mulHigh64(f.c, n));
}

}  // namespace tesselux_kernel
