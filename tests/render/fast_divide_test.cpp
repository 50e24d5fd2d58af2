// Division by a divisor fixed in advance, against the hardware's own / and %.
#include <gtest/gtest.h>

#include <stdint.h>

#include <random>

#include "render/fast_divide.h"
#include "render/x86/fast_divide_avx2.h"

namespace {

using tesselux_kernel::fastDiv;
using tesselux_kernel::fastMod;
using tesselux_kernel::makeDivisor;

// Divisor i of a random run: a third below 4096 (block columns, spans), a
// third below 4,000,000 (block counts), a third anywhere; never 0.
uint32_t randomDivisor(std::mt19937& rng, int i) {
  uint32_t d = rng();
  if (i % 3 == 0) d %= 4096;
  if (i % 3 == 1) d %= 4000000;
  return d == 0 ? 1 : d;
}

void expectExact(uint32_t n, uint32_t d) {
  const auto f = makeDivisor(d);
  ASSERT_EQ(fastMod(n, f), n % d) << n << " % " << d;
  ASSERT_EQ(fastDiv(n, f), n / d) << n << " / " << d;
}

#if TESSELUX_X86_SIMD
// Eight numerators at once through the vector form, each lane against / and %.
TESSELUX_AVX2_FN void divideLanes(const uint32_t n[8], const tesselux_kernel::FastDivisor& f, uint32_t q[8],
                                  uint32_t r[8]) {
  const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(n));
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(q), tesselux_kernel::fastDivAvx2(v, f));
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(r), tesselux_kernel::fastModAvx2(v, f));
}

void expectExactLanes(const uint32_t n[8], uint32_t d) {
  const auto f = makeDivisor(d);
  uint32_t q[8], r[8];
  divideLanes(n, f, q, r);
  for (int k = 0; k < 8; ++k) {
    ASSERT_EQ(q[k], n[k] / d) << n[k] << " / " << d << " in lane " << k;
    ASSERT_EQ(r[k], n[k] % d) << n[k] << " % " << d << " in lane " << k;
  }
}
#endif

TEST(FastDivide, EdgeNumeratorsAndDivisors) {
  const uint32_t divisors[] = {1, 2, 3, 5, 7, 641, 1920, 2073600, 65535, 65536, 65537, 0x7FFFFFFFu, 0x80000000u,
                               0x80000001u, 0xFFFFFFFEu, 0xFFFFFFFFu};
  for (uint32_t d : divisors)
    for (uint32_t n : {0u, 1u, d - 1, d, d + 1, 2 * d - 1, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFEu, 0xFFFFFFFFu})
      expectExact(n, d);
}

// The product that compilers without a 128-bit integer use, against the
// 128-bit product, at the carries' edges and on random operands.
TEST(FastDivide, PortableHighProductMatchesNative) {
#if defined(__SIZEOF_INT128__)
  auto native = [](uint64_t a, uint64_t b) {
    return static_cast<uint64_t>((static_cast<unsigned __int128>(a) * b) >> 64);
  };
  const uint64_t edges[] = {0, 1, 2, 0xFFFFFFFFu, 0x100000000u, 0x100000001u, 0x7FFFFFFFFFFFFFFFu,
                            0x8000000000000000u, 0xFFFFFFFF00000000u, 0xFFFFFFFFFFFFFFFEu, 0xFFFFFFFFFFFFFFFFu};
  for (uint64_t a : edges)
    for (uint64_t b : edges) ASSERT_EQ(tesselux_kernel::mulHigh64Portable(a, b), native(a, b)) << a << " * " << b;
  std::mt19937_64 rng(11);
  for (int i = 0; i < 1000000; ++i) {
    const uint64_t a = rng(), b = rng() >> (i % 64);
    ASSERT_EQ(tesselux_kernel::mulHigh64Portable(a, b), native(a, b)) << a << " * " << b;
  }
#else
  GTEST_SKIP() << "no 128-bit integer to check against";
#endif
}

#if TESSELUX_X86_SIMD
TEST(FastDivideLanes, EdgeNumeratorsAndDivisors) {
  if (!(tesselux_kernel::cpuFlags() & tesselux_kernel::kCpuAvx2)) GTEST_SKIP() << "no AVX2 on this processor";
  const uint32_t divisors[] = {1, 2, 3, 4, 5, 7, 641, 1920, 2073600, 65535, 65536, 65537, 0x7FFFFFFFu, 0x80000000u,
                               0x80000001u, 0xFFFFFFFEu, 0xFFFFFFFFu};
  for (uint32_t d : divisors) {
    const uint32_t edges[] = {0u, 1u, d - 1, d, d + 1, 2 * d - 1, 0x7FFFFFFFu, 0x80000000u,
                              0xFFFFFFFEu, 0xFFFFFFFFu, d * 3, d * 3 - 1, 0x80000001u, 12345u, 2 * d, 7u};
    expectExactLanes(edges, d);
    expectExactLanes(edges + 8, d);
  }
}

TEST(FastDivideLanes, RandomNumeratorsAndDivisors) {
  if (!(tesselux_kernel::cpuFlags() & tesselux_kernel::kCpuAvx2)) GTEST_SKIP() << "no AVX2 on this processor";
  std::mt19937 rng(7);
  for (int i = 0; i < 300000; ++i) {
    const uint32_t d = randomDivisor(rng, i);
    uint32_t n[8];
    for (auto& v : n) v = rng();
    expectExactLanes(n, d);
  }
}

TEST(FastDivideLanes, EveryNumeratorStepForSmallDivisors) {
  if (!(tesselux_kernel::cpuFlags() & tesselux_kernel::kCpuAvx2)) GTEST_SKIP() << "no AVX2 on this processor";
  for (uint32_t d : {1u, 3u, 1920u, 2073601u, 0x80000000u}) {
    for (uint64_t n0 = 0; n0 <= 0xFFFFFFFFu; n0 += 8 * 65521) {
      uint32_t n[8];
      for (int k = 0; k < 8; ++k) n[k] = static_cast<uint32_t>((n0 + k * 65521) & 0xFFFFFFFFu);
      expectExactLanes(n, d);
    }
  }
}
#endif

TEST(FastDivide, RandomNumeratorsAndDivisors) {
  std::mt19937 rng(99);
  for (int i = 0; i < 2000000; ++i) {
    const uint32_t d = randomDivisor(rng, i);
    expectExact(rng(), d);
  }
}

TEST(FastDivide, EveryNumeratorForSmallDivisors) {
  for (uint32_t d : {3u, 1920u, 2073601u}) {
    const auto f = makeDivisor(d);
    for (uint64_t n = 0; n <= 0xFFFFFFFFu; n += 65521) {
      ASSERT_EQ(fastMod(static_cast<uint32_t>(n), f), n % d);
      ASSERT_EQ(fastDiv(static_cast<uint32_t>(n), f), n / d);
    }
  }
}

}  // namespace
