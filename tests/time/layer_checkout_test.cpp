// The sample time of a layer checkout: offsets in seconds or frames, host
// 32-bit arithmetic, the frame-skip snap and the three edge time modes.
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <random>

#include "time/layer_checkout.h"

namespace {

PF_InData inData(A_long current, A_long step, A_long total, A_u_long scale) {
  PF_InData in;
  std::memset(&in, 0, sizeof in);
  in.current_time = current;
  in.time_step = step;
  in.total_time = total;
  in.time_scale = scale;
  return in;
}

// An offset in host units (frames already multiplied out), no snap.
A_long at(A_long t, A_long step, A_long total, int mode) {
  PF_InData in = inData(0, step, total, 3000);
  return sampleTime(&in, static_cast<double>(t), 1, mode, -1.0);
}

// The reflection loop as written, bounded: the reference the fast mirror must match.
bool naiveMirror(int64_t t, int64_t d, int64_t s, int64_t* out) {
  if (t >= 0 && t < d) {
    *out = t;
    return true;
  }
  int64_t r = t;
  for (int round = 0; round < 100000; ++round) {
    if (r < 0) r = -r;
    if (r >= d) r = 2 * (d - s) - r;
    if (r >= 0 && r < d) {
      *out = r;
      return true;
    }
  }
  return false;
}

}  // namespace

TEST(SampleTime, WrapAtZeroAndAtTheEndGivesZeroAndBeforeTheStartOneFrameLess) {
  EXPECT_EQ(at(0, 1, 100, EDGE_WRAP), 0);
  EXPECT_EQ(at(100, 1, 100, EDGE_WRAP), 0);
  EXPECT_EQ(at(-100, 1, 100, EDGE_WRAP), 99);  // -D gives D - s
  EXPECT_EQ(at(-1, 1, 100, EDGE_WRAP), 98);
  EXPECT_EQ(at(150, 1, 100, EDGE_WRAP), 50);
  EXPECT_EQ(at(-3000, 100, 3000, EDGE_WRAP), 2900);
  EXPECT_EQ(at(-200, 100, 3000, EDGE_WRAP), 2700);
}

TEST(SampleTime, RepeatLastHoldsTheFirstFrameBeforeAndTheLastFrameAfter) {
  for (A_long t : {-1, -100, -29999, INT_MIN + 1}) EXPECT_EQ(at(t, 100, 3000, EDGE_REPEAT_LAST), 0) << t;
  for (A_long t : {3000, 3001, 10000, INT_MAX}) EXPECT_EQ(at(t, 100, 3000, EDGE_REPEAT_LAST), 2900) << t;
  EXPECT_EQ(at(1234, 100, 3000, EDGE_REPEAT_LAST), 1234);
}

TEST(SampleTime, MirrorReflectsAroundTheLastFrameAndAroundZero) {
  EXPECT_EQ(at(100, 1, 100, EDGE_MIRROR), 98);
  EXPECT_EQ(at(-3, 1, 100, EDGE_MIRROR), 3);
  EXPECT_EQ(at(42, 1, 100, EDGE_MIRROR), 42);
  EXPECT_EQ(at(3000, 100, 3000, EDGE_MIRROR), 2800);
  EXPECT_EQ(at(-300, 100, 3000, EDGE_MIRROR), 300);
}

TEST(SampleTime, MirrorMatchesThePlainReflectionLoopEverywhereItEnds) {
  std::mt19937 rng(7);
  for (int i = 0; i < 20000; ++i) {
    const int64_t s = 1 + rng() % 50;
    const int64_t d = s + 1 + rng() % 400;
    const int64_t t = static_cast<int64_t>(rng() % 40001) - 20000;
    int64_t expected;
    ASSERT_TRUE(naiveMirror(t, d, s, &expected));
    ASSERT_EQ(at(static_cast<A_long>(t), static_cast<A_long>(s), static_cast<A_long>(d), EDGE_MIRROR),
              expected)
        << "t " << t << " d " << d << " s " << s;
  }
}

TEST(SampleTime, MirrorOnALayerOneFrameLongEndsInsideTheLayer) {
  // 2 * (D - s) - r = -r: the reflections alone never reach the layer.
  for (A_long t : {-1, 1, 5, 100, -100, INT_MAX, INT_MIN}) {
    const A_long r = at(t, 100, 100, EDGE_MIRROR);
    EXPECT_GE(r, 0) << t;
    EXPECT_LT(r, 100) << t;
  }
  // A frame longer than the layer fares no worse.
  EXPECT_EQ(at(500, 200, 100, EDGE_MIRROR), 0);
}

TEST(SampleTime, MirrorFarOutsideTheLayerEndsQuickly) {
  // Up to 2^30 reflections with the plain loop; the same answer at once.
  const A_long r = at(INT_MAX, 1, 100, EDGE_MIRROR);
  int64_t expected;
  // INT_MAX = 2147483647; the period is 2 * 99 = 198.
  const int64_t m = 2147483647LL % 198;
  expected = m <= 99 ? m : 198 - m;
  EXPECT_EQ(r, expected);
  ASSERT_TRUE(naiveMirror(2147483647LL % 198 + 198 * 3, 100, 1, &expected));
  EXPECT_EQ(r, expected);
}

TEST(SampleTime, ZeroOrNegativeDurationOrStepNeitherLoopsNorDivides) {
  for (int mode : {EDGE_REPEAT_LAST, EDGE_WRAP, EDGE_MIRROR}) {
    PF_InData in = inData(700, 100, 0, 3000);
    EXPECT_EQ(sampleTime(&in, 5000.0, 1, mode, -1.0), 700) << mode;
    in.total_time = -3000;
    EXPECT_EQ(sampleTime(&in, -5000.0, 1, mode, -1.0), 700) << mode;
    in.total_time = 3000;
    in.time_step = 0;
    EXPECT_EQ(sampleTime(&in, 5000.0, 1, mode, -1.0), 700) << mode;
    in.time_step = -100;
    EXPECT_EQ(sampleTime(&in, 5000.0, 1, mode, -1.0), 700) << mode;
    // The current time itself is kept inside the layer.
    in.current_time = 9000;
    EXPECT_EQ(sampleTime(&in, 5000.0, 1, mode, -1.0), 2999) << mode;
  }
}

TEST(SampleTime, SecondsAreScaledByTheTimeScaleAndTruncated) {
  PF_InData in = inData(0, 1001, 30000 * 60, 30000);
  for (int i = 1; i <= 16; ++i) {
    EXPECT_EQ(sampleTime(&in, i * 0.05, 0, EDGE_REPEAT_LAST, -1.0), 1500 * i) << i;
  }
  // Truncation toward zero, not rounding: 0.33333 s at 3000 is 999.99.
  in = inData(0, 100, 30000, 3000);
  EXPECT_EQ(sampleTime(&in, 0.33333, 0, 99, -1.0), 999);
  EXPECT_EQ(sampleTime(&in, -0.33333, 0, 99, -1.0), -999);
}

TEST(SampleTime, TheTimeScaleIsTakenAsUnsigned) {
  // Above INT_MAX as a signed value it would be negative.
  PF_InData in = inData(0, 100, INT_MAX, 3000000000u);
  EXPECT_EQ(sampleTime(&in, 0.5, 0, 99, -1.0), 1500000000);
}

TEST(SampleTime, TheSumWrapsAsA32BitIntegerAndOutOfRangeOffsetsTruncateLikeTheHost) {
  PF_InData in = inData(2000000000, 100, 30000, 3000);
  // 2e9 + 2e9 wraps around in 32 bits.
  EXPECT_EQ(sampleTime(&in, 2000000000.0, 1, 99, -1.0),
            static_cast<A_long>(static_cast<uint32_t>(4000000000u)));
  // An offset beyond 32 bits converts to INT32_MIN, as the host's conversion does.
  in.current_time = 0;
  EXPECT_EQ(sampleTime(&in, 1e12, 1, 99, -1.0), INT_MIN);
  // Wrap maps it like any other time before the start:
  // INT_MIN rem 30000 = -23648, + 30000 - 100.
  EXPECT_EQ(sampleTime(&in, 1e12, 1, EDGE_WRAP, -1.0), 6252);
}

TEST(SampleTime, FrameSkipSnapsTowardZeroInTenthsAndMinusOneSwitchesItOff) {
  PF_InData in = inData(0, 100, 100000, 3000);
  // q = (1 * 10 + 10) * 100 = 2000 tenths: multiples of two frames.
  EXPECT_EQ(sampleTime(&in, 350.0, 1, 99, 1.0), 200);
  EXPECT_EQ(sampleTime(&in, -350.0, 1, 99, 1.0), -200);
  EXPECT_EQ(sampleTime(&in, 400.0, 1, 99, 1.0), 400);
  // q = (0.5 * 10 + 10) * 100 = 1500 tenths: multiples of 1.5 frames.
  EXPECT_EQ(sampleTime(&in, 320.0, 1, 99, 0.5), 300);
  EXPECT_EQ(sampleTime(&in, 350.0, 1, 99, -1.0), 350);
  EXPECT_EQ(sampleTime(&in, 350.0, 1, 99, 0.0), 350);
  // A zero frame length gives nothing to snap to (and no division by zero).
  in.time_step = 0;
  EXPECT_EQ(sampleTime(&in, 350.0, 1, 99, 1.0), 350);
}

TEST(SampleTime, AZeroStepSamplesTheCurrentTime) {
  PF_InData in = inData(1200, 100, 3000, 3000);
  for (int mode : {EDGE_REPEAT_LAST, EDGE_WRAP, EDGE_MIRROR}) {
    EXPECT_EQ(sampleTime(&in, 0.0, 1, mode, -1.0), 1200);
    EXPECT_EQ(sampleTime(&in, 0.0, 0, mode, -1.0), 1200);
  }
}

TEST(SampleTime, WrapJustBeforeTheStartIsHandedOnAsComputed) {
  // 24 fps at 24000, a 4-frame layer, current time 0, -0.1 s steps: the third
  // time frame is t = -7200, and -3200 + 4000 - 1000 = -200, not 3800.
  PF_InData in = inData(0, 1000, 4000, 24000);
  EXPECT_EQ(sampleTime(&in, 3 * -0.1, 0, EDGE_WRAP, -1.0), -200);
  EXPECT_EQ(sampleTime(&in, -0.1, 0, EDGE_WRAP, -1.0), 600);
  // Any t with t rem D in (-s, 0) gives a time in (-s, 0).
  EXPECT_EQ(at(-1, 100, 3000, EDGE_WRAP), -1 + 3000 - 100);
  EXPECT_EQ(at(-2950, 100, 3000, EDGE_WRAP), -50);
  EXPECT_EQ(at(-5999, 100, 3000, EDGE_WRAP), -99);
}

TEST(SampleTime, RepeatLastOnALayerShorterThanAFrameHandsOnTheNegativeLastFrame) {
  // D - s is before the start when one frame outlasts the layer.
  EXPECT_EQ(at(5000, 100, 60, EDGE_REPEAT_LAST), -40);
  EXPECT_EQ(at(-5000, 100, 60, EDGE_REPEAT_LAST), 0);
  // Mirror's guarded loop still ends inside the layer.
  EXPECT_EQ(at(5000, 100, 60, EDGE_MIRROR), 0);
}

TEST(SampleTime, AnyTimeLandsWhereItsEdgeModeMapsIt) {
  std::mt19937 rng(11);
  for (int i = 0; i < 200000; ++i) {
    PF_InData in = inData(static_cast<A_long>(rng()), static_cast<A_long>(rng() % 5000) - 100,
                          static_cast<A_long>(rng() % 100000) + 1, rng());
    const double offset = static_cast<double>(static_cast<int32_t>(rng())) / (1 + rng() % 1000);
    const int mode = static_cast<int>(rng() % 3);
    const A_long r = sampleTime(&in, offset, static_cast<int>(rng() % 2), mode,
                                (rng() % 4 == 0) ? (rng() % 300) / 10.0 : -1.0);
    const A_long d = in.total_time, st = in.time_step;
    if (st <= 0 || mode == EDGE_MIRROR) {
      ASSERT_GE(r, 0);
    } else if (mode == EDGE_WRAP) {
      ASSERT_GT(r, -st);  // at most one frame before the start
    } else if (r < 0) {
      ASSERT_EQ(r, d - st);  // Repeat Last's last frame of a layer shorter than a frame
    }
    ASSERT_LT(r, d);
  }
}
