#include "params/param_table.h"

#include <cstring>
#include <map>
#include <stdexcept>

namespace {

// Filled once by UIInitParams and only read afterwards. A lookup of an unknown
// id inserts it, so setup ends by adding every id the render and event paths
// look up: concurrent renders then never write to the map.
std::map<int, int> paramIdToIndex;

// The host's flag bits for a row's own.
PF_ParamFlags hostFlags(unsigned flags) {
  PF_ParamFlags out = 0;
  if (flags & CONTROL_SUPERVISE) out |= PF_ParamFlag_SUPERVISE;
  if (flags & CONTROL_CANNOT_INTERP) out |= PF_ParamFlag_CANNOT_INTERP;
  if (flags & CONTROL_COLLAPSE_TWIRLY) out |= PF_ParamFlag_COLLAPSE_TWIRLY;
  return out;
}

// The input layer and the header image are not rows; the map and the count
// the host is told include the first.
constexpr int kParamsWithoutHeader = kControlRowCount + 1;
static_assert(kParamsWithoutHeader == 26, "the host is told 26 controls, 27 with the header image");

// The float-slider default curve tolerance every host expects.
constexpr PF_FpShort kCurveTolerance = 0.05f;

PF_Fixed toFixed(double v) { return static_cast<PF_Fixed>(v * 65536.0); }

void fillRow(const ControlRow& row, PF_ParamDef* def) {
  std::memset(def, 0, sizeof(*def));
  def->uu.id = row.id;
  def->flags = hostFlags(row.flags);
  std::strncpy(def->name, row.name, sizeof(def->name) - 1);
  switch (row.kind) {
    case ControlKind::Popup:
      def->param_type = PF_Param_POPUP;
      def->u.pd.num_choices = row.numChoices;
      def->u.pd.dephault = static_cast<A_short>(row.dflt);
      def->u.pd.value = def->u.pd.dephault;
      def->u.pd.u.namesptr = row.choices;
      break;
    case ControlKind::Fixed:
      def->param_type = PF_Param_FIX_SLIDER;
      def->u.fd.valid_min = toFixed(row.validMin);
      def->u.fd.valid_max = toFixed(row.validMax);
      def->u.fd.slider_min = toFixed(row.sliderMin);
      def->u.fd.slider_max = toFixed(row.sliderMax);
      def->u.fd.dephault = toFixed(row.dflt);
      def->u.fd.value = def->u.fd.dephault;
      def->u.fd.precision = row.precision;
      def->u.fd.display_flags = row.percent ? PF_ValueDisplayFlag_PERCENT : 0;
      break;
    case ControlKind::Float:
      def->param_type = PF_Param_FLOAT_SLIDER;
      def->u.fs_d.valid_min = static_cast<PF_FpShort>(row.validMin);
      def->u.fs_d.valid_max = static_cast<PF_FpShort>(row.validMax);
      def->u.fs_d.slider_min = static_cast<PF_FpShort>(row.sliderMin);
      def->u.fs_d.slider_max = static_cast<PF_FpShort>(row.sliderMax);
      def->u.fs_d.value = row.dflt;
      def->u.fs_d.dephault = static_cast<PF_FpShort>(row.dflt);
      def->u.fs_d.precision = row.precision;
      def->u.fs_d.display_flags = row.percent ? PF_ValueDisplayFlag_PERCENT : 0;
      def->u.fs_d.curve_tolerance = kCurveTolerance;
      break;
    case ControlKind::Checkbox:
      def->param_type = PF_Param_CHECKBOX;
      def->u.bd.value = static_cast<PF_ParamValue>(row.dflt);
      def->u.bd.dephault = static_cast<PF_Boolean>(row.dflt);
      def->u.bd.u.nameptr = "";
      break;
    case ControlKind::Button:
      def->param_type = PF_Param_BUTTON;
      def->u.button_d.u.namesptr = row.choices;
      break;
    case ControlKind::Layer:
      def->param_type = PF_Param_LAYER;
      def->u.ld.dephault = PF_LayerDefault_NONE;  // a layer control starts with no layer chosen
      break;
    case ControlKind::GroupStart:
      def->param_type = PF_Param_GROUP_START;
      break;
    case ControlKind::GroupEnd:
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
  int count = kParamsWithoutHeader;
  const bool header = hostShowsHeaderImage(in_data);
  if (header) {
    AddUIHeaderImage(in_data, out_data, ID_HEADER_IMAGE);  // a header the host refused is cosmetic
    addParam(ID_HEADER_IMAGE);
    count = kParamsWithoutHeader + 1;
  }
  PF_ParamDef def;
  for (const ControlRow& row : kControlRows) {
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
