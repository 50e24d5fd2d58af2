// Greying out of controls that have no effect, and the "Align" button.
#include "params/control_behaviour.h"

#include "host/suites.h"
#include "params/param_table.h"

namespace {

// The largest block size the sliders allow; the upward scan stops there.
constexpr int kMaxBlockSize = 4096;

// T < 4, or no number from 2 to T - 2 divides T. For T >= 4 any divisor in
// that range has a partner at most sqrt(T), so trial division up to the root
// gives the same answer without walking thousands of candidates.
bool isPrimeLike(int total) {
  if (total < 4) return true;
  for (int d = 2; d <= total / d; ++d) {
    if (total % d == 0) return false;
  }
  return true;
}

bool isDisabled(const PF_ParamDef* def) { return (def->ui_flags & PF_PUI_DISABLED) != 0; }

PF_Err updateParamUI(const AEGP_SuiteHandler& suites, PF_InData* in_data, int id,
                     const PF_ParamDef* def) {
  return suites.ParamUtilsSuite3()->PF_UpdateParamUI(in_data->effect_ref,
                                                     getParamIndexFromId(id), def);
}

}  // namespace

int findAlignedValueStep(int total, int size) {
  // Outside the alignment's domain (no layer, or a size below the sliders'
  // minimum) there is nothing to tile; the size stays as it is.
  if (total < 1 || size < 1) return size;

  if (size > total) return total;
  const int rest = total % size;
  if (rest == 0) return size;

  const bool primeLike = isPrimeLike(total);

  int up = size;
  if (size < kMaxBlockSize) {
    up = kMaxBlockSize;
    for (int c = size + 1; c <= kMaxBlockSize; ++c) {
      const int m = total % c;
      if (primeLike ? (m == 0 || m > rest) : (m == 0)) {
        up = c;
        break;
      }
    }
  }

  // A prime-like dimension has no divisor to find: look for a smaller leftover
  // strip going down, a larger one going up.
  int down = 1;
  for (int d = size - 1; d >= 1; --d) {
    const int m = total % d;
    if (primeLike ? (m < rest) : (m == 0)) {
      down = d;
      break;
    }
  }

  // Ties go downwards.
  return (up - size < size - down) ? up : down;
}

int findAlignedValue(int total, int size) {
  if (total < 1 || size < 1) return size;

  const int a = findAlignedValueStep(total, size);
  if (total % a == 0) return a;
  const int b = findAlignedValueStep(total, a);
  if (b == a) return a;
  return (total % a > total % b) ? a : b;
}

PF_Err UIOnParamsUpdated(PF_InData* in_data, PF_OutData* /*out_data*/, PF_ParamDef* params[]) {
  AEGP_SuiteHandler suites(in_data->pica_basicP);
  PF_ParamDef scratch{};
  // Flag writes always happen; host updates stop at the first failure.
  PF_Err err = PF_Err_NONE;

  {
    const PF_ParamDef* type = getParam(in_data, params, ID_MASK_TYPE, &scratch);
    const PF_ParamUIFlags wanted = (type->u.pd.value == 1) ? PF_PUI_DISABLED : 0;
    PF_ParamDef* seed = getParam(in_data, params, ID_MASK_SEED, &scratch);
    if (seed->ui_flags != wanted) {
      seed->ui_flags = wanted;
      if (!err) err = updateParamUI(suites, in_data, ID_MASK_SEED, seed);
    }
  }

  // "Frames" below 0.5 rounds to no frames at all; in 16.16 that is exactly
  // a raw value that still fits a signed 16-bit integer.
  const PF_Fixed framesRaw = getParam(in_data, params, ID_TIME_FRAMES, &scratch)->u.fd.value;
  const bool timeShiftOff = framesRaw >= -32768 && framesRaw <= 32767;

  static const int kTimeShiftControls[] = {ID_TIME_PROBABILITY, ID_STEPPING_UNIT,
                                           ID_TIME_STEP_SECONDS, ID_TIME_STEP_FRAMES,
                                           ID_EDGE_TIME_MODE,   ID_TIME_SEED,
                                           ID_EXCLUSIVE_MODE};
  for (const int id : kTimeShiftControls) {
    PF_ParamDef* def = getParam(in_data, params, id, &scratch);
    def->ui_flags = timeShiftOff ? PF_PUI_DISABLED : 0;
    if (!err) err = updateParamUI(suites, in_data, id, def);
  }

  if (timeShiftOff) return err;

  const bool unitIsSecond = getParam(in_data, params, ID_STEPPING_UNIT, &scratch)->u.pd.value == 1;
  // Both definitions are held at once, so each gets its own scratch.
  PF_ParamDef secondsScratch{}, framesScratch{};
  PF_ParamDef* seconds = getParam(in_data, params, ID_TIME_STEP_SECONDS, &secondsScratch);
  PF_ParamDef* frames = getParam(in_data, params, ID_TIME_STEP_FRAMES, &framesScratch);

  // The pair is left alone when it already matches the unit. The loop above
  // has just enabled both, so this never returns early; it stays as it is.
  if ((isDisabled(frames) && unitIsSecond && !isDisabled(seconds)) ||
      (!isDisabled(frames) && !unitIsSecond && isDisabled(seconds))) {
    return err;
  }

  seconds->ui_flags = unitIsSecond ? 0 : PF_PUI_DISABLED;
  seconds->flags = PF_ParamFlag_COLLAPSE_TWIRLY;
  if (!err) err = updateParamUI(suites, in_data, ID_TIME_STEP_SECONDS, seconds);

  frames->ui_flags = unitIsSecond ? PF_PUI_DISABLED : 0;
  frames->flags = PF_ParamFlag_COLLAPSE_TWIRLY;
  if (err) return err;
  return updateParamUI(suites, in_data, ID_TIME_STEP_FRAMES, frames);
}

PF_Err UIOnUserChangedParam(PF_InData* in_data, PF_OutData* /*out_data*/, PF_ParamDef* params[],
                            const PF_UserChangedParamExtra* extra) {
  PF_Err err = UIOnParamsUpdated(in_data, nullptr, params);
  if (err) return err;

  if (extra->param_index != getParamIndexFromId(ID_ALIGN_BUTTON)) return PF_Err_NONE;

  AEGP_SuiteHandler suites(in_data->pica_basicP);
  PF_ParamDef widthScratch{}, heightScratch{};
  PF_ParamDef* width = getParam(in_data, params, ID_BLOCK_WIDTH, &widthScratch);
  PF_ParamDef* height = getParam(in_data, params, ID_BLOCK_HEIGHT, &heightScratch);
  const int w = width->u.fd.value >> 16;
  const int h = height->u.fd.value >> 16;
  const int alignedW = findAlignedValue(in_data->width, w);
  const int alignedH = findAlignedValue(in_data->height, h);

  if (alignedW != w) {
    width->u.fd.value = static_cast<PF_Fixed>(static_cast<unsigned>(alignedW) << 16);
    width->uu.change_flags = PF_ChangeFlag_CHANGED_VALUE;
    width->flags |= PF_ParamFlag_COLLAPSE_TWIRLY;
    err = updateParamUI(suites, in_data, ID_BLOCK_WIDTH, width);
  }

  if (alignedH == h) return err;
  height->u.fd.value = static_cast<PF_Fixed>(static_cast<unsigned>(alignedH) << 16);
  height->uu.change_flags = PF_ChangeFlag_CHANGED_VALUE;
  height->flags |= PF_ParamFlag_COLLAPSE_TWIRLY;
  if (err) return err;
  return updateParamUI(suites, in_data, ID_BLOCK_HEIGHT, height);
}
