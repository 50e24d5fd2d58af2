// Parameter setup, the live parameter array, and the Param Utils suite.
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "fake_host.h"

using thost::HostCall;
using thost_test::FakeHost;
using Breaks = std::vector<std::string>;

TEST_F(FakeHost, AddParamKeepsEveryDefinitionInOrder) {
  ASSERT_EQ(host.paramsSetup(), PF_Err_NONE);
  const auto& added = host.addedParams();
  ASSERT_EQ(added.size(), 9u);
  const std::vector<A_long> ids = {10, 11, 12, 13, 14, 15, 16, 17, 18};
  const std::vector<PF_ParamType> types = {
      PF_Param_POPUP,    PF_Param_GROUP_START, PF_Param_FIX_SLIDER,
      PF_Param_FLOAT_SLIDER, PF_Param_CHECKBOX, PF_Param_GROUP_END,
      PF_Param_BUTTON,   PF_Param_LAYER,       PF_Param_NO_DATA};
  for (size_t i = 0; i < added.size(); ++i) {
    EXPECT_EQ(added[i].def.uu.id, ids[i]) << i;
    EXPECT_EQ(added[i].def.param_type, types[i]) << i;
    EXPECT_EQ(added[i].insertIndex, -1) << i;
  }
  EXPECT_STREQ(added[0].def.name, "Choice");
  EXPECT_EQ(added[0].def.u.pd.dephault, 2);
  EXPECT_EQ(added[2].def.u.fd.slider_max, 50 << 16);
  EXPECT_FLOAT_EQ(added[3].def.u.fs_d.dephault, 25.0f);
  EXPECT_EQ(added[4].def.flags, PF_ParamFlag_CANNOT_INTERP);
  EXPECT_EQ(added[8].def.ui_width, 320);
  EXPECT_EQ(host.numParams(), 10);

  std::vector<HostCall> expected;
  for (A_long id : ids) expected.push_back({"add_param", std::to_string(id)});
  expected.push_back({"register_ui", "4"});
  EXPECT_EQ(host.calls(), expected);
  ASSERT_EQ(host.registeredUI().size(), 1u);
  EXPECT_EQ(host.registeredUI()[0].events, PF_CustomEFlag_EFFECT);
  EXPECT_TRUE(breaks().empty());
}

TEST_F(FakeHost, AddParamCopiesStringsOutOfTheEffectsMemory) {
  ASSERT_EQ(host.paramsSetup(), PF_Err_NONE);
  const auto& added = host.addedParams();
  // The effect scribbled over its buffer after adding the popup.
  EXPECT_EQ(added[0].namesText, "One|Two|Three");
  EXPECT_STREQ(added[0].def.u.pd.u.namesptr, "One|Two|Three");
  EXPECT_STREQ(host.param(1).u.pd.u.namesptr, "One|Two|Three");
  EXPECT_EQ(added[4].namesText, "on");
  EXPECT_STREQ(host.param(5).u.bd.u.nameptr, "on");
  EXPECT_EQ(added[6].namesText, "Press");
  EXPECT_STREQ(host.param(7).u.button_d.u.namesptr, "Press");
  EXPECT_EQ(added[2].namesText, "");
}

TEST_F(FakeHost, LiveParametersStartWithTheInputLayer) {
  EXPECT_EQ(host.param(0).param_type, PF_Param_LAYER);
  EXPECT_THROW(host.param(1), std::out_of_range);
  ASSERT_EQ(host.paramsSetup(), PF_Err_NONE);
  EXPECT_EQ(host.param(0).param_type, PF_Param_LAYER);
  EXPECT_EQ(host.param(1).u.pd.value, 2);
  EXPECT_EQ(host.param(9).param_type, PF_Param_NO_DATA);
  EXPECT_THROW(host.param(10), std::out_of_range);
  EXPECT_THROW(host.param(-1), std::out_of_range);
}

TEST_F(FakeHost, ASecondParamsSetupStartsAfresh) {
  ASSERT_EQ(host.paramsSetup(), PF_Err_NONE);
  ASSERT_EQ(host.paramsSetup(), PF_Err_NONE);
  EXPECT_EQ(host.addedParams().size(), 9u);
  EXPECT_EQ(host.registeredUI().size(), 1u);
  EXPECT_TRUE(breaks().empty());
}

TEST_F(FakeHost, WrongParameterCountIsABreak) {
  host.inData().what_cpu = 99;  // the fake then reports 5
  ASSERT_EQ(host.paramsSetup(), PF_Err_NONE);
  EXPECT_EQ(host.numParams(), 5);
  EXPECT_EQ(breaks(), (Breaks{"PF_Cmd_PARAMS_SETUP: out_data->num_params is 5 but the effect added 9 "
                              "parameters (plus the input layer)"}));
  host.clearContractBreaks();
}

TEST_F(FakeHost, AddParamFailureIsReturnedToTheEffect) {
  host.failCall("add_param", PF_Err_OUT_OF_MEMORY, 3);
  EXPECT_EQ(host.paramsSetup(), PF_Err_OUT_OF_MEMORY);
  EXPECT_EQ(host.addedParams().size(), 2u);
  EXPECT_EQ(host.numParams(), 0);
  EXPECT_TRUE(breaks().empty());
}

TEST_F(FakeHost, AddParamOutsideParamsSetupIsABreak) {
  ASSERT_EQ(scenario("add_param_late"), PF_Err_NONE);
  EXPECT_EQ(host.returnMessage(), std::to_string(PF_Err_BAD_CALLBACK_PARAM));
  EXPECT_EQ(breaks(), (Breaks{"PF_Cmd_COMPLETELY_GENERAL: add_param outside PF_Cmd_PARAMS_SETUP"}));
  host.clearContractBreaks();
}

TEST_F(FakeHost, UpdateParamUIIsRecordedAndReachesTheLiveParameters) {
  startUp();
  ASSERT_EQ(host.updateParamsUI(), PF_Err_NONE);
  const auto& updates = host.paramUIUpdates();
  ASSERT_EQ(updates.size(), 2u);
  EXPECT_EQ(updates[0].index, 1);
  EXPECT_EQ(updates[0].def.ui_flags, PF_PUI_DISABLED);
  EXPECT_EQ(updates[0].def.uu.id, 10);
  EXPECT_EQ(updates[1].index, 3);
  EXPECT_EQ(updates[1].def.ui_flags, PF_PUI_NONE);
  EXPECT_STREQ(updates[1].def.name, "Size (px)");
  EXPECT_EQ(host.param(1).ui_flags, PF_PUI_DISABLED);
  EXPECT_STREQ(host.param(3).name, "Size (px)");
  EXPECT_EQ(host.calls(), (std::vector<HostCall>{{"AcquireSuite", "PF Param Utils Suite,3"},
                                                 {"PF_UpdateParamUI", "1"},
                                                 {"PF_UpdateParamUI", "3"},
                                                 {"ReleaseSuite", "PF Param Utils Suite,3"}}));
  EXPECT_EQ(host.calls()[1].via, "PF Param Utils Suite");
  EXPECT_TRUE(breaks().empty());

  host.clearParamUIUpdates();
  EXPECT_TRUE(host.paramUIUpdates().empty());
}

TEST_F(FakeHost, UpdateParamUICanFail) {
  startUp();
  host.failCall("PF_UpdateParamUI", PF_Err_BAD_CALLBACK_PARAM, 1);
  EXPECT_EQ(host.updateParamsUI(), PF_Err_BAD_CALLBACK_PARAM);
  EXPECT_EQ(host.callsTo("PF_UpdateParamUI").size(), 1u);
  EXPECT_TRUE(host.paramUIUpdates().empty());
  EXPECT_EQ(host.param(1).ui_flags, PF_PUI_NONE);
  EXPECT_TRUE(breaks().empty());
}

TEST_F(FakeHost, UserChangedParamWritesReachTheHost) {
  startUp();
  ASSERT_EQ(host.userChangedParam(7), PF_Err_NONE);
  EXPECT_EQ(host.param(3).u.fd.value, 50 << 16);
  EXPECT_EQ(host.param(3).uu.change_flags, PF_ChangeFlag_CHANGED_VALUE);
}

TEST_F(FakeHost, ParamUtilsAnswerSensibly) {
  startUp();
  ASSERT_EQ(scenario("param_utils"), PF_Err_NONE);
  EXPECT_EQ(host.returnMessage(), "0 count=0 same=1 other=0 bad=513");
  EXPECT_TRUE(breaks().empty());
}
