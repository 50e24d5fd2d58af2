// Lining up the time-shifted frames: shared mode, dropping missing slots,
// padded copies over the union rectangle, and the exits that own nothing.
#include <gtest/gtest.h>

#include <memory>

#include "render_support.h"
#include "time/time_frames.h"

namespace {

using rt::World;

template <typename T>
class TimeFramesTest : public ::testing::Test {};
using Depths = ::testing::Types<uint8_t, uint16_t, float>;
TYPED_TEST_SUITE(TimeFramesTest, Depths);

template <typename T>
T depthValue() {
  return std::is_same<T, float>::value ? static_cast<T>(32.0f) : static_cast<T>(sizeof(T) * 8);
}

// A set as the caller has it: uninitialised stack memory, here made visibly garbage.
std::unique_ptr<TimeFrames> garbageSet() {
  std::unique_ptr<TimeFrames> set(new TimeFrames);
  memset(set.get(), 0xAB, sizeof(TimeFrames));
  return set;
}

// Pixel of usable frame j at source coordinates (x, y), channel c.
template <typename T>
T at(const TimeFrames& set, int j, int x, int y, int c) {
  const T* p = static_cast<const T*>(set.frames[j]) + static_cast<ptrdiff_t>(y) * set.strides[j] + 4 * x + c;
  return *p;
}

// Pixels that name their layer and their own coordinates.
template <typename T>
std::unique_ptr<World<T>> tagged(int tag, int w, int h, int ox, int oy) {
  std::unique_ptr<World<T>> world(new World<T>(w, h, 2, ox, oy));
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      world->set(x, y, 0, static_cast<T>(tag));
      world->set(x, y, 1, static_cast<T>(x + 1));
      world->set(x, y, 2, static_cast<T>(y + 1));
      world->set(x, y, 3, static_cast<T>(tag + 1));
    }
  return world;
}

TEST(TimeFramesLayout, FixedCapacityOf256) {
  TimeFrames set;
  EXPECT_EQ(sizeof(set.frames) / sizeof(set.frames[0]), 256u);
  EXPECT_EQ(sizeof(set.buffers) / sizeof(set.buffers[0]), 256u);
  EXPECT_EQ(sizeof(set.strides) / sizeof(set.strides[0]), 256u);
  EXPECT_EQ(sizeof(set.present) / sizeof(set.present[0]), 256u);
}

TYPED_TEST(TimeFramesTest, NoSlotsGiveNoFrames) {
  using T = TypeParam;
  World<T> src(8, 6);
  auto set = garbageSet();
  EXPECT_EQ(PrepareTimeFrames<T>(set.get(), 0, &src.def, nullptr, 0, depthValue<T>()), 0);
  EXPECT_EQ(set->ownsCopies, 0);
  EXPECT_EQ(set->count, 0);
  CleanUpTimeFrames(set.get());
  set = garbageSet();
  EXPECT_EQ(PrepareTimeFrames<T>(set.get(), 0, &src.def, nullptr, 1, depthValue<T>()), 0);
  EXPECT_EQ(set->count, 0);
  CleanUpTimeFrames(set.get());
}

TYPED_TEST(TimeFramesTest, AllSlotsNullGiveNoFramesAndNoCopies) {
  using T = TypeParam;
  World<T> src(8, 6);
  PF_LayerDef* layers[5] = {nullptr, nullptr, nullptr, nullptr, nullptr};
  auto set = garbageSet();
  rt::FailingAllocator f;
  const RenderAllocator counting{rt::FailingAllocator::allocate, &f};
  EXPECT_EQ(PrepareTimeFrames<T>(set.get(), 5, &src.def, layers, 0, depthValue<T>(), &counting), 0);
  EXPECT_EQ(set->ownsCopies, 0);
  EXPECT_EQ(set->count, 0);
  EXPECT_EQ(set->missingCount, 5);
  EXPECT_EQ(f.calls, 0);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(set->present[i], 0);
  CleanUpTimeFrames(set.get());
}

TYPED_TEST(TimeFramesTest, MissingMiddleSlotClosesUp) {
  using T = TypeParam;
  World<T> src(8, 6, 2, 3, -1);
  World<T> a(8, 6, 2, 3, -1), c(8, 6, 5, 3, -1);
  PF_LayerDef* layers[3] = {&a.def, nullptr, &c.def};
  auto set = garbageSet();
  EXPECT_EQ(PrepareTimeFrames<T>(set.get(), 3, &src.def, layers, 0, depthValue<T>()), 2);
  EXPECT_EQ(set->count, 2);
  EXPECT_EQ(set->ownsCopies, 0);
  EXPECT_EQ(set->missingCount, 1);
  EXPECT_EQ(set->present[0], 1);
  EXPECT_EQ(set->present[1], 0);
  EXPECT_EQ(set->present[2], 1);
  EXPECT_EQ(set->frames[0], static_cast<void*>(a.def.data));
  EXPECT_EQ(set->frames[1], static_cast<void*>(c.def.data));
  EXPECT_EQ(set->strides[0], a.def.rowbytes / static_cast<A_long>(sizeof(T)));
  EXPECT_EQ(set->strides[1], c.def.rowbytes / static_cast<A_long>(sizeof(T)));
  CleanUpTimeFrames(set.get());  // borrowed pixels: nothing is freed
}

TYPED_TEST(TimeFramesTest, ScatteredMissingSlotsKeepTheOrderOfThePresentOnes) {
  using T = TypeParam;
  World<T> src(5, 4);
  std::vector<std::unique_ptr<World<T>>> worlds;
  PF_LayerDef* layers[16] = {};
  const bool present[16] = {false, true, false, false, true, true, false, true,
                            true, false, false, false, true, false, true, false};
  std::vector<void*> expected;
  for (int i = 0; i < 16; ++i) {
    if (!present[i]) continue;
    worlds.emplace_back(new World<T>(5, 4));
    layers[i] = &worlds.back()->def;
    expected.push_back(worlds.back()->def.data);
  }
  auto set = garbageSet();
  EXPECT_EQ(PrepareTimeFrames<T>(set.get(), 16, &src.def, layers, 0, depthValue<T>()),
            static_cast<int>(expected.size()));
  for (size_t j = 0; j < expected.size(); ++j) EXPECT_EQ(set->frames[j], expected[j]) << j;
  EXPECT_EQ(set->missingCount, 16 - static_cast<int>(expected.size()));
  CleanUpTimeFrames(set.get());
}

TYPED_TEST(TimeFramesTest, OnePixelWiderOnTheLeftPadsEveryFrame) {
  using T = TypeParam;
  const int W = 6, H = 4;
  World<T> src(W, H, 2, 10, 20);
  auto wide = tagged<T>(1, W + 1, H, 9, 20);  // one pixel further left
  auto same = tagged<T>(5, W, H, 10, 20);
  PF_LayerDef* layers[2] = {&wide->def, &same->def};
  auto set = garbageSet();
  rt::FailingAllocator f;
  const RenderAllocator counting{rt::FailingAllocator::allocate, &f};
  ASSERT_EQ(PrepareTimeFrames<T>(set.get(), 2, &src.def, layers, 0, depthValue<T>(), &counting), 2);
  EXPECT_EQ(set->ownsCopies, 1);
  EXPECT_EQ(f.calls, 2);  // one copy per present frame
  for (int j = 0; j < 2; ++j) {
    EXPECT_EQ(set->strides[j], 4 * (W + 1));
    EXPECT_EQ(static_cast<T*>(set->frames[j]), static_cast<T*>(set->buffers[j]) + 4);
  }
  // Source pixel (x, y) is the wide layer's pixel (x + 1, y) ...
  for (int y = 0; y < H; ++y)
    for (int x = 0; x < W; ++x) {
      EXPECT_EQ(at<T>(*set, 0, x, y, 1), static_cast<T>(x + 2));
      EXPECT_EQ(at<T>(*set, 0, x, y, 2), static_cast<T>(y + 1));
      EXPECT_EQ(at<T>(*set, 1, x, y, 1), static_cast<T>(x + 1));
      EXPECT_EQ(at<T>(*set, 1, x, y, 0), static_cast<T>(5));
    }
  // ... and the same-rectangle frame's copy is black in the padding column.
  const T* copy = static_cast<const T*>(set->buffers[1]);
  for (int y = 0; y < H; ++y)
    for (int c = 0; c < 4; ++c) EXPECT_EQ(copy[y * 4 * (W + 1) + c], T(0));
  CleanUpTimeFrames(set.get());
}

TYPED_TEST(TimeFramesTest, SmallerFrameIsZeroOutsideItsRectangle) {
  using T = TypeParam;
  const int W = 9, H = 7;
  World<T> src(W, H, 1, -2, 3);
  auto small = tagged<T>(3, 4, 3, 0, 5);  // covers source columns 2..5, rows 2..4
  PF_LayerDef* layers[1] = {&small->def};
  auto set = garbageSet();
  ASSERT_EQ(PrepareTimeFrames<T>(set.get(), 1, &src.def, layers, 0, depthValue<T>()), 1);
  EXPECT_EQ(set->ownsCopies, 1);
  EXPECT_EQ(set->strides[0], 4 * W);  // the union is the source rectangle
  for (int y = 0; y < H; ++y)
    for (int x = 0; x < W; ++x) {
      const int lx = x - 2, ly = y - 2;
      const bool inside = lx >= 0 && lx < 4 && ly >= 0 && ly < 3;
      for (int c = 0; c < 4; ++c) {
        const T expected = inside ? small->get(lx, ly, c) : T(0);
        EXPECT_EQ(at<T>(*set, 0, x, y, c), expected) << x << "," << y << "," << c;
      }
    }
  CleanUpTimeFrames(set.get());
}

TYPED_TEST(TimeFramesTest, RandomRectanglesLineUpWithTheSource) {
  using T = TypeParam;
  std::mt19937 rng(77);
  for (int round = 0; round < 60; ++round) {
    const int W = 1 + rng() % 12, H = 1 + rng() % 9;
    const int sx = static_cast<int>(rng() % 7) - 3, sy = static_cast<int>(rng() % 7) - 3;
    World<T> src(W, H, 1, sx, sy);
    const int n = 1 + rng() % 16;
    std::vector<std::unique_ptr<World<T>>> worlds;
    PF_LayerDef* layers[16] = {};
    for (int i = 0; i < n; ++i) {
      if (rng() % 4 == 0) continue;
      const bool sameRect = rng() % 3 == 0;
      const int w = sameRect ? W : 1 + rng() % 14, h = sameRect ? H : 1 + rng() % 11;
      const int ox = sameRect ? sx : sx + static_cast<int>(rng() % 9) - 4;
      const int oy = sameRect ? sy : sy + static_cast<int>(rng() % 9) - 4;
      worlds.push_back(tagged<T>(10 + i, w, h, ox, oy));
      layers[i] = &worlds.back()->def;
    }
    auto set = garbageSet();
    const int count = PrepareTimeFrames<T>(set.get(), n, &src.def, layers, 0, depthValue<T>());
    ASSERT_EQ(count, static_cast<int>(worlds.size()));
    for (int j = 0; j < count; ++j) {
      const World<T>& l = *worlds[j];
      for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x) {
          const int lx = x + sx - l.def.origin_x, ly = y + sy - l.def.origin_y;
          const bool inside = lx >= 0 && ly >= 0 && lx < l.def.width && ly < l.def.height;
          for (int c = 0; c < 4; ++c)
            ASSERT_EQ(at<T>(*set, j, x, y, c), inside ? l.get(lx, ly, c) : T(0))
                << "round " << round << " frame " << j << " at " << x << "," << y;
        }
    }
    CleanUpTimeFrames(set.get());
  }
}

TYPED_TEST(TimeFramesTest, SharedModeUsesTheSourceForEverySlotAndOwnsNothing) {
  using T = TypeParam;
  World<T> src(7, 5, 3, 4, 4);
  auto set = garbageSet();
  // No layers are looked at: a null array is fine.
  EXPECT_EQ(PrepareTimeFrames<T>(set.get(), 5, &src.def, nullptr, 1, depthValue<T>()), 5);
  EXPECT_EQ(set->count, 5);
  EXPECT_EQ(set->ownsCopies, 0);
  for (int j = 0; j < 5; ++j) {
    EXPECT_EQ(set->frames[j], static_cast<void*>(src.def.data));
    EXPECT_EQ(set->strides[j], src.def.rowbytes / static_cast<A_long>(sizeof(T)));
    EXPECT_EQ(set->present[j], 1);
  }
  CleanUpTimeFrames(set.get());  // would fault under the sanitizer if it freed the source
}

TYPED_TEST(TimeFramesTest, PresentLayerWithoutPixelsEndsEarlyOwningNothing) {
  using T = TypeParam;
  World<T> src(6, 6);
  World<T> wide(8, 6, 1, -2, 0), broken(6, 6);
  broken.def.data = nullptr;
  PF_LayerDef* layers[3] = {&wide.def, &broken.def, &wide.def};
  auto set = garbageSet();
  rt::FailingAllocator f;
  const RenderAllocator counting{rt::FailingAllocator::allocate, &f};
  EXPECT_EQ(PrepareTimeFrames<T>(set.get(), 3, &src.def, layers, 0, depthValue<T>(), &counting), 0);
  EXPECT_EQ(f.calls, 0);  // nothing was allocated
  EXPECT_EQ(set->count, 0);
  EXPECT_EQ(set->ownsCopies, 0);
  CleanUpTimeFrames(set.get());  // frees nothing: the garbage buffers are never touched
}

TYPED_TEST(TimeFramesTest, FailedCopyFreesEarlierCopiesAndReportsNoFrames) {
  using T = TypeParam;
  World<T> src(6, 6);
  World<T> a(7, 6, 1, -1, 0), b(6, 6), c(6, 7);
  PF_LayerDef* layers[3] = {&a.def, &b.def, &c.def};
  for (int failOn = 1; failOn <= 3; ++failOn) {
    auto set = garbageSet();
    rt::FailingAllocator f;
    f.failOn = failOn;
    const RenderAllocator failing{rt::FailingAllocator::allocate, &f};
    EXPECT_EQ(PrepareTimeFrames<T>(set.get(), 3, &src.def, layers, 0, depthValue<T>(), &failing), 0);
    EXPECT_EQ(set->count, 0);
    EXPECT_EQ(set->ownsCopies, 0);
    CleanUpTimeFrames(set.get());
  }
}

TYPED_TEST(TimeFramesTest, CleanUpTwiceFreesOnce) {
  using T = TypeParam;
  World<T> src(4, 4);
  World<T> a(5, 4, 1, -1, 0);
  PF_LayerDef* layers[1] = {&a.def};
  auto set = garbageSet();
  ASSERT_EQ(PrepareTimeFrames<T>(set.get(), 1, &src.def, layers, 0, depthValue<T>()), 1);
  CleanUpTimeFrames(set.get());
  CleanUpTimeFrames(set.get());
  EXPECT_EQ(set->ownsCopies, 0);
}

TYPED_TEST(TimeFramesTest, StrideIsRowbytesShiftedToElements) {
  using T = TypeParam;
  World<T> src(3, 3);
  World<T> a(3, 3, 7);
  PF_LayerDef* layers[1] = {&a.def};
  auto set = garbageSet();
  ASSERT_EQ(PrepareTimeFrames<T>(set.get(), 1, &src.def, layers, 0, depthValue<T>()), 1);
  EXPECT_EQ(set->strides[0], (3 + 7) * 4);
  CleanUpTimeFrames(set.get());
}

}  // namespace
