#include "params/param_loading.h"

#include <cstdint>
#include <cstring>
#include <limits>

#include "params/param_table.h"
#include "time/layer_checkout.h"

namespace {

const PF_ParamDef& read(PF_InData* in_data, PF_ParamDef** params, int id, PF_ParamDef* scratch) {
  return *getParam(in_data, params, id, scratch);
}

// A damaged value of the lowest int stays the lowest: out of range, not wrapped.
A_long popupIndex(const PF_ParamDef& def) {
  const A_long value = def.u.pd.value;
  return value == std::numeric_limits<A_long>::min() ? value : value - 1;
}

// The integer part of a 16.16 value, rounded toward minus infinity.
A_long fixedFloor(const PF_ParamDef& def) { return def.u.fd.value >> 16; }

// The time frames the record asks for; the slider stops at 16, and a damaged
// value never reaches past the arrays.
int timeFrameCount(const ParamValues* pv) {
  return pv->timeFrames < 0 ? 0 : pv->timeFrames > MAX_TIME_FRAMES ? MAX_TIME_FRAMES : pv->timeFrames;
}

}  // namespace

void LoadParamValues(PF_InData* in_data, PF_ParamDef** params, PF_PreRenderExtra* extra,
                     ParamValues* pv) {
  std::memset(pv, 0, sizeof *pv);
  PF_ParamDef scratch;
  std::memset(&scratch, 0, sizeof scratch);

  pv->channels = popupIndex(read(in_data, params, ID_CHANNELS, &scratch));
  pv->maskIntensity = read(in_data, params, ID_MASK_INTENSITY, &scratch).u.fs_d.value;
  pv->maskType = popupIndex(read(in_data, params, ID_MASK_TYPE, &scratch));
  pv->maskSeed = fixedFloor(read(in_data, params, ID_MASK_SEED, &scratch));
  pv->blockWidth = fixedFloor(read(in_data, params, ID_BLOCK_WIDTH, &scratch));
  pv->blockHeight = fixedFloor(read(in_data, params, ID_BLOCK_HEIGHT, &scratch));
  pv->shuffleStrength = read(in_data, params, ID_SHUFFLE_STRENGTH, &scratch).u.fs_d.value;
  pv->shuffleSpread = read(in_data, params, ID_SHUFFLE_SPREAD, &scratch).u.fs_d.value;
  pv->shuffleDirection = popupIndex(read(in_data, params, ID_SHUFFLE_DIRECTION, &scratch));
  pv->shuffleSeed = fixedFloor(read(in_data, params, ID_SHUFFLE_SEED, &scratch));
  pv->compositeOnOriginal = read(in_data, params, ID_COMPOSITE_ON_ORIGINAL, &scratch).u.bd.value;
  {
    // Rounded to the nearest frame count, halves upwards; 64-bit so a damaged
    // value near the top of the range cannot overflow.
    const int64_t raw = read(in_data, params, ID_TIME_FRAMES, &scratch).u.fd.value;
    pv->timeFrames = static_cast<A_long>((raw + 32768) >> 16);
  }
  pv->timeProbability = read(in_data, params, ID_TIME_PROBABILITY, &scratch).u.fs_d.value;
  pv->steppingUnit = popupIndex(read(in_data, params, ID_STEPPING_UNIT, &scratch));
  pv->timeStepSeconds = read(in_data, params, ID_TIME_STEP_SECONDS, &scratch).u.fs_d.value;
  pv->timeStepFrames = read(in_data, params, ID_TIME_STEP_FRAMES, &scratch).u.fs_d.value;
  pv->edgeTimeMode = popupIndex(read(in_data, params, ID_EDGE_TIME_MODE, &scratch));
  pv->timeSeed = fixedFloor(read(in_data, params, ID_TIME_SEED, &scratch));
  pv->exclusiveMode = read(in_data, params, ID_EXCLUSIVE_MODE, &scratch).u.bd.value;

  const int maskIndex = getParamIndexFromId(ID_MASK_SOURCE);
  if (extra) {
    PF_CheckoutResult result;
    std::memset(&result, 0, sizeof result);
    const PF_Err err = extra->cb->checkout_layer(
        in_data->effect_ref, maskIndex, maskIndex, &extra->input->output_request,
        in_data->current_time, in_data->time_step, in_data->time_scale, &result);
    if (err) throw static_cast<A_long>(err);
  } else {
    getLayerParam(in_data, ID_MASK_SOURCE, &pv->maskParam);
    pv->maskLayer = &pv->maskParam.u.ld;
  }

  const int frames = timeFrameCount(pv);
  if (frames == 0) return;
  const double step = pv->steppingUnit == 1
                          ? static_cast<double>(in_data->time_step) * pv->timeStepFrames
                          : pv->timeStepSeconds;
  for (int i = 1; i <= frames; ++i) {
    checkoutLayer(0, TIME_FRAME_CHECKOUT_BASE + i, i * step, pv->steppingUnit, pv->edgeTimeMode,
                  -1.0, in_data, &pv->timeLayers[i - 1], &pv->timeLayerParams[i - 1], extra);
  }
}

void LoadLayerParamsAE(PF_InData* in_data, PF_SmartRenderExtra* extra, ParamValues* pv) {
  const int maskIndex = getParamIndexFromId(ID_MASK_SOURCE);
  PF_EffectWorld* mask = nullptr;
  const PF_Err err = extra->cb->checkout_layer_pixels(in_data->effect_ref, maskIndex, &mask);
  pv->maskLayer = mask;
  if (err) throw static_cast<A_long>(err);
  const int frames = timeFrameCount(pv);
  int k = 0;
  try {
    for (; k < frames; ++k) {
      pv->timeLayers[k] = checkoutLayerPixels(TIME_FRAME_CHECKOUT_BASE + 1 + k, in_data, extra);
    }
  } catch (...) {
    // Give back what this render holds so far, so a failed fetch strands nothing.
    extra->cb->checkin_layer_pixels(in_data->effect_ref, maskIndex);
    for (int j = 0; j < k; ++j) {
      checkinLayer(TIME_FRAME_CHECKOUT_BASE + 1 + j, nullptr, in_data, extra);
    }
    throw;
  }
}

void CleanupLayerParams(PF_InData* in_data, PF_ParamDef** /*params*/, PF_SmartRenderExtra* extra,
                        ParamValues* pv) {
  if (extra) {
    extra->cb->checkin_layer_pixels(in_data->effect_ref, getParamIndexFromId(ID_MASK_SOURCE));
  } else {
    in_data->inter.checkin_param(in_data->effect_ref, &pv->maskParam);
  }
  const int frames = timeFrameCount(pv);
  for (int k = 0; k < frames; ++k) {
    checkinLayer(TIME_FRAME_CHECKOUT_BASE + 1 + k, &pv->timeLayerParams[k], in_data, extra);
  }
}
