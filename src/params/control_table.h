// The effect's controls as plain data, free of host-SDK types: the one place
// that states each control's id, name, kind, ranges, default, display,
// grouping, command-line keyword, hint and the ParamValues field it loads
// into. Registration fills the host's records from it; the command builds its
// options, help and validation from it; tests, benchmarks and the README's
// option table take their defaults and names from it.
#pragma once

#include <stddef.h>

// Stable control ids (PF_ParamDef::uu.id). Code finds controls by id, never by position.
enum ParamId {
  ID_CHANNELS = 1,
  ID_BLOCK_WIDTH = 2,
  ID_BLOCK_HEIGHT = 3,
  ID_SHUFFLE_STRENGTH = 4,
  ID_SHUFFLE_SPREAD = 5,
  ID_SHUFFLE_DIRECTION = 6,
  ID_SHUFFLE_SEED = 7,
  ID_HEADER_IMAGE = 8,
  ID_TIME_FRAMES = 9,
  ID_TIME_PROBABILITY = 10,
  ID_STEPPING_UNIT = 11,
  ID_TIME_STEP_SECONDS = 12,
  ID_TIME_STEP_FRAMES = 13,
  ID_EDGE_TIME_MODE = 14,
  ID_TIME_SEED = 15,
  ID_EXCLUSIVE_MODE = 16,
  ID_TIME_GROUP_START = 17,
  ID_TIME_GROUP_END = 18,
  ID_MASK_SOURCE = 19,
  ID_MASK_INTENSITY = 20,
  ID_MASK_TYPE = 21,
  ID_MASK_SEED = 22,
  ID_MASK_GROUP_START = 23,
  ID_MASK_GROUP_END = 24,
  ID_COMPOSITE_ON_ORIGINAL = 25,
  ID_ALIGN_BUTTON = 26
};

enum class ControlKind { Popup, Fixed, Float, Checkbox, Button, Layer, GroupStart, GroupEnd };

// The twirly group a control sits in (group rows name their own).
enum class ControlGroup { None, TimeShift, MaskFilter };

// Host flags a row sets, as bits of our own (registration maps them).
enum ControlFlag : unsigned {
  CONTROL_SUPERVISE = 1u << 0,
  CONTROL_CANNOT_INTERP = 1u << 1,
  CONTROL_COLLAPSE_TWIRLY = 1u << 2,
};

// The ParamValues field a control's value is loaded into.
enum class ValueField {
  None,
  channels,
  blockWidth,
  blockHeight,
  shuffleStrength,
  shuffleSpread,
  shuffleDirection,
  shuffleSeed,
  compositeOnOriginal,
  timeFrames,
  timeProbability,
  steppingUnit,
  timeStepSeconds,
  timeStepFrames,
  edgeTimeMode,
  timeSeed,
  exclusiveMode,
  maskIntensity,
  maskType,
  maskLayer,
  maskSeed,
};

// One control, in the units the host shows. Popup defaults are 1-based choice
// numbers; checkbox defaults 0 or 1.
struct ControlRow {
  int id;
  const char* name;
  ControlKind kind;
  double validMin, validMax, sliderMin, sliderMax, dflt;
  short precision;
  bool percent;         // shown as a percentage
  unsigned flags;       // ControlFlag bits
  const char* choices;  // popup choices "A|B|C", or a button's caption
  short numChoices;
  ControlGroup group;
  const char* keyword;  // the command's option, without "--"; null: none
  bool wholeNumber;     // the command rounds a typed decimal to the nearest whole
  const char* hint;     // one line, for help texts and tooltips
  ValueField field;
};

// The controls in index order (the header image, when a host shows it, comes
// before them and is not a row: it has no value).
inline constexpr ControlRow kControlRows[] = {
    {ID_CHANNELS, "Channels", ControlKind::Popup, 0, 0, 0, 0, 1, 0, false, 0, "RGBA|Red|Green|Blue|Alpha", 5,
     ControlGroup::None, "channels", false, "which channels the moved blocks carry", ValueField::channels},
    {ID_BLOCK_WIDTH, "Block Width", ControlKind::Fixed, 1, 4096, 1, 4096, 32, 0, false, 0, nullptr, 0,
     ControlGroup::None, "block-width", false, "width of a block, in pixels", ValueField::blockWidth},
    {ID_BLOCK_HEIGHT, "Block Height", ControlKind::Fixed, 1, 4096, 1, 4096, 32, 0, false, 0, nullptr, 0,
     ControlGroup::None, "block-height", false, "height of a block, in pixels", ValueField::blockHeight},
    {ID_ALIGN_BUTTON, "", ControlKind::Button, 0, 0, 0, 0, 0, 0, false, CONTROL_SUPERVISE, "Align", 0,
     ControlGroup::None, "align", false, "sets the block size to a divisor of the layer's size near the current one",
     ValueField::None},
    {ID_SHUFFLE_STRENGTH, "Shuffle Strength", ControlKind::Float, 0, 1, 0, 1, 0.1, 3, false, 0, nullptr, 0,
     ControlGroup::None, "strength", false, "share of the blocks that are swapped", ValueField::shuffleStrength},
    {ID_SHUFFLE_SPREAD, "Shuffle Spread", ControlKind::Float, 0, 1, 0, 1, 0.1, 3, false, 0, nullptr, 0,
     ControlGroup::None, "spread", false, "how far a block may travel, as a share of the frame",
     ValueField::shuffleSpread},
    {ID_SHUFFLE_DIRECTION, "Shuffle Spread Direction", ControlKind::Popup, 0, 0, 0, 0, 1, 0, false, 0,
     "All|Horizontal|Vertical", 3, ControlGroup::None, "direction", false, "the directions a block may travel",
     ValueField::shuffleDirection},
    {ID_SHUFFLE_SEED, "Random Seed", ControlKind::Fixed, 0, 32767, 0, 32767, 777, 0, false, 0, nullptr, 0,
     ControlGroup::None, "seed", true, "seed of the shuffle", ValueField::shuffleSeed},
    {ID_COMPOSITE_ON_ORIGINAL, "Composite On Original", ControlKind::Checkbox, 0, 0, 0, 0, 1, 0, false,
     CONTROL_CANNOT_INTERP, nullptr, 0, ControlGroup::None, "composite", false,
     "off: only the moved blocks are drawn, the rest is transparent", ValueField::compositeOnOriginal},
    {ID_TIME_GROUP_START, "Time Shift", ControlKind::GroupStart, 0, 0, 0, 0, 0, 0, false, 0, nullptr, 0,
     ControlGroup::TimeShift, nullptr, false, "blocks taken from other times of the layer", ValueField::None},
    {ID_TIME_FRAMES, "Frames", ControlKind::Fixed, 0, 16, 0, 16, 0, 0, false, 0, nullptr, 0, ControlGroup::TimeShift,
     "time-frames", false, "how many other times blocks may come from; 0 switches the time shift off",
     ValueField::timeFrames},
    {ID_TIME_PROBABILITY, "Probability", ControlKind::Float, 0, 100, 0, 100, 25, 2, true, CONTROL_COLLAPSE_TWIRLY,
     nullptr, 0, ControlGroup::TimeShift, "time-probability", false,
     "chance that a swapped block comes from another time", ValueField::timeProbability},
    {ID_STEPPING_UNIT, "Stepping Unit", ControlKind::Popup, 0, 0, 0, 0, 1, 0, false, 0, "Second|Frame", 2,
     ControlGroup::TimeShift, "stepping-unit", false, "whether the time step counts seconds or frames",
     ValueField::steppingUnit},
    {ID_TIME_STEP_SECONDS, "Time Step [seconds]", ControlKind::Float, -5, 5, -5, 5, 0.05, 3, false, 0, nullptr, 0,
     ControlGroup::TimeShift, "time-step-seconds", false, "distance between the other times, in seconds",
     ValueField::timeStepSeconds},
    {ID_TIME_STEP_FRAMES, "Time Step [frames]", ControlKind::Float, -256, 256, -256, 256, 2, 1, false, 0, nullptr, 0,
     ControlGroup::TimeShift, "time-step-frames", false, "distance between the other times, in frames",
     ValueField::timeStepFrames},
    {ID_EDGE_TIME_MODE, "Edge Time Mode", ControlKind::Popup, 0, 0, 0, 0, 3, 0, false, 0, "Repeat Last|Wrap|Mirror",
     3, ControlGroup::TimeShift, "edge-mode", false, "what a time outside the layer becomes",
     ValueField::edgeTimeMode},
    {ID_TIME_SEED, "Random Seed", ControlKind::Fixed, 1, 32767, 0, 32767, 337, 0, false, CONTROL_COLLAPSE_TWIRLY,
     nullptr, 0, ControlGroup::TimeShift, "time-seed", true, "seed of the time shift", ValueField::timeSeed},
    {ID_EXCLUSIVE_MODE, "Exclusive Mode", ControlKind::Checkbox, 0, 0, 0, 0, 0, 0, false, CONTROL_CANNOT_INTERP,
     nullptr, 0, ControlGroup::TimeShift, "exclusive", false,
     "a block taken from another time is not also swapped in space", ValueField::exclusiveMode},
    {ID_TIME_GROUP_END, "", ControlKind::GroupEnd, 0, 0, 0, 0, 0, 0, false, 0, nullptr, 0, ControlGroup::TimeShift,
     nullptr, false, "", ValueField::None},
    {ID_MASK_GROUP_START, "Mask Filter", ControlKind::GroupStart, 0, 0, 0, 0, 0, 0, false, 0, nullptr, 0,
     ControlGroup::MaskFilter, nullptr, false, "a layer that vetoes pairs by its brightness", ValueField::None},
    {ID_MASK_INTENSITY, "Intensity", ControlKind::Float, 0, 100, 0, 100, 0, 2, true, 0, nullptr, 0,
     ControlGroup::MaskFilter, "mask-intensity", false, "how strongly the mask vetoes pairs; 0 ignores it",
     ValueField::maskIntensity},
    {ID_MASK_TYPE, "Type", ControlKind::Popup, 0, 0, 0, 0, 1, 0, false, 0,
     "Threshold|Randomized Threshold|Randomized Mask", 3, ControlGroup::MaskFilter, "mask-type", false,
     "how a block's mask value decides", ValueField::maskType},
    {ID_MASK_SOURCE, "Mask Source", ControlKind::Layer, 0, 0, 0, 0, 0, 0, false, 0, nullptr, 0,
     ControlGroup::MaskFilter, "mask", false, "the layer whose brightness is the mask", ValueField::maskLayer},
    {ID_MASK_SEED, "Probability Seed", ControlKind::Fixed, 1, 32767, 0, 32767, 133, 0, false, CONTROL_COLLAPSE_TWIRLY,
     nullptr, 0, ControlGroup::MaskFilter, "mask-seed", true, "seed of the randomized mask types",
     ValueField::maskSeed},
    {ID_MASK_GROUP_END, "", ControlKind::GroupEnd, 0, 0, 0, 0, 0, 0, false, 0, nullptr, 0, ControlGroup::MaskFilter,
     nullptr, false, "", ValueField::None},
};

inline constexpr int kControlRowCount = static_cast<int>(sizeof kControlRows / sizeof kControlRows[0]);

// The row of control `id`, or null.
constexpr const ControlRow* findControl(int id) {
  for (const ControlRow& row : kControlRows)
    if (row.id == id) return &row;
  return nullptr;
}

// The row whose command-line keyword is `keyword`, or null.
constexpr const ControlRow* findControlByKeyword(const char* keyword) {
  for (const ControlRow& row : kControlRows) {
    if (!row.keyword) continue;
    const char* a = row.keyword;
    const char* b = keyword;
    while (*a && *a == *b) ++a, ++b;
    if (*a == *b) return &row;
  }
  return nullptr;
}

// The default of control `id` (0 for an unknown id).
constexpr double controlDefault(int id) { return findControl(id) ? findControl(id)->dflt : 0.0; }
