// The shuffle stream's chains stepped in 128-bit (SSE2) and 256-bit (AVX2)
// registers, the twins of z_chains_plain (random.h): the same outputs and
// end states, bit for bit.
#include "render/x86/dsp_x86.h"

#if TESSELUX_X86_SIMD

#include <immintrin.h>

#include "render/random.h"

namespace tesselux_kernel {

namespace {

// One step of four chains of one half, each lane at most p.
inline __m128i z_step4(__m128i x, __m128i a, __m128i low16) {
  const __m128i v = _mm_and_si128(x, low16);
  const __m128i product = _mm_or_si128(_mm_mullo_epi16(v, a), _mm_slli_epi32(_mm_mulhi_epu16(v, a), 16));
  return _mm_add_epi32(product, _mm_srli_epi32(x, 16));
}

}  // namespace

// As z_chains_plain, `len` a multiple of four: four chains to a register;
// the 16 x 16-bit products are put together from their low and high halves,
// and every four steps the outputs are turned from one register per step
// into one per chain.
void z_chains_sse2(uint32_t* cz, uint32_t* cw, uint32_t* out, size_t len) {
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

// As z_chains_plain, `len` a multiple of eight: the eight chains in one
// register per half, where a lane's 16 x 16-bit product fits one 32-bit
// multiply; every eight steps the outputs are turned from one register per
// step into one per chain by an 8 x 8 transpose.
TESSELUX_AVX2_FN void z_chains_avx2(uint32_t* cz, uint32_t* cw, uint32_t* out, size_t len) {
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

}  // namespace tesselux_kernel

#endif  // TESSELUX_X86_SIMD
