// The pixels a render through EffectMain produces: the same as a direct call
// of the depth's renderer on the same worlds and record, the same in both
// hosts, with the downsample factor passed on, and nothing drawn where the
// host gives nothing to draw with.
#include "pipeline_support.h"

using namespace pipeline;

namespace {

// A shuffle that uses everything: time frames of varying rectangles, a mask
// of another size, strong shuffling.
void richSettings(thost::Host& h) {
  setFixed(h, ID_BLOCK_WIDTH, 6);
  setFixed(h, ID_BLOCK_HEIGHT, 5);
  setFloat(h, ID_SHUFFLE_STRENGTH, 1.0);
  setFloat(h, ID_SHUFFLE_SPREAD, 0.6);
  setFixed(h, ID_TIME_FRAMES, 16);
  setFloat(h, ID_TIME_PROBABILITY, 70.0);
  setPopup(h, ID_STEPPING_UNIT, 2);
  setFloat(h, ID_TIME_STEP_FRAMES, 1.0);
  setPopup(h, ID_EDGE_TIME_MODE, 2);
  setFloat(h, ID_MASK_INTENSITY, 50.0);
  setPopup(h, ID_MASK_TYPE, 2);
}

// Every byte the same: the host's fill, which no render of these inputs leaves.
void expectUntouched(thost::Host& h, thost::Depth d) {
  ASSERT_NE(h.outputWorld(), nullptr);
  const std::vector<uint8_t> px = pixelsOf(*h.outputWorld(), d);
  ASSERT_FALSE(px.empty());
  for (size_t i = 0; i < px.size(); ++i) {
    ASSERT_EQ(px[i], px[0]) << "output byte " << i << " was written";
  }
}

// The record a legacy render loads with richSettings() and no time frames,
// written out by hand, its mask the world the host lent for "Mask Source".
ParamValues legacyRecord(thost::Host& h) {
  ParamValues pv;
  std::memset(&pv, 0, sizeof pv);
  pv.compositeOnOriginal = 1;
  pv.blockWidth = 6;
  pv.blockHeight = 5;
  pv.shuffleStrength = 1.0;
  pv.shuffleSpread = 0.6;
  pv.shuffleSeed = 777;
  pv.maskIntensity = 50.0;
  pv.maskType = 1;
  pv.maskSeed = 133;
  pv.timeProbability = 70.0;
  pv.steppingUnit = 1;
  pv.timeStepSeconds = 0.05;
  pv.timeStepFrames = 1.0;
  pv.edgeTimeMode = 2;
  pv.timeSeed = 337;
  for (const thost::LentWorldInfo& w : h.lentWorlds()) {
    if (w.kind == thost::LentWorldInfo::Kind::LayerParam && w.layerIndex == h.maskParamIndex()) {
      pv.maskLayer = w.world;
    }
  }
  EXPECT_NE(pv.maskLayer, nullptr);
  return pv;
}

}  // namespace

class RenderPixels : public PipelineTest {
 protected:
  thost::Host& ready(thost::App app, thost::Depth d, int k = 12) {
    thost::Host& h = setUpInstance(app);
    h.setLayerClip(0, makeVaryingClip(40, 61, 37));
    h.setMaskClip(makeClip(40, 23, 19, 11));
    h.setRenderDepth(d);
    setClipTime(h, 40, k);
    richSettings(h);
    return h;
  }

  // Renders directly with the worlds and record the host lent in its last
  // SmartFX render and compares with what the effect drew.
  void expectSameAsDirect(thost::Host& h, thost::Depth d, float downsample) {
    ParamValues pv = recordOf(h);
    PF_EffectWorld* out = h.outputWorld();
    ASSERT_NE(out, nullptr);
    OwnedWorld direct(*out);
    ASSERT_EQ(renderDirect(d, h.inputWorld(), &direct.world, pv, downsample), PF_Err_NONE);
    EXPECT_EQ(pixelsOf(*out, d), pixelsOf(direct.world, d)) << depthName(d);
  }
};

TEST_F(RenderPixels, SmartRenderEqualsTheDepthsRendererOnTheSameWorldsAndRecord) {
  for (thost::Depth d : kDepths) {
    thost::Host& h = ready(thost::App::AfterEffects, d);
    ASSERT_EQ(h.preRender(), PF_Err_NONE);
    ASSERT_EQ(h.smartRender(), PF_Err_NONE);
    const ParamValues pv = recordOf(h);
    ASSERT_EQ(pv.timeFrames, 16);
    for (int k = 0; k < 16; ++k) ASSERT_NE(pv.timeLayers[k], nullptr);
    ASSERT_NE(pv.maskLayer, nullptr);
    EXPECT_EQ(pv.maskLayer->width, 23);
    expectSameAsDirect(h, d, 1.0f);
    // The shuffle changed something: this is no plain copy of the input.
    EXPECT_NE(pixelsOf(*h.outputWorld(), d), pixelsOf(*h.inputWorld(), d));
  }
}

TEST_F(RenderPixels, AfterEffectsAndPremiereProGiveTheSamePixels) {
  for (thost::Depth d : kDepths) {
    thost::Host& ae = ready(thost::App::AfterEffects, d, 20);
    ASSERT_EQ(ae.preRender(), PF_Err_NONE);
    ASSERT_EQ(ae.smartRender(), PF_Err_NONE);
    const std::vector<uint8_t> smart = pixelsOf(*ae.outputWorld(), d);
    thost::Host& pr = ready(thost::App::PremierePro, d, 20);
    ASSERT_EQ(pr.legacyRender(), PF_Err_NONE);
    EXPECT_EQ(pixelsOf(*pr.outputWorld(), d), smart) << depthName(d);
  }
}

TEST_F(RenderPixels, PremiereProRendersEachAnnouncedDepthWithItsRenderer) {
  for (thost::Depth d : kDepths) {
    thost::Host& h = ready(thost::App::PremierePro, d, 3);
    setFixed(h, ID_TIME_FRAMES, 0);  // the legacy record is the effect's own: compare without layers
    ASSERT_EQ(h.legacyRender(), PF_Err_NONE);
    const ParamValues pv = legacyRecord(h);
    ASSERT_NE(pv.maskLayer, nullptr);
    OwnedWorld direct(*h.outputWorld());
    ASSERT_EQ(renderDirect(d, h.inputWorld(), &direct.world, pv, 1.0f), PF_Err_NONE);
    EXPECT_EQ(pixelsOf(*h.outputWorld(), d), pixelsOf(direct.world, d)) << depthName(d);
  }
}

TEST_F(RenderPixels, HalfResolutionPassesOneHalf) {
  for (thost::Depth d : kDepths) {
    thost::Host& h = ready(thost::App::AfterEffects, d);
    h.setDownsample(PF_RationalScale{1, 2}, PF_RationalScale{1, 2});
    ASSERT_EQ(h.preRender(), PF_Err_NONE);
    ASSERT_EQ(h.smartRender(), PF_Err_NONE);
    expectSameAsDirect(h, d, 0.5f);
    // And the factor matters: full size would draw other blocks.
    ParamValues pv = recordOf(h);
    OwnedWorld full(*h.outputWorld());
    ASSERT_EQ(renderDirect(d, h.inputWorld(), &full.world, pv, 1.0f), PF_Err_NONE);
    EXPECT_NE(pixelsOf(*h.outputWorld(), d), pixelsOf(full.world, d));
  }
}

TEST_F(RenderPixels, AHorizontalOnlyDownsampleStillPassesTheHorizontalFactor) {
  thost::Host& h = ready(thost::App::AfterEffects, thost::Depth::Bits8);
  h.setDownsample(PF_RationalScale{1, 2}, PF_RationalScale{1, 1});
  ASSERT_EQ(h.preRender(), PF_Err_NONE);
  ASSERT_EQ(h.smartRender(), PF_Err_NONE);
  expectSameAsDirect(h, thost::Depth::Bits8, 0.5f);
  // Only the vertical one: the factor passed is 1.
  thost::Host& v = ready(thost::App::AfterEffects, thost::Depth::Bits8);
  v.setDownsample(PF_RationalScale{1, 1}, PF_RationalScale{1, 2});
  ASSERT_EQ(v.preRender(), PF_Err_NONE);
  ASSERT_EQ(v.smartRender(), PF_Err_NONE);
  expectSameAsDirect(v, thost::Depth::Bits8, 1.0f);
}

TEST_F(RenderPixels, PremiereProWithAFormatItNeverAnnouncedDrawsNothingAndAnswers514) {
  thost::Host& h = ready(thost::App::PremierePro, thost::Depth::Bits8);
  h.setPremiereOutputFormat(0x56555941);  // a VUYA layout the effect did not announce
  EXPECT_EQ(h.legacyRender(), PF_Err_UNRECOGNIZED_PARAM_TYPE);
  expectUntouched(h, thost::Depth::Bits8);
}

TEST_F(RenderPixels, AfterEffectsSendingTheLegacyRenderCommandGetsNothingDrawn) {
  thost::Host& h = ready(thost::App::AfterEffects, thost::Depth::Bits8);
  h.clearCalls();
  EXPECT_EQ(h.legacyRender(), PF_Err_NONE);
  expectUntouched(h, thost::Depth::Bits8);
  EXPECT_TRUE(h.callsTo("checkout_param").empty());
}

TEST_F(RenderPixels, ANullInputWorldFromTheHostDrawsNothing) {
  thost::Host& h = ready(thost::App::AfterEffects, thost::Depth::Bits8);
  ASSERT_EQ(h.preRender(), PF_Err_NONE);
  h.failCall("checkout_layer_pixels", PF_Err_NONE, 1);  // success, but no world
  EXPECT_EQ(h.smartRender(), PF_Err_NONE);
  expectUntouched(h, thost::Depth::Bits8);
  EXPECT_TRUE(h.callsTo("PF_GetPixelFormat").empty());
}

TEST_F(RenderPixels, ANullOutputWorldFromTheHostDrawsNothingAndGivesTheInputBack) {
  thost::Host& h = ready(thost::App::AfterEffects, thost::Depth::Bits8);
  ASSERT_EQ(h.preRender(), PF_Err_NONE);
  h.failCall("checkout_output", PF_Err_NONE, 1);
  h.clearCalls();
  EXPECT_EQ(h.smartRender(), PF_Err_NONE);
  std::vector<thost::HostCall> checkins = h.callsTo("checkin_layer_pixels");
  ASSERT_EQ(checkins.size(), 1u);
  EXPECT_EQ(checkins[0].args, "0");
  EXPECT_EQ(h.lockCount(h.preRenderData()), 0);
}

TEST_F(RenderPixels, SixteenAndThirtyTwoBitOutputsGoToTheirRenderersInBothHosts) {
  for (thost::App app : {thost::App::AfterEffects, thost::App::PremierePro}) {
    for (thost::Depth d : {thost::Depth::Bits16, thost::Depth::Float32}) {
      thost::Host& h = ready(app, d);
      setFixed(h, ID_TIME_FRAMES, 0);
      if (app == thost::App::AfterEffects) {
        ASSERT_EQ(h.preRender(), PF_Err_NONE);
        ASSERT_EQ(h.smartRender(), PF_Err_NONE);
      } else {
        ASSERT_EQ(h.legacyRender(), PF_Err_NONE);
      }
      // The 8-bit renderer on these bytes would read them as four times as many
      // pixels; compare with the depth's own.
      const ParamValues pv =
          app == thost::App::AfterEffects ? recordOf(h) : legacyRecord(h);
      OwnedWorld direct(*h.outputWorld());
      ASSERT_EQ(renderDirect(d, h.inputWorld(), &direct.world, pv, 1.0f), PF_Err_NONE);
      EXPECT_EQ(pixelsOf(*h.outputWorld(), d), pixelsOf(direct.world, d))
          << depthName(d) << (app == thost::App::AfterEffects ? " in After Effects" : " in Premiere Pro");
    }
  }
}

// ---- Unequal downsample factors: only the horizontal one reaches the renderer.

namespace {

// Renders frame 12 in `app` with the factors given, time frames off so that
// the legacy record can be rebuilt by hand, and compares with direct renders
// at the horizontal factor (equal) and at the vertical one (different).
void expectHorizontalFactorOnly(thost::Host& h, thost::App app, PF_RationalScale x,
                                PF_RationalScale y) {
  const float fx = static_cast<float>(x.num) / static_cast<float>(x.den);
  const float fy = static_cast<float>(y.num) / static_cast<float>(y.den);
  h.setDownsample(x, y);
  setFixed(h, ID_TIME_FRAMES, 0);
  if (app == thost::App::AfterEffects) {
    ASSERT_EQ(h.preRender(), PF_Err_NONE);
    ASSERT_EQ(h.smartRender(), PF_Err_NONE);
  } else {
    ASSERT_EQ(h.legacyRender(), PF_Err_NONE);
  }
  const ParamValues pv = app == thost::App::AfterEffects ? recordOf(h) : legacyRecord(h);
  OwnedWorld atX(*h.outputWorld()), atY(*h.outputWorld());
  ASSERT_EQ(renderDirect(thost::Depth::Bits8, h.inputWorld(), &atX.world, pv, fx), PF_Err_NONE);
  ASSERT_EQ(renderDirect(thost::Depth::Bits8, h.inputWorld(), &atY.world, pv, fy), PF_Err_NONE);
  const std::vector<uint8_t> got = pixelsOf(*h.outputWorld(), thost::Depth::Bits8);
  EXPECT_EQ(got, pixelsOf(atX.world, thost::Depth::Bits8))
      << x.num << "/" << x.den << " by " << y.num << "/" << y.den;
  // The two factors draw different blocks, so the comparison above can tell them apart.
  EXPECT_NE(got, pixelsOf(atY.world, thost::Depth::Bits8))
      << x.num << "/" << x.den << " by " << y.num << "/" << y.den;
}

}  // namespace

TEST_F(RenderPixels, UnequalDownsampleFactorsPassOnlyTheHorizontalOneInAfterEffects) {
  for (auto [x, y] : {std::pair<PF_RationalScale, PF_RationalScale>{{1, 2}, {1, 4}},
                      {{1, 4}, {1, 2}}, {{1, 1}, {1, 3}}, {{1, 3}, {1, 1}}}) {
    thost::Host& h = ready(thost::App::AfterEffects, thost::Depth::Bits8);
    expectHorizontalFactorOnly(h, thost::App::AfterEffects, x, y);
  }
}

TEST_F(RenderPixels, UnequalDownsampleFactorsPassOnlyTheHorizontalOneInPremierePro) {
  for (auto [x, y] : {std::pair<PF_RationalScale, PF_RationalScale>{{1, 2}, {1, 4}},
                      {{1, 4}, {1, 2}}, {{1, 1}, {1, 3}}, {{1, 3}, {1, 1}}}) {
    thost::Host& h = ready(thost::App::PremierePro, thost::Depth::Bits8);
    expectHorizontalFactorOnly(h, thost::App::PremierePro, x, y);
  }
}

// ---- Result rectangles: pre-render reports the input's, the output follows them.

namespace {

PF_LRect frameRectOf(const thost::Image& img) {
  return PF_LRect{img.originX, img.originY, img.originX + img.width, img.originY + img.height};
}

void expectRect(const PF_LRect& got, const PF_LRect& want, const char* what) {
  EXPECT_EQ(got.left, want.left) << what;
  EXPECT_EQ(got.top, want.top) << what;
  EXPECT_EQ(got.right, want.right) << what;
  EXPECT_EQ(got.bottom, want.bottom) << what;
}

// A world of the rectangle's size and origin, owned by the test.
OwnedWorld worldAt(const PF_LRect& r, thost::Depth d) {
  PF_EffectWorld like;
  std::memset(&like, 0, sizeof like);
  like.width = r.right - r.left;
  like.height = r.bottom - r.top;
  like.rowbytes = like.width * thost::bytesPerPixel(d);
  like.origin_x = r.left;
  like.origin_y = r.top;
  return OwnedWorld(like);
}

}  // namespace

TEST_F(RenderPixels, PreRenderReportsTheInputsResultAndMaximumRectanglesWhenTheyDiffer) {
  for (int k : {5, 12}) {  // frames of other sizes and origins
    thost::Host& h = ready(thost::App::AfterEffects, thost::Depth::Bits8, k);
    const auto frame = makeVaryingClip(40, 61, 37)->frame(k, thost::Depth::Bits8);
    const PF_LRect whole = frameRectOf(*frame);
    // A request for part of the frame that also reaches past its left and bottom edges.
    PF_RenderRequest req{};
    req.rect = PF_LRect{whole.left - 4, whole.top + 3, whole.right - 9, whole.bottom + 6};
    req.field = PF_Field_FRAME;
    req.channel_mask = PF_ChannelMask_ARGB;
    ASSERT_EQ(h.preRender(req), PF_Err_NONE);
    const PF_PreRenderOutput& out = h.preRenderOutput();
    // The input checkout's rectangles, worked out from the frame: what the
    // request covers of it, and the frame whole.
    expectRect(out.result_rect, PF_LRect{whole.left, whole.top + 3, whole.right - 9, whole.bottom},
               "result_rect");
    expectRect(out.max_result_rect, whole, "max_result_rect");
    ASSERT_EQ(h.smartRender(), PF_Err_NONE);
  }
}

TEST_F(RenderPixels, TheOutputWorldFollowsThePreRenderResultRectangle) {
  for (thost::Depth d : kDepths) {
    thost::Host& h = ready(thost::App::AfterEffects, d, 7);
    const auto frame = makeVaryingClip(40, 61, 37)->frame(7, d);
    const PF_LRect whole = frameRectOf(*frame);
    const PF_LRect part{whole.left + 5, whole.top + 2, whole.right - 3, whole.bottom - 7};
    for (const PF_LRect& want : {whole, part}) {
      PF_RenderRequest req{};
      req.rect = want;
      req.field = PF_Field_FRAME;
      req.channel_mask = PF_ChannelMask_ARGB;
      ASSERT_EQ(h.preRender(req), PF_Err_NONE);
      ASSERT_EQ(h.smartRender(), PF_Err_NONE);
      const PF_EffectWorld* out = h.outputWorld();
      ASSERT_NE(out, nullptr);
      EXPECT_EQ(out->width, want.right - want.left) << depthName(d);
      EXPECT_EQ(out->height, want.bottom - want.top) << depthName(d);
      EXPECT_EQ(out->origin_x, want.left) << depthName(d);
      EXPECT_EQ(out->origin_y, want.top) << depthName(d);
      // The pixels of the renderer called on an output of that rectangle.
      OwnedWorld direct = worldAt(want, d);
      ASSERT_EQ(renderDirect(d, h.inputWorld(), &direct.world, recordOf(h), 1.0f), PF_Err_NONE);
      EXPECT_EQ(pixelsOf(*out, d), pixelsOf(direct.world, d)) << depthName(d);
    }
  }
}
