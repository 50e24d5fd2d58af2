// A concurrency soak: 4 threads x 200 frames of mixed depths, hosts and
// settings through EffectMain from set-up hosts, byte-identical to the same
// 800 frames rendered one after the other. Run under ThreadSanitizer too.
#include <gtest/gtest.h>

#include <filesystem>
#include <thread>

#include "host_render_support.h"
#include "params/param_table.h"
#include "thost/render.h"

namespace {

namespace fs = std::filesystem;
using thost::App;
using thost::Depth;
using thost::RenderHost;
using thost::RenderRequest;
using thost::RenderResult;

constexpr int kThreads = 4;
constexpr int kFramesPerThread = 200;
constexpr int kLayerFrames = 24;

// Each host identity loads its own copy of the module: a process shares one
// loaded module between hosts, and the two identities set it up differently.
std::string moduleCopy(const std::string& name) {
  const fs::path dir = fs::path(::testing::TempDir()) / "tesselux-soak";
  fs::create_directories(dir);
  const fs::path copy = dir / (name + ".so");
  fs::copy_file(thost::Host::defaultPluginPath(), copy, fs::copy_options::overwrite_existing);
  return copy.string();
}

struct Job {
  bool premiere;
  RenderRequest request;
};

// Frame n of the mix: every depth, both hosts, block sizes, strengths, time
// frames, edge modes, masks and downsampling all varied.
Job job(int n, const std::shared_ptr<const thost::Clip>& layer,
        const std::shared_ptr<const thost::Clip>& mask) {
  Job j;
  j.premiere = n % 5 == 3;
  RenderRequest& r = j.request;
  r.frame = (n * 7) % kLayerFrames;
  r.depth = n % 3 == 0 ? Depth::Bits8 : n % 3 == 1 ? Depth::Bits16 : Depth::Float32;
  r.layer = layer;
  r.mask = n % 4 == 1 ? mask : nullptr;
  r.time = thost::TimeBase::fromRate(n % 2 ? 24 : 30, 1);
  if (n % 6 == 5) r.downsampleX = r.downsampleY = PF_RationalScale{1, 2};
  r.controls = {{ID_BLOCK_WIDTH, 2 + n % 9},
                {ID_BLOCK_HEIGHT, 1 + (n / 3) % 7},
                {ID_SHUFFLE_STRENGTH, (n % 11) / 10.0},
                {ID_SHUFFLE_SPREAD, (n % 5) / 4.0},
                {ID_SHUFFLE_DIRECTION, 1 + n % 3},
                {ID_SHUFFLE_SEED, n % 97},
                {ID_CHANNELS, 1 + n % 5},
                {ID_TIME_FRAMES, n % 4 == 0 ? 0 : 1 + n % 5},
                {ID_TIME_PROBABILITY, 30 + n % 70},
                {ID_STEPPING_UNIT, 1 + n % 2},
                {ID_TIME_STEP_FRAMES, (n % 7) - 3},
                {ID_TIME_STEP_SECONDS, ((n % 9) - 4) / 10.0},
                {ID_EDGE_TIME_MODE, 1 + n % 3},
                {ID_EXCLUSIVE_MODE, n % 2},
                {ID_MASK_INTENSITY, (n % 10) * 10},
                {ID_MASK_TYPE, 1 + n % 3},
                {ID_COMPOSITE_ON_ORIGINAL, (n / 2) % 2}};
  return j;
}

TEST(Soak, FourThreadsOf200MixedFramesEqualASerialRun) {
  auto layer = thost_test::patternClip(kLayerFrames, 64, 48);
  auto mask = thost_test::patternClip(kLayerFrames, 64, 48, 77);
  RenderHost::Options ae;
  ae.pluginPath = moduleCopy("soak-ae");
  ae.recordCalls = false;
  RenderHost::Options pr = ae;
  pr.pluginPath = moduleCopy("soak-premiere");
  pr.app = App::PremierePro;
  RenderHost aeHost(ae), prHost(pr);

  constexpr int kTotal = kThreads * kFramesPerThread;
  std::vector<Job> jobs;
  for (int n = 0; n < kTotal; ++n) jobs.push_back(job(n, layer, mask));
  auto run = [&](int n) { return (jobs[n].premiere ? prHost : aeHost).render(jobs[n].request); };

  std::vector<RenderResult> serial;
  for (int n = 0; n < kTotal; ++n) serial.push_back(run(n));

  std::vector<RenderResult> concurrent(kTotal);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([&, t] {
      // Interleaved, so the threads render different depths and hosts at once.
      for (int i = 0; i < kFramesPerThread; ++i) concurrent[i * kThreads + t] = run(i * kThreads + t);
    });
  for (std::thread& th : threads) th.join();

  int changed = 0;
  for (int n = 0; n < kTotal; ++n) {
    SCOPED_TRACE("frame " + std::to_string(n));
    ASSERT_EQ(serial[n].err, PF_Err_NONE);
    ASSERT_EQ(concurrent[n].err, PF_Err_NONE);
    ASSERT_TRUE(serial[n].breaks.empty()) << serial[n].breaks.front();
    ASSERT_TRUE(concurrent[n].breaks.empty()) << concurrent[n].breaks.front();
    ASSERT_TRUE(serial[n].output == concurrent[n].output);
    changed += !(serial[n].output == *layer->frame(jobs[n].request.frame, jobs[n].request.depth));
  }
  // The mix really shuffles: most frames differ from their input.
  EXPECT_GT(changed, kTotal / 2);
  const auto aeBreaks = aeHost.finalBreaks(), prBreaks = prHost.finalBreaks();
  EXPECT_TRUE(aeBreaks.empty()) << aeBreaks.front();
  EXPECT_TRUE(prBreaks.empty()) << prBreaks.front();
}

}  // namespace
