#include "controls.h"

#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <sstream>

#include "params/control_table.h"

namespace cli {

namespace {

std::string fmt(double v, int precision) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.*f", precision, v);
  return buf;
}

bool parseNumber(const std::string& text, double& out) {
  if (text.empty()) return false;
  char* end = nullptr;
  out = std::strtod(text.c_str(), &end);
  return end && *end == '\0' && std::isfinite(out);
}

// 16.16 fixed the way the host stores a shown value: nearest, halves away from zero.
double toFixedUnits(double v) { return std::round(v * 65536.0); }

}  // namespace

const char* optionNameForId(int id) {
  const ControlRow* row = findControl(id);
  return row ? row->keyword : nullptr;
}

std::vector<std::string> choiceKeywords(const std::string& namesText) {
  std::vector<std::string> full, first;
  std::istringstream in(namesText);
  std::string item;
  while (std::getline(in, item, '|')) {
    std::string k, w;
    bool inFirst = true;
    for (char c : item) {
      if (c == ' ') {
        if (!k.empty()) k += '-';
        inFirst = false;
        continue;
      }
      const char l = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
      k += l;
      if (inFirst) w += l;
    }
    full.push_back(k);
    first.push_back(w);
  }
  // The first word alone where it names one choice only ("repeat" for "Repeat Last").
  std::vector<std::string> out;
  for (size_t i = 0; i < full.size(); ++i) {
    size_t same = 0;
    for (const std::string& f : first) same += f == first[i];
    out.push_back(same == 1 ? first[i] : full[i]);
  }
  return out;
}

std::string ControlOption::rangeText() const {
  const PF_ParamDef& d = param->def;
  switch (kind) {
    case Kind::Popup: {
      std::string s;
      for (size_t i = 0; i < choices.size(); ++i) s += (i ? "|" : "") + choices[i];
      return s;
    }
    case Kind::Fixed:
      return fmt(d.u.fd.valid_min / 65536.0, d.u.fd.precision) + " .. " +
             fmt(d.u.fd.valid_max / 65536.0, d.u.fd.precision);
    case Kind::Float:
      return fmt(d.u.fs_d.valid_min, d.u.fs_d.precision) + " .. " + fmt(d.u.fs_d.valid_max, d.u.fs_d.precision) +
             ((d.u.fs_d.display_flags & PF_ValueDisplayFlag_PERCENT) ? " (percent)" : "");
    case Kind::Checkbox:
      return "on|off";
  }
  return "";
}

std::string ControlOption::defaultText() const {
  const PF_ParamDef& d = param->def;
  switch (kind) {
    case Kind::Popup: {
      const int i = d.u.pd.dephault;
      return i >= 1 && static_cast<size_t>(i) <= choices.size() ? choices[static_cast<size_t>(i - 1)] : "?";
    }
    case Kind::Fixed: return fmt(d.u.fd.dephault / 65536.0, d.u.fd.precision);
    case Kind::Float: return fmt(d.u.fs_d.dephault, d.u.fs_d.precision);
    case Kind::Checkbox: return d.u.bd.dephault ? "on" : "off";
  }
  return "";
}

std::string ControlOption::help() const {
  return "\"" + controlName() + "\": " + rangeText() + " (default " + defaultText() + ")";
}

std::vector<ControlOption> controlOptions(const std::vector<thost::AddedParam>& controls) {
  std::vector<ControlOption> out;
  for (const thost::AddedParam& p : controls) {
    const char* name = optionNameForId(p.def.uu.id);
    if (!name) continue;
    ControlOption o;
    o.id = p.def.uu.id;
    o.option = name;
    o.param = &p;
    switch (p.def.param_type) {
      case PF_Param_POPUP:
        o.kind = ControlOption::Kind::Popup;
        o.choices = choiceKeywords(p.namesText);
        break;
      case PF_Param_FIX_SLIDER: o.kind = ControlOption::Kind::Fixed; break;
      case PF_Param_FLOAT_SLIDER: o.kind = ControlOption::Kind::Float; break;
      case PF_Param_CHECKBOX: o.kind = ControlOption::Kind::Checkbox; break;
      default: continue;
    }
    out.push_back(std::move(o));
  }
  return out;
}

double parseControlValue(const ControlOption& o, const std::string& text) {
  const PF_ParamDef& d = o.param->def;
  auto notNumber = [&]() -> UsageError {
    return UsageError{"--" + o.option + " " + text + ": not a number; \"" + o.controlName() + "\" takes " +
                      o.rangeText()};
  };
  auto refuse = [&]() -> UsageError {
    return UsageError{"--" + o.option + " " + text + ": out of range for \"" + o.controlName() + "\" (" +
                      o.rangeText() + ")"};
  };
  switch (o.kind) {
    case ControlOption::Kind::Popup: {
      std::string l;
      for (char c : text) l += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
      for (size_t i = 0; i < o.choices.size(); ++i)
        if (o.choices[i] == l) return static_cast<double>(i + 1);
      // The full hyphenated name works too ("repeat-last").
      const std::vector<std::string> full = [&] {
        std::vector<std::string> f;
        std::istringstream in(o.param->namesText);
        std::string item;
        while (std::getline(in, item, '|')) {
          std::string k;
          for (char c : item) k += c == ' ' ? '-' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
          f.push_back(k);
        }
        return f;
      }();
      for (size_t i = 0; i < full.size(); ++i)
        if (full[i] == l) return static_cast<double>(i + 1);
      throw UsageError{"--" + o.option + " " + text + ": not a choice of \"" + o.controlName() + "\" (" +
                       o.rangeText() + ")"};
    }
    case ControlOption::Kind::Fixed: {
      double v = 0;
      if (!parseNumber(text, v)) throw notNumber();
      // Seeds are whole numbers, which the effect takes by truncation: a typed
      // decimal is rounded to the nearest, halves away from zero, instead.
      if (const ControlRow* row = findControl(o.id); row && row->wholeNumber) v = std::round(v);
      const double units = toFixedUnits(v);
      if (units < d.u.fd.valid_min || units > d.u.fd.valid_max) throw refuse();
      return v;
    }
    case ControlOption::Kind::Float: {
      double v = 0;
      if (!parseNumber(text, v)) throw notNumber();
      if (v < d.u.fs_d.valid_min || v > d.u.fs_d.valid_max) throw refuse();
      return v;
    }
    case ControlOption::Kind::Checkbox:
      return text == "on" || text == "1" || text == "true" ? 1.0 : 0.0;
  }
  return 0;
}

}  // namespace cli
