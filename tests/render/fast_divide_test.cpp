// Division by a divisor fixed in advance, against the hardware's own / and %.
#include <gtest/gtest.h>

#include <stdint.h>

#include <random>

#include "render/fast_divide.h"

namespace {

using tesselux_kernel::fastDiv;
using tesselux_kernel::fastMod;
using tesselux_kernel::makeDivisor;

void expectExact(uint32_t n, uint32_t d) {
  const auto f = makeDivisor(d);
  ASSERT_EQ(fastMod(n, f), n % d) << n << " % " << d;
  ASSERT_EQ(fastDiv(n, f), n / d) << n << " / " << d;
}

TEST(FastDivide, EdgeNumeratorsAndDivisors) {
  const uint32_t divisors[] = {1, 2, 3, 5, 7, 641, 1920, 2073600, 65535, 65536, 65537, 0x7FFFFFFFu, 0x80000000u,
                               0x80000001u, 0xFFFFFFFEu, 0xFFFFFFFFu};
  for (uint32_t d : divisors)
    for (uint32_t n : {0u, 1u, d - 1, d, d + 1, 2 * d - 1, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFEu, 0xFFFFFFFFu})
      expectExact(n, d);
}

TEST(FastDivide, RandomNumeratorsAndDivisors) {
  std::mt19937 rng(99);
  for (int i = 0; i < 2000000; ++i) {
    uint32_t d = rng();
    if (i % 3 == 0) d %= 4096;
    if (i % 3 == 1) d %= 4000000;
    if (d == 0) d = 1;
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
