// Shared helpers of the user-interface tests: finding controls by id in what
// the effect added, and rendering PF_UpdateParamUI sequences readably.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "thost/host.h"

namespace ui {

// Control ids as the effect declares them.
enum : A_long {
  kChannels = 1,
  kBlockWidth = 2,
  kBlockHeight = 3,
  kHeader = 8,
  kFrames = 9,
  kProbability = 10,
  kSteppingUnit = 11,
  kStepSeconds = 12,
  kStepFrames = 13,
  kEdgeTimeMode = 14,
  kTimeSeed = 15,
  kExclusive = 16,
  kMaskIntensity = 20,
  kMaskType = 21,
  kMaskSeed = 22,
  kAlign = 26,
};

// The host index of control `id`, from the order in which the effect added them.
inline PF_ParamIndex indexOf(const thost::Host& h, A_long id) {
  const auto& added = h.addedParams();
  for (size_t i = 0; i < added.size(); ++i) {
    if (added[i].def.uu.id == id) return static_cast<PF_ParamIndex>(i + 1);
  }
  ADD_FAILURE() << "no control with id " << id;
  return -1;
}

// One PF_UpdateParamUI call as "index:ui_flags/flags".
struct Update {
  PF_ParamIndex index;
  A_long uiFlags;
  A_long flags;
};

inline std::string render(const std::vector<Update>& updates) {
  std::string s;
  for (const Update& u : updates) {
    if (!s.empty()) s += ' ';
    s += std::to_string(u.index) + ":" + std::to_string(u.uiFlags) + "/" + std::to_string(u.flags);
  }
  return s;
}

inline std::string render(const std::vector<thost::ParamUIUpdate>& updates) {
  std::vector<Update> u;
  for (const auto& p : updates) u.push_back({p.index, p.def.ui_flags, p.def.flags});
  return render(u);
}

inline std::string joined(const std::vector<std::string>& lines) {
  std::string s;
  for (const auto& l : lines) s += l + "\n";
  return s;
}

}  // namespace ui
