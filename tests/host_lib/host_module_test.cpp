// Loading modules, registration, host identities and the records a command gets.
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "fake_host.h"

using thost::App;
using thost::Host;
using thost::HostCall;
using thost::PluginModule;
using thost_test::FakeHost;

TEST(PluginModuleTest, ResolvesBothEntryPoints) {
  PluginModule module(thost_test::fakeEffectPath());
  EXPECT_NE(module.dataEntry(), nullptr);
  EXPECT_NE(module.effectMain(), nullptr);
  EXPECT_EQ(module.path(), thost_test::fakeEffectPath());
}

TEST(PluginModuleTest, MissingFileThrowsWithTheLoaderMessage) {
  try {
    PluginModule module("/nonexistent/dir/effect.so");
    FAIL() << "no exception";
  } catch (const std::runtime_error& e) {
    const std::string what = e.what();
    EXPECT_NE(what.find("/nonexistent/dir/effect.so"), std::string::npos) << what;
    EXPECT_NE(what.find("No such file"), std::string::npos) << what;
  }
}

TEST(PluginModuleTest, ModuleWithoutEffectMainIsRejected) {
  try {
    PluginModule module(THOST_FAKE_NO_MAIN);
    FAIL() << "no exception";
  } catch (const std::runtime_error& e) {
    EXPECT_NE(std::string(e.what()).find("EffectMain"), std::string::npos) << e.what();
  }
}

TEST(PluginModuleTest, DefaultPathFollowsTheEnvironment) {
  const char* old = std::getenv("TESSELUX_PLUGIN");
  const std::string saved = old ? old : "";
  setenv("TESSELUX_PLUGIN", "/some/where/effect.so", 1);
  EXPECT_EQ(Host::defaultPluginPath(), "/some/where/effect.so");
  unsetenv("TESSELUX_PLUGIN");
  const std::string built = Host::defaultPluginPath();
  EXPECT_EQ(built.substr(built.size() - std::string("/tesselux.so").size()), "/tesselux.so");
  if (old) setenv("TESSELUX_PLUGIN", saved.c_str(), 1);
}

TEST(CommandNameTest, NamesAndNumbers) {
  EXPECT_EQ(thost::commandName(PF_Cmd_ABOUT), "PF_Cmd_ABOUT");
  EXPECT_EQ(thost::commandName(PF_Cmd_SEQUENCE_FLATTEN), "PF_Cmd_SEQUENCE_FLATTEN");
  EXPECT_EQ(thost::commandName(PF_Cmd_GET_FLATTENED_SEQUENCE_DATA),
            "PF_Cmd_GET_FLATTENED_SEQUENCE_DATA");
  EXPECT_EQ(thost::commandName(PF_Cmd_GPU_DEVICE_SETDOWN), "PF_Cmd_GPU_DEVICE_SETDOWN");
  EXPECT_EQ(thost::commandName(34), "PF_Cmd_34");
  EXPECT_EQ(thost::commandName(-1), "PF_Cmd_-1");
}

TEST_F(FakeHost, RegistrationRecordsTheEightValuesInOrder) {
  ASSERT_EQ(host.registerPlugin(), A_Err_NONE);
  const thost::Registration& r = host.registration();
  EXPECT_EQ(r.callCount, 1);
  EXPECT_EQ(r.name, "Fake");
  EXPECT_EQ(r.matchName, "fake.match");
  EXPECT_EQ(r.category, "Testing");
  EXPECT_EQ(r.entryPoint, "EffectMain");
  EXPECT_EQ(r.kind, 0x65464B54);
  EXPECT_EQ(r.apiVersion, 13);
  EXPECT_EQ(r.apiSubversion, 28);
  EXPECT_EQ(r.reservedInfo, 8);
  ASSERT_EQ(host.calls().size(), 1u);
  EXPECT_EQ(host.calls()[0],
            (HostCall{"PF_PluginDataCB", "Fake,fake.match,Testing,EffectMain,0x65464B54,13,28,8"}));
  EXPECT_EQ(host.calls()[0].via, "registration");
  EXPECT_TRUE(breaks().empty());
}

TEST_F(FakeHost, RegistrationCallbackCanBeMadeToFail) {
  host.failCall("PF_PluginDataCB", 7);
  EXPECT_EQ(host.registerPlugin(), 7);
  EXPECT_EQ(host.registration().callCount, 0);
  EXPECT_EQ(host.calls().size(), 1u);
  host.failCall("PluginDataCB", 9);
  EXPECT_EQ(host.registerPlugin(), 9);
}

TEST_F(FakeHost, InDataDescribesTheHostAndComposition) {
  PF_InData& in = host.inData();
  EXPECT_NE(in.effect_ref, nullptr);
  EXPECT_NE(in.utils, nullptr);
  EXPECT_NE(in.pica_basicP, nullptr);
  EXPECT_EQ(in.appl_id, 0x46585443);
  EXPECT_EQ(in.version.major, 13);
  EXPECT_EQ(in.version.minor, 28);
  EXPECT_EQ(in.width, 1920);
  EXPECT_EQ(in.height, 1080);
  EXPECT_EQ(in.time_scale, 3000u);
  EXPECT_EQ(in.time_step, 100);
  EXPECT_EQ(in.total_time, 30000);
  EXPECT_EQ(in.current_time, 0);
  EXPECT_EQ(in.downsample_x.num, 1);
  EXPECT_EQ(in.downsample_x.den, 1u);
  EXPECT_EQ(in.downsample_y.num, 1);
  EXPECT_EQ(in.downsample_y.den, 1u);

  host.setApp(App::PremierePro);
  host.setApiVersion(13, 4);
  host.setLayerSize(640, 360);
  host.setTime(200, 50, 1000, 600);
  host.setDownsample({1, 2}, {1, 4});
  EXPECT_EQ(host.app(), App::PremierePro);
  EXPECT_EQ(in.appl_id, 0x50724D72);
  EXPECT_EQ(in.version.minor, 4);
  EXPECT_EQ(in.width, 640);
  EXPECT_EQ(in.height, 360);
  EXPECT_EQ(in.extent_hint.right, 640);
  EXPECT_EQ(in.current_time, 200);
  EXPECT_EQ(in.time_step, 50);
  EXPECT_EQ(in.local_time_step, 50);
  EXPECT_EQ(in.total_time, 1000);
  EXPECT_EQ(in.time_scale, 600u);
  EXPECT_EQ(in.downsample_x.den, 2u);
  EXPECT_EQ(in.downsample_y.den, 4u);
}

TEST(HostIdentityTest, ConstructorTakesIdentityAndVersion) {
  Host host(thost_test::fakeEffectPath(), App::PremierePro, thost::ApiVersion{13, 4});
  EXPECT_EQ(host.inData().appl_id, PF_APPL_ID_PREMIERE);
  EXPECT_EQ(host.inData().version.major, 13);
  EXPECT_EQ(host.inData().version.minor, 4);
}

TEST_F(FakeHost, GlobalSetupInAfterEffectsAsksForNothing) {
  ASSERT_EQ(host.globalSetup(), PF_Err_NONE);
  EXPECT_EQ(host.outData().my_version, PF_VERSION(2, 3, 4, PF_Stage_BETA, 5));
  EXPECT_EQ(host.outData().out_flags, PF_OutFlag_CUSTOM_UI);
  EXPECT_EQ(host.outData().out_flags2,
            PF_OutFlag2_SUPPORTS_SMART_RENDER | PF_OutFlag2_SUPPORTS_THREADED_RENDERING);
  EXPECT_TRUE(host.calls().empty());
  EXPECT_TRUE(host.supportedPixelFormats().empty());
  EXPECT_TRUE(breaks().empty());
}

TEST_F(FakeHost, GlobalSetupInPremiereRecordsFormatsAndCallsInOrder) {
  host.setApp(App::PremierePro);
  ASSERT_EQ(host.globalSetup(), PF_Err_NONE);
  const std::vector<HostCall> expected = {
      {"AcquireSuite", "PF Pixel Format Suite,1"},
      {"ClearSupportedPixelFormats", ""},
      {"AddSupportedPixelFormat", "0x62677261"},
      {"AddSupportedPixelFormat", "0x62675241"},
      {"AcquireSuite", "PF Utility Suite,4"},
      {"EffectWantsCheckedOutFramesToMatchRenderPixelFormat", ""},
      {"ReleaseSuite", "PF Utility Suite,4"},
      {"ReleaseSuite", "PF Pixel Format Suite,1"},
  };
  EXPECT_EQ(host.calls(), expected);
  EXPECT_EQ(host.calls()[1].via, "PF Pixel Format Suite");
  EXPECT_EQ(host.calls()[0].via, "SPBasic");
  EXPECT_EQ(host.supportedPixelFormats(),
            (std::vector<PrPixelFormat>{PrPixelFormat_ARGB_4444_8u, PrPixelFormat_ARGB_4444_32f}));
  EXPECT_EQ(host.acquireCount("PF Pixel Format Suite", 1), 1);
  EXPECT_EQ(host.releaseCount("PF Pixel Format Suite", 1), 1);
  EXPECT_EQ(host.acquireCount("PF Utility Suite", 4), 1);
  EXPECT_EQ(host.releaseCount("PF Utility Suite", 4), 1);
  EXPECT_TRUE(breaks().empty());

  host.clearSuiteCounts();
  EXPECT_EQ(host.acquireCount("PF Utility Suite", 4), 0);
}

TEST_F(FakeHost, GlobalSetupInPremiereWithoutTheUtilitySuite) {
  host.setApp(App::PremierePro);
  host.removeSuite("PF Utility Suite", 4);
  EXPECT_EQ(host.globalSetup(), A_Err_MISSING_SUITE);
  EXPECT_EQ(host.acquireCount("PF Utility Suite", 4), 0);
  EXPECT_EQ(host.callsTo("AcquireSuite").back(), (HostCall{"AcquireSuite", "PF Utility Suite,4"}));
  EXPECT_TRUE(breaks().empty());  // a removed suite is a plain refusal
}

TEST_F(FakeHost, OutDataStartsZeroed) {
  startUp();
  ASSERT_EQ(host.sequenceSetup(), PF_Err_NONE);
  PF_OutData& out = host.outData();
  out.my_version = 5;
  out.out_flags = 0x100;
  out.return_msg[0] = 'x';
  out.num_params = 3;
  ASSERT_EQ(host.send(PF_Cmd_FRAME_SETUP), PF_Err_NONE);
  EXPECT_EQ(out.my_version, 0u);
  EXPECT_EQ(out.out_flags, 0);
  EXPECT_EQ(out.return_msg[0], '\0');
  EXPECT_EQ(out.num_params, 0);
  EXPECT_EQ(out.sequence_data, nullptr);
  EXPECT_NE(host.sequenceData(), nullptr);
  EXPECT_EQ(host.inData().sequence_data, host.sequenceData());
  EXPECT_EQ(host.inData().num_params, 10);
}

TEST_F(FakeHost, InDataEditsReachTheEffect) {
  startUp();
  host.inData().pica_basicP = nullptr;
  host.inData().current_time = 4242;
  ASSERT_EQ(scenario("checkout_keep"), PF_Err_NONE);
  ASSERT_EQ(host.callsTo("checkout_param").size(), 1u);
  EXPECT_EQ(host.callsTo("checkout_param")[0].args, "2,4242,100,3000");
  host.clearContractBreaks();
}

TEST_F(FakeHost, AboutUsesTheMessageMechanism) {
  ASSERT_EQ(host.about(), PF_Err_NONE);
  EXPECT_EQ(host.returnMessage(), "Fake 2.3");
  EXPECT_EQ(host.calls(), (std::vector<HostCall>{{"sprintf", "Fake 2.3"}}));
  EXPECT_EQ(host.calls()[0].via, "utils");
}
