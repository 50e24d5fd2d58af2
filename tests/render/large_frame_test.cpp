// Frames written by the passes of large frames, against the reference: the
// source-order pass with streaming stores and bands with moved blocks
// written over them must give the same bytes as block copies, whatever the
// row alignment, block width and composite mode. The hooks choose the pass;
// one case per depth also runs at the renderer's own thresholds, which send
// a frame of this size to the streamed pass.
#include <gtest/gtest.h>

#include <stdint.h>

#include "reference.h"
#include "render_support.h"

namespace {

using rt::Depth;
using rt::World;

template <typename T>
class LargeFrame : public ::testing::Test {};
using Depths = ::testing::Types<uint8_t, uint16_t, float>;
TYPED_TEST_SUITE(LargeFrame, Depths);

TYPED_TEST(LargeFrame, StreamedOutputMatchesReference) {
  using T = TypeParam;
  // About 4 MB a frame, with sizes that give partial blocks; the padding
  // makes rows start off 16-byte boundaries.
  const int side = sizeof(T) == 1 ? 1031 : sizeof(T) == 2 ? 727 : 515;
  struct Setting {
    int bw, bh, pad, composite, intensity, timeFrames;
    double strength;
  };
  const Setting settings[] = {
      {32, 32, 0, 1, 0, 0, 0.1}, {7, 5, 1, 1, 0, 0, 1.0},    {2, 2, 3, 1, 0, 0, 1.0}, {33, 9, 2, 0, 0, 0, 0.3},
      {3, 3, 1, 0, 40, 0, 1.0},  {16, 16, 0, 1, 50, 0, 1.0}, {8, 8, 1, 1, 0, 4, 0.5}, {64, 3, 0, 0, 20, 4, 1.0},
  };
  std::mt19937 rng(7);
  World<T> input(side, side, 0);
  rt::fillRandom(input, rng);
  std::vector<std::unique_ptr<World<T>>> frames;
  for (int k = 0; k < 4; ++k) {
    frames.emplace_back(new World<T>(side, side, 0));
    rt::fillRandom(*frames.back(), rng);
  }
  for (const Setting& s : settings) {
    // Streaming from 1 MB; the real thresholds; the band copy forced, with
    // streaming off.
    const size_t configs[3][2] = {{size_t(1) << 20, 0}, {0, 0}, {SIZE_MAX, 1}};
    for (const auto& config : configs) {
      const size_t threshold = config[0];
      if (threshold == 0 && config[1] == 0 && s.bw != 32) continue;
      if (threshold != SIZE_MAX) {
        ASSERT_GE(static_cast<size_t>(side) * side * 4 * sizeof(T), threshold);
      }
      World<T> out(side, side, s.pad);
      out.fillBytes(rng);
      ParamValues v = rt::defaultValues();
      v.blockWidth = s.bw;
      v.blockHeight = s.bh;
      v.shuffleStrength = s.strength;
      v.compositeOnOriginal = s.composite;
      v.maskIntensity = s.intensity;
      v.maskType = s.intensity ? 1 : 0;
      v.timeFrames = s.timeFrames;
      v.timeProbability = 60;
      for (int k = 0; k < s.timeFrames; ++k) v.timeLayers[k] = &frames[k]->def;
      World<T> expected = out;
      const ref::Decisions d = ref::render<T>(input.def, expected.def, v, 1.0f);
      rt::Captured cap;
      RenderHooks hooks = rt::captureHooks(&cap);
      hooks.streamingMinBytes = threshold;
      hooks.bandCopyMinBytes = config[1];
      ASSERT_EQ(Depth<T>::render(&input.def, &out.def, v, 1.0f, hooks), PF_Err_NONE);
      EXPECT_TRUE(rt::sameBytes(out, expected))
          << "block " << s.bw << "x" << s.bh << " pad " << s.pad << " threshold " << threshold << " band copy "
          << config[1];
      EXPECT_EQ(cap.idx, d.idx);
      EXPECT_EQ(cap.flag, d.flag);
      EXPECT_EQ(cap.frame, d.frame);
      EXPECT_EQ(cap.maskval, d.maskval);
    }
  }
}

// Streaming forced on small random frames: row starts at every alignment,
// pieces of every length, partial lines at both ends of a piece (with
// composite off the renderer keeps the cached pass, which the reference
// checks too).
TYPED_TEST(LargeFrame, StreamingMatchesReferenceOnSmallRandomFrames) {
  using T = TypeParam;
  std::mt19937 rng(11 + sizeof(T));
  for (int round = 0; round < 150; ++round) {
    const int w = 1 + rng() % 70, h = 1 + rng() % 30;
    World<T> input(w, h, rng() % 4);
    rt::fillRandom(input, rng);
    std::vector<std::unique_ptr<World<T>>> frames;
    ParamValues v = rt::defaultValues();
    v.blockWidth = 1 + rng() % 12;
    v.blockHeight = 1 + rng() % 8;
    v.shuffleStrength = (rng() % 1025) / 1024.0;
    v.shuffleSpread = (rng() % 1025) / 1024.0;
    v.shuffleSeed = static_cast<int>(rng());
    v.compositeOnOriginal = rng() % 2;
    v.maskIntensity = (rng() % 3) * 30.0;
    v.maskType = rng() % 3;
    v.timeFrames = (rng() % 2) * 3;
    v.timeProbability = 70;
    for (int k = 0; k < v.timeFrames; ++k) {
      frames.emplace_back(new World<T>(w, h, 0));
      rt::fillRandom(*frames.back(), rng);
      v.timeLayers[k] = &frames.back()->def;
    }
    World<T> out(w, h, rng() % 4);
    out.fillBytes(rng);
    World<T> expected = out;
    ref::render<T>(input.def, expected.def, v, 1.0f);
    rt::Captured cap;
    RenderHooks hooks = rt::captureHooks(&cap);
    hooks.streamingMinBytes = 1;
    ASSERT_EQ(Depth<T>::render(&input.def, &out.def, v, 1.0f, hooks), PF_Err_NONE);
    EXPECT_TRUE(rt::sameBytes(out, expected)) << "round " << round << " " << w << "x" << h;
  }
}

}  // namespace
