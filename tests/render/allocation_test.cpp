// Per-call allocations: how many there are, and what happens when one fails.
#include <gtest/gtest.h>

#include <memory>

#include "render_support.h"

namespace {

using rt::Depth;
using rt::World;

template <typename T>
class Allocation : public ::testing::Test {};
using Depths = ::testing::Types<uint8_t, uint16_t, float>;
TYPED_TEST_SUITE(Allocation, Depths);

template <typename T>
RenderHooks failingHooks(rt::FailingAllocator* f, rt::Captured* cap) {
  RenderHooks h = rt::captureHooks(cap);
  h.allocator.allocate = rt::FailingAllocator::allocate;
  h.allocator.context = f;
  return h;
}

// The per-block records, then one scratch buffer for the row-ordered block
// pass: the same two whatever the frame size, so nothing is allocated per
// pixel or per block row.
TYPED_TEST(Allocation, TwoAllocationsPerCallWhateverTheFrameSize) {
  using T = TypeParam;
  std::mt19937 rng(1);
  for (int size : {8, 64, 150}) {
    World<T> in(size, size / 2 + 1), out(size, size / 2 + 1);
    rt::fillRandom(in, rng);
    ParamValues v = rt::defaultValues();
    v.blockWidth = v.blockHeight = 1;
    v.shuffleStrength = 1.0;
    v.maskIntensity = 30;
    v.channels = 2;
    rt::FailingAllocator f;
    rt::Captured cap;
    Depth<T>::render(&in.def, &out.def, v, 1.0f, failingHooks<T>(&f, &cap));
    EXPECT_TRUE(cap.seen);
    EXPECT_EQ(f.calls, 2) << "size " << size;
  }
}

TYPED_TEST(Allocation, FailedBlockArrayPassesTheFrameThroughUnchanged) {
  using T = TypeParam;
  std::mt19937 rng(2);
  World<T> in(37, 23);
  rt::fillRandom(in, rng);
  const int failOn = 1;  // the record array
  for (int composite = 0; composite <= 1; ++composite)
    for (int channel : {0, 3}) {
      ParamValues v = rt::defaultValues();
      v.blockWidth = 5;
      v.blockHeight = 4;
      v.shuffleStrength = 1.0;
      v.compositeOnOriginal = composite;
      v.channels = channel;
      v.maskIntensity = 20;
      World<T> out(37, 23);
      out.fillBytes(rng);
      const World<T> before = out;
      rt::FailingAllocator f;
      f.failOn = failOn;
      rt::Captured cap;
      EXPECT_EQ(Depth<T>::render(&in.def, &out.def, v, 1.0f, failingHooks<T>(&f, &cap)), PF_Err_NONE);
      EXPECT_FALSE(cap.seen);  // the kernel stopped before any decision
      EXPECT_EQ(f.calls, 1);   // nothing else was tried
      for (int y = 0; y < 23; ++y) {
        EXPECT_EQ(memcmp(out.at(0, y, 0), in.at(0, y, 0), 37 * 4 * sizeof(T)), 0) << "row " << y;
        // Only the frame's width is copied: the row padding is untouched.
        EXPECT_EQ(memcmp(out.at(37, y, 0), before.at(37, y, 0), 3 * 4 * sizeof(T)), 0);
      }
    }
}

TYPED_TEST(Allocation, TimeFrameCopiesComeFirstAndAFailureDropsTheTimeShift) {
  using T = TypeParam;
  std::mt19937 rng(3);
  World<T> in(20, 16, 2, 0, 0);
  rt::fillRandom(in, rng);
  std::vector<std::unique_ptr<World<T>>> frames;
  ParamValues v = rt::defaultValues();
  v.blockWidth = v.blockHeight = 4;
  v.shuffleStrength = 1.0;
  v.timeProbability = 100;
  v.timeFrames = 4;
  for (int k = 0; k < 4; ++k) {
    if (k == 2) continue;  // missing
    frames.emplace_back(new World<T>(20 + k, 16, 1, -k, 0));  // rectangles differ: padded copies
    rt::fillRandom(*frames.back(), rng);
    v.timeLayers[k] = &frames.back()->def;
  }

  // Normal: three copies, then the records and the scratch buffer.
  World<T> normal(20, 16);
  {
    rt::FailingAllocator f;
    rt::Captured cap;
    Depth<T>::render(&in.def, &normal.def, v, 1.0f, failingHooks<T>(&f, &cap));
    EXPECT_EQ(f.calls, 3 + 2);
    EXPECT_EQ(cap.s.nframes, 3);
  }
  // Without time frames, for comparison.
  ParamValues none = v;
  none.timeFrames = 0;
  World<T> plain(20, 16);
  Depth<T>::render(&in.def, &plain.def, none, 1.0f);

  // A failed copy: the copies made so far are freed and the frame renders
  // as if there were no time frames.
  for (int failOn = 1; failOn <= 3; ++failOn) {
    World<T> out(20, 16);
    rt::FailingAllocator f;
    f.failOn = failOn;
    rt::Captured cap;
    Depth<T>::render(&in.def, &out.def, v, 1.0f, failingHooks<T>(&f, &cap));
    EXPECT_TRUE(cap.seen);
    EXPECT_EQ(cap.s.nframes, 0);
    EXPECT_EQ(f.calls, failOn + 2);
    EXPECT_TRUE(rt::sameBytes(out, plain));
  }
  // A failed record array after the copies: pass-through, and the copies are
  // still freed (the sanitizer build reports any leak).
  {
    const int failOn = 4;  // after the three copies
    World<T> out(20, 16);
    rt::FailingAllocator f;
    f.failOn = failOn;
    rt::Captured cap;
    Depth<T>::render(&in.def, &out.def, v, 1.0f, failingHooks<T>(&f, &cap));
    EXPECT_FALSE(cap.seen);
    for (int y = 0; y < 16; ++y) EXPECT_EQ(memcmp(out.at(0, y, 0), in.at(0, y, 0), 20 * 4 * sizeof(T)), 0);
  }
  // A failed scratch buffer only changes the order of the block pass.
  {
    World<T> out(20, 16);
    rt::FailingAllocator f;
    f.failOn = 5;
    rt::Captured cap;
    Depth<T>::render(&in.def, &out.def, v, 1.0f, failingHooks<T>(&f, &cap));
    EXPECT_TRUE(cap.seen);
    EXPECT_TRUE(rt::sameBytes(out, normal));
  }
}

// Without its scratch buffer the block pass copies block by block instead of
// row by row; the pixels must be the same in every mode.
TYPED_TEST(Allocation, BlockOrderedPassWritesTheSamePixels) {
  using T = TypeParam;
  std::mt19937 rng(4);
  for (int round = 0; round < 60; ++round) {
    const int w = 1 + rng() % 50, h = 1 + rng() % 40;
    World<T> in(w, h, 1, 0, 0);
    rt::fillRandom(in, rng);
    std::vector<std::unique_ptr<World<T>>> frames;
    ParamValues v = rt::defaultValues();
    v.blockWidth = 1 + rng() % 12;
    v.blockHeight = 1 + rng() % 12;
    v.shuffleStrength = (rng() % 1025) / 1024.0;
    v.shuffleSpread = (rng() % 1025) / 1024.0;
    v.shuffleDirection = rng() % 3;
    v.shuffleSeed = static_cast<int>(rng());
    v.channels = rng() % 5;
    v.compositeOnOriginal = rng() % 2;
    v.exclusiveMode = rng() % 2;
    v.maskIntensity = (rng() % 3) * 30.0;
    v.maskType = rng() % 3;
    v.timeFrames = (rng() % 2) * 6;
    v.timeProbability = 70;
    for (int k = 0; k < v.timeFrames; ++k) {
      frames.emplace_back(new World<T>(w, h));
      rt::fillRandom(*frames.back(), rng);
      v.timeLayers[k] = &frames.back()->def;
    }
    World<T> rows(w, h), blocks(w, h);
    rows.fillBytes(rng);
    blocks = rows;
    rt::FailingAllocator none, second;
    second.failOn = 2;
    rt::Captured c1, c2;
    Depth<T>::render(&in.def, &rows.def, v, 1.0f, failingHooks<T>(&none, &c1));
    Depth<T>::render(&in.def, &blocks.def, v, 1.0f, failingHooks<T>(&second, &c2));
    EXPECT_EQ(none.calls, 2);
    EXPECT_EQ(second.calls, 2);
    EXPECT_TRUE(rt::sameBytes(rows, blocks)) << "round " << round;
  }
}

}  // namespace
