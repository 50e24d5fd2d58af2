// What pre-render asks the host for: the mask layer at the current time, the
// effect's own layer at up to 16 other times mapped by the edge time mode,
// and the input at the current time; and what smart render gives back.
#include <cmath>
#include <cstdint>
#include <tuple>

#include "pipeline_support.h"

using namespace pipeline;

namespace {

struct Request {
  A_long id;
  PF_ParamIndex index;
  A_long time;
  A_long step;
  A_u_long scale;
  bool operator==(const Request& o) const {
    return std::tie(id, index, time, step, scale) == std::tie(o.id, o.index, o.time, o.step, o.scale);
  }
};

std::ostream& operator<<(std::ostream& os, const Request& r) {
  return os << "{id " << r.id << ", index " << r.index << ", time " << r.time << ", step " << r.step
            << ", scale " << r.scale << "}";
}

// The edge modes as users see them, worked out on 64-bit integers with the
// reflections taken one at a time.
int64_t mapEdge(int64_t t, int64_t d, int64_t s, int mode) {
  switch (mode) {
    case 0:
      return t < 0 ? 0 : t >= d ? d - s : t;
    case 1:
      if (t == 0) return 0;
      if (t > 0) return t % d;
      return t % d + d - s;
    default: {
      int64_t r = t;
      while (r < 0 || r >= d) {
        if (r < 0) r = -r;
        if (r >= d) r = 2 * (d - s) - r;
      }
      return r;
    }
  }
}

// The requests expected for one render at frame `k` of a clip of `frames`.
std::vector<Request> expectedRequests(PF_ParamIndex maskIndex, int timeFrames, bool unitFrames,
                                      double stepValue, int mode, int k, int frames, A_long step,
                                      A_u_long scale) {
  const A_long now = k * step;
  std::vector<Request> out{{maskIndex, maskIndex, now, step, scale}};
  for (int i = 1; i <= timeFrames; ++i) {
    const double offset = unitFrames ? i * (static_cast<double>(step) * stepValue)
                                     : i * stepValue * static_cast<double>(scale);
    const int64_t t = now + static_cast<int64_t>(std::trunc(offset));
    out.push_back({1023 + i, 0, static_cast<A_long>(mapEdge(t, int64_t{frames} * step, step, mode)),
                   step, scale});
  }
  out.push_back({0, 0, now, step, scale});
  return out;
}

std::vector<Request> requestsOf(const thost::Host& h) {
  std::vector<Request> out;
  for (const thost::LayerCheckout& c : h.layerCheckouts()) {
    if (c.checkoutId == thost::LayerCheckout::kParamCheckout) continue;
    out.push_back({c.checkoutId, c.layerIndex, c.time, c.step, c.scale});
  }
  return out;
}

}  // namespace

class CheckoutRequests : public PipelineTest {
 protected:
  thost::Host& setUp(int frames, int k, A_long step, A_u_long scale) {
    thost::Host& h = setUpInstance();
    h.setLayerClip(0, makeClip(frames, 24, 16));
    h.setMaskClip(makeClip(frames, 12, 9, 5));
    setClipTime(h, frames, k, step, scale);
    return h;
  }
  void configure(thost::Host& h, int timeFrames, bool unitFrames, double stepValue, int mode) {
    setFixed(h, ID_TIME_FRAMES, timeFrames);
    setPopup(h, ID_STEPPING_UNIT, unitFrames ? 2 : 1);
    if (unitFrames) {
      setFloat(h, ID_TIME_STEP_FRAMES, stepValue);
    } else {
      setFloat(h, ID_TIME_STEP_SECONDS, stepValue);
    }
    setPopup(h, ID_EDGE_TIME_MODE, mode + 1);
  }
  void expectRequests(int timeFrames, bool unitFrames, double stepValue, int mode, int k,
                      int frames, A_long step = 100, A_u_long scale = 3000) {
    thost::Host& h = setUp(frames, k, step, scale);
    configure(h, timeFrames, unitFrames, stepValue, mode);
    ASSERT_EQ(h.preRender(), PF_Err_NONE);
    EXPECT_EQ(requestsOf(h), expectedRequests(h.maskParamIndex(), timeFrames, unitFrames, stepValue,
                                              mode, k, frames, step, scale))
        << "frames " << timeFrames << (unitFrames ? " frame step " : " second step ") << stepValue
        << " mode " << mode << " at " << k << " of " << frames;
    ASSERT_EQ(h.smartRender(), PF_Err_NONE);
  }
  // Three one-frame steps from frame k of a 30-frame layer, for each edge mode.
  void expectTimes(int k, double stepFrames, const std::vector<std::vector<A_long>>& perMode) {
    for (int mode = 0; mode < 3; ++mode) {
      thost::Host& h = setUp(30, k, 100, 3000);
      configure(h, 3, true, stepFrames, mode);
      ASSERT_EQ(h.preRender(), PF_Err_NONE);
      std::vector<Request> got = requestsOf(h);
      ASSERT_EQ(got.size(), 5u);
      for (int i = 0; i < 3; ++i) EXPECT_EQ(got[1 + i].time, perMode[mode][i]) << "mode " << mode;
    }
  }
};

TEST_F(CheckoutRequests, FramesZeroAsksForTheMaskAndTheInputOnlyAndGivesBackOnlyTheMask) {
  thost::Host& h = setUp(30, 10, 100, 3000);
  ASSERT_EQ(h.preRender(), PF_Err_NONE);
  const PF_ParamIndex mask = h.maskParamIndex();
  EXPECT_EQ(mask, 24);
  EXPECT_EQ(requestsOf(h), (std::vector<Request>{{mask, mask, 1000, 100, 3000}, {0, 0, 1000, 100, 3000}}));
  h.clearCalls();
  ASSERT_EQ(h.smartRender(), PF_Err_NONE);
  std::vector<thost::HostCall> checkins = h.callsTo("checkin_layer_pixels");
  ASSERT_EQ(checkins.size(), 2u);
  EXPECT_EQ(checkins[0].args, std::to_string(mask));
  EXPECT_EQ(checkins[1].args, "0");
}

TEST_F(CheckoutRequests, FramesThreeInFrameStepsAsksForThreeLaterFrames) {
  thost::Host& h = setUp(30, 10, 100, 3000);
  configure(h, 3, true, 2.0, 2);
  ASSERT_EQ(h.preRender(), PF_Err_NONE);
  const PF_ParamIndex mask = h.maskParamIndex();
  // Checked by hand: 1000 + 200 i.
  EXPECT_EQ(requestsOf(h), (std::vector<Request>{{mask, mask, 1000, 100, 3000},
                                                {1024, 0, 1200, 100, 3000},
                                                {1025, 0, 1400, 100, 3000},
                                                {1026, 0, 1600, 100, 3000},
                                                {0, 0, 1000, 100, 3000}}));
  ASSERT_EQ(h.smartRender(), PF_Err_NONE);
}

TEST_F(CheckoutRequests, FramesSixteenUsesIds1024To1039AndGivesEveryOneBack) {
  thost::Host& h = setUp(60, 20, 100, 3000);
  configure(h, 16, true, 1.0, 0);
  ASSERT_EQ(h.preRender(), PF_Err_NONE);
  std::vector<Request> got = requestsOf(h);
  ASSERT_EQ(got.size(), 18u);
  for (int i = 1; i <= 16; ++i) {
    EXPECT_EQ(got[i].id, 1023 + i);
    EXPECT_EQ(got[i].time, 2000 + 100 * i);
  }
  h.clearCalls();
  ASSERT_EQ(h.smartRender(), PF_Err_NONE);
  std::vector<thost::HostCall> checkins = h.callsTo("checkin_layer_pixels");
  ASSERT_EQ(checkins.size(), 18u);
  EXPECT_EQ(checkins[0].args, std::to_string(h.maskParamIndex()));
  for (int i = 1; i <= 16; ++i) EXPECT_EQ(checkins[i].args, std::to_string(1023 + i));
  EXPECT_EQ(checkins[17].args, "0");
  std::vector<thost::HostCall> pixels = h.callsTo("checkout_layer_pixels");
  ASSERT_EQ(pixels.size(), 18u);
}

TEST_F(CheckoutRequests, BothSteppingUnitsWithNegativeZeroAndPositiveSteps) {
  for (bool unitFrames : {true, false}) {
    for (double stepValue : unitFrames ? std::vector<double>{-3.0, -1.0, 0.0, 1.0, 2.5}
                                       : std::vector<double>{-0.1, -0.05, 0.0, 0.05, 0.1}) {
      expectRequests(5, unitFrames, stepValue, 0, 15, 30);
    }
  }
}

TEST_F(CheckoutRequests, EveryEdgeModeNearBothEndsOfTheLayer) {
  for (int mode : {0, 1, 2}) {
    expectRequests(16, true, 1.0, mode, 25, 30);    // runs past the end
    expectRequests(16, true, -1.0, mode, 4, 30);    // runs before the start
    expectRequests(16, true, 3.0, mode, 29, 30);    // from the last frame, far past the end
    expectRequests(16, true, -3.0, mode, 0, 30);    // from the first frame, far before
    expectRequests(8, false, 0.1, mode, 27, 30);    // seconds past the end
  }
}

TEST_F(CheckoutRequests, HandCheckedEdgeTimesPastTheEnd) {
  // Layer of 30 frames (D 3000, s 100), current frame 29, one frame step:
  // "Repeat Last", "Wrap", "Mirror".
  expectTimes(29, 1.0, {{2900, 2900, 2900}, {0, 100, 200}, {2800, 2700, 2600}});
}

TEST_F(CheckoutRequests, HandCheckedEdgeTimesBeforeTheStart) {
  // Current frame 0, one frame back each time.
  expectTimes(0, -1.0, {{0, 0, 0}, {2800, 2700, 2600}, {100, 200, 300}});
}

TEST_F(CheckoutRequests, NtscTimeScale30000WithStep1001) {
  expectRequests(4, true, 1.0, 1, 10, 100, 1001, 30000);
  expectRequests(4, false, 0.05, 1, 10, 100, 1001, 30000);
  // Seconds at 30000: trunc(i * 0.05 * 30000) = 1500 i, by hand.
  thost::Host& h = setUp(100, 10, 1001, 30000);
  configure(h, 3, false, 0.05, 0);
  ASSERT_EQ(h.preRender(), PF_Err_NONE);
  std::vector<Request> got = requestsOf(h);
  ASSERT_EQ(got.size(), 5u);
  for (int i = 1; i <= 3; ++i) EXPECT_EQ(got[i].time, 10010 + 1500 * i);
}

TEST_F(CheckoutRequests, FilmTimeScale24000WithStep1000) {
  expectRequests(6, true, 2.0, 2, 40, 48, 1000, 24000);
  expectRequests(6, false, -0.25, 1, 3, 48, 1000, 24000);
}

TEST_F(CheckoutRequests, AZeroStepSamplesTheCurrentTimeForEveryFrame) {
  thost::Host& h = setUp(30, 12, 100, 3000);
  configure(h, 4, false, 0.0, 1);
  ASSERT_EQ(h.preRender(), PF_Err_NONE);
  std::vector<Request> got = requestsOf(h);
  ASSERT_EQ(got.size(), 6u);
  for (int i = 1; i <= 4; ++i) EXPECT_EQ(got[i].time, 1200);
}

TEST_F(CheckoutRequests, NegativeStepsWithRepeatLastGiveTimeZeroBeforeTheStart) {
  thost::Host& h = setUp(30, 2, 100, 3000);
  configure(h, 5, true, -1.0, 0);
  ASSERT_EQ(h.preRender(), PF_Err_NONE);
  std::vector<Request> got = requestsOf(h);
  ASSERT_EQ(got.size(), 7u);
  const A_long expected[] = {100, 0, 0, 0, 0};
  for (int i = 0; i < 5; ++i) EXPECT_EQ(got[1 + i].time, expected[i]);
}

TEST_F(CheckoutRequests, MirrorOnALayerOneFrameLongEndsInsideIt) {
  thost::Host& h = setUp(1, 0, 100, 3000);
  configure(h, 4, true, 1.0, 2);
  ASSERT_EQ(h.preRender(), PF_Err_NONE);
  std::vector<Request> got = requestsOf(h);
  ASSERT_EQ(got.size(), 6u);
  for (int i = 1; i <= 4; ++i) EXPECT_EQ(got[i].time, 0);
  ASSERT_EQ(h.smartRender(), PF_Err_NONE);
}

TEST_F(CheckoutRequests, ThePreRenderResultIsTheInputsRectangle) {
  thost::Host& h = setUp(30, 3, 100, 3000);
  configure(h, 2, true, 1.0, 0);
  ASSERT_EQ(h.preRender(), PF_Err_NONE);
  const PF_PreRenderOutput& out = h.preRenderOutput();
  EXPECT_EQ(out.result_rect.left, 0);
  EXPECT_EQ(out.result_rect.top, 0);
  EXPECT_EQ(out.result_rect.right, 24);
  EXPECT_EQ(out.result_rect.bottom, 16);
  EXPECT_EQ(out.delete_pre_render_data_func, nullptr);
  EXPECT_NE(out.pre_render_data, nullptr);
  // The handle is left unlocked for the host.
  EXPECT_EQ(h.lockCount(h.preRenderData()), 0);
}

namespace {

// Time frames as the host recorded them, in both hosts: checkout id (legacy
// checkouts have none), time and the clip frame it served.
struct Served {
  A_long time;
  int frame;
  bool operator==(const Served& o) const { return time == o.time && frame == o.frame; }
};
std::ostream& operator<<(std::ostream& os, const Served& s) {
  return os << "{time " << s.time << ", frame " << s.frame << "}";
}

// The time frames one render requested: After Effects by their checkout ids;
// Premiere Pro checks out parameters, the effect's own layer for each time
// frame and then once more for the input at the current time.
std::vector<Served> timeFramesServed(const thost::Host& h, bool legacy) {
  std::vector<Served> out;
  for (const thost::LayerCheckout& c : h.layerCheckouts()) {
    const bool timeFrame = legacy ? c.checkoutId == thost::LayerCheckout::kParamCheckout &&
                                        c.layerIndex == 0
                                  : c.checkoutId >= 1024;
    if (timeFrame) out.push_back({c.time, c.frame});
  }
  if (legacy && !out.empty()) out.pop_back();
  return out;
}

}  // namespace

class EdgeTimesAsComputed : public CheckoutRequests,
                            public ::testing::WithParamInterface<thost::App> {
 protected:
  // Renders frame `k` of a `frames`-frame clip at 24 fps (24000, step 1000)
  // with `timeFrames` steps of `seconds` in edge mode `mode` (the host makes
  // the total time `frames` x 1000 whatever `total` says).
  std::vector<Served> render(int frames, A_long total, int k, int timeFrames, double seconds,
                             int mode) {
    thost::Host& h = setUpInstance(GetParam());
    h.setLayerClip(0, makeClip(frames, 24, 16));
    h.setTime(k * 1000, 1000, total, 24000);
    configure(h, timeFrames, false, seconds, mode);
    if (GetParam() == thost::App::AfterEffects) {
      EXPECT_EQ(h.preRender(), PF_Err_NONE);
      EXPECT_EQ(h.smartRender(), PF_Err_NONE);
    } else {
      EXPECT_EQ(h.legacyRender(), PF_Err_NONE);
    }
    return timeFramesServed(h, GetParam() == thost::App::PremierePro);
  }
};

TEST_P(EdgeTimesAsComputed, WrapJustBeforeTheStartReachesTheHostWhichServesFrameZero) {
  // A 4-frame layer at time 0, six -0.1 s steps: t = -2400 i.
  // Wrap gives t rem 4000 + 4000 - 1000; the third is -200, which the host
  // serves as frame floor(-200 / 1000) clamped, frame 0 (not 3800, frame 3).
  const std::vector<Served> got = render(4, 4000, 0, 6, -0.1, 1);
  const std::vector<Served> expected{{600, 0},  {2200, 2}, {-200, 0},
                                     {1400, 1}, {3000, 3}, {600, 0}};
  EXPECT_EQ(got, expected);
}

TEST_P(EdgeTimesAsComputed, RepeatLastHoldsTheEndsAndAnUnknownModeHandsTheRawTimeToTheHost) {
  // From frame 1 of 4, -0.1 s: -1400 -> 0; from frame 3, +0.1 s: past the end -> 3000.
  EXPECT_EQ(render(4, 4000, 1, 2, -0.1, 0), (std::vector<Served>{{0, 0}, {0, 0}}));
  EXPECT_EQ(render(4, 4000, 3, 2, 0.1, 0), (std::vector<Served>{{3000, 3}, {3000, 3}}));
  // A damaged mode (popup 5) maps nothing: the host gets t itself and serves
  // its nearest frame, the first before the start and the last past the end.
  EXPECT_EQ(render(4, 4000, 0, 2, -0.1, 4), (std::vector<Served>{{-2400, 0}, {-4800, 0}}));
  EXPECT_EQ(render(4, 4000, 3, 2, 0.1, 4), (std::vector<Served>{{5400, 3}, {7800, 3}}));
}

TEST_P(EdgeTimesAsComputed, MirrorStaysInsideTheLayerAndWrapPastTheEndComesRoundToTheStart) {
  // Mirror on a layer one frame long ends its reflections at 0.
  EXPECT_EQ(render(1, 1000, 0, 2, 0.1, 2), (std::vector<Served>{{0, 0}, {0, 0}}));
  // Frame 3 of 4, +0.1 s: 5400 -> 1400 (frame 1), 7800 -> 3800 (frame 3).
  EXPECT_EQ(render(4, 4000, 3, 2, 0.1, 1), (std::vector<Served>{{1400, 1}, {3800, 3}}));
  // Mirror from frame 0 back 0.1 s: -2400 -> 2400 (frame 2), -4800 -> 6000 - 4800.
  EXPECT_EQ(render(4, 4000, 0, 2, -0.1, 2), (std::vector<Served>{{2400, 2}, {1200, 1}}));
}

INSTANTIATE_TEST_SUITE_P(BothHosts, EdgeTimesAsComputed,
                         ::testing::Values(thost::App::AfterEffects, thost::App::PremierePro),
                         [](const ::testing::TestParamInfo<thost::App>& i) {
                           return i.param == thost::App::AfterEffects ? std::string("AfterEffects")
                                                                      : std::string("PremierePro");
                         });
