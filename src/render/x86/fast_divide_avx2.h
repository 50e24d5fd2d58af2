// Division and remainder of eight 32-bit lanes by one fixed divisor, by the
// 32-bit form described in fast_divide.h. For the AVX2 pairs and their tests.
#pragma once

#include "render/x86/dsp_x86.h"

#if TESSELUX_X86_SIMD

#include <immintrin.h>

#include "render/fast_divide.h"

namespace tesselux_kernel {

// n / d in each of eight lanes.
TESSELUX_AVX2_FN inline __m256i fastDivAvx2(__m256i n, const FastDivisor& f) {
  const __m256i m = _mm256_set1_epi32(static_cast<int>(f.m));
  // The high halves of the eight 32 x 32-bit products: even lanes, then odd.
  const __m256i even = _mm256_srli_epi64(_mm256_mul_epu32(n, m), 32);
  const __m256i odd = _mm256_mul_epu32(_mm256_srli_epi64(n, 32), m);
  const __m256i t = _mm256_blend_epi32(even, odd, 0xAA);
  const __m256i half = _mm256_srl_epi32(_mm256_sub_epi32(n, t), _mm_cvtsi32_si128(static_cast<int>(f.shift1)));
  return _mm256_srl_epi32(_mm256_add_epi32(t, half), _mm_cvtsi32_si128(static_cast<int>(f.shift2)));
}

// n % d in each of eight lanes.
TESSELUX_AVX2_FN inline __m256i fastModAvx2(__m256i n, const FastDivisor& f) {
  const __m256i q = fastDivAvx2(n, f);
  return _mm256_sub_epi32(n, _mm256_mullo_epi32(q, _mm256_set1_epi32(static_cast<int>(f.d))));
}

}  // namespace tesselux_kernel

#endif  // TESSELUX_X86_SIMD
