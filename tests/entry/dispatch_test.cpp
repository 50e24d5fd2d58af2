// The command table of EffectMain.
#include <cstring>
#include <stdexcept>

#include "plugin_fixture.h"

namespace {

bool outDataUntouched(const PF_OutData& out) {
  PF_OutData zero;
  std::memset(&zero, 0, sizeof zero);
  return std::memcmp(&out, &zero, sizeof zero) == 0;
}

}  // namespace

TEST_F(PluginTest, CommandsAbove28ReturnNoneAndTouchNothing) {
  thost::Host& h = setUpEffect();
  for (PF_Cmd cmd : {29, 30, 31, 32, 33, 34, 100, 0x7FFFFFFF}) {
    h.clearCalls();
    EXPECT_EQ(h.send(cmd), PF_Err_NONE) << cmd;
    EXPECT_TRUE(h.calls().empty()) << cmd;
    EXPECT_TRUE(outDataUntouched(h.outData())) << cmd;
  }
}

TEST_F(PluginTest, CommandsWithNothingToDoReturnNoneAndTouchNothing) {
  thost::Host& h = setUpEffect();
  for (PF_Cmd cmd : {PF_Cmd_UNUSED_0, PF_Cmd_GLOBAL_SETDOWN, PF_Cmd_DO_DIALOG,
                     PF_Cmd_FRAME_SETUP, PF_Cmd_FRAME_SETDOWN, PF_Cmd_GET_EXTERNAL_DEPENDENCIES,
                     PF_Cmd_COMPLETELY_GENERAL, PF_Cmd_QUERY_DYNAMIC_FLAGS, PF_Cmd_AUDIO_RENDER,
                     PF_Cmd_AUDIO_SETUP, PF_Cmd_AUDIO_SETDOWN, PF_Cmd_ARBITRARY_CALLBACK,
                     PF_Cmd_RESERVED1, PF_Cmd_RESERVED2, PF_Cmd_RESERVED3}) {
    h.clearCalls();
    EXPECT_EQ(h.send(cmd), PF_Err_NONE) << cmd;
    EXPECT_TRUE(h.calls().empty()) << cmd;
    EXPECT_TRUE(outDataUntouched(h.outData())) << cmd;
  }
}

void expectCountCheckFailure(thost::Host& h) {
  try {
    h.paramsSetup();
    FAIL() << "the second parameter setup must throw";
  } catch (const std::logic_error& e) {
    EXPECT_STREQ(e.what(),
                 "Reported parameter count does not match actual parameter count. This would "
                 "lead to incorrect values.");
  }
}

TEST_F(PluginTest, ASecondParameterSetupFailsTheCountCheckInAfterEffects) {
  // Setup leaves the map holding the effect's own layer (id 0) as well, so a
  // second setup in the same process finds one entry more than its table.
  thost::Host& h = setUpEffect();
  ASSERT_EQ(h.numParams(), 27);
  expectCountCheckFailure(h);
}

TEST_F(PluginTest, ASecondParameterSetupFailsTheCountCheckInPremierePro) {
  // Premiere Pro has no header control; setup adds its id and id 0, which
  // events and renders look up, so the map is only read from then on.
  thost::Host& h = setUpEffect(thost::App::PremierePro, 13, 28);
  ASSERT_EQ(h.numParams(), 26);
  expectCountCheckFailure(h);
}

TEST_F(PluginTest, PremiereEventsLeaveTheIdMapAsSetupLeftIt) {
  // The event's lookup of the header id must find it present (index 0, no
  // control): a click on a control is not taken for the header.
  thost::Host& h = setUpEffect(thost::App::PremierePro, 13, 28);
  ASSERT_EQ(h.click(5, 1000), PF_Err_NONE);
  ASSERT_EQ(h.click(5, 1001), PF_Err_NONE);
  EXPECT_EQ(h.returnMessage(), "");
  expectCountCheckFailure(h);
}

TEST_F(PluginTest, AParameterTheHostRefusesEndsSetupWithItsError) {
  thost::Host& h = makeHost();
  ASSERT_EQ(h.globalSetup(), PF_Err_NONE);
  h.failCall("add_param", PF_Err_OUT_OF_MEMORY, 4);  // header, Channels, Block Width, Block Height
  EXPECT_EQ(h.paramsSetup(), PF_Err_OUT_OF_MEMORY);
  EXPECT_EQ(h.callsTo("add_param").size(), 4u);  // nothing after the refused one
  EXPECT_EQ(h.outData().num_params, 0);          // not set, not verified
}
