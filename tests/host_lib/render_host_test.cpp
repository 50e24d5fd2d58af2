// RenderHost against the fake effect: set up once, frames rendered on many
// threads at once equal the same frames rendered one after the other.
#include <gtest/gtest.h>

#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "host_render_support.h"
#include "thost/render.h"

namespace {

using thost::Depth;
using thost::Image;
using thost::RenderHost;
using thost::RenderRequest;
using thost::RenderResult;

// The fake effect's control ids.
constexpr int kChoiceId = 10, kSizeId = 12, kAmountId = 13;

RenderHost::Options fakeOptions(thost::App app = thost::App::AfterEffects) {
  RenderHost::Options o;
  o.pluginPath = THOST_FAKE_EFFECT;
  o.app = app;
  return o;
}

std::string firstOf(const std::vector<std::string>& v) { return v.empty() ? "" : v.front(); }

class RenderHostTest : public ::testing::Test {
 protected:
  RenderRequest request(int frame, Depth depth = Depth::Bits8) const {
    RenderRequest r;
    r.frame = frame;
    r.depth = depth;
    r.layer = layer;
    r.mask = mask;
    r.time = thost::TimeBase::fromRate(25, 1);
    r.controls = {{kChoiceId, 3}, {kSizeId, -2}};
    return r;
  }

  std::shared_ptr<thost::MemoryClip> layer = thost_test::patternClip(12, 33, 17);
  std::shared_ptr<thost::MemoryClip> mask = thost_test::patternClip(12, 20, 9, 7);
};

TEST_F(RenderHostTest, ConcurrentFramesEqualSerialFramesByteForByte) {
  RenderHost host(fakeOptions());
  for (Depth depth : {Depth::Bits8, Depth::Float32}) {
    constexpr int kFrames = 8;
    std::vector<RenderResult> serial, concurrent(kFrames);
    std::vector<std::thread> threads;
    for (int k = 0; k < kFrames; ++k)
      threads.emplace_back([&, k] { concurrent[k] = host.render(request(k + 2, depth)); });
    for (std::thread& t : threads) t.join();
    for (int k = 0; k < kFrames; ++k) serial.push_back(host.render(request(k + 2, depth)));
    for (int k = 0; k < kFrames; ++k) {
      ASSERT_EQ(serial[k].err, PF_Err_NONE);
      ASSERT_EQ(concurrent[k].err, PF_Err_NONE);
      EXPECT_TRUE(serial[k].breaks.empty()) << firstOf(serial[k].breaks);
      EXPECT_TRUE(concurrent[k].breaks.empty()) << firstOf(concurrent[k].breaks);
      EXPECT_EQ(concurrent[k].toleratedNotices, 3);
      EXPECT_EQ(serial[k].output, concurrent[k].output) << "frame " << k + 2;
      EXPECT_EQ(serial[k].calls.size(), concurrent[k].calls.size());
    }
    // Different frames of the clip give different pictures.
    EXPECT_FALSE(serial[0].output == serial[1].output);
  }
  EXPECT_TRUE(host.finalBreaks().empty()) << firstOf(host.finalBreaks());
}

TEST_F(RenderHostTest, RendersWhatTheFakeDrawsFromTheMappedFrames) {
  RenderHost host(fakeOptions());
  const RenderResult r = host.render(request(5, Depth::Bits16));
  ASSERT_EQ(r.err, PF_Err_NONE);
  // Three frames, each -2 frames on: 3, 1 and -1 (clamped to 0).
  const auto in = layer->frame(5, Depth::Bits16);
  const auto t1 = layer->frame(3, Depth::Bits16), t2 = layer->frame(1, Depth::Bits16),
             t3 = layer->frame(0, Depth::Bits16);
  const auto m = mask->frame(5, Depth::Bits16);
  EXPECT_EQ(r.output, thost_test::fakeExpected<uint16_t>(*in, {t1.get(), t2.get(), t3.get()}, m.get()));
  EXPECT_TRUE(r.breaks.empty()) << firstOf(r.breaks);
}

TEST_F(RenderHostTest, ControlValuesAreConvertedByParameterType) {
  RenderHost host(fakeOptions());
  RenderRequest req = request(4);
  // A fixed value half a step below zero rounds away from zero to -1/65536,
  // whose integer part is -1: one frame back. Popups are 1-based.
  req.controls = {{kChoiceId, 1}, {kSizeId, -0.5 / 65536}, {kAmountId, 25}};
  const RenderResult r = host.render(req);
  ASSERT_EQ(r.err, PF_Err_NONE);
  std::vector<std::string> layerCalls;
  for (const thost::HostCall& c : r.calls)
    if (c.fn == "checkout_layer") layerCalls.push_back(c.args);
  const std::string step = std::to_string(req.time.timeStep);
  const std::string scale = std::to_string(req.time.timeScale);
  const std::vector<std::string> expected = {
      "0,0," + std::to_string(4 * req.time.timeStep) + "," + step + "," + scale,
      "8,8," + std::to_string(4 * req.time.timeStep) + "," + step + "," + scale,
      "0,101," + std::to_string(3 * req.time.timeStep) + "," + step + "," + scale};
  EXPECT_EQ(layerCalls, expected);
  req.controls = {{99, 1}};
  EXPECT_THROW(host.render(req), std::invalid_argument);
}

TEST_F(RenderHostTest, RendersIntoACallersPicture) {
  RenderHost host(fakeOptions());
  Image into(33, 17, Depth::Float32);
  RenderRequest req = request(1, Depth::Float32);
  req.into = &into;
  const RenderResult r = host.render(req);
  ASSERT_EQ(r.err, PF_Err_NONE);
  EXPECT_EQ(r.output.width, 0);
  EXPECT_EQ(into, host.render(request(1, Depth::Float32)).output);
  Image wrong(32, 17, Depth::Float32);
  req.into = &wrong;
  EXPECT_THROW(host.render(req), std::invalid_argument);
}

// Unchecked renders (as the command makes them) take the output's memory from
// the request's pool: a result handed back gives it to the next render.
TEST_F(RenderHostTest, OutputsComeFromTheRequestsPoolAndGoBackToIt) {
  RenderHost::Options o = fakeOptions();
  o.guardWorlds = false;
  RenderHost host(o);
  const Image plain = host.render(request(3)).output;
  auto pool = std::make_shared<thost::PixelPool>(size_t{1} << 20);
  RenderRequest req = request(3);
  req.outputPool = pool;
  const uint8_t* first = nullptr;
  {
    RenderResult r = host.render(req);
    ASSERT_EQ(r.err, PF_Err_NONE);
    EXPECT_EQ(r.output, plain);
    EXPECT_EQ(r.output.pixels.get_allocator().pool, pool);
    first = r.output.pixels.data();
    EXPECT_EQ(pool->keptBytes(), 0u);
  }
  EXPECT_GT(pool->keptBytes(), 0u);
  const RenderResult again = host.render(req);
  EXPECT_EQ(again.output.pixels.data(), first);
  EXPECT_EQ(pool->reused(), 1u);
  EXPECT_EQ(again.output, plain);
}

TEST(PixelPoolTest, KeepsBlocksUpToItsLimitAndServesThemBySize) {
  const size_t one = static_cast<size_t>(16 * 8 * 4) + thost::kPixelTailRoom;  // a 16x8 8-bit image's block
  auto pool = std::make_shared<thost::PixelPool>(one);
  const uint8_t* kept = nullptr;
  {
    Image a = Image::unfilled(16, 8, Depth::Bits8, pool);
    Image b = Image::unfilled(16, 8, Depth::Bits8, pool);
    // Room past the last row holds for pooled pictures too.
    EXPECT_GE(malloc_usable_size(a.pixels.data()), a.pixels.size() + 64);
    Image moved = std::move(b);  // the pool goes with the pixels
    EXPECT_EQ(moved.pixels.get_allocator().pool, pool);
    kept = moved.pixels.data();
  }  // `moved` goes first: its block is kept; a's would pass the limit and is freed
  EXPECT_EQ(pool->keptBytes(), one);
  Image other = Image::unfilled(8, 16, Depth::Bits16, pool);  // another size: a new block
  EXPECT_EQ(pool->reused(), 0u);
  Image same = Image::unfilled(16, 8, Depth::Bits8, pool);
  EXPECT_EQ(same.pixels.data(), kept);
  EXPECT_EQ(pool->reused(), 1u);
  EXPECT_EQ(pool->keptBytes(), 0u);
  const Image copy = same;  // a copy draws from the same pool
  EXPECT_EQ(copy.pixels.get_allocator().pool, pool);
  EXPECT_EQ(copy, same);
}

// Render threads give frames back while others take them (the command's
// pipeline): every picture keeps its own pixels, and the pool its limit.
TEST(PixelPoolTest, ThreadsTakeAndGiveBackAtOnce) {
  const size_t limit = size_t{3} * (40 * 30 * 16 + thost::kPixelTailRoom);
  auto pool = std::make_shared<thost::PixelPool>(limit);
  std::vector<std::thread> threads;
  std::atomic<int> wrong{0};
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&, t] {
      std::vector<Image> held;
      for (int i = 0; i < 300; ++i) {
        const Depth d = (i + t) % 3 == 0 ? Depth::Float32 : Depth::Bits8;
        Image img = Image::unfilled(40, 30, d, pool);
        std::fill(img.pixels.begin(), img.pixels.end(), static_cast<uint8_t>(t * 50 + i % 50));
        held.push_back(std::move(img));
        if (held.size() > 2) {
          const Image& first = held.front();
          for (uint8_t v : first.pixels)
            if (v != first.pixels.front()) ++wrong;
          held.erase(held.begin());
        }
      }
    });
  for (std::thread& th : threads) th.join();
  EXPECT_EQ(wrong.load(), 0);
  EXPECT_LE(pool->keptBytes(), limit);
  EXPECT_GT(pool->reused(), 0u);
}

TEST_F(RenderHostTest, CallsAreRecordedPerRenderOrNotAtAll) {
  RenderHost recording(fakeOptions());
  const RenderResult r = recording.render(request(3));
  ASSERT_FALSE(r.calls.empty());
  // Frame 3 at 25 frames a second: time 2880 in 24000ths.
  EXPECT_EQ(r.calls.front(), thost::HostCall("checkout_param", "1,2880,960,24000"));
  // Nothing carried over from the render before (handle ids do go on).
  EXPECT_EQ(recording.render(request(3)).calls.size(), r.calls.size());
  recording.finalBreaks();
  RenderHost::Options o = fakeOptions();
  o.recordCalls = false;
  RenderHost quiet(o);
  const RenderResult q = quiet.render(request(3));
  EXPECT_TRUE(q.calls.empty());
  EXPECT_EQ(q.output, r.output);
}

TEST_F(RenderHostTest, PremiereRendersOnlyInAnnouncedFormats) {
  RenderHost host(fakeOptions(thost::App::PremierePro));
  const RenderResult r = host.render(request(2));
  ASSERT_EQ(r.err, PF_Err_NONE);
  EXPECT_EQ(r.toleratedNotices, 1);
  EXPECT_TRUE(r.breaks.empty()) << firstOf(r.breaks);
  EXPECT_THROW(host.render(request(2, Depth::Bits16)), std::invalid_argument);
}

TEST_F(RenderHostTest, ContractBreaksArePerRender) {
  RenderHost host(fakeOptions());
  RenderRequest bad = request(2);
  bad.controls[kAmountId] = 6;  // writes before the output's first row
  std::vector<RenderResult> results(4);
  std::vector<std::thread> threads;
  for (int k = 0; k < 4; ++k)
    threads.emplace_back([&, k] { results[k] = host.render(k % 2 ? bad : request(2)); });
  for (std::thread& t : threads) t.join();
  for (int k = 0; k < 4; ++k) EXPECT_EQ(results[k].breaks.size(), k % 2 ? 1u : 0u) << k;
  EXPECT_TRUE(host.finalBreaks().empty()) << firstOf(host.finalBreaks());
}

// A clip whose first `parties` frame requests wait for each other, so that
// that many renders are certainly in flight together.
class RendezvousClip : public thost::Clip {
 public:
  RendezvousClip(std::shared_ptr<const thost::Clip> inner, int parties)
      : inner_(std::move(inner)), parties_(parties) {}
  int frameCount() const override { return inner_->frameCount(); }
  std::shared_ptr<const Image> frame(int k, Depth depth) const override {
    std::unique_lock<std::mutex> lock(mutex_);
    if (arrived_ < parties_) {
      ++arrived_;
      arrivals_.notify_all();
      arrivals_.wait(lock, [this] { return arrived_ >= parties_; });
    }
    lock.unlock();
    return inner_->frame(k, depth);
  }

 private:
  std::shared_ptr<const thost::Clip> inner_;
  int parties_;
  mutable std::mutex mutex_;
  mutable std::condition_variable arrivals_;
  mutable int arrived_ = 0;
};

TEST_F(RenderHostTest, OverlappingFramesNeedThreadedRenderingDeclared) {
  RenderHost::Options o = fakeOptions();
  o.pluginPath = THOST_FAKE_SINGLE_THREADED;
  RenderHost host(o);
  EXPECT_EQ(host.outFlags2() & PF_OutFlag2_SUPPORTS_THREADED_RENDERING, 0);
  EXPECT_TRUE(host.render(request(1)).breaks.empty());  // one at a time is fine
  RenderRequest overlapping = request(1);
  overlapping.layer = std::make_shared<RendezvousClip>(layer, 2);
  RenderResult a, b;
  std::thread ta([&] { a = host.render(overlapping); });
  std::thread tb([&] { b = host.render(overlapping); });
  ta.join();
  tb.join();
  // The render that started second found the first in flight.
  ASSERT_EQ(a.breaks.size() + b.breaks.size(), 1u);
  const std::string& only = a.breaks.empty() ? b.breaks.front() : a.breaks.front();
  EXPECT_NE(only.find("does not declare PF_OutFlag2_SUPPORTS_THREADED_RENDERING"), std::string::npos)
      << only;
  EXPECT_EQ(a.output, b.output);
}

TEST_F(RenderHostTest, ThreadedRenderingDeclaredAllowsOverlap) {
  RenderHost host(fakeOptions());
  RenderRequest overlapping = request(1);
  overlapping.layer = std::make_shared<RendezvousClip>(layer, 2);
  RenderResult a, b;
  std::thread ta([&] { a = host.render(overlapping); });
  std::thread tb([&] { b = host.render(overlapping); });
  ta.join();
  tb.join();
  EXPECT_TRUE(a.breaks.empty()) << firstOf(a.breaks);
  EXPECT_TRUE(b.breaks.empty()) << firstOf(b.breaks);
}

TEST(TimeBaseTest, FromRateScalesToAtLeast24000) {
  EXPECT_EQ(thost::TimeBase::fromRate(30000, 1001).timeScale, 30000u);
  EXPECT_EQ(thost::TimeBase::fromRate(30000, 1001).timeStep, 1001);
  EXPECT_EQ(thost::TimeBase::fromRate(25, 1).timeScale, 24000u);
  EXPECT_EQ(thost::TimeBase::fromRate(25, 1).timeStep, 960);
  EXPECT_EQ(thost::TimeBase::fromRate(50, 2).timeStep, 960);
  EXPECT_EQ(thost::TimeBase::fromRate(24000, 1).timeStep, 1);
}

}  // namespace
