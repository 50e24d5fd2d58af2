// Suites, handles, sequence data, messages and failure injection: what the
// host records and which contract breaks it reports, line for line.
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include "fake_host.h"

using thost::App;
using thost::HostCall;
using thost_test::FakeHost;
using Breaks = std::vector<std::string>;

namespace {
const std::string kGeneral = "PF_Cmd_COMPLETELY_GENERAL: ";
}

// ---------------------------------------------------------------- suites

TEST_F(FakeHost, EveryListedSuiteIsHandedOutAndCounted) {
  ASSERT_EQ(scenario("all_suites"), PF_Err_NONE);
  EXPECT_EQ(host.returnMessage(), "++++++++");
  for (const auto& [name, version] : std::vector<std::pair<std::string, int>>{
           {"PF Handle Suite", 2},
           {"PF World Suite", 2},
           {"PF Effect Custom UI Suite", 1},
           {"DRAWBOT Draw Suite", 1},
           {"DRAWBOT Supplier Suite", 1},
           {"DRAWBOT Surface Suite", 2},
           {"DRAWBOT Path Suite", 1},
           {"PF Param Utils Suite", 3}}) {
    EXPECT_EQ(host.acquireCount(name, version), 1) << name;
    EXPECT_EQ(host.releaseCount(name, version), 1) << name;
  }
  EXPECT_TRUE(breaks().empty());
}

TEST_F(FakeHost, UnknownSuiteIsRefusedAndABreak) {
  ASSERT_EQ(scenario("unknown_suite"), PF_Err_NONE);
  EXPECT_EQ(host.returnMessage(), "refused");
  EXPECT_EQ(host.calls(), (std::vector<HostCall>{{"AcquireSuite", "No Such Suite,1"}}));
  EXPECT_EQ(breaks(), (Breaks{kGeneral + "unknown suite \"No Such Suite\" version 1 asked for"}));
  host.clearContractBreaks();
}

TEST_F(FakeHost, PremiereSuitesAreRefusedToAfterEffectsWithoutABreak) {
  ASSERT_EQ(scenario("premiere_suites"), PF_Err_NONE);
  EXPECT_EQ(host.returnMessage(), "formats refused, utility refused");
  EXPECT_EQ(host.acquireCount("PF Pixel Format Suite", 1), 0);
  EXPECT_TRUE(breaks().empty());

  host.setApp(App::PremierePro);
  ASSERT_EQ(scenario("premiere_suites"), PF_Err_NONE);
  EXPECT_EQ(host.returnMessage(), "formats granted, utility granted");
  EXPECT_EQ(host.acquireCount("PF Pixel Format Suite", 1), 1);
  EXPECT_TRUE(breaks().empty());
}

TEST_F(FakeHost, RemovedSuiteIsRefusedUntilRestored) {
  host.removeSuite("PF Handle Suite", 2);
  host.removeSuite("PF Param Utils Suite", 3);
  ASSERT_EQ(scenario("all_suites"), PF_Err_NONE);
  EXPECT_EQ(host.returnMessage(), "-++++++-");
  EXPECT_TRUE(breaks().empty());
  host.restoreSuite("PF Handle Suite", 2);
  ASSERT_EQ(scenario("all_suites"), PF_Err_NONE);
  EXPECT_EQ(host.returnMessage(), "+++++++-");
}

TEST_F(FakeHost, AcquireSuiteCanBeMadeToFail) {
  host.failCall("AcquireSuite", kSPSuiteNotFoundError, 2);
  ASSERT_EQ(scenario("all_suites"), PF_Err_NONE);
  EXPECT_EQ(host.returnMessage(), "+-++++++");
  EXPECT_EQ(host.failuresFired(), 1);
  host.failCall("AcquireSuite", kSPSuiteNotFoundError);
  ASSERT_EQ(scenario("all_suites"), PF_Err_NONE);
  EXPECT_EQ(host.returnMessage(), "--------");
  EXPECT_EQ(host.failuresFired(), 9);
  host.clearFailures();
  EXPECT_EQ(host.failuresFired(), 0);
  ASSERT_EQ(scenario("all_suites"), PF_Err_NONE);
  EXPECT_EQ(host.returnMessage(), "++++++++");
  EXPECT_EQ(host.failuresFired(), 0);
  EXPECT_TRUE(breaks().empty());
}

TEST_F(FakeHost, SuiteKeptPastTheCommandIsReportedOnce) {
  ASSERT_EQ(scenario("keep_suite"), PF_Err_NONE);
  EXPECT_EQ(breaks(), (Breaks{kGeneral +
                              "suite \"PF Handle Suite\" version 2 still acquired at the end of the "
                              "command (1 acquisition not released)"}));
  ASSERT_EQ(host.send(PF_Cmd_FRAME_SETUP), PF_Err_NONE);
  EXPECT_EQ(breaks().size(), 1u);
  host.clearContractBreaks();
}

TEST_F(FakeHost, ReleasingASuiteNotHeldIsCountedAndABreak) {
  ASSERT_EQ(scenario("release_unheld"), PF_Err_NONE);
  EXPECT_EQ(host.releaseCount("PF Handle Suite", 2), 1);
  EXPECT_EQ(host.acquireCount("PF Handle Suite", 2), 0);
  EXPECT_EQ(breaks(), (Breaks{kGeneral +
                              "ReleaseSuite of \"PF Handle Suite\" version 2, which the effect "
                              "does not hold"}));
  host.clearContractBreaks();
}

namespace {
// Effect code linked into the test: keeps a suite past the end of the command.
PF_Err keepHandleSuite(PF_Cmd, PF_InData* in, PF_OutData* out, PF_ParamDef*[], PF_LayerDef*,
                       void*) {
  const void* suite = nullptr;
  in->pica_basicP->AcquireSuite(kPFHandleSuite, 2, &suite);
  std::snprintf(out->return_msg, sizeof out->return_msg, "%s", suite ? "held" : "none");
  return PF_Err_INTERNAL_STRUCT_DAMAGED;
}
}  // namespace

TEST_F(FakeHost, SendToRunsLinkedCodeWithTheHostsRecordsAndChecks) {
  EXPECT_EQ(host.sendTo(keepHandleSuite, PF_Cmd_COMPLETELY_GENERAL),
            PF_Err_INTERNAL_STRUCT_DAMAGED);
  EXPECT_EQ(host.returnMessage(), "held");
  EXPECT_EQ(host.calls(), (std::vector<HostCall>{{"AcquireSuite", "PF Handle Suite,2"}}));
  EXPECT_EQ(breaks(), (Breaks{kGeneral +
                              "suite \"PF Handle Suite\" version 2 still acquired at the end of the "
                              "command (1 acquisition not released)"}));
  host.clearContractBreaks();
  EXPECT_THROW(host.sendTo(nullptr, PF_Cmd_ABOUT), std::invalid_argument);
}

TEST_F(FakeHost, ReleasingAnUnknownSuiteIsABreak) {
  ASSERT_EQ(scenario("release_unknown"), PF_Err_NONE);
  EXPECT_EQ(breaks(), (Breaks{kGeneral + "ReleaseSuite of unknown suite \"No Such Suite\" version 1"}));
  host.clearContractBreaks();
}

// ---------------------------------------------------------------- handles

TEST_F(FakeHost, LeakedHandleIsReportedAtTheEndOfTheSession) {
  ASSERT_EQ(scenario("leak_handle"), PF_Err_NONE);
  EXPECT_TRUE(breaks().empty());
  EXPECT_EQ(host.liveHandleCount(), 1u);
  host.finish();
  EXPECT_EQ(breaks(),
            (Breaks{"end of session: handle #1 (24 bytes) made by the effect was never disposed"}));
  EXPECT_EQ(host.liveHandleCount(), 0u);
  host.clearContractBreaks();
  host.finish();
  EXPECT_TRUE(breaks().empty());
}

TEST_F(FakeHost, LeakedHandleIsReportedAfterSequenceSetdown) {
  startUp();
  ASSERT_EQ(host.sequenceSetup(), PF_Err_NONE);
  ASSERT_EQ(scenario("leak_handle"), PF_Err_NONE);
  ASSERT_EQ(host.sequenceSetdown(), PF_Err_NONE);
  EXPECT_EQ(breaks(), (Breaks{"PF_Cmd_SEQUENCE_SETDOWN: handle #2 (24 bytes) made by the effect "
                              "was never disposed"}));
  host.finish();
  EXPECT_EQ(breaks().size(), 1u);
  host.clearContractBreaks();
}

TEST_F(FakeHost, HostMadeHandlesAreNeverLeaks) {
  PF_Handle h = host.newHandle(10);
  EXPECT_TRUE(host.isLiveHandle(h));
  EXPECT_EQ(host.handleSize(h), 10u);
  EXPECT_EQ(host.handleId(h), 1);
  EXPECT_EQ(host.handleBytes(h), std::vector<char>(10, static_cast<char>(0xA5)));
  host.finish();
  EXPECT_FALSE(host.isLiveHandle(h));
  EXPECT_TRUE(breaks().empty());
}

TEST_F(FakeHost, EmptyHandleHasANullMasterPointer) {
  PF_Handle h = host.newEmptyHandle();
  ASSERT_TRUE(host.isLiveHandle(h));
  EXPECT_EQ(*h, nullptr);
  EXPECT_EQ(host.handleSize(h), 0u);
  EXPECT_TRUE(host.handleBytes(h).empty());
  host.setSequenceData(h);
  ASSERT_EQ(scenario("lock_sequence_pointer"), PF_Err_NONE);
  EXPECT_EQ(host.returnMessage(), "null");
  EXPECT_EQ(host.lockCount(h), 0);
  EXPECT_TRUE(breaks().empty());
}

TEST_F(FakeHost, SequenceHandleLeftLockedIsABreak) {
  startUp();
  ASSERT_EQ(host.sequenceSetup(), PF_Err_NONE);
  ASSERT_EQ(scenario("lock_sequence"), PF_Err_NONE);
  EXPECT_EQ(host.lockCount(host.sequenceData()), 1);
  EXPECT_EQ(breaks(), (Breaks{kGeneral + "sequence handle #1 left locked (lock count 1)"}));
  host.clearContractBreaks();
}

TEST_F(FakeHost, DisposingTwiceIsABreak) {
  ASSERT_EQ(scenario("double_dispose"), PF_Err_NONE);
  EXPECT_EQ(breaks(), (Breaks{kGeneral + "host_dispose_handle of a handle that is not live (#?)"}));
  EXPECT_EQ(host.callsTo("host_dispose_handle"),
            (std::vector<HostCall>{{"host_dispose_handle", "#1"}, {"host_dispose_handle", "#?"}}));
  host.clearContractBreaks();
}

TEST_F(FakeHost, UnlockingAnUnlockedHandleIsABreak) {
  ASSERT_EQ(scenario("unlock_unlocked"), PF_Err_NONE);
  EXPECT_EQ(breaks(), (Breaks{kGeneral + "host_unlock_handle of a handle that is not locked (#1)"}));
  host.clearContractBreaks();
}

TEST_F(FakeHost, ResizeKeepsTheHandleAndTheBytes) {
  ASSERT_EQ(scenario("resize"), PF_Err_NONE);
  // The grown part is not cleared: the host fills new memory with 0xA5.
  EXPECT_EQ(host.returnMessage(), "0 same 8 abcd a5a5a5a5");
  EXPECT_EQ(host.callsTo("host_resize_handle"),
            (std::vector<HostCall>{{"host_resize_handle", "8,#1"}}));
  EXPECT_TRUE(breaks().empty());
}

TEST_F(FakeHost, ResizingALockedHandleIsRefused) {
  ASSERT_EQ(scenario("resize_locked"), PF_Err_NONE);
  EXPECT_EQ(host.returnMessage(), std::to_string(PF_Err_OUT_OF_MEMORY));
  EXPECT_TRUE(breaks().empty());
}

TEST_F(FakeHost, NewHandleFailsOnTheNthCall) {
  host.failCall("host_new_handle", PF_Err_OUT_OF_MEMORY, 2);
  ASSERT_EQ(scenario("new_handles"), PF_Err_NONE);
  EXPECT_EQ(host.returnMessage(), "a-");
  ASSERT_EQ(scenario("new_handles"), PF_Err_NONE);
  EXPECT_EQ(host.returnMessage(), "ab");  // the nth call from failCall on, only once
  host.failCall("host_new_handle", PF_Err_OUT_OF_MEMORY);
  ASSERT_EQ(scenario("new_handles"), PF_Err_NONE);
  EXPECT_EQ(host.returnMessage(), "--");
  EXPECT_EQ(host.callsTo("host_new_handle").size(), 6u);
  EXPECT_TRUE(breaks().empty());
}

// ---------------------------------------------------------------- sequence data

TEST_F(FakeHost, SequenceDataLifecycle) {
  startUp();
  ASSERT_EQ(host.sequenceSetup(), PF_Err_NONE);
  PF_Handle first = host.sequenceData();
  ASSERT_TRUE(host.isLiveHandle(first));
  std::vector<char> bytes(16, 0);
  bytes[0] = 'f', bytes[1] = 'a', bytes[2] = 'k', bytes[3] = 'e';
  EXPECT_EQ(host.handleBytes(first), bytes);

  ASSERT_EQ(host.sequenceFlatten(), PF_Err_NONE);
  PF_Handle flat = host.sequenceData();
  EXPECT_NE(flat, first);
  EXPECT_FALSE(host.isLiveHandle(first));
  EXPECT_EQ(host.handleBytes(flat), bytes);
  EXPECT_EQ(host.lockCount(flat), 0);
  const std::vector<HostCall> flattenCalls = {
      {"AcquireSuite", "PF Handle Suite,2"}, {"host_get_handle_size", "#1"},
      {"host_new_handle", "16"},             {"host_lock_handle", "#2"},
      {"host_lock_handle", "#1"},            {"host_unlock_handle", "#1"},
      {"host_unlock_handle", "#2"},          {"host_dispose_handle", "#1"},
      {"ReleaseSuite", "PF Handle Suite,2"}};
  std::vector<HostCall> seen(host.calls().end() - 9, host.calls().end());
  EXPECT_EQ(seen, flattenCalls);
  EXPECT_EQ(seen[1].via, "PF Handle Suite");

  ASSERT_EQ(host.getFlattenedSequenceData(), PF_Err_NONE);
  EXPECT_EQ(host.sequenceData(), flat);
  PF_Handle copy = host.outData().sequence_data;
  EXPECT_NE(copy, flat);
  EXPECT_EQ(host.handleBytes(copy), bytes);
  EXPECT_EQ(host.flattenedSequenceData(), bytes);
  EXPECT_EQ(host.liveHandleCount(), 2u);

  // The copy is the host's, disposed when the next command starts.
  ASSERT_EQ(host.sequenceResetup(), PF_Err_NONE);
  EXPECT_EQ(host.sequenceData(), flat);
  EXPECT_FALSE(host.isLiveHandle(copy));
  EXPECT_EQ(host.flattenedSequenceData(), bytes);

  ASSERT_EQ(host.sequenceSetdown(), PF_Err_NONE);
  EXPECT_EQ(host.sequenceData(), nullptr);
  EXPECT_EQ(host.liveHandleCount(), 0u);
  host.finish();
  EXPECT_TRUE(breaks().empty());
}

TEST_F(FakeHost, SequenceSetupWithoutMemoryReportsTheEffectsMessage) {
  startUp();
  host.failCall("host_new_handle", PF_Err_OUT_OF_MEMORY);
  EXPECT_EQ(host.sequenceSetup(), PF_Err_INTERNAL_STRUCT_DAMAGED);
  EXPECT_EQ(host.returnMessage(), "no memory");
  EXPECT_TRUE(host.outData().out_flags & PF_OutFlag_DISPLAY_ERROR_MESSAGE);
  EXPECT_EQ(host.sequenceData(), nullptr);
  EXPECT_EQ(host.calls(),
            (std::vector<HostCall>{{"host_new_handle", "16"}, {"strcpy", "no memory"}}));
  EXPECT_TRUE(breaks().empty());
}

TEST_F(FakeHost, FlattenOfAnEmptyHandleLeavesTheInstanceAlone) {
  startUp();
  PF_Handle h = host.newEmptyHandle();
  host.setSequenceData(h);
  ASSERT_EQ(host.sequenceFlatten(), PF_Err_NONE);
  EXPECT_EQ(host.outData().sequence_data, nullptr);
  EXPECT_EQ(host.sequenceData(), h);
  EXPECT_TRUE(host.calls().empty());
  EXPECT_TRUE(breaks().empty());
}

TEST_F(FakeHost, APresetOutSequenceDataLeftAloneIsNotTakenAndLastsOneCommand) {
  startUp();
  PF_Handle empty = host.newEmptyHandle();
  PF_Handle sentinel = host.newHandle(1);
  host.setSequenceData(empty);
  host.presetOutSequenceData(sentinel);
  ASSERT_EQ(host.sequenceFlatten(), PF_Err_NONE);
  EXPECT_EQ(host.outData().sequence_data, sentinel);
  EXPECT_EQ(host.sequenceData(), empty);
  ASSERT_EQ(host.sequenceFlatten(), PF_Err_NONE);
  EXPECT_EQ(host.outData().sequence_data, nullptr);
  EXPECT_TRUE(breaks().empty());
}

TEST_F(FakeHost, SetSequenceDataTakesOnlyLiveHandles) {
  PF_Handle h = host.newHandle(4);
  host.setSequenceData(h);
  EXPECT_EQ(host.sequenceData(), h);
  char fake = 0;
  char* master = &fake;
  EXPECT_THROW(host.setSequenceData(&master), std::invalid_argument);
  host.setSequenceData(nullptr);
  EXPECT_EQ(host.sequenceData(), nullptr);
}

// ---------------------------------------------------------------- parameters checked out

TEST_F(FakeHost, CheckoutWithoutCheckinIsABreak) {
  startUp();
  ASSERT_EQ(scenario("checkout_keep"), PF_Err_NONE);
  EXPECT_EQ(breaks(), (Breaks{kGeneral + "parameter 2 checked out and not checked in"}));
  host.clearContractBreaks();
}

TEST_F(FakeHost, CheckoutCopiesTheLiveDefinitionAndCheckinBalances) {
  startUp();
  host.param(3).u.fd.value = 7 << 16;
  ASSERT_EQ(scenario("checkout_checkin"), PF_Err_NONE);
  EXPECT_EQ(host.returnMessage(), "0 Size 7");
  EXPECT_EQ(host.calls(), (std::vector<HostCall>{{"checkout_param", "3,100,10,1000"},
                                                 {"checkin_param", "3"}}));
  EXPECT_EQ(host.calls()[0].via, "inter");
  EXPECT_TRUE(breaks().empty());
}

TEST_F(FakeHost, CheckoutOfAnUnknownIndexIsRefused) {
  startUp();
  ASSERT_EQ(scenario("checkout_bad_index"), PF_Err_NONE);
  EXPECT_EQ(host.returnMessage(), std::to_string(PF_Err_INVALID_INDEX));
  EXPECT_TRUE(breaks().empty());
}

TEST_F(FakeHost, CheckinOfSomethingNotCheckedOutIsABreak) {
  ASSERT_EQ(scenario("checkin_unknown"), PF_Err_NONE);
  EXPECT_EQ(breaks(), (Breaks{kGeneral + "checkin_param of a definition that is not checked out"}));
  host.clearContractBreaks();
}

TEST_F(FakeHost, ForeignEffectRefIsABreak) {
  ASSERT_EQ(scenario("bad_effect_ref"), PF_Err_NONE);
  EXPECT_EQ(breaks(),
            (Breaks{kGeneral + "checkout_param: effect_ref is not the one the host passed"}));
  host.clearContractBreaks();
}

// ---------------------------------------------------------------- messages

TEST_F(FakeHost, SprintfWritesIntoReturnMsg) {
  ASSERT_EQ(scenario("sprintf"), PF_Err_NONE);
  EXPECT_EQ(host.returnMessage(), "answer=42");
  EXPECT_EQ(host.calls(), (std::vector<HostCall>{{"sprintf", "answer=42"}}));
  EXPECT_TRUE(breaks().empty());
}

TEST_F(FakeHost, SprintfWritesIntoTheEffectsOwnBuffer) {
  ASSERT_EQ(scenario("sprintf_local"), PF_Err_NONE);
  EXPECT_EQ(host.returnMessage(), "8:003.1|ff");
}

TEST_F(FakeHost, SprintfPastReturnMsgIsCutAndABreak) {
  ASSERT_EQ(scenario("sprintf_long"), PF_Err_NONE);
  EXPECT_EQ(host.returnMessage(), std::string(255, 'x'));
  EXPECT_EQ(breaks(), (Breaks{kGeneral +
                              "sprintf: 300 characters do not fit out_data->return_msg (255 at most)"}));
  host.clearContractBreaks();
}

TEST_F(FakeHost, StrcpyWritesIntoReturnMsg) {
  ASSERT_EQ(scenario("strcpy"), PF_Err_NONE);
  EXPECT_EQ(host.returnMessage(), "copied text");
  EXPECT_EQ(host.calls(), (std::vector<HostCall>{{"strcpy", "copied text"}}));
}

TEST_F(FakeHost, SprintfCanBeMadeToFail) {
  host.failCall("sprintf", 1);
  ASSERT_EQ(scenario("sprintf"), PF_Err_NONE);
  EXPECT_EQ(host.returnMessage(), "");
  EXPECT_EQ(host.calls().size(), 1u);
}

TEST_F(FakeHost, MathsAreRealAndRecorded) {
  ASSERT_EQ(scenario("math"), PF_Err_NONE);
  EXPECT_EQ(host.returnMessage(), "4 1024");
  EXPECT_EQ(host.calls(), (std::vector<HostCall>{{"sqrt", "16"}, {"pow", "2,10"}}));
}

TEST_F(FakeHost, CallbacksTheHostLacksAreRefusedAndRecorded) {
  ASSERT_EQ(scenario("unsupported"), PF_Err_NONE);
  EXPECT_EQ(host.returnMessage(), std::to_string(PF_Err_INVALID_CALLBACK));
  EXPECT_EQ(host.calls(), (std::vector<HostCall>{{"fill", ""}}));
}

// ---------------------------------------------------------------- other resources

TEST_F(FakeHost, ExceptionsPropagateAfterTheChecks) {
  EXPECT_THROW(scenario("throw"), std::logic_error);
  EXPECT_EQ(breaks(), (Breaks{kGeneral +
                              "suite \"PF Handle Suite\" version 2 still acquired at the end of the "
                              "command (1 acquisition not released)"}));
  host.clearContractBreaks();
  ASSERT_EQ(scenario("sprintf"), PF_Err_NONE);  // the host is usable afterwards
  EXPECT_TRUE(breaks().empty());
}

TEST_F(FakeHost, SPBasicBlocksAreTracked) {
  ASSERT_EQ(scenario("alloc_free_block"), PF_Err_NONE);
  ASSERT_EQ(scenario("alloc_block"), PF_Err_NONE);
  EXPECT_TRUE(breaks().empty());
  host.finish();
  EXPECT_EQ(breaks(), (Breaks{"end of session: 1 SPBasic block(s) allocated and never freed"}));
  host.clearContractBreaks();
}

TEST_F(FakeHost, WorldFormatsComeFromTheHostsTable) {
  startUp();
  host.setWorldPixelFormat(&host.param(0).u.ld, PF_PixelFormat_ARGB64);
  ASSERT_EQ(scenario("world_format"), PF_Err_NONE);
  EXPECT_EQ(host.returnMessage(), "0 0x36316561 516");
  EXPECT_TRUE(breaks().empty());
}

TEST_F(FakeHost, PremiereWorldFormatsComeFromTheSameTable) {
  host.setApp(App::PremierePro);
  startUp();
  host.setWorldPixelFormat(&host.param(0).u.ld, PrPixelFormat_ARGB_4444_32f);
  ASSERT_EQ(scenario("pr_world_format"), PF_Err_NONE);
  EXPECT_EQ(host.returnMessage(), "0 0x62675241");
  EXPECT_TRUE(breaks().empty());
}

TEST_F(FakeHost, WorldsMadeByTheEffect) {
  ASSERT_EQ(scenario("new_world"), PF_Err_NONE);
  EXPECT_EQ(host.returnMessage(), "0 4x3 rb32 0x36316561 0");
  EXPECT_TRUE(breaks().empty());
  ASSERT_EQ(scenario("leak_world"), PF_Err_NONE);
  host.finish();
  EXPECT_EQ(breaks(), (Breaks{"end of session: world 2x2 made by the effect was never disposed"}));
  host.clearContractBreaks();
}
