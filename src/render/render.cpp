#include "render/render.h"

#include <limits.h>

#include "render/block_kernel.h"
#include "render/render_internal.h"
#include "time/time_frames.h"

using namespace tesselux_kernel;

namespace {

// Truncates toward zero like a C cast, but maps NaN to 0 and clamps values
// outside the 32-bit range instead of invoking undefined behaviour.
A_long truncToLong(double v) {
  if (v != v) return 0;
  if (v >= 2147483647.0) return INT_MAX;
  if (v <= -2147483648.0) return INT_MIN;
  return static_cast<A_long>(v);
}

A_long clampLong(A_long v, A_long lo, A_long hi) { return v < lo ? lo : v > hi ? hi : v; }

template <class Tr>
PF_Err renderDepth(PF_LayerDef* input, PF_LayerDef* output, const ParamValues& v, float downsample,
                   const RenderHooks* hooks) {
  typedef typename Tr::Channel T;
  if (!input || !output || !input->data || !output->data) return PF_Err_BAD_CALLBACK_PARAM;

  KernelInput k;
  k.outData = static_cast<unsigned char*>(static_cast<void*>(output->data));
  k.outRowbytes = output->rowbytes;
  k.width = output->width;
  k.height = output->height;
  k.inData = static_cast<const unsigned char*>(static_cast<const void*>(input->data));
  k.inRowbytes = input->rowbytes;
  // Block sizes follow the resolution: the product is taken in float and
  // truncated; the kernel turns a 0 into 1.
  k.blockWidth = truncToLong(static_cast<float>(v.blockWidth) * downsample);
  k.blockHeight = truncToLong(static_cast<float>(v.blockHeight) * downsample);
  // Fractions become 0..1024. Values outside the controls' ranges are clamped
  // so that a damaged record can neither divide by zero nor loop for ages.
  k.strength = clampLong(truncToLong(v.shuffleStrength * 1024.0), 0, 1024);
  k.spread = clampLong(truncToLong(v.shuffleSpread * 1024.0), 0, 1024);
  k.direction = v.shuffleDirection;
  k.shuffleSeed = v.shuffleSeed;
  k.channel = v.channels;
  k.probability = truncToLong(v.timeProbability * 10.0);
  k.timeSeed = v.timeSeed;
  k.exclusive = v.exclusiveMode;
  k.composite = v.compositeOnOriginal;
  k.intensity = static_cast<A_u_short>(truncToLong(v.maskIntensity * 327.68));
  k.maskType = v.maskType;
  k.maskSeed = v.maskSeed;
  // A mask layer without pixels, or with no area to sample, counts as none:
  // the input then serves as its own mask.
  const PF_LayerDef* mask = v.maskLayer;
  if (mask && mask->data && mask->width > 0 && mask->height > 0) {
    k.maskData = static_cast<const unsigned char*>(static_cast<const void*>(mask->data));
    k.maskWidth = mask->width;
    k.maskHeight = mask->height;
    k.maskRowbytes = mask->rowbytes;
  } else {
    k.maskData = nullptr;
    k.maskWidth = 0;
    k.maskHeight = 0;
    k.maskRowbytes = 0;
  }
  k.originX = output->origin_x;
  k.originY = output->origin_y;

  // A zero step samples the current frame for every slot: the set then
  // shares the input instead of looking at the time layers.
  const double step = v.steppingUnit == 1 ? v.timeStepFrames : v.timeStepSeconds;
  const int slots = clampLong(v.timeFrames, 0, MAX_TIME_FRAMES);
  TimeFrames frames;
  const int usable = PrepareTimeFrames<T>(&frames, slots, input, v.timeLayers, step == 0.0 ? 1 : 0,
                                          Tr::depthValue(), hooks ? &hooks->allocator : nullptr);
  k.frames = frames.frames;
  k.strides = frames.strides;
  k.nframes = usable;

  runBlockKernel<Tr>(k, hooks);

  CleanUpTimeFrames(&frames);
  return PF_Err_NONE;
}

}  // namespace

PF_Err renderARGB8(PF_LayerDef* input, PF_LayerDef* output, ParamValues values, float downsample) {
  return renderDepth<Argb8Traits>(input, output, values, downsample, nullptr);
}

PF_Err renderARGB16(PF_LayerDef* input, PF_LayerDef* output, ParamValues values, float downsample) {
  return renderDepth<Argb16Traits>(input, output, values, downsample, nullptr);
}

PF_Err renderARGB32(PF_LayerDef* input, PF_LayerDef* output, ParamValues values, float downsample) {
  return renderDepth<Argb32Traits>(input, output, values, downsample, nullptr);
}

PF_Err renderARGB8WithHooks(PF_LayerDef* input, PF_LayerDef* output, ParamValues values, float downsample,
                            const RenderHooks& hooks) {
  return renderDepth<Argb8Traits>(input, output, values, downsample, &hooks);
}

PF_Err renderARGB16WithHooks(PF_LayerDef* input, PF_LayerDef* output, ParamValues values, float downsample,
                             const RenderHooks& hooks) {
  return renderDepth<Argb16Traits>(input, output, values, downsample, &hooks);
}

PF_Err renderARGB32WithHooks(PF_LayerDef* input, PF_LayerDef* output, ParamValues values, float downsample,
                             const RenderHooks& hooks) {
  return renderDepth<Argb32Traits>(input, output, values, downsample, &hooks);
}
