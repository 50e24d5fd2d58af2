// The controls as the host receives them, on every host that matters, checked
// field by field against an expectation written out here by hand.
#include <cstring>
#include <string>
#include <vector>

#include "plugin_fixture.h"

using thost::App;

namespace {

// Fixed-point values written out by hand (value * 65536).
constexpr PF_Fixed F1 = 65536, F16 = 1048576, F32 = 2097152, F4096 = 268435456,
                   F32767 = 2147418112, F777 = 50921472, F337 = 22085632, F133 = 8716288;

struct Expected {
  PF_ParamDef def;   // every field, pointers zeroed
  std::string text;  // popup choices, button caption or checkbox label
};

PF_ParamDef blank(A_long id, PF_ParamType type, const char* name, PF_ParamFlags flags = 0) {
  PF_ParamDef d;
  std::memset(&d, 0, sizeof d);
  d.uu.id = id;
  d.param_type = type;
  std::strcpy(d.name, name);
  d.flags = flags;
  return d;
}

Expected popup(A_long id, const char* name, short choices, short dflt, const char* names) {
  PF_ParamDef d = blank(id, PF_Param_POPUP, name);
  d.u.pd.num_choices = choices;
  d.u.pd.dephault = dflt;
  d.u.pd.value = dflt;
  return {d, names};
}

Expected fixed(A_long id, const char* name, PF_Fixed vmin, PF_Fixed vmax, PF_Fixed smin,
               PF_Fixed smax, PF_Fixed dflt, PF_ParamFlags flags = 0) {
  PF_ParamDef d = blank(id, PF_Param_FIX_SLIDER, name, flags);
  d.u.fd.valid_min = vmin;
  d.u.fd.valid_max = vmax;
  d.u.fd.slider_min = smin;
  d.u.fd.slider_max = smax;
  d.u.fd.dephault = dflt;
  d.u.fd.value = dflt;
  d.u.fd.precision = 0;
  d.u.fd.display_flags = 0;
  return {d, ""};
}

Expected slider(A_long id, const char* name, float lo, float hi, double dflt, short precision,
                short display, PF_ParamFlags flags = 0) {
  PF_ParamDef d = blank(id, PF_Param_FLOAT_SLIDER, name, flags);
  d.u.fs_d.valid_min = lo;
  d.u.fs_d.valid_max = hi;
  d.u.fs_d.slider_min = lo;
  d.u.fs_d.slider_max = hi;
  d.u.fs_d.value = dflt;
  d.u.fs_d.dephault = static_cast<float>(dflt);
  d.u.fs_d.precision = precision;
  d.u.fs_d.display_flags = display;
  d.u.fs_d.curve_tolerance = 0.05f;
  return {d, ""};
}

Expected checkbox(A_long id, const char* name, A_long dflt) {
  PF_ParamDef d = blank(id, PF_Param_CHECKBOX, name, PF_ParamFlag_CANNOT_INTERP);
  d.u.bd.value = dflt;
  d.u.bd.dephault = static_cast<PF_Boolean>(dflt);
  return {d, ""};
}

std::vector<Expected> expectedControls() {
  std::vector<Expected> v;
  v.push_back(popup(1, "Channels", 5, 1, "RGBA|Red|Green|Blue|Alpha"));
  v.push_back(fixed(2, "Block Width", F1, F4096, F1, F4096, F32));
  v.push_back(fixed(3, "Block Height", F1, F4096, F1, F4096, F32));
  v.push_back({blank(26, PF_Param_BUTTON, "", PF_ParamFlag_SUPERVISE), "Align"});
  v.push_back(slider(4, "Shuffle Strength", 0, 1, 0.1, 3, 0));
  v.push_back(slider(5, "Shuffle Spread", 0, 1, 0.1, 3, 0));
  v.push_back(popup(6, "Shuffle Spread Direction", 3, 1, "All|Horizontal|Vertical"));
  v.push_back(fixed(7, "Random Seed", 0, F32767, 0, F32767, F777));
  v.push_back(checkbox(25, "Composite On Original", 1));
  v.push_back({blank(17, PF_Param_GROUP_START, "Time Shift"), ""});
  v.push_back(fixed(9, "Frames", 0, F16, 0, F16, 0));
  v.push_back(slider(10, "Probability", 0, 100, 25, 2, PF_ValueDisplayFlag_PERCENT,
                     PF_ParamFlag_COLLAPSE_TWIRLY));
  v.push_back(popup(11, "Stepping Unit", 2, 1, "Second|Frame"));
  v.push_back(slider(12, "Time Step [seconds]", -5, 5, 0.05, 3, 0));
  v.push_back(slider(13, "Time Step [frames]", -256, 256, 2, 1, 0));
  v.push_back(popup(14, "Edge Time Mode", 3, 3, "Repeat Last|Wrap|Mirror"));
  v.push_back(fixed(15, "Random Seed", F1, F32767, 0, F32767, F337, PF_ParamFlag_COLLAPSE_TWIRLY));
  v.push_back(checkbox(16, "Exclusive Mode", 0));
  v.push_back({blank(18, PF_Param_GROUP_END, ""), ""});
  v.push_back({blank(23, PF_Param_GROUP_START, "Mask Filter"), ""});
  v.push_back(slider(20, "Intensity", 0, 100, 0, 2, PF_ValueDisplayFlag_PERCENT));
  v.push_back(popup(21, "Type", 3, 1, "Threshold|Randomized Threshold|Randomized Mask"));
  {
    PF_ParamDef d = blank(19, PF_Param_LAYER, "Mask Source");
    d.u.ld.dephault = PF_LayerDefault_NONE;
    v.push_back({d, ""});
  }
  v.push_back(fixed(22, "Probability Seed", F1, F32767, 0, F32767, F133,
                    PF_ParamFlag_COLLAPSE_TWIRLY));
  v.push_back({blank(24, PF_Param_GROUP_END, ""), ""});
  return v;
}

// The definition with the pointers that point into the effect's memory cleared.
PF_ParamDef withoutPointers(PF_ParamDef d) {
  switch (d.param_type) {
    case PF_Param_POPUP: d.u.pd.u.namesptr = nullptr; break;
    case PF_Param_BUTTON: d.u.button_d.u.namesptr = nullptr; break;
    case PF_Param_CHECKBOX: d.u.bd.u.nameptr = nullptr; break;
    default: break;
  }
  return d;
}

void expectSameDef(const thost::AddedParam& got, const Expected& want, const std::string& where) {
  const PF_ParamDef a = withoutPointers(got.def);
  EXPECT_EQ(got.insertIndex, -1) << where;
  EXPECT_STREQ(a.name, want.def.name) << where;
  EXPECT_EQ(a.uu.id, want.def.uu.id) << where;
  EXPECT_EQ(a.param_type, want.def.param_type) << where;
  EXPECT_EQ(a.flags, want.def.flags) << where;
  EXPECT_EQ(a.ui_flags, 0) << where;
  EXPECT_EQ(a.ui_width, 0) << where;
  EXPECT_EQ(a.ui_height, 0) << where;
  EXPECT_EQ(got.namesText, want.text) << where;
  // Every other byte, union included, must be as expected (zero where unmentioned).
  EXPECT_EQ(std::memcmp(&a, &want.def, sizeof a), 0) << where << ": definitions differ";
}

void expectHeader(const thost::AddedParam& got, bool v13_23) {
  EXPECT_EQ(got.insertIndex, -1);
  EXPECT_EQ(got.def.uu.id, 8);
  EXPECT_EQ(got.def.param_type, PF_Param_NO_DATA);
  EXPECT_STREQ(got.def.name, v13_23 ? "About" : "");
  EXPECT_EQ(got.def.ui_flags, v13_23 ? PF_PUI_CONTROL : PF_PUI_TOPIC);
  EXPECT_EQ(got.def.ui_width, 320);
  EXPECT_EQ(got.def.ui_height, 17);
  EXPECT_EQ(got.def.flags, 66);
  PF_ParamDef rest = got.def;
  std::memset(&rest.name, 0, sizeof rest.name);
  rest.uu.id = 0;
  rest.param_type = 0;
  rest.ui_flags = 0;
  rest.ui_width = rest.ui_height = 0;
  rest.flags = 0;
  PF_ParamDef zero;
  std::memset(&zero, 0, sizeof zero);
  EXPECT_EQ(std::memcmp(&rest, &zero, sizeof rest), 0) << "header fields beyond the listed ones";
}

struct HostCase {
  App app;
  A_short major, minor;
  bool header;
};

class ParamTableOnHost : public PluginTest, public ::testing::WithParamInterface<HostCase> {};

}  // namespace

TEST_P(ParamTableOnHost, ControlsArriveInOrderWithEveryField) {
  const HostCase c = GetParam();
  thost::Host& h = setUpEffect(c.app, c.major, c.minor);
  const auto& added = h.addedParams();
  const std::vector<Expected> want = expectedControls();
  ASSERT_EQ(added.size(), want.size() + (c.header ? 1 : 0));
  size_t first = 0;
  if (c.header) {
    expectHeader(added[0], c.major == 13 && c.minor == 23);
    first = 1;
  }
  for (size_t i = 0; i < want.size(); ++i) {
    expectSameDef(added[first + i], want[i], "control " + std::to_string(i + 1) + " (" +
                                                 want[i].def.name + ")");
  }
  EXPECT_EQ(h.numParams(), c.header ? 27 : 26);
  EXPECT_EQ(h.outData().num_params, c.header ? 27 : 26);
  // "Channels" sits right after the input layer and the header, if any.
  EXPECT_EQ(h.param(c.header ? 2 : 1).uu.id, 1);

  const auto ui = h.registeredUI();
  if (c.header) {
    ASSERT_EQ(ui.size(), 1u);
    PF_CustomUIInfo expected;
    std::memset(&expected, 0, sizeof expected);
    expected.events = 255;
    EXPECT_EQ(std::memcmp(&ui[0], &expected, sizeof expected), 0);
    EXPECT_EQ(h.callsTo("register_ui").size(), 1u);
  } else {
    EXPECT_TRUE(ui.empty());
  }
}

INSTANTIATE_TEST_SUITE_P(
    Hosts, ParamTableOnHost,
    ::testing::Values(HostCase{App::AfterEffects, 13, 8, false},
                      HostCase{App::AfterEffects, 13, 9, true},
                      HostCase{App::AfterEffects, 13, 22, true},
                      HostCase{App::AfterEffects, 13, 23, true},
                      HostCase{App::AfterEffects, 13, 24, true},
                      HostCase{App::AfterEffects, 13, 28, true},
                      HostCase{App::AfterEffects, 14, 0, true},
                      HostCase{App::AfterEffects, 12, 30, false},
                      HostCase{App::PremierePro, 13, 4, false},
                      HostCase{App::PremierePro, 13, 28, false}),
    [](const ::testing::TestParamInfo<HostCase>& info) {
      return std::string(info.param.app == App::PremierePro ? "Premiere" : "AfterEffects") +
             "_" + std::to_string(info.param.major) + "_" + std::to_string(info.param.minor);
    });

TEST_F(PluginTest, AHeaderTheHostRefusesDoesNotStopTheSetup) {
  thost::Host& h = makeHost();
  ASSERT_EQ(h.globalSetup(), PF_Err_NONE);
  h.failCall("register_ui", PF_Err_OUT_OF_MEMORY, 1);
  EXPECT_EQ(h.paramsSetup(), PF_Err_NONE);
  EXPECT_EQ(h.numParams(), 27);
}

TEST_F(PluginTest, AHeaderControlRefusedByAddParamIsSkippedAndStillCounted) {
  thost::Host& h = makeHost();
  ASSERT_EQ(h.globalSetup(), PF_Err_NONE);
  h.failCall("add_param", PF_Err_OUT_OF_MEMORY, 1);
  EXPECT_EQ(h.paramsSetup(), PF_Err_NONE);
  // The refusal is not checked: no custom UI is asked for, every other
  // control follows, and the count still includes the header.
  ASSERT_EQ(h.callsTo("add_param").size(), 26u);
  EXPECT_EQ(h.callsTo("add_param")[0].args, "8");
  EXPECT_TRUE(h.callsTo("register_ui").empty());
  EXPECT_TRUE(h.registeredUI().empty());
  ASSERT_EQ(h.addedParams().size(), 25u);
  EXPECT_EQ(h.addedParams()[0].def.uu.id, 1);
  EXPECT_EQ(h.outData().num_params, 27);
  // The host holds one control fewer than it was told, and says so.
  expectBreaks_ = true;
  ASSERT_EQ(h.contractBreaks().size(), 1u) << joined(h.contractBreaks());
  EXPECT_NE(h.contractBreaks()[0].find("num_params is 27"), std::string::npos);
}
