// What a frame costs through the headless host, 1920x1080, default controls
// plus three time frames: the full After Effects command pair (pre-render,
// smart render, layer worlds lent and checked), with the guard checks on and
// off, against the renderer called directly on the same frame (render_bench).
#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>

#include "params/param_table.h"
#include "thost/render.h"

namespace {

thost::Image frame(int k, thost::Depth depth) {
  thost::Image img(1920, 1080, depth);
  uint32_t s = static_cast<uint32_t>(k) * 2654435761u + 1;
  for (uint8_t& b : img.pixels) {
    s = s * 1664525u + 1013904223u;
    b = static_cast<uint8_t>(s >> 24);
  }
  if (depth == thost::Depth::Float32) {
    // Keep floats in 0..1 so the renderer sees ordinary values.
    auto* f = reinterpret_cast<float*>(img.pixels.data());
    for (size_t i = 0; i < img.pixels.size() / 4; ++i) f[i] = static_cast<float>(i % 251) / 250.0f;
  } else if (depth == thost::Depth::Bits16) {
    auto* p = reinterpret_cast<uint16_t*>(img.pixels.data());
    for (size_t i = 0; i < img.pixels.size() / 2; ++i) p[i] = static_cast<uint16_t>(p[i] % 32769);
  }
  return img;
}

void BM_HostRender(benchmark::State& state) {
  const auto depth = static_cast<thost::Depth>(state.range(0));
  thost::RenderHost::Options options;
  options.guardWorlds = state.range(1) != 0;
  options.recordCalls = false;
  thost::RenderHost host(options);
  auto clip = std::make_shared<thost::MemoryClip>(8, frame);
  thost::RenderRequest request;
  request.frame = 4;
  request.depth = depth;
  request.layer = clip;
  request.time = thost::TimeBase::fromRate(24, 1);
  request.controls = {{ID_TIME_FRAMES, 3}, {ID_STEPPING_UNIT, 2}, {ID_TIME_STEP_FRAMES, 1}};
  host.render(request);  // frames made once, outside the timing
  for (auto _ : state) {
    thost::RenderResult r = host.render(request);
    if (r.err != PF_Err_NONE || !r.breaks.empty()) state.SkipWithError("render failed");
    benchmark::DoNotOptimize(r.output.pixels.data());
  }
  state.SetBytesProcessed(state.iterations() * 1920LL * 1080 * thost::bytesPerPixel(depth));
}

BENCHMARK(BM_HostRender)
    ->ArgNames({"depth", "guards"})
    ->ArgsProduct({{8, 16, 32}, {1, 0}})
    ->Unit(benchmark::kMillisecond);

}  // namespace
