// Rendering frames of generated clips through EffectMain in the headless host,
// and the direct renderer calls the results are compared with.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "params/param_table.h"
#include "params/param_values.h"
#include "plugin_fixture.h"
#include "render/render.h"
#include "thost/render.h"

namespace pipeline {

// A repeatable value for channel c of pixel (x, y) of frame k.
inline uint32_t hashPixel(int k, int x, int y, int c, uint32_t salt) {
  uint32_t h = salt ^ 0x9E3779B9u;
  for (uint32_t v : {static_cast<uint32_t>(k), static_cast<uint32_t>(x), static_cast<uint32_t>(y),
                     static_cast<uint32_t>(c)}) {
    h ^= v + 0x7F4A7C15u + (h << 6) + (h >> 2);
    h *= 0x85EBCA6Bu;
  }
  return h ^ (h >> 16);
}

// Fills an image with repeatable pixels in the depth's range (float 0..1, 16-bit 0..32768).
inline void fillImage(thost::Image& img, int k, uint32_t salt) {
  for (int y = 0; y < img.height; ++y) {
    uint8_t* row = img.row(y);
    for (int x = 0; x < img.width; ++x) {
      for (int c = 0; c < 4; ++c) {
        const uint32_t h = hashPixel(k, x, y, c, salt);
        switch (img.depth) {
          case thost::Depth::Bits8:
            row[x * 4 + c] = static_cast<uint8_t>(h);
            break;
          case thost::Depth::Bits16: {
            const uint16_t v = static_cast<uint16_t>(h % 32769u);
            std::memcpy(row + x * 8 + c * 2, &v, 2);
            break;
          }
          case thost::Depth::Float32: {
            const float v = static_cast<float>(h % 1001u) / 1000.0f;
            std::memcpy(row + x * 16 + c * 4, &v, 4);
            break;
          }
        }
      }
    }
  }
}

// A clip of `frames` frames of w x h at origin 0, every frame different.
inline std::shared_ptr<thost::MemoryClip> makeClip(int frames, int w, int h, uint32_t salt = 1) {
  return std::make_shared<thost::MemoryClip>(frames, [=](int k, thost::Depth d) {
    thost::Image img(w, h, d);
    fillImage(img, k, salt);
    return img;
  });
}

// Frames whose size and origin change with k, so the time frame set pads.
inline std::shared_ptr<thost::MemoryClip> makeVaryingClip(int frames, int w, int h,
                                                          uint32_t salt = 3) {
  return std::make_shared<thost::MemoryClip>(frames, [=](int k, thost::Depth d) {
    const int dw = (k * 7) % 13, dh = (k * 5) % 11;
    thost::Image img(k % 2 ? w - dw : w + dw, k % 3 ? h - dh : h + dh, d);
    img.originX = (k % 4) - 2;
    img.originY = (k % 5) - 2;
    fillImage(img, k, salt);
    return img;
  });
}

inline PF_ParamIndex indexOf(thost::Host& h, int id) {
  for (A_long i = 1; i < h.numParams(); ++i) {
    if (h.param(i).uu.id == id) return i;
  }
  ADD_FAILURE() << "no control with id " << id;
  return 0;
}

inline PF_ParamDef& control(thost::Host& h, int id) { return h.param(indexOf(h, id)); }

inline void setFixed(thost::Host& h, int id, double v) {
  control(h, id).u.fd.value = static_cast<PF_Fixed>(std::lround(v * 65536.0));
}
inline void setFloat(thost::Host& h, int id, double v) { control(h, id).u.fs_d.value = v; }
inline void setPopup(thost::Host& h, int id, int v) { control(h, id).u.pd.value = v; }
inline void setCheckbox(thost::Host& h, int id, int v) { control(h, id).u.bd.value = v; }

// The record pre-render handed to the host.
inline ParamValues recordOf(thost::Host& h) {
  ParamValues pv;
  std::memset(&pv, 0, sizeof pv);
  const std::vector<char> bytes = h.handleBytes(h.preRenderData());
  EXPECT_EQ(bytes.size(), sizeof pv);
  if (bytes.size() == sizeof pv) std::memcpy(&pv, bytes.data(), sizeof pv);
  return pv;
}

inline int bytesPerPixel(const PF_EffectWorld& w, thost::Depth d) {
  (void)w;
  return thost::bytesPerPixel(d);
}

// The pixels of a world, row padding left out.
inline std::vector<uint8_t> pixelsOf(const PF_EffectWorld& w, thost::Depth d) {
  std::vector<uint8_t> out;
  const size_t rowBytes = static_cast<size_t>(w.width) * thost::bytesPerPixel(d);
  for (A_long y = 0; y < w.height; ++y) {
    const uint8_t* row = reinterpret_cast<const uint8_t*>(w.data) + y * w.rowbytes;
    out.insert(out.end(), row, row + rowBytes);
  }
  return out;
}

// A world of the same geometry as `like`, owned by the test, filled with a
// pattern the renderer must overwrite.
struct OwnedWorld {
  std::vector<uint8_t> bytes;
  PF_EffectWorld world;
  explicit OwnedWorld(const PF_EffectWorld& like) {
    std::memset(&world, 0, sizeof world);
    world.width = like.width;
    world.height = like.height;
    world.rowbytes = like.rowbytes;
    world.origin_x = like.origin_x;
    world.origin_y = like.origin_y;
    bytes.assign(static_cast<size_t>(like.rowbytes) * (like.height > 0 ? like.height : 0) + 16,
                 0x5A);
    world.data = reinterpret_cast<PF_PixelPtr>(bytes.data());
  }
};

// The depth's entry point, called directly.
inline PF_Err renderDirect(thost::Depth d, PF_EffectWorld* in, PF_EffectWorld* out,
                           const ParamValues& pv, float downsample) {
  switch (d) {
    case thost::Depth::Bits8:
      return renderARGB8(in, out, pv, downsample);
    case thost::Depth::Bits16:
      return renderARGB16(in, out, pv, downsample);
    default:
      return renderARGB32(in, out, pv, downsample);
  }
}

inline const char* depthName(thost::Depth d) {
  return d == thost::Depth::Bits8 ? "8-bit" : d == thost::Depth::Bits16 ? "16-bit" : "float";
}

constexpr thost::Depth kDepths[] = {thost::Depth::Bits8, thost::Depth::Bits16,
                                    thost::Depth::Float32};

}  // namespace pipeline

// A set-up effect instance with clips attached, as a render test starts.
class PipelineTest : public PluginTest {
 protected:
  thost::Host& setUpInstance(thost::App app = thost::App::AfterEffects) {
    thost::Host& h = setUpEffect(app, 13, 28);
    EXPECT_EQ(h.sequenceSetup(), PF_Err_NONE);
    return h;
  }
  // Frames of `frames` at time step `step` and `scale`; current frame `k`.
  static void setClipTime(thost::Host& h, int frames, int k, A_long step = 100,
                          A_u_long scale = 3000) {
    h.setTime(k * step, step, frames * step, scale);
  }
};
