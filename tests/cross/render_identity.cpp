// Renders a fixed set of frames through EffectMain and writes their pixels,
// byte for byte, to one file. Built in every tree (Linux x86-64, Windows under
// Wine, 64-bit Arm under qemu): the files must be identical.
// Usage: render_identity <output file>   (the module from $TESSELUX_PLUGIN)
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "thost/render.h"

namespace {

using thost::Depth;

int pixelBytes(Depth d) { return d == Depth::Bits8 ? 4 : d == Depth::Bits16 ? 8 : 16; }

// Integer patterns only, so every platform makes the same input pixels.
thost::Image pattern(int w, int h, int k, Depth d, int salt) {
  thost::Image img(w, h, d);
  for (int y = 0; y < h; ++y) {
    uint8_t* row = img.row(y);
    for (int x = 0; x < w; ++x) {
      for (int c = 0; c < 4; ++c) {
        const uint32_t v = (uint32_t(x) * 7 + uint32_t(y) * 13 + uint32_t(k) * 29 + uint32_t(c) * 61 +
                            uint32_t(salt) * 101 + (uint32_t(x) * uint32_t(y) >> 3)) % 256;
        const uint32_t a = c == 0 ? 200 + v % 56 : v;  // mostly opaque alpha first (ARGB)
        if (d == Depth::Bits8) {
          row[x * 4 + c] = uint8_t(a);
        } else if (d == Depth::Bits16) {
          const uint16_t s = uint16_t(a * 32768 / 255);
          std::memcpy(row + x * 8 + c * 2, &s, 2);
        } else {
          const float f = float(a) / 255.0f;
          std::memcpy(row + x * 16 + c * 4, &f, 4);
        }
      }
    }
  }
  return img;
}

std::shared_ptr<thost::Clip> clip(int w, int h, int frames, int salt) {
  return std::make_shared<thost::MemoryClip>(
      frames, [=](int k, Depth d) { return pattern(w, h, k, d, salt); });
}

struct Case {
  std::string label;
  thost::App app;
  thost::RenderRequest request;
};

std::vector<Case> cases() {
  std::vector<Case> out;
  const auto layer = clip(160, 90, 40, 1);
  const auto mask = clip(97, 61, 40, 2);
  for (Depth d : {Depth::Bits8, Depth::Bits16, Depth::Float32}) {
    for (thost::App app : {thost::App::AfterEffects, thost::App::PremierePro}) {
      const std::string tag = std::string(app == thost::App::PremierePro ? "pr" : "ae") + "/" +
                              std::to_string(int(d));
      thost::RenderRequest r;
      r.layer = layer;
      r.depth = d;
      r.frame = 5;
      out.push_back({tag + " defaults", app, r});
      r.controls = {{2, 3}, {3, 2}, {4, 1.0}};  // small blocks, full strength
      out.push_back({tag + " small blocks", app, r});
      for (int edge = 1; edge <= 3; ++edge) {
        thost::RenderRequest t = r;
        // 16 time frames, a fractional step in frames, each edge mode.
        t.controls = {{4, 1.0}, {9, 16}, {10, 60}, {11, 2}, {13, 2.5}, {14, edge}};
        t.frame = 37;
        out.push_back({tag + " time edge " + std::to_string(edge), app, t});
      }
      thost::RenderRequest m = r;
      m.mask = mask;  // a mask of another size
      m.controls = {{4, 1.0}, {20, 70}};
      out.push_back({tag + " mask", app, m});
      thost::RenderRequest h = r;
      h.downsampleX = {1, 2};
      h.downsampleY = {1, 2};
      out.push_back({tag + " downsample 1/2", app, h});
    }
  }
  return out;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: render_identity <output file>\n";
    return 2;
  }
  std::ofstream file(argv[1], std::ios::binary);
  int failures = 0;
  // One host at a time: hosts alive together share the module's state.
  for (thost::App app : {thost::App::AfterEffects, thost::App::PremierePro}) {
    thost::RenderHost::Options o;
    o.app = app;
    if (app == thost::App::PremierePro) o.version = {13, 4};
    o.recordCalls = false;
    thost::RenderHost host(o);
    for (const Case& c : cases()) {
      if (c.app != app) continue;
      const thost::RenderResult r = host.render(c.request);
      if (r.err != PF_Err_NONE || !r.breaks.empty()) {
        std::cerr << c.label << ": error " << r.err << ", " << r.breaks.size() << " breaks"
                  << (r.breaks.empty() ? "" : ": " + r.breaks.front()) << "\n";
        ++failures;
      }
      const thost::Image& img = r.output;
      file << c.label << " " << img.width << "x" << img.height << "\n";
      const std::size_t rowBytes = std::size_t(img.width) * pixelBytes(img.depth);
      for (int y = 0; y < img.height; ++y)
        file.write(reinterpret_cast<const char*>(img.row(y)), long(rowBytes));
    }
    for (const std::string& b : host.finalBreaks()) std::cerr << "break: " << b << "\n", ++failures;
  }
  return failures == 0 && file.good() ? 0 : 1;
}
