// Every host call of the render path, made to fail: the error the effect
// answers, the message where it writes one, and nothing left behind (suites
// balanced, handles disposed or the host's, layers given back). The fixture
// fails the test on any contract break the host finds, leaks included.
#include "pipeline_support.h"

using namespace pipeline;

namespace {

constexpr PF_Err kHostError = PF_Err_INTERNAL_STRUCT_DAMAGED;
constexpr char kSuiteMessage[] = "Not able to acquire AEFX Suite.";

void expectBalanced(thost::Host& h, const char* suite, int version) {
  EXPECT_EQ(h.acquireCount(suite, version), h.releaseCount(suite, version)) << suite;
}

}  // namespace

class RenderFailures : public PipelineTest {
 protected:
  thost::Host& ready(thost::App app = thost::App::AfterEffects, int timeFrames = 2) {
    thost::Host& h = setUpInstance(app);
    h.setLayerClip(0, makeClip(30, 16, 10));
    h.setMaskClip(makeClip(30, 8, 6, 2));
    setClipTime(h, 30, 5);
    setFixed(h, ID_TIME_FRAMES, timeFrames);
    setPopup(h, ID_STEPPING_UNIT, 2);
    setFloat(h, ID_TIME_STEP_FRAMES, 1.0);
    setFloat(h, ID_SHUFFLE_STRENGTH, 1.0);
    h.clearSuiteCounts();
    return h;
  }
  // The pixels as a render without failures draws them.
  std::vector<uint8_t> cleanPixels(thost::App app, thost::Depth d) {
    thost::Host& h = ready(app);
    h.setRenderDepth(d);
    if (app == thost::App::AfterEffects) {
      EXPECT_EQ(h.preRender(), PF_Err_NONE);
      EXPECT_EQ(h.smartRender(), PF_Err_NONE);
    } else {
      EXPECT_EQ(h.legacyRender(), PF_Err_NONE);
    }
    return pixelsOf(*h.outputWorld(), d);
  }
};

// ---- Pre-render

TEST_F(RenderFailures, PreRenderWithoutTheHandleSuiteAnswers13WithTheMessage) {
  thost::Host& h = ready();
  h.removeSuite(kPFHandleSuite, kPFHandleSuiteVersion1);
  h.clearCalls();
  EXPECT_EQ(h.preRender(), A_Err_MISSING_SUITE);
  EXPECT_EQ(h.returnMessage(), kSuiteMessage);
  EXPECT_TRUE(h.outData().out_flags & PF_OutFlag_DISPLAY_ERROR_MESSAGE);
  EXPECT_TRUE(h.callsTo("host_new_handle").empty());
}

TEST_F(RenderFailures, PreRenderWithoutMemoryForTheRecordAnswersOutOfMemory) {
  thost::Host& h = ready();
  h.failCall("host_new_handle", PF_Err_OUT_OF_MEMORY, 1);
  EXPECT_EQ(h.preRender(), PF_Err_OUT_OF_MEMORY);
  EXPECT_TRUE(h.callsTo("checkout_param").empty());
  expectBalanced(h, kPFHandleSuite, kPFHandleSuiteVersion1);
}

TEST_F(RenderFailures, PreRenderWhoseRecordCannotBeLockedDisposesItAndAnswersOutOfMemory) {
  thost::Host& h = ready();
  h.failCall("host_lock_handle", PF_Err_OUT_OF_MEMORY, 1);
  EXPECT_EQ(h.preRender(), PF_Err_OUT_OF_MEMORY);
  EXPECT_EQ(h.callsTo("host_dispose_handle").size(), 1u);
  expectBalanced(h, kPFHandleSuite, kPFHandleSuiteVersion1);
}

TEST_F(RenderFailures, PreRenderPassesOnAFailedControlReadAtEveryControl) {
  for (int nth = 1; nth <= 19; ++nth) {
    thost::Host& h = ready();
    h.failCall("checkout_param", kHostError, nth);
    EXPECT_EQ(h.preRender(), kHostError) << nth;
    EXPECT_EQ(h.callsTo("checkout_param").size(), static_cast<size_t>(nth));
    EXPECT_TRUE(h.callsTo("checkout_layer").empty());
    // The record never reached the host: the effect disposed of it.
    EXPECT_EQ(h.callsTo("host_dispose_handle").size(), 1u);
    expectBalanced(h, kPFHandleSuite, kPFHandleSuiteVersion1);
    endSession();
  }
}

TEST_F(RenderFailures, PreRenderPassesOnAFailedLayerRequest) {
  // 1: the mask, 2 and 3: the time frames, 4: the input at the current time.
  for (int nth = 1; nth <= 4; ++nth) {
    thost::Host& h = ready();
    h.failCall("checkout_layer", kHostError, nth);
    EXPECT_EQ(h.preRender(), kHostError) << nth;
    EXPECT_EQ(h.callsTo("checkout_layer").size(), static_cast<size_t>(nth));
    if (nth < 4) {
      EXPECT_EQ(h.callsTo("host_dispose_handle").size(), 1u);
    } else {
      // The record was already the host's when the input request failed.
      EXPECT_NE(h.preRenderData(), nullptr);
      EXPECT_TRUE(h.callsTo("host_dispose_handle").empty());
    }
    expectBalanced(h, kPFHandleSuite, kPFHandleSuiteVersion1);
    endSession();
  }
}

// ---- Smart render

TEST_F(RenderFailures, SmartRenderWithoutTheHandleSuiteAnswers13WithTheMessage) {
  thost::Host& h = ready();
  ASSERT_EQ(h.preRender(), PF_Err_NONE);
  h.removeSuite(kPFHandleSuite, kPFHandleSuiteVersion1);
  EXPECT_EQ(h.smartRender(), A_Err_MISSING_SUITE);
  EXPECT_EQ(h.returnMessage(), kSuiteMessage);
  EXPECT_TRUE(h.callsTo("checkout_layer_pixels").empty());
}

TEST_F(RenderFailures, SmartRenderWhoseRecordCannotBeLockedAnswers512) {
  thost::Host& h = ready();
  ASSERT_EQ(h.preRender(), PF_Err_NONE);
  h.failCall("host_lock_handle", PF_Err_OUT_OF_MEMORY, 1);
  EXPECT_EQ(h.smartRender(), PF_Err_INTERNAL_STRUCT_DAMAGED);
  EXPECT_TRUE(h.callsTo("checkout_layer_pixels").empty());
  expectBalanced(h, kPFHandleSuite, kPFHandleSuiteVersion1);
}

TEST_F(RenderFailures, SmartRenderPassesOnAFailedPixelCheckoutAndGivesBackWhatItHad) {
  // 1: the input, 2: the mask, 3 and 4: the time frames.
  for (int nth = 1; nth <= 4; ++nth) {
    thost::Host& h = ready();
    ASSERT_EQ(h.preRender(), PF_Err_NONE);
    h.clearCalls();
    h.failCall("checkout_layer_pixels", kHostError, nth);
    EXPECT_EQ(h.smartRender(), kHostError) << nth;
    // Given back: everything checked out before the failure.
    EXPECT_EQ(h.callsTo("checkin_layer_pixels").size(), static_cast<size_t>(nth - 1)) << nth;
    EXPECT_EQ(h.lockCount(h.preRenderData()), 0);
    expectBalanced(h, kPFHandleSuite, kPFHandleSuiteVersion1);
    expectBalanced(h, kPFWorldSuite, kPFWorldSuiteVersion2);
    endSession();
  }
}

TEST_F(RenderFailures, SmartRenderPassesOnAFailedOutputCheckout) {
  thost::Host& h = ready();
  ASSERT_EQ(h.preRender(), PF_Err_NONE);
  h.clearCalls();
  h.failCall("checkout_output", kHostError, 1);
  EXPECT_EQ(h.smartRender(), kHostError);
  std::vector<thost::HostCall> checkins = h.callsTo("checkin_layer_pixels");
  ASSERT_EQ(checkins.size(), 1u);
  EXPECT_EQ(checkins[0].args, "0");
}

TEST_F(RenderFailures, SmartRenderWithoutTheWorldSuiteAnswers13AndGivesEverythingBack) {
  thost::Host& h = ready();
  ASSERT_EQ(h.preRender(), PF_Err_NONE);
  h.removeSuite(kPFWorldSuite, kPFWorldSuiteVersion2);
  h.clearCalls();
  EXPECT_EQ(h.smartRender(), A_Err_MISSING_SUITE);
  EXPECT_EQ(h.returnMessage(), kSuiteMessage);
  EXPECT_EQ(h.callsTo("checkin_layer_pixels").size(), 4u);  // mask, two frames, input
  expectBalanced(h, kPFHandleSuite, kPFHandleSuiteVersion1);
}

TEST_F(RenderFailures, SmartRenderWithAFailedPixelFormatQueryDrawsNothingAndAnswers514) {
  thost::Host& h = ready();
  ASSERT_EQ(h.preRender(), PF_Err_NONE);
  h.failCall("PF_GetPixelFormat", kHostError, 1);
  EXPECT_EQ(h.smartRender(), PF_Err_UNRECOGNIZED_PARAM_TYPE);
  expectBalanced(h, kPFWorldSuite, kPFWorldSuiteVersion2);
  const std::vector<uint8_t> px = pixelsOf(*h.outputWorld(), thost::Depth::Bits8);
  for (size_t i = 0; i < px.size(); ++i) ASSERT_EQ(px[i], px[0]) << i;
}

TEST_F(RenderFailures, SmartRenderPassesOnAFailedInputCheckin) {
  thost::Host& h = ready(thost::App::AfterEffects, 0);
  ASSERT_EQ(h.preRender(), PF_Err_NONE);
  h.failCall("checkin_layer_pixels", kHostError, 2);  // 1: the mask (ignored), 2: the input
  EXPECT_EQ(h.smartRender(), kHostError);
  h.clearContractBreaks();  // the host did not take the input back: its own doing
}

TEST_F(RenderFailures, SmartRenderIgnoresAFailedMaskCheckin) {
  thost::Host& h = ready(thost::App::AfterEffects, 0);
  ASSERT_EQ(h.preRender(), PF_Err_NONE);
  h.failCall("checkin_layer_pixels", kHostError, 1);
  EXPECT_EQ(h.smartRender(), PF_Err_NONE);
  h.clearContractBreaks();
}

// ---- Legacy render (Premiere Pro)

TEST_F(RenderFailures, LegacyRenderWithoutThePixelFormatSuiteAnswers13AndGivesLayersBack) {
  thost::Host& h = ready(thost::App::PremierePro);
  h.removeSuite(kPFPixelFormatSuite, kPFPixelFormatSuiteVersion1);
  h.clearCalls();
  EXPECT_EQ(h.legacyRender(), A_Err_MISSING_SUITE);
  EXPECT_EQ(h.returnMessage(), kSuiteMessage);
  EXPECT_EQ(h.callsTo("checkout_param").size(), 3u);  // mask and two frames
  EXPECT_EQ(h.callsTo("checkin_param").size(), 3u);
}

TEST_F(RenderFailures, LegacyRenderPassesOnAFailedLayerCheckout) {
  // 1: the mask, 2 and 3: the time frames, 4: the input layer.
  for (int nth = 1; nth <= 4; ++nth) {
    thost::Host& h = ready(thost::App::PremierePro);
    h.clearCalls();
    h.failCall("checkout_param", kHostError, nth);
    EXPECT_EQ(h.legacyRender(), kHostError) << nth;
    // Every layer that was checked out comes back (the input never is).
    EXPECT_EQ(h.callsTo("checkin_param").size(), static_cast<size_t>(nth < 4 ? nth - 1 : 3)) << nth;
    expectBalanced(h, kPFPixelFormatSuite, kPFPixelFormatSuiteVersion1);
    endSession();
  }
}

TEST_F(RenderFailures, LegacyRenderWithAFailedPixelFormatQueryRendersEightBit) {
  const std::vector<uint8_t> clean = cleanPixels(thost::App::PremierePro, thost::Depth::Bits8);
  thost::Host& h = ready(thost::App::PremierePro);
  h.failCall("GetPixelFormat", kHostError, 1);
  EXPECT_EQ(h.legacyRender(), PF_Err_NONE);
  EXPECT_EQ(pixelsOf(*h.outputWorld(), thost::Depth::Bits8), clean);
  expectBalanced(h, kPFPixelFormatSuite, kPFPixelFormatSuiteVersion1);
}
