// Global setup in both hosts, and its failures.
#include <cstring>

#include "plugin_fixture.h"

using thost::App;
using thost::HostCall;

namespace {

void expectSuitesBalanced(const thost::Host& h) {
  for (auto [name, version] : {std::pair<const char*, int>{"PF Pixel Format Suite", 1},
                               {"PF Utility Suite", 4}}) {
    EXPECT_EQ(h.acquireCount(name, version), h.releaseCount(name, version)) << name;
  }
}

}  // namespace

TEST_F(PluginTest, AfterEffectsGlobalSetupWritesVersionAndBothFlagWords) {
  thost::Host& h = makeHost(App::AfterEffects, 13, 28);
  h.clearCalls();
  ASSERT_EQ(h.globalSetup(), PF_Err_NONE);
  EXPECT_EQ(h.outData().my_version, 691713u);
  EXPECT_EQ(h.outData().my_version, 0x000A8E01u);
  EXPECT_EQ(h.outData().out_flags, 0x06008000);
  EXPECT_EQ(h.outData().out_flags2, 0x08801410);
  // After Effects needs no suite at global setup.
  EXPECT_TRUE(h.callsTo("AcquireSuite").empty());
  EXPECT_TRUE(h.supportedPixelFormats().empty());
}

TEST_F(PluginTest, PremiereGlobalSetupAnnouncesThreeFormatsInOrderAndAsksForMatchingFrames) {
  thost::Host& h = makeHost(App::PremierePro, 13, 4);
  h.clearCalls();
  ASSERT_EQ(h.globalSetup(), PF_Err_NONE);
  EXPECT_EQ(h.outData().my_version, 691713u);
  EXPECT_EQ(h.outData().out_flags, 0x06008000);
  EXPECT_EQ(h.outData().out_flags2, 0x08801410);
  EXPECT_EQ(h.supportedPixelFormats(),
            (std::vector<PrPixelFormat>{static_cast<PrPixelFormat>(0x62677261),
                                        static_cast<PrPixelFormat>(0x62677241),
                                        static_cast<PrPixelFormat>(0x62675241)}));

  // Suite traffic and suite calls in order; suite names carry their versions.
  std::vector<std::string> seq;
  for (const HostCall& c : h.calls()) {
    if (c.fn == "AcquireSuite" || c.fn == "ReleaseSuite") {
      seq.push_back(c.fn + " " + c.args);
    } else if (c.fn == "ClearSupportedPixelFormats" || c.fn == "AddSupportedPixelFormat" ||
               c.fn == "EffectWantsCheckedOutFramesToMatchRenderPixelFormat") {
      seq.push_back(c.fn);
    }
  }
  const std::vector<std::string> expected = {
      "AcquireSuite PF Pixel Format Suite,1",
      "ClearSupportedPixelFormats",
      "AddSupportedPixelFormat",
      "AddSupportedPixelFormat",
      "AddSupportedPixelFormat",
      "AcquireSuite PF Utility Suite,4",
      "EffectWantsCheckedOutFramesToMatchRenderPixelFormat",
      "ReleaseSuite PF Utility Suite,4",
      "ReleaseSuite PF Pixel Format Suite,1",
  };
  EXPECT_EQ(seq, expected);
  expectSuitesBalanced(h);
}

TEST_F(PluginTest, PremiereWithoutPixelFormatSuiteFailsWith13AndMessage) {
  thost::Host& h = makeHost(App::PremierePro, 13, 4);
  h.removeSuite("PF Pixel Format Suite", 1);
  EXPECT_EQ(h.globalSetup(), A_Err_MISSING_SUITE);
  EXPECT_EQ(h.returnMessage(), "Not able to acquire AEFX Suite.");
  EXPECT_TRUE(h.outData().out_flags & PF_OutFlag_DISPLAY_ERROR_MESSAGE);
  EXPECT_TRUE(h.supportedPixelFormats().empty());
  EXPECT_EQ(h.acquireCount("PF Utility Suite", 4), 0);
  expectSuitesBalanced(h);
}

TEST_F(PluginTest, PremiereWithoutUtilitySuiteFailsWith13AndReleasesThePixelFormatSuite) {
  thost::Host& h = makeHost(App::PremierePro, 13, 4);
  h.removeSuite("PF Utility Suite", 4);
  EXPECT_EQ(h.globalSetup(), A_Err_MISSING_SUITE);
  EXPECT_EQ(h.returnMessage(), "Not able to acquire AEFX Suite.");
  EXPECT_TRUE(h.outData().out_flags & PF_OutFlag_DISPLAY_ERROR_MESSAGE);
  EXPECT_EQ(h.acquireCount("PF Pixel Format Suite", 1), 1);
  EXPECT_EQ(h.releaseCount("PF Pixel Format Suite", 1), 1);
  expectSuitesBalanced(h);
}

TEST_F(PluginTest, GlobalSetdownDoesNothing) {
  thost::Host& h = makeHost();
  ASSERT_EQ(h.globalSetup(), PF_Err_NONE);
  h.clearCalls();
  EXPECT_EQ(h.globalSetdown(), PF_Err_NONE);
  EXPECT_TRUE(h.calls().empty());
}

TEST_F(PluginTest, AboutShowsNameAndVersion) {
  thost::Host& h = makeHost();
  ASSERT_EQ(h.globalSetup(), PF_Err_NONE);
  EXPECT_EQ(h.about(), PF_Err_NONE);
  const std::string msg = h.returnMessage();
  EXPECT_NE(msg.find("Tesselux"), std::string::npos) << msg;
  EXPECT_NE(msg.find("1.5.1"), std::string::npos) << msg;
  EXPECT_EQ(h.callsTo("sprintf").size(), 1u);
}
