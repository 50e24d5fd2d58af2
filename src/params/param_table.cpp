#include "params/param_table.h"

#include <cstring>
#include <map>
#include <stdexcept>

namespace {

// Filled once by UIInitParams and only read afterwards. A lookup of an unknown
// id inserts it, so setup ends by adding every id the render and event paths
// look up: concurrent renders then never write to the map.
std::map<int, int> paramIdToIndex;

enum class Kind { Popup, Fixed, Float, Checkbox, Button, Layer, GroupStart, GroupEnd };

// One row of the control table, in the units the host shows.
struct ParamRow {
  int id;
  Kind kind;
  const char* name;
  double validMin, validMax, sliderMin, sliderMax, dflt;
  short precision;
  short displayFlags;
  PF_ParamFlags flags;
  const char* choices;  // popup choices or button caption
  short numChoices;
};

constexpr short kPercent = PF_ValueDisplayFlag_PERCENT;
constexpr PF_ParamFlags kTwirly = PF_ParamFlag_COLLAPSE_TWIRLY;

// The controls in index order (the header image, when present, comes first).
const ParamRow kRows[] = {
    {ID_CHANNELS, Kind::Popup, "Channels", 0, 0, 0, 0, 1, 0, 0, 0, "RGBA|Red|Green|Blue|Alpha", 5},
    {ID_BLOCK_WIDTH, Kind::Fixed, "Block Width", 1, 4096, 1, 4096, 32, 0, 0, 0, nullptr, 0},
    {ID_BLOCK_HEIGHT, Kind::Fixed, "Block Height", 1, 4096, 1, 4096, 32, 0, 0, 0, nullptr, 0},
    {ID_ALIGN_BUTTON, Kind::Button, "", 0, 0, 0, 0, 0, 0, 0, PF_ParamFlag_SUPERVISE, "Align", 0},
    {ID_SHUFFLE_STRENGTH, Kind::Float, "Shuffle Strength", 0, 1, 0, 1, 0.1, 3, 0, 0, nullptr, 0},
    {ID_SHUFFLE_SPREAD, Kind::Float, "Shuffle Spread", 0, 1, 0, 1, 0.1, 3, 0, 0, nullptr, 0},
    {ID_SHUFFLE_DIRECTION, Kind::Popup, "Shuffle Spread Direction", 0, 0, 0, 0, 1, 0, 0, 0,
     "All|Horizontal|Vertical", 3},
    {ID_SHUFFLE_SEED, Kind::Fixed, "Random Seed", 0, 32767, 0, 32767, 777, 0, 0, 0, nullptr, 0},
    {ID_COMPOSITE_ON_ORIGINAL, Kind::Checkbox, "Composite On Original", 0, 0, 0, 0, 1, 0, 0,
     PF_ParamFlag_CANNOT_INTERP, nullptr, 0},
    {ID_TIME_GROUP_START, Kind::GroupStart, "Time Shift", 0, 0, 0, 0, 0, 0, 0, 0, nullptr, 0},
    {ID_TIME_FRAMES, Kind::Fixed, "Frames", 0, 16, 0, 16, 0, 0, 0, 0, nullptr, 0},
    {ID_TIME_PROBABILITY, Kind::Float, "Probability", 0, 100, 0, 100, 25, 2, kPercent, kTwirly,
     nullptr, 0},
    {ID_STEPPING_UNIT, Kind::Popup, "Stepping Unit", 0, 0, 0, 0, 1, 0, 0, 0, "Second|Frame", 2},
    {ID_TIME_STEP_SECONDS, Kind::Float, "Time Step [seconds]", -5, 5, -5, 5, 0.05, 3, 0, 0,
     nullptr, 0},
    {ID_TIME_STEP_FRAMES, Kind::Float, "Time Step [frames]", -256, 256, -256, 256, 2, 1, 0, 0,
     nullptr, 0},
    {ID_EDGE_TIME_MODE, Kind::Popup, "Edge Time Mode", 0, 0, 0, 0, 3, 0, 0, 0,
     "Repeat Last|Wrap|Mirror", 3},
    {ID_TIME_SEED, Kind::Fixed, "Random Seed", 1, 32767, 0, 32767, 337, 0, 0, kTwirly, nullptr, 0},
    {ID_EXCLUSIVE_MODE, Kind::Checkbox, "Exclusive Mode", 0, 0, 0, 0, 0, 0, 0,
     PF_ParamFlag_CANNOT_INTERP, nullptr, 0},
    {ID_TIME_GROUP_END, Kind::GroupEnd, "", 0, 0, 0, 0, 0, 0, 0, 0, nullptr, 0},
    {ID_MASK_GROUP_START, Kind::GroupStart, "Mask Filter", 0, 0, 0, 0, 0, 0, 0, 0, nullptr, 0},
    {ID_MASK_INTENSITY, Kind::Float, "Intensity", 0, 100, 0, 100, 0, 2, kPercent, 0, nullptr, 0},
    {ID_MASK_TYPE, Kind::Popup, "Type", 0, 0, 0, 0, 1, 0, 0, 0,
     "Threshold|Randomized Threshold|Randomized Mask", 3},
    {ID_MASK_SOURCE, Kind::Layer, "Mask Source", 0, 0, 0, 0, PF_LayerDefault_NONE, 0, 0, 0,
     nullptr, 0},
    {ID_MASK_SEED, Kind::Fixed, "Probability Seed", 1, 32767, 0, 32767, 133, 0, 0, kTwirly,
     nullptr, 0},
    {ID_MASK_GROUP_END, Kind::GroupEnd, "", 0, 0, 0, 0, 0, 0, 0, 0, nullptr, 0},
};

// The float-slider default curve tolerance every host expects.
constexpr PF_FpShort kCurveTolerance = 0.05f;

PF_Fixed toFixed(double v) { return static_cast<PF_Fixed>(v * 65536.0); }

void fillRow(const ParamRow& row, PF_ParamDef* def) {
  std::memset(def, 0, sizeof(*def));
  def->uu.id = row.id;
  def->flags = row.flags;
  std::strncpy(def->name, row.name, sizeof(def->name) - 1);
  switch (row.kind) {
    case Kind::Popup:
      def->param_type = PF_Param_POPUP;
      def->u.pd.num_choices = row.numChoices;
      def->u.pd.dephault = static_cast<A_short>(row.dflt);
      def->u.pd.value = def->u.pd.dephault;
      def->u.pd.u.namesptr = row.choices;
      break;
    case Kind::Fixed:
      def->param_type = PF_Param_FIX_SLIDER;
      def->u.fd.valid_min = toFixed(row.validMin);
      def->u.fd.valid_max = toFixed(row.validMax);
      def->u.fd.slider_min = toFixed(row.sliderMin);
      def->u.fd.slider_max = toFixed(row.sliderMax);
      def->u.fd.dephault = toFixed(row.dflt);
      def->u.fd.value = def->u.fd.dephault;
      def->u.fd.precision = row.precision;
      def->u.fd.display_flags = row.displayFlags;
      break;
    case Kind::Float:
      def->param_type = PF_Param_FLOAT_SLIDER;
      def->u.fs_d.valid_min = static_cast<PF_FpShort>(row.validMin);
      def->u.fs_d.valid_max = static_cast<PF_FpShort>(row.validMax);
      def->u.fs_d.slider_min = static_cast<PF_FpShort>(row.sliderMin);
      def->u.fs_d.slider_max = static_cast<PF_FpShort>(row.sliderMax);
      def->u.fs_d.value = row.dflt;
      def->u.fs_d.dephault = static_cast<PF_FpShort>(row.dflt);
      def->u.fs_d.precision = row.precision;
      def->u.fs_d.display_flags = row.displayFlags;
      def->u.fs_d.curve_tolerance = kCurveTolerance;
      break;
    case Kind::Checkbox:
      def->param_type = PF_Param_CHECKBOX;
      def->u.bd.value = static_cast<PF_ParamValue>(row.dflt);
      def->u.bd.dephault = static_cast<PF_Boolean>(row.dflt);
      def->u.bd.u.nameptr = "";
      break;
    case Kind::Button:
      def->param_type = PF_Param_BUTTON;
      def->u.button_d.u.namesptr = row.choices;
      break;
    case Kind::Layer:
      def->param_type = PF_Param_LAYER;
      def->u.ld.dephault = static_cast<A_long>(row.dflt);
      break;
    case Kind::GroupStart:
      def->param_type = PF_Param_GROUP_START;
      break;
    case Kind::GroupEnd:
      def->param_type = PF_Param_GROUP_END;
      break;
  }
}

}  // namespace

bool hostApiAtLeast13_9(const PF_InData* in_data) {
  return in_data->version.major > 13 || (in_data->version.major == 13 && in_data->version.minor >= 9);
}

bool hostIsApi13_23(const PF_InData* in_data) {
  return in_data->version.major == 13 && in_data->version.minor == 23;
}

bool hostShowsHeaderImage(const PF_InData* in_data) {
  return in_data->appl_id != PF_APPL_ID_PREMIERE && hostApiAtLeast13_9(in_data);
}

PF_Err AddUIHeaderImage(PF_InData* in_data, PF_OutData*, int id) {
  PF_ParamDef def;
  std::memset(&def, 0, sizeof(def));
  def.uu.id = id;
  def.ui_width = HEADER_IMAGE_WIDTH;
  def.ui_height = HEADER_IMAGE_HEIGHT;
  if (in_data->appl_id == PF_APPL_ID_PREMIERE) {
    // Premiere Pro draws custom UI only for arbitrary-data controls.
    def.param_type = PF_Param_ARBITRARY_DATA;
    def.ui_flags = PF_PUI_TOPIC | PF_PUI_CONTROL | PF_PUI_DONT_ERASE_TOPIC;
    def.flags = PF_ParamFlag_CANNOT_TIME_VARY | PF_ParamFlag_SUPERVISE |
                PF_ParamFlag_SKIP_REVEAL_WHEN_UNHIDDEN;
    def.u.arb_d.id = static_cast<A_short>(id);
  } else {
    def.param_type = PF_Param_NO_DATA;
    // API 13.23 shows the topic row of a custom control badly, so there the
    // picture lives in the control area under a visible name.
    if (hostIsApi13_23(in_data)) {
      std::strcpy(def.name, "About");
      def.ui_flags = PF_PUI_CONTROL;
    } else {
      def.ui_flags = PF_PUI_TOPIC;
    }
    def.flags = PF_ParamFlag_SUPERVISE | PF_ParamFlag_CANNOT_TIME_VARY;
  }
  PF_Err err = in_data->inter.add_param(in_data->effect_ref, -1, &def);
  if (!err) {
    PF_CustomUIInfo ui;
    std::memset(&ui, 0, sizeof(ui));
    ui.events = 255;
    err = in_data->inter.register_ui(in_data->effect_ref, &ui);
  }
  return err;
}

PF_Err UIInitParams(PF_InData* in_data, PF_OutData* out_data, PF_ParamDef*[]) {
  int count = 26;
  const bool header = hostShowsHeaderImage(in_data);
  if (header) {
    AddUIHeaderImage(in_data, out_data, ID_HEADER_IMAGE);  // a header the host refused is cosmetic
    addParam(ID_HEADER_IMAGE);
    count = 27;
  }
  PF_ParamDef def;
  for (const ParamRow& row : kRows) {
    fillRow(row, &def);
    const PF_Err err = in_data->inter.add_param(in_data->effect_ref, -1, &def);
    if (err) return err;
    addParam(row.id);
  }
  out_data->num_params = count;
  verifyNumParams(count);
  completeParamMap(header);
  return PF_Err_NONE;
}

void completeParamMap(bool headerAdded) {
  // Id 0 is the effect's own layer (every render looks it up); the header id
  // is looked up by events in hosts that never add the header.
  paramIdToIndex.emplace(0, 0);
  if (!headerAdded) paramIdToIndex.emplace(ID_HEADER_IMAGE, 0);
}

void addParam(int id) {
  const int size = static_cast<int>(paramIdToIndex.size());
  paramIdToIndex[id] = size + 1;
}

int getParamIndexFromId(int id) { return paramIdToIndex[id]; }

void verifyNumParams(int count) {
  if (static_cast<int>(paramIdToIndex.size()) != count - 1) {
    throw std::logic_error(
        "Reported parameter count does not match actual parameter count. This would lead to "
        "incorrect values.");
  }
}

PF_ParamDef* getParam(PF_InData* in_data, PF_ParamDef* params[], int id, PF_ParamDef* scratch) {
  const int index = getParamIndexFromId(id);
  if (params) return params[index];
  const PF_Err err = in_data->inter.checkout_param(in_data->effect_ref, index, in_data->current_time,
                                                   in_data->time_step, in_data->time_scale, scratch);
  if (err) throw static_cast<A_long>(err);
  return scratch;
}
