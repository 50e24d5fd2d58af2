// The plug-in rendered through the headless host: what pre-render asks for,
// the same pixels when its renderer is called directly on the host's worlds,
// the legacy render, "Align", and eight frames rendered at once.
#include <gtest/gtest.h>

#include <map>

#include <cstring>
#include <thread>

#include "host_render_support.h"
#include "params/param_table.h"
#include "params/param_values.h"
#include "plugin_fixture.h"
#include "render/render.h"
#include "thost/render.h"

namespace {

using thost::Depth;
using thost::Image;
using thost::LayerCheckout;
using thost::RenderHost;
using thost::RenderRequest;
using thost::RenderResult;

constexpr int kLayerFrames = 12;
constexpr int kValueControls = 19;  // controls the effect reads in pre-render

std::string firstOf(const std::vector<std::string>& v) { return v.empty() ? "" : v.front(); }

// Three time frames two frames apart, every pair taking from them, a mask
// filter that vetoes some pairs, small blocks so that many pairs move.
thost::ControlValues busyControls() {
  return {{ID_BLOCK_WIDTH, 8},       {ID_BLOCK_HEIGHT, 6},     {ID_SHUFFLE_STRENGTH, 0.6},
          {ID_SHUFFLE_SPREAD, 0.5},  {ID_TIME_FRAMES, 3},      {ID_TIME_PROBABILITY, 100},
          {ID_STEPPING_UNIT, 2},     {ID_TIME_STEP_FRAMES, 2}, {ID_MASK_INTENSITY, 40},
          {ID_MASK_TYPE, 2}};
}

class PluginRenderTest : public PluginTest {
 protected:
  thost::Host& startInstance(thost::App app = thost::App::AfterEffects) {
    thost::Host& h = setUpEffect(app);
    EXPECT_EQ(h.sequenceSetup(), PF_Err_NONE);
    h.setTime(0, 100, 1200, 3000);
    h.setLayerClip(0, layer);
    h.setMaskClip(mask);
    for (const auto& [id, value] : busyControls()) set(h, id, value);
    return h;
  }

  static PF_ParamIndex indexOf(thost::Host& h, int id) {
    const auto& added = h.addedParams();
    for (size_t i = 0; i < added.size(); ++i)
      if (added[i].def.uu.id == id) return static_cast<PF_ParamIndex>(i + 1);
    ADD_FAILURE() << "no control " << id;
    return 0;
  }

  static void set(thost::Host& h, int id, double value) {
    PF_ParamDef& def = h.param(indexOf(h, id));
    switch (def.param_type) {
      case PF_Param_FIX_SLIDER:
        def.u.fd.value = static_cast<PF_Fixed>(value * 65536);
        break;
      case PF_Param_FLOAT_SLIDER:
        def.u.fs_d.value = value;
        break;
      case PF_Param_POPUP:
        def.u.pd.value = static_cast<A_long>(value);
        break;
      default:
        FAIL() << "control " << id << " is not set by these tests";
    }
  }

  static Image picture(const PF_EffectWorld* w, Depth d) {
    Image img(w->width, w->height, d);
    img.originX = w->origin_x;
    img.originY = w->origin_y;
    for (int y = 0; y < w->height; ++y)
      std::memcpy(img.row(y), reinterpret_cast<const char*>(w->data) + y * w->rowbytes,
                  static_cast<size_t>(w->width) * thost::bytesPerPixel(d));
    return img;
  }

  std::shared_ptr<thost::MemoryClip> layer = thost_test::patternClip(kLayerFrames, 48, 30);
  std::shared_ptr<thost::MemoryClip> mask = thost_test::patternClip(kLayerFrames, 48, 30, 50);
};

TEST_F(PluginRenderTest, PreRenderAsksForTheMaskTheTimeFramesAndItsInput) {
  thost::Host& h = startInstance();
  h.inData().current_time = 500;
  ASSERT_EQ(h.preRender(), PF_Err_NONE);
  const PF_ParamIndex m = h.maskParamIndex();
  const std::vector<LayerCheckout> expected = {
      {m, m, 500, 100, 3000, 5},
      {1024, 0, 700, 100, 3000, 7},
      {1025, 0, 900, 100, 3000, 9},
      {1026, 0, 1100, 100, 3000, 11},
      {0, 0, 500, 100, 3000, 5},
  };
  EXPECT_EQ(h.layerCheckouts(), expected);
  EXPECT_EQ(h.toleratedNotices(), kValueControls);
  EXPECT_EQ(h.preRenderOutput().result_rect.right, 48);
  EXPECT_EQ(h.preRenderOutput().result_rect.bottom, 30);
  EXPECT_EQ(h.lockCount(h.preRenderData()), 0);
}

TEST_F(PluginRenderTest, MirrorReflectsTimesPastTheLastFrame) {
  thost::Host& h = startInstance();
  // The last frame: 1300, 1500 and 1700 reflect around 1100 to 900, 700 and 500.
  h.inData().current_time = 1100;
  ASSERT_EQ(h.preRender(), PF_Err_NONE);
  ASSERT_EQ(h.layerCheckouts().size(), 5u);
  EXPECT_EQ(h.layerCheckouts()[1].time, 900);
  EXPECT_EQ(h.layerCheckouts()[2].time, 700);
  EXPECT_EQ(h.layerCheckouts()[3].time, 500);
  EXPECT_EQ(h.layerCheckouts()[3].frame, 5);
}

TEST_F(PluginRenderTest, OneFrameLayerSamplesItsOnlyFrameInEveryEdgeMode) {
  thost::Host& h = startInstance();
  h.setLayerClip(0, thost_test::patternClip(1, 48, 30));
  for (int mode = 1; mode <= 3; ++mode) {
    set(h, ID_EDGE_TIME_MODE, mode);
    ASSERT_EQ(h.preRender(), PF_Err_NONE);
    EXPECT_EQ(h.inData().total_time, 100);
    for (const LayerCheckout& c : h.layerCheckouts())
      if (c.layerIndex == 0) {
        EXPECT_GE(c.time, 0) << "edge mode " << mode;
        EXPECT_LT(c.time, 100) << "edge mode " << mode;
      }
    ASSERT_EQ(h.smartRender(), PF_Err_NONE);
  }
}

TEST_F(PluginRenderTest, SmartRenderEqualsTheRendererOnTheSameWorlds) {
  thost::Host& h = startInstance();
  h.inData().current_time = 400;
  for (Depth d : {Depth::Bits8, Depth::Bits16, Depth::Float32}) {
    h.setRenderDepth(d);
    ASSERT_EQ(h.preRender(), PF_Err_NONE);
    ASSERT_EQ(h.smartRender(), PF_Err_NONE);
    EXPECT_EQ(h.toleratedNotices(), kValueControls);
    // The record as the smart render left it, pointing at the host's worlds.
    ParamValues values;
    const std::vector<char> bytes = h.handleBytes(h.preRenderData());
    ASSERT_EQ(bytes.size(), sizeof values);
    std::memcpy(&values, bytes.data(), sizeof values);
    EXPECT_EQ(values.maskLayer, h.checkoutWorld(h.maskParamIndex()));
    EXPECT_EQ(values.maskLayer, h.maskWorld());
    EXPECT_EQ(values.timeLayers[2], h.checkoutWorld(1026));
    Image direct(48, 30, d);
    PF_EffectWorld out = *h.outputWorld();
    out.data = reinterpret_cast<PF_PixelPtr>(direct.pixels.data());
    out.rowbytes = static_cast<A_long>(direct.rowbytes);
    if (d == Depth::Bits8) renderARGB8(h.inputWorld(), &out, values, 1.0f);
    if (d == Depth::Bits16) renderARGB16(h.inputWorld(), &out, values, 1.0f);
    if (d == Depth::Float32) renderARGB32(h.inputWorld(), &out, values, 1.0f);
    const Image rendered = picture(h.outputWorld(), d);
    EXPECT_EQ(rendered, direct) << static_cast<int>(d);
    EXPECT_FALSE(rendered == *layer->frame(4, d)) << "the effect changed nothing";
  }
}

TEST_F(PluginRenderTest, LegacyRenderChecksOutLayerParametersAndLeavesItsOwn) {
  thost::Host& h = startInstance(thost::App::PremierePro);
  h.inData().current_time = 300;
  ASSERT_EQ(h.legacyRender(), PF_Err_NONE);
  const PF_ParamIndex m = h.maskParamIndex();
  constexpr A_long kParam = LayerCheckout::kParamCheckout;
  const std::vector<LayerCheckout> expected = {
      {kParam, m, 300, 100, 3000, 3},   {kParam, 0, 500, 100, 3000, 5},
      {kParam, 0, 700, 100, 3000, 7},   {kParam, 0, 900, 100, 3000, 9},
      {kParam, 0, 300, 100, 3000, 3},
  };
  EXPECT_EQ(h.layerCheckouts(), expected);
  EXPECT_EQ(h.toleratedNotices(), 1);
  EXPECT_FALSE(picture(h.outputWorld(), Depth::Bits8) == *layer->frame(3, Depth::Bits8));
}

TEST_F(PluginRenderTest, AfterEffectsRenderCommandLeavesTheOutputAlone) {
  thost::Host& h = startInstance();
  ASSERT_EQ(h.legacyRender(), PF_Err_NONE);
  const Image out = picture(h.outputWorld(), Depth::Bits8);
  for (uint8_t byte : out.pixels) ASSERT_EQ(byte, 0xA5);
  EXPECT_TRUE(h.layerCheckouts().empty());
}

struct Injected {
  thost::App app;
  const char* fn;
  int nth;
  PF_Err expected;  // what the render returns
};

void PrintTo(const Injected& c, std::ostream* os) { *os << c.fn << " #" << c.nth; }

class PluginRenderFailureTest : public PluginRenderTest,
                                public ::testing::WithParamInterface<Injected> {};

// A host failure anywhere in a render reaches the host as the render's result,
// and the effect still gives back everything it was lent (the fixture fails
// on any contract break).
TEST_P(PluginRenderFailureTest, ComesBackAndStrandsNothing) {
  const Injected& c = GetParam();
  thost::Host& h = startInstance(c.app);
  h.inData().current_time = 300;
  h.failCall(c.fn, 7, c.nth);
  PF_Err err = PF_Err_NONE;
  if (c.app == thost::App::PremierePro) {
    err = h.legacyRender();
  } else {
    err = h.preRender();
    if (err == PF_Err_NONE) err = h.smartRender();
  }
  EXPECT_EQ(err, c.expected);
  EXPECT_FALSE(h.callsTo(c.fn).empty());
}

constexpr thost::App kAE = thost::App::AfterEffects;
constexpr thost::App kPr = thost::App::PremierePro;

INSTANTIATE_TEST_SUITE_P(
    Host, PluginRenderFailureTest,
    ::testing::Values(Injected{kAE, "host_new_handle", 1, PF_Err_OUT_OF_MEMORY},
                      Injected{kAE, "host_lock_handle", 1, PF_Err_OUT_OF_MEMORY},
                      Injected{kAE, "host_lock_handle", 2, PF_Err_INTERNAL_STRUCT_DAMAGED},
                      Injected{kAE, "checkout_param", 1, 7}, Injected{kAE, "checkout_param", 19, 7},
                      Injected{kAE, "checkout_layer", 1, 7}, Injected{kAE, "checkout_layer", 3, 7},
                      Injected{kAE, "checkout_layer", 5, 7},
                      Injected{kAE, "checkout_layer_pixels", 1, 7},
                      Injected{kAE, "checkout_layer_pixels", 2, 7},
                      Injected{kAE, "checkout_layer_pixels", 4, 7},
                      Injected{kAE, "checkout_output", 1, 7}, // A failed format query leaves the format unknown: 514.
                      Injected{kAE, "PF_GetPixelFormat", 1, PF_Err_UNRECOGNIZED_PARAM_TYPE},
                      Injected{kAE, "checkin_layer_pixels", 5, 7},
                      Injected{kPr, "checkout_param", 1, 7}, Injected{kPr, "checkout_param", 3, 7},
                      Injected{kPr, "checkout_param", 5, 7},
                      Injected{kPr, "GetPixelFormat", 1, PF_Err_NONE}));

TEST_F(PluginRenderTest, MissingWorldSuiteIsReportedAsAMissingSuite) {
  thost::Host& h = startInstance();
  h.removeSuite(kPFWorldSuite, 2);
  ASSERT_EQ(h.preRender(), PF_Err_NONE);
  EXPECT_EQ(h.smartRender(), A_Err_MISSING_SUITE);
  EXPECT_EQ(h.returnMessage(), "Not able to acquire AEFX Suite.");
}

class PluginRenderHostTest : public ::testing::Test {
 protected:
  RenderRequest request(int frame, Depth depth) const {
    RenderRequest r;
    r.frame = frame;
    r.depth = depth;
    r.layer = layer;
    r.mask = mask;
    r.time = thost::TimeBase::fromRate(24, 1);
    r.controls = busyControls();
    return r;
  }

  // Eight different frames rendered on eight threads at once from the same
  // set-up host, then one after the other. The concurrent ones come first, so
  // that the effect's first renders after setup are concurrent too.
  void expectConcurrentEqualsSerial(RenderHost& host, Depth depth, int notices) {
    constexpr int kFrames = 8;
    std::vector<RenderResult> serial, concurrent(kFrames);
    std::vector<std::thread> threads;
    for (int k = 0; k < kFrames; ++k)
      threads.emplace_back([&, k] { concurrent[k] = host.render(request(k + 1, depth)); });
    for (std::thread& t : threads) t.join();
    for (int k = 0; k < kFrames; ++k) serial.push_back(host.render(request(k + 1, depth)));
    for (int k = 0; k < kFrames; ++k) {
      SCOPED_TRACE("frame " + std::to_string(k + 1));
      ASSERT_EQ(serial[k].err, PF_Err_NONE);
      ASSERT_EQ(concurrent[k].err, PF_Err_NONE);
      EXPECT_TRUE(serial[k].breaks.empty()) << firstOf(serial[k].breaks);
      EXPECT_TRUE(concurrent[k].breaks.empty()) << firstOf(concurrent[k].breaks);
      EXPECT_EQ(concurrent[k].toleratedNotices, notices);
      EXPECT_EQ(serial[k].output, concurrent[k].output);
      EXPECT_FALSE(serial[k].output == *layer->frame(k + 1, depth)) << "the effect changed nothing";
      if (k > 0) {
        EXPECT_FALSE(serial[k].output == serial[k - 1].output);
      }
    }
  }

  std::shared_ptr<thost::MemoryClip> layer = thost_test::patternClip(kLayerFrames, 64, 40);
  std::shared_ptr<thost::MemoryClip> mask = thost_test::patternClip(kLayerFrames, 64, 40, 50);
};

TEST_F(PluginRenderHostTest, AfterEffectsFramesRenderedAtOnceEqualSerialOnes) {
  RenderHost host(RenderHost::Options{});
  for (Depth d : {Depth::Bits8, Depth::Bits16, Depth::Float32})
    expectConcurrentEqualsSerial(host, d, kValueControls);
  EXPECT_TRUE(host.finalBreaks().empty()) << firstOf(host.finalBreaks());
}

TEST_F(PluginRenderHostTest, PremiereFramesRenderedAtOnceEqualSerialOnes) {
  RenderHost::Options o;
  o.app = thost::App::PremierePro;
  RenderHost host(o);
  for (Depth d : {Depth::Bits8, Depth::Bits16, Depth::Float32}) expectConcurrentEqualsSerial(host, d, 1);
  EXPECT_TRUE(host.finalBreaks().empty()) << firstOf(host.finalBreaks());
}

// Without guards the host lends the clip frames' own memory and renders
// straight into the caller's image (or the one the result takes over): the
// pictures are the checked host's, and the clip frames are left as they were.
TEST_F(PluginRenderHostTest, UncheckedHostLendsFramesInPlaceAndRendersTheSamePictures) {
  const Depth depths[] = {Depth::Bits8, Depth::Bits16, Depth::Float32};
  for (thost::App app : {thost::App::AfterEffects, thost::App::PremierePro}) {
    SCOPED_TRACE("app " + std::to_string(static_cast<int>(app)));
    // One host at a time: hosts alive together share the loaded module.
    std::map<std::pair<int, int>, thost::Image> wanted;
    {
      RenderHost::Options o;
      o.app = app;
      RenderHost checked(o);
      for (Depth d : depths)
        for (int k = 1; k <= 3; ++k) {
          RenderResult r = checked.render(request(k, d));
          ASSERT_EQ(r.err, PF_Err_NONE);
          wanted[{static_cast<int>(d), k}] = std::move(r.output);
        }
    }
    RenderHost::Options o;
    o.app = app;
    o.guardWorlds = false;
    RenderHost unchecked(o);
    for (Depth d : depths) {
      std::vector<thost::Image> before;
      for (int f = 0; f < kLayerFrames; ++f) before.push_back(*layer->frame(f, d));
      for (int k = 1; k <= 3; ++k) {
        SCOPED_TRACE("depth " + std::to_string(static_cast<int>(d)) + " frame " + std::to_string(k));
        const thost::Image& want = wanted.at({static_cast<int>(d), k});
        const RenderResult made = unchecked.render(request(k, d));
        ASSERT_EQ(made.err, PF_Err_NONE);
        EXPECT_TRUE(made.breaks.empty()) << firstOf(made.breaks);
        EXPECT_EQ(made.output, want);
        thost::Image into = thost::Image::unfilled(want.width, want.height, d);
        into.originX = want.originX;
        into.originY = want.originY;
        thost::RenderRequest req = request(k, d);
        req.into = &into;
        const RenderResult intoResult = unchecked.render(req);
        ASSERT_EQ(intoResult.err, PF_Err_NONE);
        EXPECT_EQ(intoResult.output.pixels.size(), 0u);
        EXPECT_EQ(into, want);
      }
      for (int f = 0; f < kLayerFrames; ++f) EXPECT_EQ(*layer->frame(f, d), before[f]) << "frame " << f;
    }
    EXPECT_TRUE(unchecked.finalBreaks().empty()) << firstOf(unchecked.finalBreaks());
  }
}

TEST_F(PluginRenderHostTest, AlignSnapsBlockSizesToTheLayer) {
  RenderHost host(RenderHost::Options{});
  EXPECT_EQ(host.align(100, 100, 1920, 1080), std::make_pair(96.0, 108.0));
  EXPECT_EQ(host.align(32, 32, 1920, 1080), std::make_pair(32.0, 30.0));
  EXPECT_TRUE(host.finalBreaks().empty()) << firstOf(host.finalBreaks());
}

}  // namespace
