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
