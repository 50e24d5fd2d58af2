// What the fuzzers found, kept as readable tests next to the saved inputs in
// tests/fuzz/regressions/.
#include <climits>

#include "host_render_support.h"
#include "plugin_fixture.h"
#include "thost/render.h"

namespace {

// A frame longer than a 32-bit layer duration can hold (12 frames of 2^28
// units): the host's total_time overflowed while it set the render up.
TEST_F(PluginTest, ARenderWithAFrameLongerThanHostTimeCanHoldEndsTheLayerAtTheLargestTime) {
  thost::Host& h = setUpEffect();
  ASSERT_EQ(h.sequenceSetup(), PF_Err_NONE);
  h.setLayerClip(0, thost_test::patternClip(12, 16, 8));
  h.setTime(0, 1 << 28, 100, 3000);
  EXPECT_EQ(h.preRender(), PF_Err_NONE);
  EXPECT_EQ(h.inData().total_time, INT_MAX);
  EXPECT_EQ(h.smartRender(), PF_Err_NONE);
  EXPECT_EQ(h.sequenceSetdown(), PF_Err_NONE);
}

// The time changed between a pre-render and its smart render: the host lent
// an output of the new frame's size, larger than the input the pre-render
// checked out, and the renderer read past that input.
TEST_F(PluginTest, ASmartRenderIsOfTheFrameItsPreRenderPrepared) {
  thost::Host& h = setUpEffect();
  ASSERT_EQ(h.sequenceSetup(), PF_Err_NONE);
  h.setLayerClip(0, std::make_shared<thost::MemoryClip>(12, [](int k, thost::Depth d) {
    return thost_test::patternFrame(k, d, 10 + k * 3, 6 + k);
  }));
  h.setTime(400, 100, 1200, 3000);
  h.setRenderDepth(thost::Depth::Bits16);
  ASSERT_EQ(h.preRender(), PF_Err_NONE);
  h.setTime(900, 100, 1200, 3000);
  h.setRenderDepth(thost::Depth::Float32);
  EXPECT_EQ(h.smartRender(), PF_Err_NONE);
  ASSERT_NE(h.outputWorld(), nullptr);
  EXPECT_EQ(h.outputWorld()->width, 10 + 4 * 3);
  EXPECT_EQ(h.outputWorld()->height, 6 + 4);
  EXPECT_EQ(h.inData().current_time, 400);
  EXPECT_EQ(h.sequenceSetdown(), PF_Err_NONE);
}

}  // namespace
