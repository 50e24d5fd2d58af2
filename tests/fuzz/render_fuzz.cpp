// The renderer on whatever a host or a damaged record could hand it: worlds
// from 1x1 to a few hundred pixels with any row padding and origin, controls
// across and beyond their ranges (NaN included), masks of other sizes or
// without pixels, and up to 16 time frames with missing slots, null pixels and
// other rectangles. Besides the sanitizers it checks that the input and the
// output's row padding are left alone and that a second render of the same
// frame gives the same bytes, also when it takes the band copy of large
// frames, and also through the portable versions of the inner loops (and,
// for half the inputs, the SSE2 ones) instead of the widest the processor
// has.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <vector>

#include "fuzz_input.h"
#include "fuzz_targets.h"
#include "params/param_values.h"
#include "render/dsp.h"
#include "render/render.h"
#include "render/render_internal.h"

namespace fuzz {
namespace {

constexpr uint8_t kPadByte = 0xCD;

struct Buffer {
  std::vector<uint8_t> bytes;
  PF_LayerDef def{};
};

uint32_t xorshift(uint32_t& s) {
  s ^= s << 13;
  s ^= s >> 17;
  s ^= s << 5;
  return s;
}

// Pixels from a seeded pattern; floats are mostly 0..1, sometimes beyond,
// rarely not numbers at all.
void fillPixels(Buffer& b, int chanSize, int width, uint32_t seed, int floatKind) {
  uint32_t s = seed | 1u;
  const size_t rowPixels = static_cast<size_t>(width) * 4;
  for (int y = 0; y < b.def.height; ++y) {
    uint8_t* row = b.bytes.data() + static_cast<size_t>(y) * b.def.rowbytes;
    for (size_t i = 0; i < rowPixels; ++i) {
      const uint32_t r = xorshift(s);
      if (chanSize == 1) {
        row[i] = static_cast<uint8_t>(r);
      } else if (chanSize == 2) {
        const uint16_t v = static_cast<uint16_t>(r % 32769u);
        std::memcpy(row + i * 2, &v, 2);
      } else {
        float v = (r & 0xFFFFu) / 65535.0f;
        if (floatKind == 1) v = v * 6.0f - 2.0f;
        if (floatKind == 2 && (r >> 28) == 0) {
          const float specials[] = {std::numeric_limits<float>::quiet_NaN(),
                                    std::numeric_limits<float>::infinity(),
                                    -std::numeric_limits<float>::infinity(), 3.0e38f, -3.0e38f,
                                    1.0e-40f, -0.0f, 65536.0f};
          v = specials[(r >> 16) & 7];
        }
        std::memcpy(row + i * 4, &v, 4);
      }
    }
  }
}

// A world of width x height whose rows carry `padBytes` more than the pixels
// need. The buffer is exactly rows x rowbytes, so reads past it are caught.
void makeWorld(Buffer& b, int width, int height, int bpp, int padBytes, A_long ox, A_long oy) {
  b.def = PF_LayerDef{};
  const A_long rowbytes = width * bpp + padBytes;
  b.bytes.assign(static_cast<size_t>(rowbytes) * (height > 0 ? height : 0), kPadByte);
  b.def.data = b.bytes.empty() ? nullptr : reinterpret_cast<PF_PixelPtr>(b.bytes.data());
  b.def.rowbytes = rowbytes;
  b.def.width = width;
  b.def.height = height;
  b.def.origin_x = ox;
  b.def.origin_y = oy;
  b.def.extent_hint = PF_LRect{0, 0, width, height};
}

int size(Input& in, int big) { return in.flag() ? in.range(1, big) : in.range(1, 24); }

void fillValues(Input& in, ParamValues& v) {
  std::memset(&v, 0, sizeof v);
  v.compositeOnOriginal = in.nearRange(0, 1);
  v.channels = in.nearRange(0, 4);
  v.blockWidth = in.flag() ? in.range(1, 40) : in.nearRange(0, 4096);
  v.blockHeight = in.flag() ? in.range(1, 40) : in.nearRange(0, 4096);
  v.shuffleStrength = in.nearRangeDouble(0.0, 1.0);
  v.shuffleSpread = in.nearRangeDouble(0.0, 1.0);
  v.shuffleDirection = in.nearRange(0, 2);
  v.shuffleSeed = in.nearRange(0, 32767);
  v.maskIntensity = in.nearRangeDouble(0.0, 100.0);
  v.maskType = in.nearRange(0, 2);
  v.maskSeed = in.nearRange(1, 32767);
  v.timeFrames = in.nearRange(0, 16);
  v.timeProbability = in.nearRangeDouble(0.0, 100.0);
  v.steppingUnit = in.nearRange(0, 1);
  v.timeStepSeconds = in.nearRangeDouble(-5.0, 5.0);
  v.timeStepFrames = in.nearRangeDouble(-256.0, 256.0);
  v.edgeTimeMode = in.nearRange(0, 2);
  v.timeSeed = in.nearRange(1, 32767);
  v.exclusiveMode = in.nearRange(0, 1);
}

float downsample(Input& in) {
  const float choices[] = {1.0f, 0.5f, 0.25f, 1.0f / 3.0f, 2.0f, 0.0f, -1.0f,
                           std::numeric_limits<float>::quiet_NaN()};
  const uint8_t pick = in.u8();
  if (pick < 200) return choices[pick % 4];
  if (pick < 250) return choices[pick % 8];
  return in.rawFloat();
}

}  // namespace

int renderOne(const uint8_t* data, size_t size_) {
  Input in(data, size_);
  const int depth = in.u8() % 3;
  const int chanSize = depth == 0 ? 1 : depth == 1 ? 2 : 4;
  const int bpp = chanSize * 4;
  const int floatKind = in.u8() % 3;
  const int w = size(in, 256), h = size(in, 256);
  const A_long ox = in.flag() ? 0 : in.range(-300, 300);
  const A_long oy = in.flag() ? 0 : in.range(-300, 300);

  Buffer input, output;
  makeWorld(input, w, h, bpp, in.range(0, 16) * chanSize, ox, oy);
  fillPixels(input, chanSize, w, in.u32(), floatKind);
  makeWorld(output, w, h, bpp, in.range(0, 16) * chanSize, ox, oy);
  fillPixels(output, chanSize, w, in.u32(), floatKind);  // what the host left in it

  ParamValues values;
  fillValues(in, values);
  const float ds = downsample(in);

  Buffer mask;
  switch (in.u8() % 5) {
    case 0:
    case 1:
      break;  // none
    case 2: {
      const int mw = size(in, 320), mh = size(in, 320);
      const int padding = in.range(0, 8) * chanSize;
      makeWorld(mask, mw, mh, bpp, padding, 0, 0);
      fillPixels(mask, chanSize, mask.def.width, in.u32(), floatKind);
      values.maskLayer = &mask.def;
      break;
    }
    case 3: {
      const int mw = size(in, 64), mh = size(in, 64);
      makeWorld(mask, mw, mh, bpp, 0, 0, 0);
      mask.def.data = nullptr;  // a layer the host gave without pixels
      values.maskLayer = &mask.def;
      break;
    }
    default:
      makeWorld(mask, w, h, bpp, 0, ox, oy);
      fillPixels(mask, chanSize, w, in.u32(), floatKind);
      values.maskLayer = &mask.def;
      mask.def.width = in.range(-2, 0);  // no area to sample
      break;
  }

  Buffer frames[MAX_TIME_FRAMES];
  const int slots = in.range(0, MAX_TIME_FRAMES);
  for (int i = 0; i < slots; ++i) {
    Buffer& f = frames[i];
    switch (in.u8() % 6) {
      case 0:
        continue;  // a missing slot
      case 1:
        makeWorld(f, w, h, bpp, 0, ox, oy);
        f.def.data = nullptr;
        break;
      case 2:
      case 3:
        makeWorld(f, w, h, bpp, in.range(0, 8) * chanSize, ox, oy);
        fillPixels(f, chanSize, w, in.u32(), floatKind);
        break;
      default: {
        // Another rectangle of the same layer: other size, shifted origin.
        const int fw = in.range(1, w + 16), fh = in.range(1, h + 16);
        const int padding = in.range(0, 8) * chanSize;
        const A_long fx = ox + in.range(-16, 16);
        const A_long fy = oy + in.range(-16, 16);
        makeWorld(f, fw, fh, bpp, padding, fx, fy);
        fillPixels(f, chanSize, fw, in.u32(), floatKind);
        break;
      }
    }
    values.timeLayers[i] = &f.def;
  }

  const std::vector<uint8_t> inputBefore = input.bytes;
  const std::vector<uint8_t> outputBefore = output.bytes;
  // The block pass as the renderer chooses it for these small frames, or
  // one that large frames take, forced: the band copy (streaming off), or
  // the source-order pass with streaming stores.
  auto render = [&](Buffer& out, ForcedPass pass, const tesselux_kernel::KernelDsp* dsp = nullptr) {
    RenderHooks hooks{};
    forcePass(hooks, pass);
    hooks.dsp = dsp;
    switch (depth) {
      case 0:
        return renderARGB8WithHooks(&input.def, &out.def, values, ds, hooks);
      case 1:
        return renderARGB16WithHooks(&input.def, &out.def, values, ds, hooks);
      default:
        return renderARGB32WithHooks(&input.def, &out.def, values, ds, hooks);
    }
  };
  const PF_Err first = render(output, ForcedPass::chosen);
  if (first != PF_Err_NONE) fail("the renderer refused worlds that have pixels");
  if (input.bytes != inputBefore) fail("the renderer wrote into its input");
  const size_t rowPixelBytes = static_cast<size_t>(w) * bpp;
  for (int y = 0; y < h; ++y) {
    const size_t start = static_cast<size_t>(y) * output.def.rowbytes;
    for (size_t i = start + rowPixelBytes; i < start + output.def.rowbytes; ++i)
      if (output.bytes[i] != outputBefore[i]) fail("the renderer wrote into the row padding");
  }

  // The same frame again, into the same starting bytes: the same result,
  // also by the passes of large frames.
  auto renderAgain = [&](ForcedPass pass, const tesselux_kernel::KernelDsp* dsp = nullptr) {
    Buffer again;
    again.bytes = outputBefore;
    again.def = output.def;
    again.def.data = reinterpret_cast<PF_PixelPtr>(again.bytes.data());
    render(again, pass, dsp);
    return again.bytes;
  };
  if (renderAgain(ForcedPass::chosen) != output.bytes) fail("two renders of the same frame differ");
  if (renderAgain(ForcedPass::bandCopy) != output.bytes) fail("a render by bands differs from the same render by rows");
  if (renderAgain(ForcedPass::streamed) != output.bytes) fail("a streamed render differs from the same render by rows");
  static const tesselux_kernel::KernelDsp portable = tesselux_kernel::makeKernelDsp(0);
  static const tesselux_kernel::KernelDsp sse2 =
      tesselux_kernel::makeKernelDsp(tesselux_kernel::cpuFlags() & tesselux_kernel::kCpuSse2);
  if (renderAgain(ForcedPass::chosen, &portable) != output.bytes) fail("the portable versions render other bytes");
  if (renderAgain(ForcedPass::streamed, &portable) != output.bytes)
    fail("the portable streamed pass renders other bytes");
  // Inputs of odd length also try the SSE2 versions (picked by length, so
  // that no input byte changes meaning): a render each is the fuzzer's
  // throughput, and the render tests check those versions on every run.
  if (size_ % 2 && renderAgain(ForcedPass::chosen, &sse2) != output.bytes) fail("the SSE2 versions render other bytes");
  return 0;
}

}  // namespace fuzz
