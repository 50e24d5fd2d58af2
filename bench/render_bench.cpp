// Block renderer speed at 1920x1080 and 3840x2160 for the three depths, each
// case measured against a plain memcpy of the same frame in the same run.
//
// A shared machine moves both timings by more than the effect measured, so
// the two are interleaved: every iteration times one memcpy and then one
// render (a pair), and the figure that counts is the ratio within each pair.
// The counters give the median over all pairs of that ratio and of the two
// times; Google Benchmark's own time column is the render's mean.
//
// Cases: the default controls (32x32 blocks, strength 0.1, spread 0.1,
// direction All, seed 777, composite on, RGBA, no time frames, intensity 0),
// the same with "Intensity" 50, with 16 time frames (all delivered, same
// rectangle as the input, default probability 25), with 8x8 blocks at
// strength 1 and with 2x2 blocks at strength 1.
//
// TESSELUX_BENCH_PAIRS sets the number of timed pairs (default 21, at least
// 15); two untimed pairs come first.
#include <benchmark/benchmark.h>

#include <stdint.h>
#include <stdlib.h>
#ifdef _WIN32
#include <malloc.h>
#endif
#include <string.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "params/param_values.h"
#include "render/render.h"
#include "render_support.h"

namespace {

struct Buffer {
  void* data = nullptr;
  size_t bytes = 0;
#ifdef _WIN32
  // The Windows C runtime has no aligned_alloc.
  explicit Buffer(size_t n) : data(_aligned_malloc((n + 63) / 64 * 64, 64)), bytes(n) {}
  ~Buffer() { _aligned_free(data); }
#else
  explicit Buffer(size_t n) : data(aligned_alloc(64, (n + 63) / 64 * 64)), bytes(n) {}
  ~Buffer() { free(data); }
#endif
  Buffer(const Buffer&) = delete;
  Buffer& operator=(const Buffer&) = delete;
};

// Fills with pseudo-random channel values in each depth's nominal range, so
// that mask averages see realistic data.
template <typename T>
void fill(Buffer& b, uint32_t seed) {
  T* p = static_cast<T*>(b.data);
  const size_t n = b.bytes / sizeof(T);
  uint32_t s = seed * 2654435761u + 1;
  for (size_t i = 0; i < n; ++i) {
    s = s * 1664525u + 1013904223u;
    if (sizeof(T) == 1) p[i] = static_cast<T>(s >> 24);
    else if (sizeof(T) == 2) p[i] = static_cast<T>((s >> 16) % 32769);
    else p[i] = static_cast<T>(static_cast<float>(s >> 8) / 16777216.0f);
  }
}

// The frames of one depth and size: input, output, the memcpy's own target
// and 16 time frames. Only the most recent configuration is kept, so that
// memory stays bounded.
struct Frames {
  int depthBytes = 0, width = 0, height = 0;
  std::unique_ptr<Buffer> input, output, copy;
  std::vector<std::unique_ptr<Buffer>> times;
  PF_LayerDef in{}, out{};
  PF_LayerDef timeDefs[MAX_TIME_FRAMES]{};
};

PF_LayerDef world(void* data, int w, int h, size_t pixelBytes) {
  PF_LayerDef d;
  memset(&d, 0, sizeof d);
  d.data = static_cast<PF_PixelPtr>(data);
  d.rowbytes = static_cast<A_long>(static_cast<size_t>(w) * pixelBytes);
  d.width = w;
  d.height = h;
  return d;
}

template <typename T>
Frames& frames(int w, int h, bool withTimes) {
  static Frames f;
  const size_t pix = 4 * sizeof(T);
  const size_t bytes = static_cast<size_t>(w) * h * pix;
  if (f.depthBytes != static_cast<int>(sizeof(T)) || f.width != w || f.height != h) {
    f.times.clear();
    f.input.reset();
    f.output.reset();
    f.copy.reset();
    f.input.reset(new Buffer(bytes));
    f.output.reset(new Buffer(bytes));
    f.copy.reset(new Buffer(bytes));
    fill<T>(*f.input, 1);
    memset(f.output->data, 0, bytes);  // touch the pages before timing
    memset(f.copy->data, 0, bytes);
    f.in = world(f.input->data, w, h, pix);
    f.out = world(f.output->data, w, h, pix);
    f.depthBytes = sizeof(T);
    f.width = w;
    f.height = h;
  }
  if (withTimes && f.times.empty()) {
    for (int k = 0; k < MAX_TIME_FRAMES; ++k) {
      f.times.emplace_back(new Buffer(bytes));
      fill<T>(*f.times.back(), 100 + k);
      f.timeDefs[k] = world(f.times.back()->data, w, h, pix);
    }
  }
  return f;
}

enum Case { kDefault, kIntensity50, kTimeFrames16, kBlocks8x8Strength1, kBlocks2x2Strength1 };

template <typename T>
PF_Err renderDepth(PF_LayerDef* in, PF_LayerDef* out, const ParamValues& v) {
  if (sizeof(T) == 1) return renderARGB8(in, out, v, 1.0f);
  if (sizeof(T) == 2) return renderARGB16(in, out, v, 1.0f);
  return renderARGB32(in, out, v, 1.0f);
}

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  const size_t n = v.size();
  return n % 2 ? v[n / 2] : 0.5 * (v[n / 2 - 1] + v[n / 2]);
}

// This thread's CPU time: unlike the wall clock, it stops while the thread
// waits for a core, which on a machine with more runnable jobs than cores is
// often a large part of a frame's wall time.
double threadMs() {
  timespec t;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return t.tv_sec * 1e3 + t.tv_nsec * 1e-6;
}

int pairCount() {
  const char* e = getenv("TESSELUX_BENCH_PAIRS");
  const int n = e ? atoi(e) : 21;
  return n < 15 ? 15 : n;
}

template <typename T>
void BM_Pair(benchmark::State& state, int w, int h, Case which) {
  Frames& f = frames<T>(w, h, which == kTimeFrames16);
  ParamValues v = rt::defaultValues();
  switch (which) {
    case kDefault:
      break;
    case kIntensity50:
      v.maskIntensity = 50;
      break;
    case kTimeFrames16:
      v.timeFrames = 16;
      for (int k = 0; k < MAX_TIME_FRAMES; ++k) v.timeLayers[k] = &f.timeDefs[k];
      break;
    case kBlocks8x8Strength1:
      v.blockWidth = v.blockHeight = 8;
      v.shuffleStrength = 1.0;
      break;
    case kBlocks2x2Strength1:
      v.blockWidth = v.blockHeight = 2;
      v.shuffleStrength = 1.0;
      break;
  }
  typedef std::chrono::steady_clock Clock;
  const auto copyOnce = [&f] {
    memcpy(f.copy->data, f.input->data, f.input->bytes);
    benchmark::ClobberMemory();
  };
  const auto renderOnce = [&f, &v] {
    benchmark::DoNotOptimize(renderDepth<T>(&f.in, &f.out, v));
    benchmark::ClobberMemory();
  };
  for (int warm = 0; warm < 2; ++warm) {
    copyOnce();
    renderOnce();
  }
  std::vector<double> copyMs, renderMs, ratios, copyCpu, renderCpu, cpuRatios;
  for (auto _ : state) {
    const double u0 = threadMs();
    const auto t0 = Clock::now();
    copyOnce();
    const auto t1 = Clock::now();
    const double u1 = threadMs();
    renderOnce();
    const auto t2 = Clock::now();
    const double u2 = threadMs();
    const double c = std::chrono::duration<double, std::milli>(t1 - t0).count();
    const double r = std::chrono::duration<double, std::milli>(t2 - t1).count();
    copyMs.push_back(c);
    renderMs.push_back(r);
    ratios.push_back(r / c);
    copyCpu.push_back(u1 - u0);
    renderCpu.push_back(u2 - u1);
    cpuRatios.push_back((u2 - u1) / (u1 - u0));
    state.SetIterationTime(r / 1000.0);
  }
  // Wall-clock figures, then the same from this thread's CPU time.
  state.counters["memcpy_ms"] = median(copyMs);
  state.counters["render_ms"] = median(renderMs);
  state.counters["ratio"] = median(ratios);
  state.counters["ratio_min"] = *std::min_element(ratios.begin(), ratios.end());
  state.counters["ratio_max"] = *std::max_element(ratios.begin(), ratios.end());
  state.counters["cpu_memcpy_ms"] = median(copyCpu);
  state.counters["cpu_render_ms"] = median(renderCpu);
  state.counters["cpu_ratio"] = median(cpuRatios);
  state.counters["pairs"] = static_cast<double>(ratios.size());
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(f.input->bytes));
}

template <typename T>
void registerDepth(const char* depth) {
  const int sizes[2][2] = {{1920, 1080}, {3840, 2160}};
  const int pairs = pairCount();
  for (const auto& s : sizes) {
    const int w = s[0], h = s[1];
    const std::string base = std::string(depth) + "/" + std::to_string(w) + "x" + std::to_string(h) + "/";
    const struct {
      const char* name;
      Case which;
    } cases[] = {{"default", kDefault},
                 {"intensity50", kIntensity50},
                 {"timeframes16", kTimeFrames16},
                 {"blocks8x8_strength1", kBlocks8x8Strength1},
                 {"blocks2x2_strength1", kBlocks2x2Strength1}};
    for (const auto& c : cases) {
      const Case which = c.which;
      benchmark::RegisterBenchmark((base + c.name).c_str(),
                                   [w, h, which](benchmark::State& st) { BM_Pair<T>(st, w, h, which); })
          ->Iterations(pairs)
          ->UseManualTime()
          ->Unit(benchmark::kMillisecond);
    }
  }
}

const int registered = [] {
  registerDepth<uint8_t>("8bit");
  registerDepth<uint16_t>("16bit");
  registerDepth<float>("float");
  return 0;
}();

}  // namespace
