#include "time/layer_checkout.h"

#include <cmath>
#include <cstdint>
#include <cstring>

#include "params/param_table.h"

namespace {

// A double truncated toward zero into a signed 32-bit value as x86's
// conversion does: NaN and out-of-range values give INT32_MIN, never UB.
int32_t truncToInt32(double v) {
  if (!(v > -2147483649.0 && v < 2147483648.0)) return INT32_MIN;
  return static_cast<int32_t>(v);
}

// Two's-complement wrapping arithmetic, as the host's 32-bit integers behave.
int32_t wrapAdd(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}
int32_t wrapMul(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}

// Snaps t toward zero to a multiple of (frameSkip + 1) frames, in tenths.
int32_t snapToFrameSkip(int32_t t, double frameSkip, int32_t timeStep) {
  const float q = (static_cast<float>(frameSkip) * 10.0f + 10.0f) * static_cast<float>(timeStep);
  const int32_t qi = truncToInt32(q);
  if (qi == 0 || qi == INT32_MIN) return t;  // nothing to snap to
  const int64_t t10 = wrapMul(10, t);
  return static_cast<int32_t>((t10 - t10 % qi) / 10);
}

// Reflects t around 0 and around the last frame (d - s) until it lies in
// [0, d). Runs of whole periods are skipped at once, so the result is that of
// the plain reflection loop without its up to 2^30 rounds.
int64_t mirror(int64_t t, int64_t d, int64_t s) {
  const int64_t p = d - s;
  if (p <= 0) return 0;  // one frame or shorter: the reflections never reach the layer
  const int64_t period = 2 * p;
  const int64_t skipFrom = d > period + 1 ? d : period + 1;
  int64_t r = t;
  while (!(r >= 0 && r < d)) {
    if (r < 0) r = -r;
    if (r >= d) {
      // Reflecting r > 2p gives a negative time whose reflection is r - 2p.
      if (r >= skipFrom) r -= ((r - skipFrom) / period + 1) * period;
      if (r >= d) r = period - r;
    }
  }
  return r;
}

}  // namespace

A_long sampleTime(const PF_InData* in_data, double time, int unitIsFrames, int edgeMode,
                  double frameSkip) {
  double offset = time;
  if (!unitIsFrames) offset *= static_cast<double>(static_cast<A_u_long>(in_data->time_scale));
  int32_t t = wrapAdd(in_data->current_time, truncToInt32(offset));
  if (frameSkip > 0.0) t = snapToFrameSkip(t, frameSkip, in_data->time_step);

  if (edgeMode != EDGE_REPEAT_LAST && edgeMode != EDGE_WRAP && edgeMode != EDGE_MIRROR) return t;
  const int64_t d = in_data->total_time;
  const int64_t s = in_data->time_step;
  if (d <= 0) return in_data->current_time;  // no duration to map into
  if (s <= 0) {
    // No frame length to step by: stay at the current time, inside the layer.
    const int64_t c = in_data->current_time;
    return static_cast<A_long>(c < 0 ? 0 : c >= d ? d - 1 : c);
  }
  int64_t r;
  switch (edgeMode) {
    case EDGE_REPEAT_LAST:
      r = t > 0 ? t : 0;
      if (r >= d) r = d - s;
      break;
    case EDGE_WRAP:
      // Before the start this lands one frame earlier than a plain modulo;
      // saved projects render that way, so it stays.
      r = t > 0 ? t % d : t == 0 ? 0 : t % d + d - s;
      break;
    default:
      r = mirror(t, d, s);
      break;
  }
  // Wrap and Repeat Last can land outside the layer (a time just before the
  // start, a frame longer than the layer); the host is asked for that time as
  // computed and serves whatever frame it holds there.
  return static_cast<A_long>(r);
}

int checkoutLayer(int paramId, int checkoutId, double time, int unitIsFrames, int edgeMode,
                  double frameSkip, PF_InData* in_data, PF_LayerDef** out, PF_ParamDef* param,
                  PF_PreRenderExtra* extra) {
  const A_long when = sampleTime(in_data, time, unitIsFrames, edgeMode, frameSkip);
  const int index = getParamIndexFromId(paramId);
  if (extra) {
    PF_CheckoutResult result;
    std::memset(&result, 0, sizeof result);
    const PF_Err err =
        extra->cb->checkout_layer(in_data->effect_ref, index, checkoutId, &extra->input->output_request,
                                  when, in_data->time_step, in_data->time_scale, &result);
    if (err) throw static_cast<A_long>(err);
    return 0;
  }
  const PF_Err err = in_data->inter.checkout_param(in_data->effect_ref, index, when,
                                                   in_data->time_step, in_data->time_scale, param);
  if (err) throw static_cast<A_long>(err);
  *out = &param->u.ld;
  return 0;
}

PF_ParamDef* getLayerParam(PF_InData* in_data, int paramId, PF_ParamDef* param) {
  const int index = getParamIndexFromId(paramId);
  const PF_Err err = in_data->inter.checkout_param(in_data->effect_ref, index, in_data->current_time,
                                                   in_data->time_step, in_data->time_scale, param);
  if (err) throw static_cast<A_long>(err);
  return param;
}

PF_EffectWorld* checkoutLayerPixels(int checkoutId, PF_InData* in_data,
                                    PF_SmartRenderExtra* extra) {
  PF_EffectWorld* world = nullptr;
  const PF_Err err = extra->cb->checkout_layer_pixels(in_data->effect_ref, checkoutId, &world);
  if (err) throw static_cast<A_long>(err);
  return world;
}

PF_Err checkinLayer(int checkoutId, PF_ParamDef* param, PF_InData* in_data,
                    PF_SmartRenderExtra* extra) {
  if (extra) return extra->cb->checkin_layer_pixels(in_data->effect_ref, checkoutId);
  return in_data->inter.checkin_param(in_data->effect_ref, param);
}
