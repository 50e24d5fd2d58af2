// Helpers shared by the renderer tests: pixel worlds that own their memory,
// per-depth facts, and hooks that capture what the kernel decided.
#pragma once

#include <math.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <random>
#include <vector>

#include "aesdk/aesdk.h"
#include "params/control_table.h"
#include "params/param_values.h"
#include "render/render.h"
#include "render/render_internal.h"

namespace rt {

// A world with its own pixels. Rows carry `padPixels` extra pixels so that
// tests notice writes past the width.
template <typename T>
struct World {
  std::vector<unsigned char> bytes;
  PF_LayerDef def;

  World() { memset(&def, 0, sizeof def); }
  World(int width, int height, int padPixels = 3, int originX = 0, int originY = 0) {
    memset(&def, 0, sizeof def);
    const size_t rowbytes = static_cast<size_t>(width + padPixels) * 4 * sizeof(T);
    bytes.assign(rowbytes * (height > 0 ? height : 0) + 16, 0);
    def.data = reinterpret_cast<PF_PixelPtr>(bytes.data());
    def.rowbytes = static_cast<A_long>(rowbytes);
    def.width = width;
    def.height = height;
    def.origin_x = originX;
    def.origin_y = originY;
  }
  World(const World& o) : bytes(o.bytes), def(o.def) { def.data = reinterpret_cast<PF_PixelPtr>(bytes.data()); }
  World& operator=(const World& o) {
    bytes = o.bytes;
    def = o.def;
    def.data = reinterpret_cast<PF_PixelPtr>(bytes.data());
    return *this;
  }

  unsigned char* at(int x, int y, int c) {
    return bytes.data() + static_cast<size_t>(y) * def.rowbytes + (static_cast<size_t>(x) * 4 + c) * sizeof(T);
  }
  const unsigned char* at(int x, int y, int c) const {
    return bytes.data() + static_cast<size_t>(y) * def.rowbytes + (static_cast<size_t>(x) * 4 + c) * sizeof(T);
  }
  T get(int x, int y, int c) const {
    T v;
    memcpy(&v, at(x, y, c), sizeof v);
    return v;
  }
  void set(int x, int y, int c, T v) { memcpy(at(x, y, c), &v, sizeof v); }
  void fillPixel(T a, T r, T g, T b) {
    for (int y = 0; y < def.height; ++y)
      for (int x = 0; x < def.width; ++x) {
        set(x, y, 0, a);
        set(x, y, 1, r);
        set(x, y, 2, g);
        set(x, y, 3, b);
      }
  }
  void fillBytes(std::mt19937& rng) {
    for (auto& b : bytes) b = static_cast<unsigned char>(rng());
  }
};

template <typename T>
struct Depth;

template <>
struct Depth<uint8_t> {
  static constexpr double kFull = 255;
  static uint8_t full() { return 255; }
  static uint8_t random(std::mt19937& rng) { return static_cast<uint8_t>(rng() & 0xFF); }
  static PF_Err render(PF_LayerDef* in, PF_LayerDef* out, const ParamValues& v, float ds) {
    return renderARGB8(in, out, v, ds);
  }
  static PF_Err render(PF_LayerDef* in, PF_LayerDef* out, const ParamValues& v, float ds, const RenderHooks& h) {
    return renderARGB8WithHooks(in, out, v, ds, h);
  }
};

template <>
struct Depth<uint16_t> {
  static constexpr double kFull = 32768;
  static uint16_t full() { return 32768; }
  static uint16_t random(std::mt19937& rng) { return static_cast<uint16_t>(rng() % 32769); }
  static PF_Err render(PF_LayerDef* in, PF_LayerDef* out, const ParamValues& v, float ds) {
    return renderARGB16(in, out, v, ds);
  }
  static PF_Err render(PF_LayerDef* in, PF_LayerDef* out, const ParamValues& v, float ds, const RenderHooks& h) {
    return renderARGB16WithHooks(in, out, v, ds, h);
  }
};

template <>
struct Depth<float> {
  static constexpr double kFull = 1.0;
  static float full() { return 1.0f; }
  // Mostly nominal values, some over-range and negative ones as float worlds allow.
  static float random(std::mt19937& rng) {
    const uint32_t r = rng();
    if ((r & 15) == 0) return -0.25f + static_cast<float>(r >> 8) / 16777216.0f * 2.5f;
    return static_cast<float>(r >> 8) / 16777216.0f;
  }
  static PF_Err render(PF_LayerDef* in, PF_LayerDef* out, const ParamValues& v, float ds) {
    return renderARGB32(in, out, v, ds);
  }
  static PF_Err render(PF_LayerDef* in, PF_LayerDef* out, const ParamValues& v, float ds, const RenderHooks& h) {
    return renderARGB32WithHooks(in, out, v, ds, h);
  }
};

template <typename T>
void fillRandom(World<T>& w, std::mt19937& rng) {
  for (int y = 0; y < w.def.height; ++y)
    for (int x = 0; x < w.def.width; ++x)
      for (int c = 0; c < 4; ++c) w.set(x, y, c, Depth<T>::random(rng));
}

// Stores control value `x` (in the host's units) into the ParamValues field
// the control table names, converted as the loader converts it.
inline void storeField(ParamValues& v, ValueField field, double x) {
  const A_long popup = static_cast<A_long>(x) - 1;        // 1-based choice to 0-based
  const A_long whole = static_cast<A_long>(floor(x));     // a fixed slider's integer part
  const A_long rounded = static_cast<A_long>(floor(x + 0.5));
  switch (field) {
    case ValueField::None: case ValueField::maskLayer: break;
    case ValueField::channels: v.channels = popup; break;
    case ValueField::blockWidth: v.blockWidth = whole; break;
    case ValueField::blockHeight: v.blockHeight = whole; break;
    case ValueField::shuffleStrength: v.shuffleStrength = x; break;
    case ValueField::shuffleSpread: v.shuffleSpread = x; break;
    case ValueField::shuffleDirection: v.shuffleDirection = popup; break;
    case ValueField::shuffleSeed: v.shuffleSeed = whole; break;
    case ValueField::compositeOnOriginal: v.compositeOnOriginal = static_cast<A_long>(x); break;
    case ValueField::timeFrames: v.timeFrames = rounded; break;
    case ValueField::timeProbability: v.timeProbability = x; break;
    case ValueField::steppingUnit: v.steppingUnit = popup; break;
    case ValueField::timeStepSeconds: v.timeStepSeconds = x; break;
    case ValueField::timeStepFrames: v.timeStepFrames = x; break;
    case ValueField::edgeTimeMode: v.edgeTimeMode = popup; break;
    case ValueField::timeSeed: v.timeSeed = whole; break;
    case ValueField::exclusiveMode: v.exclusiveMode = static_cast<A_long>(x); break;
    case ValueField::maskIntensity: v.maskIntensity = x; break;
    case ValueField::maskType: v.maskType = popup; break;
    case ValueField::maskSeed: v.maskSeed = whole; break;
  }
}

// The controls at their defaults, from the control table.
inline ParamValues defaultValues() {
  ParamValues v;
  memset(&v, 0, sizeof v);
  for (const ControlRow& row : kControlRows) storeField(v, row.field, row.dflt);
  return v;
}

// A copy of everything the kernel reported, usable after the render returns.
struct Captured {
  bool seen = false;
  KernelSnapshot s{};
  std::vector<A_u_long> idx;
  std::vector<A_u_char> frame;
  std::vector<A_u_short> maskval;
  std::vector<A_u_char> flag;
};

inline void captureSnapshot(const KernelSnapshot& s, void* context) {
  Captured* c = static_cast<Captured*>(context);
  c->seen = true;
  c->s = s;
  const size_t n = static_cast<size_t>(s.blocks);
  c->idx.assign(s.idx, s.idx + n);
  c->frame.assign(s.frame, s.frame + n);
  c->maskval.assign(s.maskval, s.maskval + n);
  c->flag.assign(s.flag, s.flag + n);
  c->s.idx = nullptr;
  c->s.frame = nullptr;
  c->s.maskval = nullptr;
  c->s.flag = nullptr;
}

inline RenderHooks captureHooks(Captured* c) {
  RenderHooks h{};
  h.observe = captureSnapshot;
  h.observeContext = c;
  return h;
}

// Fails exactly the `failOn`-th allocation (1-based) and counts them all.
struct FailingAllocator {
  int failOn = 0;
  int calls = 0;
  static void* allocate(size_t bytes, void* context) {
    FailingAllocator* f = static_cast<FailingAllocator*>(context);
    ++f->calls;
    if (f->calls == f->failOn) return nullptr;
    return malloc(bytes);
  }
};

template <typename T>
bool sameBytes(const World<T>& a, const World<T>& b) {
  return a.bytes.size() == b.bytes.size() && memcmp(a.bytes.data(), b.bytes.data(), a.bytes.size()) == 0;
}

// The generator as a test writes it down: w and z of one stream.
struct Stream {
  long long w, z;
};

}  // namespace rt
