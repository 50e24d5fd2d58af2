// One effect instance's whole life in a host, command by command, as the
// failure sweep replays it: After Effects (setup, three SmartFX frames with
// time shift and mask, UI updates, "Align", the header, flatten, setdown) and
// Premiere Pro (setup, a legacy render, setdown).
#pragma once

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "host_render_support.h"
#include "params/param_table.h"
#include "thost/host.h"
#include "thost/render.h"

namespace lifecycle {

struct Step {
  std::string name;
  std::function<PF_Err(thost::Host&)> run;
};

inline PF_ParamIndex indexOf(const thost::Host& h, int id) {
  const auto& added = h.addedParams();
  for (size_t i = 0; i < added.size(); ++i)
    if (added[i].def.uu.id == id) return static_cast<PF_ParamIndex>(i + 1);
  return -1;
}

inline void set(thost::Host& h, int id, double value) {
  const PF_ParamIndex i = indexOf(h, id);
  if (i < 0) return;  // a control the host never got (its add_param failed)
  PF_ParamDef& def = h.param(i);
  if (def.param_type == PF_Param_FIX_SLIDER) def.u.fd.value = static_cast<PF_Fixed>(value * 65536);
  if (def.param_type == PF_Param_FLOAT_SLIDER) def.u.fs_d.value = value;
  if (def.param_type == PF_Param_POPUP) def.u.pd.value = static_cast<A_long>(value);
}

// Layers and controls for the renders: three time frames two frames apart
// and a mask that vetoes some pairs.
inline void prepareRenders(thost::Host& h) {
  static const auto layer = thost_test::patternClip(12, 32, 20);
  static const auto mask = thost_test::patternClip(12, 32, 20, 40);
  h.setTime(300, 100, 1200, 3000);
  h.setLayerClip(0, layer);
  if (h.maskParamIndex() >= 0) h.setMaskClip(mask);
  set(h, ID_BLOCK_WIDTH, 4);
  set(h, ID_BLOCK_HEIGHT, 4);
  set(h, ID_SHUFFLE_STRENGTH, 0.7);
  set(h, ID_TIME_FRAMES, 3);
  set(h, ID_TIME_PROBABILITY, 100);
  set(h, ID_STEPPING_UNIT, 2);
  set(h, ID_TIME_STEP_FRAMES, 2);
  set(h, ID_MASK_INTENSITY, 40);
  set(h, ID_MASK_TYPE, 2);
}

inline PF_Err smartFrame(thost::Host& h, A_long time, thost::Depth depth) {
  h.inData().current_time = time;
  h.setRenderDepth(depth);
  const PF_Err err = h.preRender();
  return err ? err : h.smartRender();
}

inline std::vector<Step> afterEffects() {
  using thost::Depth;
  using thost::Host;
  return {
      {"registration", [](Host& h) { return static_cast<PF_Err>(h.registerPlugin()); }},
      {"global setup", [](Host& h) { return h.globalSetup(); }},
      {"parameter setup", [](Host& h) { return h.paramsSetup(); }},
      {"sequence setup", [](Host& h) { return h.sequenceSetup(); }},
      {"frame 1 (8-bit)",
       [](Host& h) {
         prepareRenders(h);
         return smartFrame(h, 300, Depth::Bits8);
       }},
      {"frame 2 (16-bit)", [](Host& h) { return smartFrame(h, 400, Depth::Bits16); }},
      {"frame 3 (float)", [](Host& h) { return smartFrame(h, 500, Depth::Float32); }},
      {"UI update", [](Host& h) { return h.updateParamsUI(); }},
      {"Frames changed", [](Host& h) { return h.userChangedParam(indexOf(h, ID_TIME_FRAMES)); }},
      {"Align",
       [](Host& h) {
         h.setLayerSize(1920, 1080);
         return h.userChangedParam(indexOf(h, ID_ALIGN_BUTTON));
       }},
      {"header drawing",
       [](Host& h) { return h.draw(indexOf(h, ID_HEADER_IMAGE), PF_EA_PARAM_TITLE); }},
      {"flattened copy", [](Host& h) { return h.getFlattenedSequenceData(); }},
      {"flatten", [](Host& h) { return h.sequenceFlatten(); }},
      {"sequence setdown", [](Host& h) { return h.sequenceSetdown(); }},
      {"global setdown", [](Host& h) { return h.globalSetdown(); }},
  };
}

inline std::vector<Step> premiere() {
  using thost::Host;
  return {
      {"registration", [](Host& h) { return static_cast<PF_Err>(h.registerPlugin()); }},
      {"global setup", [](Host& h) { return h.globalSetup(); }},
      {"parameter setup", [](Host& h) { return h.paramsSetup(); }},
      {"sequence setup", [](Host& h) { return h.sequenceSetup(); }},
      {"legacy render",
       [](Host& h) {
         prepareRenders(h);
         h.setRenderDepth(thost::Depth::Bits16);
         return h.legacyRender();
       }},
      {"UI update", [](Host& h) { return h.updateParamsUI(); }},
      {"sequence setdown", [](Host& h) { return h.sequenceSetdown(); }},
      {"global setdown", [](Host& h) { return h.globalSetdown(); }},
  };
}

}  // namespace lifecycle
