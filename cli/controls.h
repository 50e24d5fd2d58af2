// Command-line options made from the controls the host read back from
// parameter setup: names here, everything else (type, range, default,
// choices) from the host's reading.
#pragma once

#include <string>
#include <vector>

#include "options.h"
#include "thost/host.h"
#include "thost/render.h"

namespace cli {

struct ControlOption {
  enum class Kind { Popup, Fixed, Float, Checkbox };
  int id = 0;
  std::string option;  // without the leading "--"
  Kind kind = Kind::Fixed;
  const thost::AddedParam* param = nullptr;
  std::vector<std::string> choices;  // popup keywords, 1-based order
  std::string controlName() const { return param->def.name; }
  std::string rangeText() const;    // "0.000 .. 1.000", "rgba|red|..."
  std::string defaultText() const;  // as the option takes it
  std::string help() const;
};

// Option names by control id. Controls absent from this map get no option.
const char* optionNameForId(int id);

// One option per control the host lists (in the host's order).
std::vector<ControlOption> controlOptions(const std::vector<thost::AddedParam>& controls);

// The value in the host's units (see thost::ControlValues) for `text` given to
// the option; throws UsageError naming the option, the control and its range.
double parseControlValue(const ControlOption& option, const std::string& text);

// Keyword of a popup choice as the command line spells it.
std::vector<std::string> choiceKeywords(const std::string& namesText);

}  // namespace cli
