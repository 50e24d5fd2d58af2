// `tesselux info`: what the effect tells a host about itself.
#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <exception>
#include <sstream>
#include <string>
#include <vector>

#include "commands.h"
#include "controls.h"
#include "json.h"
#include "options.h"

namespace cli {

const char* const kInfoUsage =
    "Options:\n"
    "  --plugin PATH        the effect module to load (default: $TESSELUX_PLUGIN,\n"
    "                       else the module built with this program)\n"
    "  --host ae|premiere   the host to play (default: ae)\n"
    "  --api MAJOR.MINOR    the host API version in in_data->version (default: 13.28)\n"
    "  --json               print the same as JSON (for scripts)\n"
    "  -h, --help           show this help\n"
    "\n"
    "Exit status: 0 when every command succeeds and the effect keeps the host's\n"
    "contract; 1 when a command fails or a contract break is found; 2 for a bad\n"
    "command line.\n";

namespace {

struct FlagName {
  A_long bit;
  const char* name;
};

const FlagName kOutFlags[] = {
    {PF_OutFlag_KEEP_RESOURCE_OPEN, "KEEP_RESOURCE_OPEN"},
    {PF_OutFlag_WIDE_TIME_INPUT, "WIDE_TIME_INPUT"},
    {PF_OutFlag_NON_PARAM_VARY, "NON_PARAM_VARY"},
    {PF_OutFlag_SEQUENCE_DATA_NEEDS_FLATTENING, "SEQUENCE_DATA_NEEDS_FLATTENING"},
    {PF_OutFlag_I_DO_DIALOG, "I_DO_DIALOG"},
    {PF_OutFlag_USE_OUTPUT_EXTENT, "USE_OUTPUT_EXTENT"},
    {PF_OutFlag_SEND_DO_DIALOG, "SEND_DO_DIALOG"},
    {PF_OutFlag_DISPLAY_ERROR_MESSAGE, "DISPLAY_ERROR_MESSAGE"},
    {PF_OutFlag_I_EXPAND_BUFFER, "I_EXPAND_BUFFER"},
    {PF_OutFlag_PIX_INDEPENDENT, "PIX_INDEPENDENT"},
    {PF_OutFlag_I_WRITE_INPUT_BUFFER, "I_WRITE_INPUT_BUFFER"},
    {PF_OutFlag_I_SHRINK_BUFFER, "I_SHRINK_BUFFER"},
    {PF_OutFlag_WORKS_IN_PLACE, "WORKS_IN_PLACE"},
    {PF_OutFlag_CUSTOM_UI, "CUSTOM_UI"},
    {PF_OutFlag_REFRESH_UI, "REFRESH_UI"},
    {PF_OutFlag_NOP_RENDER, "NOP_RENDER"},
    {PF_OutFlag_I_USE_SHUTTER_ANGLE, "I_USE_SHUTTER_ANGLE"},
    {PF_OutFlag_I_USE_AUDIO, "I_USE_AUDIO"},
    {PF_OutFlag_I_AM_OBSOLETE, "I_AM_OBSOLETE"},
    {PF_OutFlag_FORCE_RERENDER, "FORCE_RERENDER"},
    {PF_OutFlag_PiPL_OVERRIDES_OUTDATA_OUTFLAGS, "PiPL_OVERRIDES_OUTDATA_OUTFLAGS"},
    {PF_OutFlag_I_HAVE_EXTERNAL_DEPENDENCIES, "I_HAVE_EXTERNAL_DEPENDENCIES"},
    {PF_OutFlag_DEEP_COLOR_AWARE, "DEEP_COLOR_AWARE"},
    {PF_OutFlag_SEND_UPDATE_PARAMS_UI, "SEND_UPDATE_PARAMS_UI"},
    {PF_OutFlag_AUDIO_FLOAT_ONLY, "AUDIO_FLOAT_ONLY"},
    {PF_OutFlag_AUDIO_IIR, "AUDIO_IIR"},
    {PF_OutFlag_I_SYNTHESIZE_AUDIO, "I_SYNTHESIZE_AUDIO"},
    {PF_OutFlag_AUDIO_EFFECT_TOO, "AUDIO_EFFECT_TOO"},
    {PF_OutFlag_AUDIO_EFFECT_ONLY, "AUDIO_EFFECT_ONLY"},
};

const FlagName kOutFlags2[] = {
    {PF_OutFlag2_SUPPORTS_QUERY_DYNAMIC_FLAGS, "SUPPORTS_QUERY_DYNAMIC_FLAGS"},
    {PF_OutFlag2_I_USE_3D_CAMERA, "I_USE_3D_CAMERA"},
    {PF_OutFlag2_I_USE_3D_LIGHTS, "I_USE_3D_LIGHTS"},
    {PF_OutFlag2_PARAM_GROUP_START_COLLAPSED_FLAG, "PARAM_GROUP_START_COLLAPSED_FLAG"},
    {PF_OutFlag2_I_AM_THREADSAFE, "I_AM_THREADSAFE"},
    {PF_OutFlag2_CAN_COMBINE_WITH_DESTINATION, "CAN_COMBINE_WITH_DESTINATION"},
    {PF_OutFlag2_DOESNT_NEED_EMPTY_PIXELS, "DOESNT_NEED_EMPTY_PIXELS"},
    {PF_OutFlag2_REVEALS_ZERO_ALPHA, "REVEALS_ZERO_ALPHA"},
    {PF_OutFlag2_PRESERVES_FULLY_OPAQUE_PIXELS, "PRESERVES_FULLY_OPAQUE_PIXELS"},
    {PF_OutFlag2_SUPPORTS_SMART_RENDER, "SUPPORTS_SMART_RENDER"},
    {PF_OutFlag2_FLOAT_COLOR_AWARE, "FLOAT_COLOR_AWARE"},
    {PF_OutFlag2_I_USE_COLORSPACE_ENUMERATION, "I_USE_COLORSPACE_ENUMERATION"},
    {PF_OutFlag2_I_AM_DEPRECATED, "I_AM_DEPRECATED"},
    {PF_OutFlag2_PPRO_DO_NOT_CLONE_SEQUENCE_DATA_FOR_RENDER,
     "PPRO_DO_NOT_CLONE_SEQUENCE_DATA_FOR_RENDER"},
    {PF_OutFlag2_AUTOMATIC_WIDE_TIME_INPUT, "AUTOMATIC_WIDE_TIME_INPUT"},
    {PF_OutFlag2_I_USE_TIMECODE, "I_USE_TIMECODE"},
    {PF_OutFlag2_DEPENDS_ON_UNREFERENCED_MASKS, "DEPENDS_ON_UNREFERENCED_MASKS"},
    {PF_OutFlag2_OUTPUT_IS_WATERMARKED, "OUTPUT_IS_WATERMARKED"},
    {PF_OutFlag2_I_MIX_GUID_DEPENDENCIES, "I_MIX_GUID_DEPENDENCIES"},
    {PF_OutFlag2_AE13_5_THREADSAFE, "AE13_5_THREADSAFE"},
    {PF_OutFlag2_SUPPORTS_GET_FLATTENED_SEQUENCE_DATA, "SUPPORTS_GET_FLATTENED_SEQUENCE_DATA"},
    {PF_OutFlag2_CUSTOM_UI_ASYNC_MANAGER, "CUSTOM_UI_ASYNC_MANAGER"},
    {PF_OutFlag2_SUPPORTS_GPU_RENDER_F32, "SUPPORTS_GPU_RENDER_F32"},
    {PF_OutFlag2_SUPPORTS_THREADED_RENDERING, "SUPPORTS_THREADED_RENDERING"},
    {PF_OutFlag2_MUTABLE_RENDER_SEQUENCE_DATA_SLOWER, "MUTABLE_RENDER_SEQUENCE_DATA_SLOWER"},
};

const FlagName kParamFlags[] = {
    {PF_ParamFlag_CANNOT_TIME_VARY, "CANNOT_TIME_VARY"},
    {PF_ParamFlag_CANNOT_INTERP, "CANNOT_INTERP"},
    {PF_ParamFlag_COLLAPSE_TWIRLY, "COLLAPSE_TWIRLY"},
    {PF_ParamFlag_SUPERVISE, "SUPERVISE"},
    {PF_ParamFlag_USE_VALUE_FOR_OLD_PROJECTS, "USE_VALUE_FOR_OLD_PROJECTS"},
    {PF_ParamFlag_EXCLUDE_FROM_HAVE_INPUTS_CHANGED, "EXCLUDE_FROM_HAVE_INPUTS_CHANGED"},
    {PF_ParamFlag_SKIP_REVEAL_WHEN_UNHIDDEN, "SKIP_REVEAL_WHEN_UNHIDDEN"},
};

const FlagName kUIFlags[] = {
    {PF_PUI_TOPIC, "TOPIC"},
    {PF_PUI_CONTROL, "CONTROL"},
    {PF_PUI_STD_CONTROL_ONLY, "STD_CONTROL_ONLY"},
    {PF_PUI_NO_ECW_UI, "NO_ECW_UI"},
    {PF_PUI_ECW_SEPARATOR, "ECW_SEPARATOR"},
    {PF_PUI_DISABLED, "DISABLED"},
    {PF_PUI_DONT_ERASE_TOPIC, "DONT_ERASE_TOPIC"},
    {PF_PUI_DONT_ERASE_CONTROL, "DONT_ERASE_CONTROL"},
    {PF_PUI_RADIO_BUTTON, "RADIO_BUTTON"},
    {PF_PUI_INVISIBLE, "INVISIBLE"},
};

std::string format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
std::string format(const char* fmt, ...) {
  char buf[512];
  va_list ap;
  va_start(ap, fmt);
  std::vsnprintf(buf, sizeof buf, fmt, ap);
  va_end(ap);
  return buf;
}

template <size_t N>
std::string flagNames(A_long value, const FlagName (&names)[N]) {
  std::string out;
  A_long rest = value;
  for (const FlagName& f : names) {
    if ((value & f.bit) == f.bit && f.bit != 0) {
      if (!out.empty()) out += " | ";
      out += f.name;
      rest &= ~f.bit;
    }
  }
  if (rest) {
    if (!out.empty()) out += " | ";
    out += format("0x%X", static_cast<unsigned>(rest));
  }
  return out;
}

std::string fourChars(A_long code) {
  std::string s;
  for (int shift = 24; shift >= 0; shift -= 8) {
    const char c = static_cast<char>((static_cast<uint32_t>(code) >> shift) & 0xFF);
    s += (c >= 32 && c < 127) ? c : '?';
  }
  return s;
}

const char* typeName(PF_ParamType type) {
  switch (type) {
    case PF_Param_LAYER: return "layer";
    case PF_Param_SLIDER: return "slider";
    case PF_Param_FIX_SLIDER: return "fixed slider";
    case PF_Param_ANGLE: return "angle";
    case PF_Param_CHECKBOX: return "checkbox";
    case PF_Param_COLOR: return "color";
    case PF_Param_POINT: return "point";
    case PF_Param_POPUP: return "popup";
    case PF_Param_CUSTOM: return "custom";
    case PF_Param_NO_DATA: return "no data";
    case PF_Param_FLOAT_SLIDER: return "float slider";
    case PF_Param_ARBITRARY_DATA: return "arbitrary";
    case PF_Param_PATH: return "path";
    case PF_Param_GROUP_START: return "group";
    case PF_Param_GROUP_END: return "group end";
    case PF_Param_BUTTON: return "button";
    case PF_Param_POINT_3D: return "point 3D";
    default: return "unknown";
  }
}

std::string fixed(PF_Fixed v, int precision) { return format("%.*f", precision, v / 65536.0); }

std::string choice(const std::string& names, A_long n) {
  std::istringstream in(names);
  std::string item;
  for (A_long i = 1; std::getline(in, item, '|'); ++i)
    if (i == n) return item;
  return "?";
}

struct Row {
  std::string index, id, type, name, valid, slider, dephault, flags, details;
};

Row describe(const thost::AddedParam& p, size_t index, int depth) {
  const PF_ParamDef& d = p.def;
  Row r;
  r.index = std::to_string(index);
  r.id = std::to_string(d.uu.id);
  r.type = typeName(d.param_type);
  r.name = std::string(static_cast<size_t>(depth) * 2, ' ') + "\"" + d.name + "\"";
  std::vector<std::string> details;
  switch (d.param_type) {
    case PF_Param_FIX_SLIDER: {
      const int prec = d.u.fd.precision;
      r.valid = fixed(d.u.fd.valid_min, prec) + " .. " + fixed(d.u.fd.valid_max, prec);
      r.slider = fixed(d.u.fd.slider_min, prec) + " .. " + fixed(d.u.fd.slider_max, prec);
      r.dephault = fixed(d.u.fd.dephault, prec);
      if (d.u.fd.value != d.u.fd.dephault) details.push_back("value " + fixed(d.u.fd.value, prec));
      details.push_back(format("precision %d", prec));
      if (d.u.fd.display_flags) details.push_back(format("display 0x%X", d.u.fd.display_flags));
      break;
    }
    case PF_Param_FLOAT_SLIDER: {
      const PF_FloatSliderDef& f = d.u.fs_d;
      const int prec = f.precision;
      const char* unit = (f.display_flags & PF_ValueDisplayFlag_PERCENT) ? "%" : "";
      r.valid = format("%.*f .. %.*f%s", prec, f.valid_min, prec, f.valid_max, unit);
      r.slider = format("%.*f .. %.*f%s", prec, f.slider_min, prec, f.slider_max, unit);
      r.dephault = format("%.*f%s", prec, f.dephault, unit);
      const std::string value = format("%.*f%s", prec, f.value, unit);
      if (value != r.dephault) details.push_back("value " + value);
      details.push_back(format("precision %d", prec));
      details.push_back(format("curve tolerance %g", f.curve_tolerance));
      if (f.display_flags & PF_ValueDisplayFlag_PERCENT) details.push_back("percent");
      if (f.fs_flags) details.push_back(format("fs_flags 0x%X", f.fs_flags));
      if (f.useExponent) details.push_back(format("exponent %g", f.exponent));
      break;
    }
    case PF_Param_SLIDER:
      r.valid = format("%d .. %d", d.u.sd.valid_min, d.u.sd.valid_max);
      r.slider = format("%d .. %d", d.u.sd.slider_min, d.u.sd.slider_max);
      r.dephault = std::to_string(d.u.sd.dephault);
      break;
    case PF_Param_POPUP:
      r.valid = format("1 .. %d", d.u.pd.num_choices);
      r.dephault = format("%d (%s)", d.u.pd.dephault, choice(p.namesText, d.u.pd.dephault).c_str());
      if (d.u.pd.value != d.u.pd.dephault) details.push_back(format("value %d", d.u.pd.value));
      details.push_back("choices \"" + p.namesText + "\"");
      break;
    case PF_Param_CHECKBOX:
      r.dephault = d.u.bd.dephault ? "on" : "off";
      if ((d.u.bd.value != 0) != (d.u.bd.dephault != 0))
        details.push_back(d.u.bd.value ? "value on" : "value off");
      details.push_back("label \"" + p.namesText + "\"");
      break;
    case PF_Param_BUTTON:
      details.push_back("button \"" + p.namesText + "\"");
      break;
    case PF_Param_LAYER:
      r.dephault = d.u.ld.dephault == PF_LayerDefault_MYSELF ? "this layer"
                   : d.u.ld.dephault == PF_LayerDefault_NONE ? "none"
                                                             : std::to_string(d.u.ld.dephault);
      break;
    case PF_Param_ANGLE:
      r.valid = fixed(d.u.ad.valid_min, 1) + " .. " + fixed(d.u.ad.valid_max, 1);
      r.dephault = fixed(d.u.ad.dephault, 1);
      break;
    case PF_Param_ARBITRARY_DATA:
      details.push_back(format("arbitrary id %d", d.u.arb_d.id));
      break;
    default:
      break;
  }
  if (d.flags) r.flags = format("0x%X ", static_cast<unsigned>(d.flags)) + flagNames(d.flags, kParamFlags);
  if (d.ui_flags) details.push_back("ui " + flagNames(d.ui_flags, kUIFlags));
  if (d.ui_width || d.ui_height) details.push_back(format("ui size %dx%d", d.ui_width, d.ui_height));
  if (p.insertIndex != -1) details.push_back(format("inserted at %d", p.insertIndex));
  for (size_t i = 0; i < details.size(); ++i) r.details += (i ? "; " : "") + details[i];
  return r;
}

void printTable(const std::vector<Row>& rows) {
  const Row head{"#", "id", "type", "name", "valid range", "slider range", "default", "flags",
                 "details"};
  size_t w[8] = {};
  auto widen = [&w](const Row& r) {
    const std::string* cols[8] = {&r.index, &r.id, &r.type, &r.name,
                                  &r.valid, &r.slider, &r.dephault, &r.flags};
    for (int i = 0; i < 8; ++i) w[i] = std::max(w[i], cols[i]->size());
  };
  widen(head);
  for (const Row& r : rows) widen(r);
  auto print = [&w](const Row& r) {
    std::string line = format("  %*s  %*s  %-*s  %-*s  %-*s  %-*s  %-*s  %-*s  %s",
                              static_cast<int>(w[0]), r.index.c_str(), static_cast<int>(w[1]),
                              r.id.c_str(), static_cast<int>(w[2]), r.type.c_str(),
                              static_cast<int>(w[3]), r.name.c_str(), static_cast<int>(w[4]),
                              r.valid.c_str(), static_cast<int>(w[5]), r.slider.c_str(),
                              static_cast<int>(w[6]), r.dephault.c_str(), static_cast<int>(w[7]),
                              r.flags.c_str(), r.details.c_str());
    while (!line.empty() && line.back() == ' ') line.pop_back();
    std::printf("%s\n", line.c_str());
  };
  print(head);
  for (const Row& r : rows) print(r);
}

std::string versionText(A_u_long v) {
  static const char* const kStages[] = {"develop", "alpha", "beta", "release"};
  const unsigned major = ((v >> 26) & 15u) << 3 | ((v >> 19) & 7u);
  return format("%u.%u.%u (%s, build %u)", major, (v >> 15) & 15u, (v >> 11) & 15u,
                kStages[(v >> 9) & 3u], v & 511u);
}

// Runs one command; prints a line when it fails. False on failure.
bool run(thost::Host& host, const char* what, PF_Err (thost::Host::*command)()) {
  PF_Err err = (host.*command)();
  if (err == PF_Err_NONE) return true;
  std::printf("%s failed with error %d", what, err);
  if (host.outData().out_flags & PF_OutFlag_DISPLAY_ERROR_MESSAGE)
    std::printf(": \"%s\"", host.returnMessage().c_str());
  std::printf("\n");
  return false;
}

// Registration, as the host read it. False when it failed.
bool printRegistration(thost::Host& host) {
  const A_Err regErr = host.registerPlugin();
  const thost::Registration& reg = host.registration();
  std::printf("Registration (%d call%s, result %d)\n", reg.callCount, reg.callCount == 1 ? "" : "s",
              regErr);
  std::printf("  name            %s\n", reg.name.c_str());
  std::printf("  match name      %s\n", reg.matchName.c_str());
  std::printf("  category        %s\n", reg.category.c_str());
  std::printf("  entry point     %s\n", reg.entryPoint.c_str());
  std::printf("  kind            '%s' (0x%08X)\n", fourChars(reg.kind).c_str(),
              static_cast<unsigned>(reg.kind));
  std::printf("  API version     %d.%d\n", reg.apiVersion, reg.apiSubversion);
  std::printf("  reserved info   %d\n\n", reg.reservedInfo);
  return regErr == A_Err_NONE && reg.callCount == 1;
}

bool printGlobalSetup(thost::Host& host, thost::App app) {
  if (!run(host, "PF_Cmd_GLOBAL_SETUP", &thost::Host::globalSetup)) return false;
  const PF_OutData& out = host.outData();
  std::printf("Global setup\n");
  std::printf("  version         %s, raw %u (0x%08X)\n", versionText(out.my_version).c_str(),
              out.my_version, out.my_version);
  std::printf("  out_flags       0x%08X  %s\n", static_cast<unsigned>(out.out_flags),
              flagNames(out.out_flags, kOutFlags).c_str());
  std::printf("  out_flags2      0x%08X  %s\n", static_cast<unsigned>(out.out_flags2),
              flagNames(out.out_flags2, kOutFlags2).c_str());
  if (app == thost::App::PremierePro) {
    std::printf("  pixel formats  ");
    for (PrPixelFormat f : host.supportedPixelFormats())
      std::printf(" 0x%08X", static_cast<unsigned>(f));
    if (host.supportedPixelFormats().empty()) std::printf(" (none)");
    std::printf("\n");
  }
  std::printf("\n");
  return true;
}

bool printAbout(thost::Host& host) {
  if (!run(host, "PF_Cmd_ABOUT", &thost::Host::about)) return false;
  // Hosts break about-box lines at carriage returns.
  std::string text = host.returnMessage();
  for (size_t at = 0; (at = text.find_first_of("\r\n", at)) != std::string::npos; at += 3)
    text.replace(at, 1, "\n  ");
  std::printf("About\n  %s\n\n", text.c_str());
  return true;
}

bool printControls(thost::Host& host) {
  if (!run(host, "PF_Cmd_PARAMS_SETUP", &thost::Host::paramsSetup)) return false;
  const auto& params = host.addedParams();
  std::printf("Controls (num_params %d: the input layer and %zu controls)\n", host.numParams(),
              params.size());
  std::vector<Row> rows;
  rows.push_back(Row{"0", "", "layer", "(input layer)", "", "", "", "", ""});
  int depth = 0;
  for (size_t i = 0; i < params.size(); ++i) {
    if (params[i].def.param_type == PF_Param_GROUP_END && depth > 0) --depth;
    rows.push_back(describe(params[i], i + 1, depth));
    if (params[i].def.param_type == PF_Param_GROUP_START) ++depth;
  }
  printTable(rows);
  for (const PF_CustomUIInfo& ui : host.registeredUI())
    std::printf("  custom UI registered: events 0x%X\n", static_cast<unsigned>(ui.events));
  std::printf("\n");
  return true;
}

// Sequence setup and setdown, global setdown, then the host's verdict.
bool printEnding(thost::Host& host) {
  bool ok = true;
  if (run(host, "PF_Cmd_SEQUENCE_SETUP", &thost::Host::sequenceSetup)) {
    std::printf("Sequence data   %llu bytes\n",
                static_cast<unsigned long long>(host.handleSize(host.sequenceData())));
    ok = run(host, "PF_Cmd_SEQUENCE_SETDOWN", &thost::Host::sequenceSetdown) && ok;
  } else {
    ok = false;
  }
  ok = run(host, "PF_Cmd_GLOBAL_SETDOWN", &thost::Host::globalSetdown) && ok;
  host.finish();
  const auto& breaks = host.contractBreaks();
  if (breaks.empty()) {
    std::printf("Contract        kept (no breaks)\n");
  } else {
    std::printf("Contract breaks (%zu)\n", breaks.size());
    for (const std::string& b : breaks) std::printf("  %s\n", b.c_str());
    ok = false;
    host.clearContractBreaks();
  }
  return ok;
}

int info(const HostOptions& opt) {
  const std::string plugin = opt.plugin.empty() ? thost::Host::defaultPluginPath() : opt.plugin;
  thost::Host host(plugin, opt.app, opt.version);
  std::printf("Plug-in   %s\n", plugin.c_str());
  std::printf("Host      %s, API %d.%d\n\n", appName(opt.app), opt.version.major, opt.version.minor);
  bool ok = printRegistration(host);
  ok = printGlobalSetup(host, opt.app) && ok;
  ok = printAbout(host) && ok;
  ok = printControls(host) && ok;
  ok = printEnding(host) && ok;
  return ok ? 0 : 1;
}


// One control of parameter setup, as a JSON object.
void jsonControl(Json& j, const thost::AddedParam& p, size_t index, const std::vector<ControlOption>& options) {
  const PF_ParamDef& d = p.def;
  j.open().key("index").num(static_cast<double>(index)).key("id").num(d.uu.id);
  j.key("type").str(typeName(d.param_type)).key("name").str(d.name);
  for (const ControlOption& o : options)
    if (o.id == d.uu.id) j.key("option").str("--" + o.option);
  switch (d.param_type) {
    case PF_Param_FIX_SLIDER:
      j.key("valid_min").num(d.u.fd.valid_min / 65536.0).key("valid_max").num(d.u.fd.valid_max / 65536.0);
      j.key("slider_min").num(d.u.fd.slider_min / 65536.0).key("slider_max").num(d.u.fd.slider_max / 65536.0);
      j.key("default").num(d.u.fd.dephault / 65536.0).key("precision").num(d.u.fd.precision);
      break;
    case PF_Param_FLOAT_SLIDER:
      j.key("valid_min").num(d.u.fs_d.valid_min).key("valid_max").num(d.u.fs_d.valid_max);
      j.key("slider_min").num(d.u.fs_d.slider_min).key("slider_max").num(d.u.fs_d.slider_max);
      j.key("default").num(d.u.fs_d.dephault).key("precision").num(d.u.fs_d.precision);
      j.key("percent").boolean((d.u.fs_d.display_flags & PF_ValueDisplayFlag_PERCENT) != 0);
      break;
    case PF_Param_POPUP: {
      j.key("default").num(d.u.pd.dephault).key("choices").openArray();
      std::istringstream in(p.namesText);
      std::string item;
      while (std::getline(in, item, '|')) j.str(item);
      j.closeArray();
      break;
    }
    case PF_Param_CHECKBOX: j.key("default").boolean(d.u.bd.dephault != 0); break;
    case PF_Param_BUTTON: j.key("label").str(p.namesText); break;
    default: break;
  }
  j.key("flags").num(static_cast<double>(static_cast<uint32_t>(d.flags)));
  j.key("ui_flags").num(static_cast<double>(static_cast<uint32_t>(d.ui_flags)));
  j.close();
}

// The same readings as info(), as one JSON object on stdout.
int infoJson(const HostOptions& opt) {
  const std::string plugin = opt.plugin.empty() ? thost::Host::defaultPluginPath() : opt.plugin;
  thost::Host host(plugin, opt.app, opt.version);
  Json j;
  bool ok = true;
  j.open();
  j.key("plugin").str(plugin);
  j.key("host").str(opt.app == thost::App::PremierePro ? "premiere" : "ae");
  j.key("api").str(std::to_string(opt.version.major) + "." + std::to_string(opt.version.minor));
  const A_Err regErr = host.registerPlugin();
  const thost::Registration& reg = host.registration();
  ok = ok && regErr == A_Err_NONE && reg.callCount == 1;
  j.key("registration").open();
  j.key("result").num(regErr).key("calls").num(reg.callCount);
  j.key("name").str(reg.name).key("match_name").str(reg.matchName).key("category").str(reg.category);
  j.key("entry_point").str(reg.entryPoint).key("kind").str(fourChars(reg.kind));
  j.key("api_version").str(std::to_string(reg.apiVersion) + "." + std::to_string(reg.apiSubversion));
  j.key("reserved_info").num(reg.reservedInfo);
  j.close();
  auto flagsOf = [&](const char* name, A_long value, auto& table) {
    j.key(name).open().key("value").num(static_cast<double>(static_cast<uint32_t>(value))).key("names").openArray();
    for (const FlagName& f : table)
      if (f.bit && (value & f.bit) == f.bit) j.str(f.name);
    j.closeArray().close();
  };
  PF_Err err = host.globalSetup();
  j.key("global_setup").open().key("result").num(err);
  if (err == PF_Err_NONE) {
    const PF_OutData& out = host.outData();
    j.key("version").open().key("raw").num(out.my_version).key("text").str(versionText(out.my_version)).close();
    flagsOf("out_flags", out.out_flags, kOutFlags);
    flagsOf("out_flags2", out.out_flags2, kOutFlags2);
    if (opt.app == thost::App::PremierePro) {
      j.key("pixel_formats").openArray();
      for (PrPixelFormat f : host.supportedPixelFormats()) j.str(format("0x%08X", static_cast<unsigned>(f)));
      j.closeArray();
    }
  }
  j.close();
  ok = ok && err == PF_Err_NONE;
  err = host.paramsSetup();
  ok = ok && err == PF_Err_NONE;
  j.key("controls").openArray();
  if (err == PF_Err_NONE) {
    const auto& params = host.addedParams();
    const std::vector<ControlOption> options = controlOptions(params);
    for (size_t i = 0; i < params.size(); ++i) jsonControl(j, params[i], i + 1, options);
  }
  j.closeArray();
  err = host.sequenceSetup();
  ok = ok && err == PF_Err_NONE;
  if (err == PF_Err_NONE) {
    j.key("sequence_data_bytes").num(static_cast<double>(host.handleSize(host.sequenceData())));
    ok = host.sequenceSetdown() == PF_Err_NONE && ok;
  }
  ok = host.globalSetdown() == PF_Err_NONE && ok;
  host.finish();
  j.key("contract_breaks").openArray();
  for (const std::string& b : host.contractBreaks()) j.str(b);
  j.closeArray();
  ok = ok && host.contractBreaks().empty();
  host.clearContractBreaks();
  j.key("ok").boolean(ok);
  j.close();
  std::printf("%s\n", j.text().c_str());
  return ok ? 0 : 1;
}

}  // namespace

int runInfo(const std::vector<std::string>& args) {
  HostOptions opt;
  try {
    opt = parseHostOptions(args);
  } catch (const UsageError& e) {
    std::fprintf(stderr, "tesselux: %s\nTry 'tesselux --help'.\n", e.message.c_str());
    return 2;
  }
  if (opt.help) {
    std::printf("usage: tesselux info [OPTIONS]\n\n%s", kInfoUsage);
    return 0;
  }
  try {
    return opt.json ? infoJson(opt) : info(opt);
  } catch (const std::exception& e) {
    std::fflush(stdout);
    std::fprintf(stderr, "tesselux: %s\n", e.what());
    return 1;
  }
}

}  // namespace cli
