// The block size alignment behind the "Align" button, called directly.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>

#include "params/control_behaviour.h"

namespace {

struct AlignCase {
  int total, size, expected;
};

// The documented alignment results, (T, B) -> result.
const AlignCase kTable[] = {
    {1920, 32, 32},   {1920, 100, 96},  {1920, 88, 80},    {1080, 32, 30},
    {1080, 100, 108}, {97, 10, 11},     {101, 10, 11},     {7, 3, 4},
    {5, 3, 2},        {3, 2, 1},        {1, 1, 1},         {2000, 4095, 2000},
    {720, 5000, 720}, {6000, 4096, 4096}, {8198, 4000, 4096}, {4099, 100, 100},
};

// The rules transcribed literally and slowly, as an independent reference:
// prime-likeness by trial division over every number from 2 to T - 2, and
// both scans written out without shortcuts.
bool primeLikeLiteral(int t) {
  if (t < 4) return true;
  for (int d = 2; d <= t - 2; ++d) {
    if (t % d == 0) return false;
  }
  return true;
}

int stepLiteral(int t, int b) {
  if (b > t) return t;
  const int r = t % b;
  if (r == 0) return b;
  const bool pl = primeLikeLiteral(t);
  int u = b;
  if (b < 4096) {
    u = 4096;
    for (int c = b + 1; c <= 4096; ++c) {
      const bool q = pl ? (t % c == 0 || t % c > r) : (t % c == 0);
      if (q) {
        u = c;
        break;
      }
    }
  }
  int d = 1;
  for (int x = b - 1; x >= 1; --x) {
    const bool q = pl ? (t % x < r) : (t % x == 0);
    if (q) {
      d = x;
      break;
    }
  }
  return (u - b < b - d) ? u : d;
}

int alignLiteral(int t, int b) {
  const int a = stepLiteral(t, b);
  if (t % a == 0) return a;
  const int c = stepLiteral(t, a);
  if (c == a) return a;
  return (t % a > t % c) ? a : c;
}

// The property: a result in [1, min(T, 4096)] that, for a T of at most 4096
// that is not prime-like, divides T. Empty when it holds.
std::string propertyViolation(int t, int b) {
  const int v = findAlignedValue(t, b);
  const int hi = std::min(t, 4096);
  if (v < 1 || v > hi) {
    return "T=" + std::to_string(t) + " B=" + std::to_string(b) + " -> " + std::to_string(v) +
           " outside [1, " + std::to_string(hi) + "]";
  }
  if (t <= 4096 && !primeLikeLiteral(t) && t % v != 0) {
    return "T=" + std::to_string(t) + " B=" + std::to_string(b) + " -> " + std::to_string(v) +
           " does not divide T";
  }
  return {};
}

}  // namespace

TEST(FindAlignedValue, DocumentedTable) {
  for (const AlignCase& c : kTable) {
    EXPECT_EQ(findAlignedValue(c.total, c.size), c.expected) << c.total << ", " << c.size;
  }
}

TEST(FindAlignedValue, TheTableAgreesWithTheLiteralReference) {
  // The table itself checked against the slow transcription of the rules.
  for (const AlignCase& c : kTable) {
    EXPECT_EQ(alignLiteral(c.total, c.size), c.expected) << c.total << ", " << c.size;
  }
}

TEST(FindAlignedValue, TwoPassesFor4099And100) {
  // The first pass lands on 99 (leftover 40); the second finds 100 (leftover 99) and wins.
  EXPECT_EQ(findAlignedValueStep(4099, 100), 99);
  EXPECT_EQ(findAlignedValueStep(4099, 99), 100);
  EXPECT_EQ(findAlignedValue(4099, 100), 100);
}

TEST(FindAlignedValue, TiesGoDownwards) {
  // 1920 = 2^7 * 3 * 5: divisors 80 and 96 lie 8 away from 88 on either side.
  EXPECT_EQ(findAlignedValueStep(1920, 88), 80);
  // 12, 5: divisors 4 and 6 lie 1 away on either side.
  EXPECT_EQ(findAlignedValueStep(12, 5), 4);
}

TEST(FindAlignedValue, FourIsNotPrimeLike) {
  // 4, 3: only divisors qualify, 4 above and 2 below, both 1 away; the tie goes down.
  EXPECT_EQ(findAlignedValue(4, 3), 2);
  // 3 is prime-like: 3, 2 has leftover 1; down looks for a smaller leftover (1 % 1 = 0).
  EXPECT_EQ(findAlignedValue(3, 2), 1);
}

TEST(FindAlignedValue, MatchesTheLiteralRulesOnSmallDimensions) {
  // Every T up to 400 with every B up to 450 (block sizes larger than T included).
  int mismatches = 0;
  for (int t = 1; t <= 400; ++t) {
    for (int b = 1; b <= 450; ++b) {
      const int got = findAlignedValue(t, b);
      const int want = alignLiteral(t, b);
      if (got != want && ++mismatches <= 10) {
        ADD_FAILURE() << "T=" << t << " B=" << b << ": " << got << " vs reference " << want;
      }
      if (findAlignedValueStep(t, b) != stepLiteral(t, b) && ++mismatches <= 10) {
        ADD_FAILURE() << "step T=" << t << " B=" << b;
      }
    }
  }
  EXPECT_EQ(mismatches, 0);
}

TEST(FindAlignedValue, MatchesTheLiteralRulesOnLargeRandomInputs) {
  std::mt19937 rng(20240611);
  std::uniform_int_distribution<int> total(1, 12000), size(1, 4200);
  for (int i = 0; i < 2000; ++i) {
    const int t = total(rng), b = size(rng);
    ASSERT_EQ(findAlignedValue(t, b), alignLiteral(t, b)) << "T=" << t << " B=" << b;
  }
  // Large primes on both sides of the cap.
  for (int t : {4093, 4099, 7919, 8191, 9973}) {
    for (int b : {1, 2, 17, 100, 1000, 4000, 4095, 4096}) {
      ASSERT_EQ(findAlignedValue(t, b), alignLiteral(t, b)) << "T=" << t << " B=" << b;
    }
  }
}

TEST(FindAlignedValue, PropertyOverEveryDimensionTo2000AndBlockTo300) {
  int violations = 0;
  for (int t = 1; t <= 2000; ++t) {
    for (int b = 1; b <= 300; ++b) {
      const std::string v = propertyViolation(t, b);
      if (!v.empty() && ++violations <= 20) ADD_FAILURE() << v;
    }
  }
  EXPECT_EQ(violations, 0);
}

TEST(FindAlignedValue, PropertyOnARandomSampleTo10000AndBlockTo4096) {
  std::mt19937 rng(7771337);
  std::uniform_int_distribution<int> total(1, 10000), size(1, 4096);
  int violations = 0;
  for (int i = 0; i < 200000; ++i) {
    const std::string v = propertyViolation(total(rng), size(rng));
    if (!v.empty() && ++violations <= 20) ADD_FAILURE() << v;
  }
  // The ends of both ranges explicitly.
  for (int t : {1, 2, 3, 4, 4095, 4096, 4097, 9999, 10000}) {
    for (int b : {1, 2, 3, 4095, 4096}) {
      const std::string v = propertyViolation(t, b);
      if (!v.empty() && ++violations <= 20) ADD_FAILURE() << v;
    }
  }
  EXPECT_EQ(violations, 0);
}

TEST(FindAlignedValue, BlockSizesAboveTheSliderCapComeBackAsTheyAre) {
  // Outside the property's range (the sliders stop at 4096): with B >= 4096 the
  // upward candidate is B itself, at distance 0, so a B of at most T is kept
  // whether it divides T or not, and the result can exceed 4096.
  EXPECT_EQ(findAlignedValue(10000, 5000), 5000);
  EXPECT_EQ(findAlignedValue(10000, 4097), 4097);
  EXPECT_EQ(alignLiteral(10000, 4097), 4097);
}

TEST(FindAlignedValue, InputsOutsideTheDomainLeaveTheSizeAlone) {
  // No layer (T = 0) or a block size below 1: nothing to tile, nothing changes.
  EXPECT_EQ(findAlignedValue(0, 32), 32);
  EXPECT_EQ(findAlignedValue(1920, 0), 0);
  EXPECT_EQ(findAlignedValueStep(-5, 7), 7);
}
