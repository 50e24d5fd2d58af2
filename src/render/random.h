// The effect's random number generator: a multiply-with-carry pair whose two
// halves are 64-bit signed integers. Every random decision of the renderer
// comes from streams of this generator, so its arithmetic is fixed bit for bit.
#pragma once

#include <stddef.h>
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

// Stretches z_fill steps side by side (one 256-bit register of eight lanes,
// or two SSE2 registers of four, in the x86 twins in x86/random_x86.cpp).
constexpr int kZChains = 8;

// The chains stepped `len` times side by side (`len` a multiple of eight);
// chain k's outputs go to out[k * len, (k + 1) * len). Each lane stays at
// most p (see z_fill). The renderer takes the version from its table (dsp.h).
typedef void (*ZChainsFn)(uint32_t* cz, uint32_t* cw, uint32_t* out, size_t len);

// The portable version, one lane at a time.
inline void z_chains_plain(uint32_t* cz, uint32_t* cw, uint32_t* out, size_t len) {
  for (size_t j = 0; j < len; ++j)
    for (int k = 0; k < kZChains; ++k) {
      cz[k] = (cz[k] >> 16) + (cz[k] & 0xFFFFu) * 36969u;
      cw[k] = (cw[k] >> 16) + (cw[k] & 0xFFFFu) * 18000u;
      out[k * len + j] = cw[k] + (cz[k] << 16);
    }
}

// Outputs in bulk: out[0..n) receive the next n results of z_random(w, z),
// and the stream ends n steps on, exactly as n calls would leave it. Each
// step waits for the one before, which bounds a long run of draws by the
// multiplier's latency; once both halves are at most p (the modular form
// above), the run is cut into kChains stretches, each started by a jump
// of a modular power, and the stretches are stepped side by side by
// `chains`.
inline void z_fill(long long* w, long long* z, uint32_t* out, size_t n, ZChainsFn chains) {
  constexpr unsigned long long pz = 36969ULL * 65536 - 1, pw = 18000ULL * 65536 - 1;
  constexpr int kChains = kZChains;
  size_t i = 0;
  while (i < n && !(*z >= 0 && static_cast<unsigned long long>(*z) <= pz && *w >= 0 &&
                    static_cast<unsigned long long>(*w) <= pw))
    out[i++] = z_random(w, z);
  const size_t len = (n - i) / kChains / 8 * 8;  // whole groups of eight steps
  if (len >= 16) {
    // z_skip_half of 1 gives the multiplier of a jump by len steps.
    const unsigned long long jz = static_cast<unsigned long long>(z_skip_half(1, 36969, len));
    const unsigned long long jw = static_cast<unsigned long long>(z_skip_half(1, 18000, len));
    uint32_t cz[kChains], cw[kChains];
    unsigned long long sz = static_cast<unsigned long long>(*z), sw = static_cast<unsigned long long>(*w);
    for (int k = 0; k < kChains; ++k) {
      cz[k] = static_cast<uint32_t>(sz);
      cw[k] = static_cast<uint32_t>(sw);
      // p is a fixed point of the step, and stays one of the jump.
      if (sz != pz) sz = sz * jz % pz;
      if (sw != pw) sw = sw * jw % pw;
    }
    // Below p a step never leaves 32 bits: 65535 * 36969 + 65535 < 2^32.
    chains(cz, cw, out + i, len);
    *z = cz[kChains - 1];
    *w = cw[kChains - 1];
    i += kChains * len;
  }
  while (i < n) out[i++] = z_random(w, z);
}
