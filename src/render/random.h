// The effect's random number generator: a multiply-with-carry pair whose two
// halves are 64-bit signed integers. Every random decision of the renderer
// comes from streams of this generator, so its arithmetic is fixed bit for bit.
#pragma once

#include <stddef.h>
#include <stdint.h>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "render/cpu_features.h"

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

// Stretches z_fill steps side by side (two SSE2 registers of four).
constexpr int kZChains = 8;

// The chains stepped `len` times side by side; chain k's outputs go to
// out[k * len, (k + 1) * len). Each lane stays at most p (see z_fill).
inline void z_chains_plain(uint32_t cz[kZChains], uint32_t cw[kZChains], uint32_t* out, size_t len) {
  for (size_t j = 0; j < len; ++j)
    for (int k = 0; k < kZChains; ++k) {
      cz[k] = (cz[k] >> 16) + (cz[k] & 0xFFFFu) * 36969u;
      cw[k] = (cw[k] >> 16) + (cw[k] & 0xFFFFu) * 18000u;
      out[k * len + j] = cw[k] + (cz[k] << 16);
    }
}

#if defined(__SSE2__)
// One step of four chains of one half, each lane at most p.
inline __m128i z_step4(__m128i x, __m128i a, __m128i low16) {
  const __m128i v = _mm_and_si128(x, low16);
  const __m128i product = _mm_or_si128(_mm_mullo_epi16(v, a), _mm_slli_epi32(_mm_mulhi_epu16(v, a), 16));
  return _mm_add_epi32(product, _mm_srli_epi32(x, 16));
}

// As z_chains_plain, `len` a multiple of four: four chains to a register;
// the 16 x 16-bit products are put together from their low and high halves,
// and every four steps the outputs are turned from one register per step
// into one per chain.
inline void z_chains_sse2(uint32_t cz[kZChains], uint32_t cw[kZChains], uint32_t* out, size_t len) {
  const __m128i low16 = _mm_set1_epi32(0xFFFF);
  const __m128i az = _mm_set1_epi32(36969), aw = _mm_set1_epi32(18000);
  __m128i z4[2], w4[2];
  for (int h = 0; h < 2; ++h) {
    z4[h] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(cz + 4 * h));
    w4[h] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(cw + 4 * h));
  }
  for (size_t j = 0; j < len; j += 4)
    for (int h = 0; h < 2; ++h) {
      __m128i o[4];
      for (int q = 0; q < 4; ++q) {
        z4[h] = z_step4(z4[h], az, low16);
        w4[h] = z_step4(w4[h], aw, low16);
        o[q] = _mm_add_epi32(w4[h], _mm_slli_epi32(z4[h], 16));
      }
      const __m128i t0 = _mm_unpacklo_epi32(o[0], o[1]), t1 = _mm_unpacklo_epi32(o[2], o[3]);
      const __m128i t2 = _mm_unpackhi_epi32(o[0], o[1]), t3 = _mm_unpackhi_epi32(o[2], o[3]);
      uint32_t* base = out + 4 * h * len + j;
      _mm_storeu_si128(reinterpret_cast<__m128i*>(base), _mm_unpacklo_epi64(t0, t1));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(base + len), _mm_unpackhi_epi64(t0, t1));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(base + 2 * len), _mm_unpacklo_epi64(t2, t3));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(base + 3 * len), _mm_unpackhi_epi64(t2, t3));
    }
  for (int h = 0; h < 2; ++h) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(cz + 4 * h), z4[h]);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(cw + 4 * h), w4[h]);
  }
}
#endif

#if TESSELUX_AVX2
// As z_chains_plain, `len` a multiple of eight: the eight chains in one
// register per half, where a lane's 16 x 16-bit product fits one 32-bit
// multiply; every eight steps the outputs are turned from one register per
// step into one per chain by an 8 x 8 transpose.
__attribute__((target("avx2"))) inline void z_chains_avx2(uint32_t cz[kZChains], uint32_t cw[kZChains], uint32_t* out,
                                                          size_t len) {
  static_assert(kZChains == 8, "one chain per 32-bit lane of a 256-bit register");
  const __m256i low16 = _mm256_set1_epi32(0xFFFF);
  const __m256i az = _mm256_set1_epi32(36969), aw = _mm256_set1_epi32(18000);
  __m256i z = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(cz));
  __m256i w = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(cw));
  for (size_t j = 0; j < len; j += 8) {
    __m256i o[8];
    for (int q = 0; q < 8; ++q) {
      z = _mm256_add_epi32(_mm256_mullo_epi32(_mm256_and_si256(z, low16), az), _mm256_srli_epi32(z, 16));
      w = _mm256_add_epi32(_mm256_mullo_epi32(_mm256_and_si256(w, low16), aw), _mm256_srli_epi32(w, 16));
      o[q] = _mm256_add_epi32(w, _mm256_slli_epi32(z, 16));
    }
    // o[q] holds step q of every chain; the stores below write chain k's
    // eight steps, one register each, where its stretch of out continues.
    __m256i t[8], u[8];
    for (int q = 0; q < 8; q += 2) {
      t[q] = _mm256_unpacklo_epi32(o[q], o[q + 1]);
      t[q + 1] = _mm256_unpackhi_epi32(o[q], o[q + 1]);
    }
    for (int q = 0; q < 8; q += 4) {
      u[q] = _mm256_unpacklo_epi64(t[q], t[q + 2]);
      u[q + 1] = _mm256_unpackhi_epi64(t[q], t[q + 2]);
      u[q + 2] = _mm256_unpacklo_epi64(t[q + 1], t[q + 3]);
      u[q + 3] = _mm256_unpackhi_epi64(t[q + 1], t[q + 3]);
    }
    for (int k = 0; k < 4; ++k) {
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + k * len + j),
                          _mm256_permute2x128_si256(u[k], u[k + 4], 0x20));
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + (k + 4) * len + j),
                          _mm256_permute2x128_si256(u[k], u[k + 4], 0x31));
    }
  }
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(cz), z);
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(cw), w);
}
#endif

// How z_fill steps its stretches: one lane at a time (what processors
// without SSE2 run), four SSE2 lanes at a time, or the widest the
// processor has.
enum class ZLanes { plain, sse2, widest };

// Steps the chains `len` times (a multiple of eight) with the lanes asked for.
inline void z_chains(uint32_t cz[kZChains], uint32_t cw[kZChains], uint32_t* out, size_t len, ZLanes lanes) {
#if TESSELUX_AVX2
  if (lanes == ZLanes::widest && tesselux_kernel::cpuHasAvx2()) {
    z_chains_avx2(cz, cw, out, len);
    return;
  }
#endif
#if defined(__SSE2__)
  if (lanes != ZLanes::plain) {
    z_chains_sse2(cz, cw, out, len);
    return;
  }
#endif
  (void)lanes;
  z_chains_plain(cz, cw, out, len);
}

// Outputs in bulk: out[0..n) receive the next n results of z_random(w, z),
// and the stream ends n steps on, exactly as n calls would leave it. Each
// step waits for the one before, which bounds a long run of draws by the
// multiplier's latency; once both halves are at most p (the modular form
// above), the run is cut into kChains stretches, each started by a jump
// of a modular power, and the stretches are stepped side by side.
inline void z_fill(long long* w, long long* z, uint32_t* out, size_t n, ZLanes lanes = ZLanes::widest) {
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
    z_chains(cz, cw, out + i, len, lanes);
    *z = cz[kChains - 1];
    *w = cw[kChains - 1];
    i += kChains * len;
  }
  while (i < n) out[i++] = z_random(w, z);
}
