// The multiply-with-carry generator: seeding, the first steps worked out by
// hand, negative seeds, and long runs against the floor-division formulation.
#include <gtest/gtest.h>

#include <limits.h>

#include <vector>

#include "dsp_versions.h"
#include "reference.h"
#include "render/random.h"

namespace {

TEST(Random, SeedSetsZAndSignExtendsW) {
  long long w = 5, z = 5;
  EXPECT_EQ(z_seed(&w, &z, -7), -7);
  EXPECT_EQ(z, 987654321LL);
  EXPECT_EQ(w, -7LL);
  EXPECT_EQ(z_seed(&w, &z, INT_MIN), INT_MIN);
  EXPECT_EQ(w, -2147483648LL);
}

TEST(Random, ZHalfFirstStepFromItsFixedStart) {
  // 987654321 = 15070 * 65536 + 26801; 15070 + 26801 * 36969 = 990821239.
  long long w, z;
  z_seed(&w, &z, 12345);
  z_random(&w, &z);
  EXPECT_EQ(z, (987654321LL >> 16) + (987654321LL & 0xFFFF) * 36969);
  EXPECT_EQ(z, 990821239LL);
}

TEST(Random, SeedZeroKeepsWAtZeroAndOutputsZShiftedLeft) {
  long long w, z;
  z_seed(&w, &z, 0);
  // 990821239 mod 65536 = 47991, and 47991 << 16 = 3145138176.
  EXPECT_EQ(z_random(&w, &z), 3145138176u);
  const uint32_t expected[] = {249364480u, 3529834496u, 600768512u, 2526412800u};
  for (uint32_t e : expected) {
    const uint32_t r = z_random(&w, &z);
    EXPECT_EQ(r, e);
    EXPECT_EQ(w, 0);
    EXPECT_EQ(r, static_cast<uint32_t>(z << 16));
  }
  for (int i = 0; i < 10000; ++i) {
    const uint32_t r = z_random(&w, &z);
    ASSERT_EQ(w, 0);
    ASSERT_EQ(r, static_cast<uint32_t>(static_cast<uint32_t>(z) << 16));
  }
}

TEST(Random, NegativeSeedUsesArithmeticShiftOnFirstStep) {
  long long w, z;
  z_seed(&w, &z, -1);
  // (-1 >> 16) = -1 and (-1 & 0xFFFF) = 65535: -1 + 65535 * 18000 = 1179629999.
  const uint32_t r = z_random(&w, &z);
  EXPECT_EQ(w, 1179629999LL);
  // 1179629999 + 3145138176 wraps to 29800879.
  EXPECT_EQ(r, 29800879u);
  const uint32_t expected[] = {1105012479u, 3709541552u, 732963254u, 2681754817u};
  for (uint32_t e : expected) EXPECT_EQ(z_random(&w, &z), e);

  // -123456 >> 16 = -2 (floor), -123456 & 0xFFFF = 7616: -2 + 7616 * 18000 = 137087998.
  z_seed(&w, &z, -123456);
  EXPECT_EQ(z_random(&w, &z), 3282226174u);
  EXPECT_EQ(w, 137087998LL);

  // The most negative seed: -32768 + 0 * 18000, masked to 4294934528.
  z_seed(&w, &z, INT_MIN);
  EXPECT_EQ(z_random(&w, &z), 3145105408u);
  EXPECT_EQ(w, 4294934528LL);
}

TEST(Random, HalvesStayWithin32BitsAfterEveryStep) {
  for (int seed : {INT_MIN, -65536, -1, 0, 1, 777, 32767, INT_MAX}) {
    long long w, z;
    z_seed(&w, &z, seed);
    for (int i = 0; i < 1000; ++i) {
      z_random(&w, &z);
      ASSERT_GE(w, 0);
      ASSERT_LE(w, 0xFFFFFFFFLL);
      ASSERT_GE(z, 0);
      ASSERT_LE(z, 0xFFFFFFFFLL);
    }
  }
}

TEST(Random, LongRunsMatchTheFloorDivisionFormulation) {
  for (int seed : {INT_MIN, -2000000000, -65537, -65536, -32768, -1, 0, 1, 337, 777, 65535, 65536, INT_MAX}) {
    long long w, z;
    z_seed(&w, &z, seed);
    ref::Gen g(seed);
    for (int i = 0; i < 20000; ++i) {
      ASSERT_EQ(z_random(&w, &z), g.next()) << "seed " << seed << " step " << i;
      ASSERT_EQ(w, g.w);
      ASSERT_EQ(z, g.z);
    }
  }
}

// Skipping a stream ahead lands on the same state as stepping it, from any
// seed and for any count, including the first three steps that bring a
// half into the range where a step is a modular product.
TEST(Random, SkipEqualsSteppingOneAtATime) {
  for (int seed : {INT_MIN, -2000000000, -65537, -65536, -32768, -1, 0, 1, 337, 777, 65535, 65536, INT_MAX}) {
    long long w, z;
    z_seed(&w, &z, seed);
    for (unsigned long long steps = 0; steps <= 5000; steps += (steps < 20 ? 1 : 97)) {
      long long sw, sz;
      z_seed(&sw, &sz, seed);
      z_skip(&sw, &sz, steps);
      long long lw, lz;
      z_seed(&lw, &lz, seed);
      for (unsigned long long i = 0; i < steps; ++i) z_random(&lw, &lz);
      ASSERT_EQ(sw, lw) << "seed " << seed << " steps " << steps;
      ASSERT_EQ(sz, lz) << "seed " << seed << " steps " << steps;
    }
    // A long run, then a skip from the middle of a stream.
    long long lw = w, lz = z;
    for (int i = 0; i < 3000000; ++i) z_random(&lw, &lz);
    z_skip(&w, &z, 1000000);
    z_skip(&w, &z, 2000000);
    EXPECT_EQ(w, lw) << "seed " << seed;
    EXPECT_EQ(z, lz) << "seed " << seed;
  }
}

// The halves' fixed points: p = a * 65536 - 1 maps to itself, and so does 0.
TEST(Random, SkipKeepsTheFixedPoints) {
  for (long long p : {36969LL * 65536 - 1, 0LL}) {
    long long w = 0, z = p;
    z_random(&w, &z);
    EXPECT_EQ(z, p);
    long long sw = 0, sz = p;
    // Past the three leading steps, so that the modular product is used.
    z_skip(&sw, &sz, 12345);
    EXPECT_EQ(sz, p);
    EXPECT_EQ(sw, 0);
  }
  EXPECT_EQ(z_skip_half(18000LL * 65536 - 1, 18000, 99), 18000LL * 65536 - 1);
}

TEST(Random, SameSeedSameSequenceAndStreamsAreIndependent) {
  long long w1, z1, w2, z2, w3, z3;
  z_seed(&w1, &z1, 42);
  z_seed(&w2, &z2, 42);
  z_seed(&w3, &z3, 43);
  bool differs = false;
  for (int i = 0; i < 100; ++i) {
    const uint32_t a = z_random(&w1, &z1);
    EXPECT_EQ(a, z_random(&w2, &z2));
    differs = differs || a != z_random(&w3, &z3);
  }
  EXPECT_TRUE(differs);
}

// Outputs in bulk, several stretches of the stream stepped side by side,
// must be the outputs and the end state of the same number of single steps:
// from fresh seeds (negative ones take ordinary steps first), part-way
// through a stream, at the fixed point p and at 0, and at lengths around
// the stretch boundaries.
TEST(Random, BulkOutputsEqualSingleSteps) {
  struct Start {
    long long w, z;
  };
  std::vector<Start> starts;
  for (int seed : {0, 1, 777, -1, -7, INT_MIN, INT_MAX}) {
    Start st;
    z_seed(&st.w, &st.z, seed);
    starts.push_back(st);
    for (int k = 0; k < 5; ++k) z_random(&st.w, &st.z);
    starts.push_back(st);
  }
  starts.push_back({18000LL * 65536 - 1, 36969LL * 65536 - 1});
  starts.push_back({0, 36969LL * 65536 - 1});
  starts.push_back({18000LL * 65536 - 1, 5});
  const size_t lengths[] = {0, 1, 3, 127, 128, 129, 135, 191, 192, 193, 1000, 3072, 100003};
  // Every stepping this processor has: the portable one, and on x86 SSE2
  // and AVX2.
  for (const tesselux_kernel::KernelDsp& dsp : rt::everyDsp())
    for (const Start& st : starts)
      for (size_t n : lengths) {
        long long w1 = st.w, z1 = st.z, w2 = st.w, z2 = st.z;
        std::vector<uint32_t> bulk(n + 1, 0xDEADBEEFu);
        z_fill(&w1, &z1, bulk.data(), n, dsp.zChains);
        size_t wrong = 0;
        for (size_t i = 0; i < n; ++i) wrong += bulk[i] != z_random(&w2, &z2);
        EXPECT_EQ(wrong, 0u) << "start " << st.w << "," << st.z << " length " << n << " version " << dsp.name;
        EXPECT_EQ(bulk[n], 0xDEADBEEFu);
        EXPECT_EQ(w1, w2);
        EXPECT_EQ(z1, z2);
      }
}

}  // namespace
