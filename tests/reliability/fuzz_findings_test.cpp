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

}  // namespace
