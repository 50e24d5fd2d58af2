// Same parameters, same bytes: repeated renders and renders from eight threads
// at once (same and different frames concurrently) match serial results.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

#include "render_support.h"

namespace {

using rt::Depth;
using rt::World;

template <typename T>
struct Job {
  World<T> input;
  World<T> mask;
  std::vector<std::unique_ptr<World<T>>> times;
  ParamValues v;
  float downsample = 1.0f;
};

template <typename T>
std::vector<std::unique_ptr<Job<T>>> makeJobs() {
  std::mt19937 rng(99);
  std::vector<std::unique_ptr<Job<T>>> jobs;
  for (int j = 0; j < 6; ++j) {
    std::unique_ptr<Job<T>> job(new Job<T>);
    const int w = 40 + 13 * j, h = 30 + 7 * j;
    job->input = World<T>(w, h, 2, j - 2, 1 - j);
    rt::fillRandom(job->input, rng);
    ParamValues& v = job->v;
    v = rt::defaultValues();
    v.blockWidth = 2 + j * 3;
    v.blockHeight = 3 + j;
    v.shuffleStrength = 0.2 + 0.15 * j;
    v.shuffleSpread = 0.1 * j;
    v.shuffleDirection = j % 3;
    v.shuffleSeed = -1000 + 777 * j;
    v.channels = j % 5;
    v.compositeOnOriginal = j % 2;
    v.exclusiveMode = j == 3;
    v.maskIntensity = 15.0 * j;
    v.maskType = j % 3;
    if (j % 2 == 0) {
      job->mask = World<T>(w / 2 + 3, h / 2 + 1);
      rt::fillRandom(job->mask, rng);
      v.maskLayer = &job->mask.def;
    }
    v.timeFrames = j < 2 ? 0 : 16;
    v.timeProbability = 60;
    for (int k = 0; k < v.timeFrames; ++k) {
      if ((k + j) % 5 == 0) continue;  // some missing frames
      job->times.emplace_back(new World<T>(w + (k % 3) - 1, h, 1, j - 2 + (k % 2), 1 - j));
      rt::fillRandom(*job->times.back(), rng);
      v.timeLayers[k] = &job->times.back()->def;
    }
    job->downsample = j == 5 ? 0.5f : 1.0f;
    jobs.push_back(std::move(job));
  }
  return jobs;
}

template <typename T>
std::vector<unsigned char> renderBytes(Job<T>& job) {
  World<T> out(job.input.def.width, job.input.def.height);
  for (auto& b : out.bytes) b = 0x5A;
  EXPECT_EQ(Depth<T>::render(&job.input.def, &out.def, job.v, job.downsample), PF_Err_NONE);
  return out.bytes;
}

template <typename T>
class Determinism : public ::testing::Test {};
using Depths = ::testing::Types<uint8_t, uint16_t, float>;
TYPED_TEST_SUITE(Determinism, Depths);

TYPED_TEST(Determinism, RepeatedRendersAreIdentical) {
  using T = TypeParam;
  auto jobs = makeJobs<T>();
  for (auto& job : jobs) {
    const auto first = renderBytes(*job);
    for (int r = 0; r < 3; ++r) EXPECT_EQ(renderBytes(*job), first);
  }
}

TYPED_TEST(Determinism, EightThreadsMatchSerialResults) {
  using T = TypeParam;
  auto jobs = makeJobs<T>();
  std::vector<std::vector<unsigned char>> serial;
  for (auto& job : jobs) serial.push_back(renderBytes(*job));

  // Thread t renders job (t + r) % 6 in round r and then job 0: at every
  // moment some threads share a frame's inputs and others render other frames.
  std::atomic<int> mismatches{0};
  std::atomic<int> ready{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&, t] {
      ++ready;
      while (ready.load() < 8) std::this_thread::yield();
      for (int r = 0; r < 6; ++r) {
        const int j = (t + r) % 6;
        if (renderBytes(*jobs[j]) != serial[j]) ++mismatches;
        if (renderBytes(*jobs[0]) != serial[0]) ++mismatches;
      }
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(mismatches.load(), 0);
}

}  // namespace
