// Memory running out inside a render, through EffectMain: a per-block array
// that cannot be had passes the frame through unchanged, and a padded time
// frame copy that cannot be had renders the frame without time frames. At
// all three depths, in After Effects (SmartFX) and Premiere Pro (PF_Cmd_RENDER).
#include <gtest/gtest.h>

#include <cstring>

#include "host_render_support.h"
#include "malloc_failure.h"
#include "params/param_table.h"
#include "plugin_fixture.h"
#include "thost/render.h"

namespace {

using thost::App;
using thost::Depth;
using thost::Image;

constexpr int kFrames = 12;
constexpr A_long kCurrentFrame = 4;

struct Case {
  App app;
  Depth depth;
};

std::string name(const Case& c) {
  return std::string(c.app == App::PremierePro ? "Premiere" : "AfterEffects") + "_" +
         std::to_string(static_cast<int>(c.depth));
}

class AllocationFailure : public PluginTest, public ::testing::WithParamInterface<Case> {
 protected:
  thost::Host& start(std::shared_ptr<const thost::Clip> layer, int timeFrames) {
    thost::Host& h = setUpEffect(GetParam().app);
    EXPECT_EQ(h.sequenceSetup(), PF_Err_NONE);
    h.setTime(kCurrentFrame * 100, 100, kFrames * 100, 3000);
    h.setLayerClip(0, layer);
    h.setRenderDepth(GetParam().depth);
    set(h, ID_BLOCK_WIDTH, 4);
    set(h, ID_BLOCK_HEIGHT, 3);
    set(h, ID_SHUFFLE_STRENGTH, 0.8);
    set(h, ID_SHUFFLE_SPREAD, 0.7);
    set(h, ID_TIME_FRAMES, timeFrames);
    set(h, ID_TIME_PROBABILITY, 100);
    set(h, ID_STEPPING_UNIT, 2);  // frames
    set(h, ID_TIME_STEP_FRAMES, 2);
    return h;
  }

  static void set(thost::Host& h, int id, double value) {
    const auto& added = h.addedParams();
    for (size_t i = 0; i < added.size(); ++i) {
      if (added[i].def.uu.id != id) continue;
      PF_ParamDef& def = h.param(static_cast<PF_ParamIndex>(i + 1));
      if (def.param_type == PF_Param_FIX_SLIDER) def.u.fd.value = static_cast<PF_Fixed>(value * 65536);
      if (def.param_type == PF_Param_FLOAT_SLIDER) def.u.fs_d.value = value;
      if (def.param_type == PF_Param_POPUP) def.u.pd.value = static_cast<A_long>(value);
      return;
    }
    ADD_FAILURE() << "no control " << id;
  }

  // Renders the current frame; with failAt > 0 the module's failAt-th malloc
  // of the render command fails.
  Image render(thost::Host& h, int failAt) {
    PF_Err err = PF_Err_NONE;
    if (GetParam().app == App::PremierePro) {
      if (failAt) {
        EXPECT_TRUE(malloc_failure::arm("tesselux.so", failAt));
      }
      err = h.legacyRender();
    } else {
      err = h.preRender();
      if (failAt) {
        EXPECT_TRUE(malloc_failure::arm("tesselux.so", failAt));
      }
      if (err == PF_Err_NONE) err = h.smartRender();
    }
    fired_ = failAt ? malloc_failure::fired() : false;
    malloc_failure::disarm();
    EXPECT_EQ(err, PF_Err_NONE);
    const PF_EffectWorld* w = h.outputWorld();
    Image img(w->width, w->height, GetParam().depth);
    for (int y = 0; y < w->height; ++y)
      std::memcpy(img.row(y), reinterpret_cast<const char*>(w->data) + y * w->rowbytes,
                  static_cast<size_t>(w->width) * thost::bytesPerPixel(GetParam().depth));
    return img;
  }

  bool fired_ = false;
};

TEST_P(AllocationFailure, AFailedPerBlockArrayPassesTheFrameThroughUnchanged) {
  // Frames of one size: no padded copies, so the first allocation of the
  // render is a per-block array.
  auto layer = thost_test::patternClip(kFrames, 48, 30);
  thost::Host& h = start(layer, 3);
  const Image shuffled = render(h, 0);
  const Image failed = render(h, 1);
  ASSERT_TRUE(fired_);
  Image input = *layer->frame(kCurrentFrame, GetParam().depth);
  EXPECT_TRUE(failed == input);
  EXPECT_FALSE(shuffled == input) << "the render changed nothing even with memory";
  EXPECT_EQ(h.sequenceSetdown(), PF_Err_NONE);
}

TEST_P(AllocationFailure, AFailedPaddedCopyRendersWithoutTimeFrames) {
  // The current frame is larger than the others, which sit at another
  // origin: every time frame needs a padded copy, the render's first allocation.
  auto layer = std::make_shared<thost::MemoryClip>(kFrames, [](int k, Depth d) {
    Image img = thost_test::patternFrame(k, d, k == kCurrentFrame ? 48 : 40,
                                         k == kCurrentFrame ? 30 : 26);
    if (k != kCurrentFrame) {
      img.originX = 3;
      img.originY = 2;
    }
    return img;
  });
  thost::Host& withFrames = start(layer, 3);
  const Image timeShifted = render(withFrames, 0);
  const Image failed = render(withFrames, 1);
  ASSERT_TRUE(fired_);
  EXPECT_EQ(withFrames.sequenceSetdown(), PF_Err_NONE);

  thost::Host& without = start(layer, 0);
  const Image plain = render(without, 0);
  EXPECT_TRUE(failed == plain);
  EXPECT_FALSE(timeShifted == plain) << "the time frames changed nothing";
  EXPECT_EQ(without.sequenceSetdown(), PF_Err_NONE);
}

INSTANTIATE_TEST_SUITE_P(
    Depths, AllocationFailure,
    ::testing::Values(Case{App::AfterEffects, Depth::Bits8}, Case{App::AfterEffects, Depth::Bits16},
                      Case{App::AfterEffects, Depth::Float32}, Case{App::PremierePro, Depth::Bits8},
                      Case{App::PremierePro, Depth::Bits16}, Case{App::PremierePro, Depth::Float32}),
    [](const ::testing::TestParamInfo<Case>& info) { return name(info.param); });

}  // namespace
