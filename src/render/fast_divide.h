// Division and remainder by a divisor fixed for a whole kernel run, without
// a hardware divide: with c = ceil(2^64 / d), n / d and n % d are exact for
// every 32-bit n and d (the 64-bit fraction c / 2^64 carries enough bits).
// The attempt loop divides five times per attempt, which otherwise costs
// more than the rest of an attempt.
#pragma once

#include <stdint.h>

namespace tesselux_kernel {

struct FastDivisor {
  uint32_t d;
  uint64_t c;  // ceil(2^64 / d); 0 when d is 1
};

inline FastDivisor makeDivisor(uint32_t d) {
  FastDivisor f;
  f.d = d;
  f.c = UINT64_C(0xFFFFFFFFFFFFFFFF) / d + 1;
  return f;
}

#if defined(__SIZEOF_INT128__)
inline uint32_t fastMod(uint32_t n, const FastDivisor& f) {
  const uint64_t low = f.c * n;  // the fraction n / d, in 64 bits
  return static_cast<uint32_t>((static_cast<unsigned __int128>(low) * f.d) >> 64);
}
inline uint32_t fastDiv(uint32_t n, const FastDivisor& f) {
  if (f.d == 1) return n;  // c wrapped to 0
  return static_cast<uint32_t>((static_cast<unsigned __int128>(f.c) * n) >> 64);
}
#else
inline uint32_t fastMod(uint32_t n, const FastDivisor& f) { return n % f.d; }
inline uint32_t fastDiv(uint32_t n, const FastDivisor& f) { return n / f.d; }
#endif

}  // namespace tesselux_kernel
