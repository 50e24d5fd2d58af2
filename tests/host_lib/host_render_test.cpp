// The host's render side against the fake effect: checkouts, lent worlds and
// their guards, the pre-render handle, legacy render, failure injection.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "fake_host.h"
#include "host_render_support.h"
#include "thost/render.h"

namespace {

using thost::Depth;
using thost::Host;
using thost::Image;
using thost::LayerCheckout;
using thost_test::FakeHost;
using thost_test::fakeExpected;
using thost_test::patternClip;

// The fake effect's controls by index, and its checkout ids.
constexpr PF_ParamIndex kChoice = 1, kSize = 3, kAmount = 4, kOther = 8;
constexpr A_long kTimeId = 100;

bool anyContains(const std::vector<std::string>& lines, const std::string& part) {
  return std::any_of(lines.begin(), lines.end(),
                     [&](const std::string& l) { return l.find(part) != std::string::npos; });
}

class RenderTest : public FakeHost {
 protected:
  void SetUp() override {
    startUp();
    ASSERT_EQ(host.sequenceSetup(), PF_Err_NONE);
    host.setTime(0, 100, 30000, 3000);
    host.setLayerClip(0, layer);
  }

  void setFrame(int k) { host.inData().current_time = k * 100; }

  Image world(PF_EffectWorld* w, Depth d) {
    Image img(w->width, w->height, d);
    img.originX = w->origin_x;
    img.originY = w->origin_y;
    for (int y = 0; y < w->height; ++y)
      std::memcpy(img.row(y), reinterpret_cast<char*>(w->data) + y * w->rowbytes,
                  static_cast<size_t>(w->width) * thost::bytesPerPixel(d));
    return img;
  }

  std::shared_ptr<thost::MemoryClip> layer = patternClip(6, 7, 5);
  std::shared_ptr<thost::MemoryClip> mask = patternClip(6, 4, 3, 100);
};

TEST_F(RenderTest, PreRenderRecordsEachRequestWithItsMappedFrame) {
  host.param(kChoice).u.pd.value = 2;
  host.param(kSize).u.fd.value = 2 << 16;
  host.setMaskClip(mask);
  setFrame(3);
  ASSERT_EQ(host.preRender(), PF_Err_NONE);
  const std::vector<LayerCheckout> expected = {
      {0, 0, 300, 100, 3000, 3},
      {kOther, kOther, 300, 100, 3000, 3},
      {kTimeId + 1, 0, 500, 100, 3000, 5},
      {kTimeId + 2, 0, 700, 100, 3000, 5},  // past the end: the last frame
  };
  EXPECT_EQ(host.layerCheckouts(), expected);
  const PF_PreRenderOutput& out = host.preRenderOutput();
  EXPECT_EQ(out.result_rect.right, 7);
  EXPECT_EQ(out.result_rect.bottom, 5);
  EXPECT_EQ(host.inData().width, 7);
  EXPECT_EQ(host.inData().total_time, 600);
  EXPECT_TRUE(breaks().empty()) << breaks().front();
}

TEST_F(RenderTest, TimesMapToFramesRoundedDownAndClamped) {
  host.param(kChoice).u.pd.value = 1;
  host.param(kSize).u.fd.value = -(1 << 16);
  host.inData().current_time = 0;
  ASSERT_EQ(host.preRender(), PF_Err_NONE);
  EXPECT_EQ(host.layerCheckouts().back().time, -100);
  EXPECT_EQ(host.layerCheckouts().back().frame, 0);
  host.inData().current_time = 399;  // inside frame 3
  ASSERT_EQ(host.preRender(), PF_Err_NONE);
  EXPECT_EQ(host.layerCheckouts().front().frame, 3);
  EXPECT_EQ(host.layerCheckouts().back().time, 299);
  EXPECT_EQ(host.layerCheckouts().back().frame, 2);
}

TEST_F(RenderTest, SmartRenderDrawsFromTheRequestedFramesAtEveryDepth) {
  host.param(kChoice).u.pd.value = 2;
  host.param(kSize).u.fd.value = 1 << 16;
  host.setMaskClip(mask);
  setFrame(1);
  for (Depth d : {Depth::Bits8, Depth::Bits16, Depth::Float32}) {
    host.setRenderDepth(d);
    ASSERT_EQ(host.preRender(), PF_Err_NONE);
    ASSERT_EQ(host.smartRender(), PF_Err_NONE);
    const auto in = layer->frame(1, d);
    const auto t1 = layer->frame(2, d);
    const auto t2 = layer->frame(3, d);
    const auto m = mask->frame(1, d);
    Image expected = d == Depth::Bits8    ? fakeExpected<uint8_t>(*in, {t1.get(), t2.get()}, m.get())
                     : d == Depth::Bits16 ? fakeExpected<uint16_t>(*in, {t1.get(), t2.get()}, m.get())
                                          : fakeExpected<float>(*in, {t1.get(), t2.get()}, m.get());
    EXPECT_EQ(world(host.outputWorld(), d), expected) << static_cast<int>(d);
    // Rows are padded beyond width, in every lent world.
    for (const thost::LentWorldInfo& w : host.lentWorlds())
      EXPECT_GT(w.world->rowbytes, w.world->width * thost::bytesPerPixel(d));
    EXPECT_EQ(host.lentWorlds().size(), 5u);  // input, output, mask, two time frames
  }
  EXPECT_TRUE(breaks().empty()) << breaks().front();
}

TEST_F(RenderTest, ValueCheckoutsInSmartFxCommandsAreToleratedNotices) {
  ASSERT_EQ(host.preRender(), PF_Err_NONE);
  EXPECT_EQ(host.toleratedNotices(), 3);  // the fake reads three values
  ASSERT_EQ(host.smartRender(), PF_Err_NONE);
  EXPECT_EQ(host.toleratedNotices(), 3);
  EXPECT_TRUE(breaks().empty()) << breaks().front();
}

TEST_F(RenderTest, MaskWithoutLayerGivesNullPixelsWithoutError) {
  ASSERT_EQ(host.preRender(), PF_Err_NONE);
  EXPECT_EQ(host.layerCheckouts()[1].frame, -1);
  ASSERT_EQ(host.smartRender(), PF_Err_NONE);
  EXPECT_EQ(host.checkoutWorld(kOther), nullptr);
  const auto in = layer->frame(0, Depth::Bits8);
  const auto t1 = layer->frame(5, Depth::Bits8);  // Size 32 frames on: the last frame
  const auto t2 = layer->frame(5, Depth::Bits8);
  EXPECT_EQ(world(host.outputWorld(), Depth::Bits8),
            fakeExpected<uint8_t>(*in, {t1.get(), t2.get()}, nullptr));
  EXPECT_TRUE(breaks().empty()) << breaks().front();
}

TEST_F(RenderTest, PreRenderHandleIsTheHostsUntilTheNextRender) {
  ASSERT_EQ(host.preRender(), PF_Err_NONE);
  PF_Handle h = host.preRenderData();
  ASSERT_NE(h, nullptr);
  EXPECT_EQ(host.preRenderOutput().pre_render_data, h);
  EXPECT_EQ(host.lockCount(h), 0);
  const A_long id = host.handleId(h);
  const size_t live = host.liveHandleCount();  // the sequence data and the pre-render data
  ASSERT_EQ(host.smartRender(), PF_Err_NONE);
  EXPECT_EQ(host.handleId(h), id);
  EXPECT_EQ(host.lockCount(h), 0);
  ASSERT_EQ(host.preRender(), PF_Err_NONE);
  // The old handle is gone (its address may be reused by the new one).
  EXPECT_NE(host.handleId(h), id);
  EXPECT_EQ(host.liveHandleCount(), live);
  host.finish();
  EXPECT_TRUE(breaks().empty()) << breaks().front();
}

struct Misbehaviour {
  int amount;
  const char* breakText;
};

class RenderMisbehaviourTest : public RenderTest,
                               public ::testing::WithParamInterface<Misbehaviour> {};

TEST_P(RenderMisbehaviourTest, IsAContractBreak) {
  host.setMaskClip(mask);
  host.param(kAmount).u.fs_d.value = GetParam().amount;
  ASSERT_EQ(host.preRender(), PF_Err_NONE);
  host.smartRender();
  host.finish();
  EXPECT_TRUE(anyContains(breaks(), GetParam().breakText))
      << (breaks().empty() ? "no break" : breaks().front());
}

INSTANTIATE_TEST_SUITE_P(
    Fake, RenderMisbehaviourTest,
    ::testing::Values(
        Misbehaviour{1, "write into the row padding beyond width of the output world (row 0)"},
        Misbehaviour{2, "the world of checkout id 0 (layer 0, frame 0) was written to"},
        Misbehaviour{3, "checkout_layer_pixels of checkout id 555, which the pre-render did not ask for"},
        Misbehaviour{4, "pixels of checkout id 8 not checked in"},
        Misbehaviour{5, "host_dispose_handle of the pre-render data handle"},
        Misbehaviour{6, "write before the first row of the output world"},
        Misbehaviour{7, "made by the effect in this command was never disposed"},
        Misbehaviour{9, "left locked (lock count 1)"}));

TEST_F(RenderTest, GuardsOffSkipTheChecks) {
  host.setGuardWorlds(false);
  host.param(kAmount).u.fs_d.value = 2;
  ASSERT_EQ(host.preRender(), PF_Err_NONE);
  ASSERT_EQ(host.smartRender(), PF_Err_NONE);
  EXPECT_EQ(host.inputWorld()->rowbytes, 7 * 4);
  EXPECT_TRUE(breaks().empty()) << breaks().front();
}

TEST_F(RenderTest, InjectedFailuresReachTheEffect) {
  const std::pair<const char*, PF_Err> failures[] = {
      {"checkout_layer", 7}, {"checkout_layer_pixels", 8}, {"checkout_output", 9},
      {"PF_GetPixelFormat", 10}, {"checkout_param", 11}};
  for (const auto& [fn, err] : failures) {
    host.clearFailures();
    host.failCall(fn, err, 1);
    PF_Err got = host.preRender();
    if (got == PF_Err_NONE) got = host.smartRender();
    EXPECT_EQ(got, err) << fn;
  }
  host.clearFailures();
  host.failCall("host_new_handle", PF_Err_OUT_OF_MEMORY, 1);
  EXPECT_EQ(host.preRender(), PF_Err_OUT_OF_MEMORY);
  host.clearFailures();
  host.removeSuite(kPFWorldSuite, 2);
  ASSERT_EQ(host.preRender(), PF_Err_NONE);
  EXPECT_EQ(host.smartRender(), A_Err_MISSING_SUITE);
}

class LegacyRenderTest : public RenderTest {
 protected:
  LegacyRenderTest() { host.setApp(thost::App::PremierePro); }
};

TEST_F(LegacyRenderTest, DrawsWithCheckedOutLayersAndToleratesItsOwnLayer) {
  host.param(kChoice).u.pd.value = 1;
  host.param(kSize).u.fd.value = 1 << 16;
  host.setMaskClip(mask);
  setFrame(2);
  ASSERT_EQ(host.legacyRender(), PF_Err_NONE);
  const auto in = layer->frame(2, Depth::Bits8);
  const auto t1 = layer->frame(3, Depth::Bits8);
  const auto m = mask->frame(2, Depth::Bits8);
  EXPECT_EQ(world(host.outputWorld(), Depth::Bits8), fakeExpected<uint8_t>(*in, {t1.get()}, m.get()));
  const std::vector<LayerCheckout> expected = {
      {LayerCheckout::kParamCheckout, kOther, 200, 100, 3000, 2},
      {LayerCheckout::kParamCheckout, 0, 300, 100, 3000, 3},
      {LayerCheckout::kParamCheckout, 0, 200, 100, 3000, 2}};
  EXPECT_EQ(host.layerCheckouts(), expected);
  EXPECT_EQ(host.toleratedNotices(), 1);
  EXPECT_EQ(host.inputWorld()->width, 7);
  ASSERT_NE(host.maskWorld(), nullptr);
  EXPECT_EQ(host.maskWorld()->width, 4);
  EXPECT_GT(host.maskWorld()->rowbytes, 4 * 4);
  EXPECT_TRUE(breaks().empty()) << breaks().front();
}

TEST_F(LegacyRenderTest, AnswersPremiereFormatsAndFlagsALayerLeftOut) {
  host.setRenderDepth(Depth::Float32);
  ASSERT_EQ(host.legacyRender(), PF_Err_NONE);
  host.setPremiereOutputFormat(PrPixelFormat_BGRA_4444_32f);
  EXPECT_EQ(host.legacyRender(), PF_Err_UNRECOGNIZED_PARAM_TYPE);
  host.setPremiereOutputFormat(std::nullopt);
  host.failCall("GetPixelFormat", 12, 1);
  EXPECT_EQ(host.legacyRender(), 12);
  host.clearFailures();
  EXPECT_TRUE(breaks().empty()) << breaks().front();
  host.setMaskClip(mask);
  host.param(kAmount).u.fs_d.value = 8;
  ASSERT_EQ(host.legacyRender(), PF_Err_NONE);
  EXPECT_TRUE(anyContains(breaks(), "PF_Cmd_RENDER: parameter 8 checked out and not checked in"));
}

TEST_F(LegacyRenderTest, StrideFromWidthWritesIntoRowPadding) {
  host.param(kAmount).u.fs_d.value = 1;
  ASSERT_EQ(host.legacyRender(), PF_Err_NONE);
  EXPECT_TRUE(anyContains(breaks(), "row padding beyond width of the output world"));
}

}  // namespace
