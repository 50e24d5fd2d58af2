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

TEST_F(PluginTest, ASecondParameterSetupAfterTheIdMapGrewFailsTheCountCheck) {
  // In Premiere Pro there is no header control, so the event command's lookup
  // of the header id inserts it: the map now holds one entry more than the
  // table, and a second setup in the same process must refuse to go on.
  thost::Host& h = setUpEffect(thost::App::PremierePro, 13, 28);  // events need 13.9 or later
  ASSERT_EQ(h.numParams(), 26);
  ASSERT_EQ(h.click(5, 1000), PF_Err_NONE);
  try {
    h.paramsSetup();
    FAIL() << "the second parameter setup must throw";
  } catch (const std::logic_error& e) {
    EXPECT_STREQ(e.what(),
                 "Reported parameter count does not match actual parameter count. This would "
                 "lead to incorrect values.");
  }
}

TEST_F(PluginTest, ASecondParameterSetupReassignsEveryIdToOnePastTheMapSize) {
  // Re-adding an id already present gives it size + 1 without growing the map,
  // so after a second setup every control answers to the same index.
  thost::Host& h = setUpEffect();
  ASSERT_EQ(h.paramsSetup(), PF_Err_NONE);
  // The header no longer sits at index 1: a click there is no longer on it.
  ASSERT_EQ(h.click(1, 1000), PF_Err_NONE);
  ASSERT_EQ(h.click(1, 1001), PF_Err_NONE);
  EXPECT_EQ(h.returnMessage(), "");
  ASSERT_EQ(h.click(27, 2000), PF_Err_NONE);
  ASSERT_EQ(h.click(27, 2001), PF_Err_NONE);
  EXPECT_NE(h.returnMessage().find("Tesselux"), std::string::npos);
}

TEST_F(PluginTest, AParameterTheHostRefusesEndsSetupWithItsError) {
  thost::Host& h = makeHost();
  ASSERT_EQ(h.globalSetup(), PF_Err_NONE);
  h.failCall("add_param", PF_Err_OUT_OF_MEMORY, 4);  // header, Channels, Block Width, Block Height
  EXPECT_EQ(h.paramsSetup(), PF_Err_OUT_OF_MEMORY);
  EXPECT_EQ(h.callsTo("add_param").size(), 4u);  // nothing after the refused one
  EXPECT_EQ(h.outData().num_params, 0);          // not set, not verified
}
