// The effect's random number generator: a multiply-with-carry pair whose two
// halves are 64-bit signed integers. Every random decision of the renderer
// comes from streams of this generator, so its arithmetic is fixed bit for bit.
#pragma once

#include <stdint.h>

// Keeps the low 32 bits of a half after each step.
constexpr long long rnd_mask = 0x00000000FFFFFFFFLL;

// Seeds one stream: z starts at 987654321, w is the seed sign-extended.
inline int z_seed(long long* w, long long* z, int seed) {
  *z = 987654321LL;
  *w = static_cast<long long>(seed);
  return seed;
}

// Advances both halves one step and returns the 32-bit output. The shifts are
// arithmetic: they only matter on the first step after a negative seed, when w
// still holds the sign-extended value.
inline uint32_t z_random(long long* w, long long* z) {
  *z = ((*z >> 16) + (*z & 0xFFFF) * 36969) & rnd_mask;
  *w = ((*w >> 16) + (*w & 0xFFFF) * 18000) & rnd_mask;
  return static_cast<uint32_t>(static_cast<uint32_t>(*w) + (static_cast<uint32_t>(*z) << 16));
}

// Each half maps x = c * 65536 + v (c, v 16-bit) to a * v + c, which is
// a * x modulo p = a * 65536 - 1. After three ordinary steps both halves are
// at most p whatever the seed, and from there a step is exactly that
// modular product (p itself is a fixed point, like 0). So `steps` steps can
// be taken at once by a modular power, which the kernel uses for streams
// whose outputs go unused but whose end state still counts.
inline long long z_skip_half(long long x, unsigned long long a, unsigned long long steps) {
  const unsigned long long p = a * 65536 - 1;
  const unsigned long long ux = static_cast<unsigned long long>(x);
  if (ux == p) return x;
  unsigned long long r = 1, b = a;
  for (; steps; steps >>= 1) {
    if (steps & 1) r = r * b % p;  // both factors below 2^32: no overflow
    b = b * b % p;
  }
  return static_cast<long long>(ux * r % p);
}

// The same state as `steps` calls of z_random.
inline void z_skip(long long* w, long long* z, unsigned long long steps) {
  for (int lead = 0; lead < 3 && steps > 0; ++lead, --steps) z_random(w, z);
  if (steps == 0) return;
  *z = z_skip_half(*z, 36969, steps);
  *w = z_skip_half(*w, 18000, steps);
}
