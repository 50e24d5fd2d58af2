// The per-instance block: setup, resetup, flatten, flattened copy, setdown.
#include <cstring>

#include "plugin_fixture.h"

using thost::HostCall;

namespace {

constexpr A_u_longlong kBlock = 3240;

void fill(PF_Handle h, size_t n, unsigned char seed) {
  for (size_t i = 0; i < n; ++i) (*h)[i] = static_cast<char>(seed + i * 7);
}

bool sameBytes(PF_Handle h, size_t n, unsigned char seed) {
  for (size_t i = 0; i < n; ++i) {
    if ((*h)[i] != static_cast<char>(seed + i * 7)) return false;
  }
  return true;
}

std::vector<std::string> fnNames(const std::vector<HostCall>& calls) {
  std::vector<std::string> names;
  for (const auto& c : calls) names.push_back(c.fn);
  return names;
}

}  // namespace

TEST_F(PluginTest, SetupMakesAZeroFilledUnlockedBlockOf3240Bytes) {
  thost::Host& h = setUpEffect();
  ASSERT_EQ(h.sequenceSetup(), PF_Err_NONE);
  PF_Handle seq = h.sequenceData();
  ASSERT_NE(seq, nullptr);
  EXPECT_EQ(h.handleSize(seq), kBlock);
  EXPECT_EQ(h.lockCount(seq), 0);
  EXPECT_EQ(h.outData().flat_sdata_size, 3240);
  for (A_u_longlong i = 0; i < kBlock; ++i) ASSERT_EQ((*seq)[i], 0) << "byte " << i;
  EXPECT_EQ(h.sequenceSetdown(), PF_Err_NONE);
}

TEST_F(PluginTest, SetupWithAHandleOfAnotherSizeResizesItWithoutClearing) {
  thost::Host& h = setUpEffect();
  PF_Handle old = h.newHandle(100);
  fill(old, 100, 0x31);
  h.setSequenceData(old);
  h.clearCalls();
  ASSERT_EQ(h.sequenceSetup(), PF_Err_NONE);
  PF_Handle seq = h.sequenceData();
  ASSERT_TRUE(h.isLiveHandle(seq));
  EXPECT_EQ(h.handleSize(seq), kBlock);
  EXPECT_TRUE(sameBytes(seq, 100, 0x31));
  EXPECT_EQ(fnNames(h.calls()),
            (std::vector<std::string>{"host_get_handle_size", "host_resize_handle"}));
  EXPECT_EQ(h.sequenceSetdown(), PF_Err_NONE);
}

TEST_F(PluginTest, SetupWithABlockOfTheRightSizeOnlyAsksItsSize) {
  thost::Host& h = setUpEffect();
  PF_Handle old = h.newHandle(kBlock);
  fill(old, kBlock, 0x05);
  h.setSequenceData(old);
  h.clearCalls();
  ASSERT_EQ(h.sequenceSetup(), PF_Err_NONE);
  EXPECT_EQ(h.sequenceData(), old);
  EXPECT_TRUE(sameBytes(old, kBlock, 0x05));
  EXPECT_EQ(fnNames(h.calls()), (std::vector<std::string>{"host_get_handle_size"}));
  EXPECT_EQ(h.sequenceSetdown(), PF_Err_NONE);
}

TEST_F(PluginTest, SetupWithoutMemoryReportsInternalError512) {
  thost::Host& h = setUpEffect();
  h.failCall("host_new_handle", 0, 1);
  EXPECT_EQ(h.sequenceSetup(), PF_Err_INTERNAL_STRUCT_DAMAGED);
  EXPECT_EQ(h.returnMessage(), "Internal Error");
  EXPECT_TRUE(h.outData().out_flags & PF_OutFlag_DISPLAY_ERROR_MESSAGE);
  EXPECT_EQ(h.sequenceData(), nullptr);
  EXPECT_EQ(h.callsTo("strcpy").size(), 1u);
}

TEST_F(PluginTest, SetupWhoseNewHandleCannotBeLockedIsAFailedAllocation) {
  for (bool resetup : {false, true}) {
    SCOPED_TRACE(resetup ? "resetup" : "setup");
    thost::Host& h = setUpEffect();
    const size_t live = h.liveHandleCount();
    h.clearCalls();
    h.failCall("host_lock_handle", 0, 1);
    EXPECT_EQ(resetup ? h.sequenceResetup() : h.sequenceSetup(), PF_Err_INTERNAL_STRUCT_DAMAGED);
    EXPECT_EQ(h.returnMessage(), "Internal Error");
    EXPECT_TRUE(h.outData().out_flags & PF_OutFlag_DISPLAY_ERROR_MESSAGE);
    EXPECT_EQ(h.outData().sequence_data, nullptr);
    EXPECT_EQ(h.sequenceData(), nullptr);
    EXPECT_EQ(h.callsTo("host_dispose_handle").size(), 1u);
    EXPECT_TRUE(h.callsTo("host_unlock_handle").empty());
    EXPECT_EQ(h.liveHandleCount(), live);
  }
}

TEST_F(PluginTest, ResetupKeepsAnExistingBlockUntouched) {
  thost::Host& h = setUpEffect();
  PF_Handle old = h.newHandle(77);
  fill(old, 77, 0x44);
  h.setSequenceData(old);
  h.clearCalls();
  ASSERT_EQ(h.sequenceResetup(), PF_Err_NONE);
  EXPECT_TRUE(h.calls().empty());
  EXPECT_EQ(h.sequenceData(), old);
  EXPECT_EQ(h.handleSize(old), 77u);
  EXPECT_TRUE(sameBytes(old, 77, 0x44));
  EXPECT_EQ(h.sequenceSetdown(), PF_Err_NONE);
}

TEST_F(PluginTest, ResetupWithoutABlockMakesANewZeroFilledOne) {
  thost::Host& h = setUpEffect();
  ASSERT_EQ(h.sequenceResetup(), PF_Err_NONE);
  PF_Handle seq = h.sequenceData();
  ASSERT_NE(seq, nullptr);
  EXPECT_EQ(h.handleSize(seq), kBlock);
  EXPECT_EQ(h.outData().flat_sdata_size, 3240);
  for (A_u_longlong i = 0; i < kBlock; ++i) ASSERT_EQ((*seq)[i], 0);
  EXPECT_EQ(h.sequenceSetdown(), PF_Err_NONE);
}

TEST_F(PluginTest, ResetupWithoutMemoryReportsInternalError512) {
  thost::Host& h = setUpEffect();
  h.failCall("host_new_handle", 0, 1);
  EXPECT_EQ(h.sequenceResetup(), PF_Err_INTERNAL_STRUCT_DAMAGED);
  EXPECT_EQ(h.returnMessage(), "Internal Error");
  EXPECT_TRUE(h.outData().out_flags & PF_OutFlag_DISPLAY_ERROR_MESSAGE);
}

TEST_F(PluginTest, SetdownDisposesTheBlock) {
  thost::Host& h = setUpEffect();
  ASSERT_EQ(h.sequenceSetup(), PF_Err_NONE);
  PF_Handle seq = h.sequenceData();
  ASSERT_EQ(h.sequenceSetdown(), PF_Err_NONE);
  EXPECT_FALSE(h.isLiveHandle(seq));
  EXPECT_EQ(h.sequenceData(), nullptr);
  EXPECT_EQ(h.outData().sequence_data, nullptr);
  EXPECT_EQ(h.inData().sequence_data, nullptr);
}

TEST_F(PluginTest, SetdownResizesABlockOfAnotherSizeBeforeDisposingIt) {
  thost::Host& h = setUpEffect();
  PF_Handle old = h.newHandle(10);
  h.setSequenceData(old);
  h.clearCalls();
  ASSERT_EQ(h.sequenceSetdown(), PF_Err_NONE);
  EXPECT_EQ(fnNames(h.calls()), (std::vector<std::string>{"host_get_handle_size",
                                                          "host_resize_handle",
                                                          "host_dispose_handle"}));
  EXPECT_EQ(h.callsTo("host_resize_handle")[0].args.substr(0, 4), "3240");
  EXPECT_FALSE(h.isLiveHandle(old));
}

TEST_F(PluginTest, SetdownWithoutABlockDoesNothing) {
  thost::Host& h = setUpEffect();
  h.clearCalls();
  EXPECT_EQ(h.sequenceSetdown(), PF_Err_NONE);
  EXPECT_TRUE(h.calls().empty());
}

TEST_F(PluginTest, FlattenWithoutABlockIs512) {
  thost::Host& h = setUpEffect();
  EXPECT_EQ(h.sequenceFlatten(), PF_Err_INTERNAL_STRUCT_DAMAGED);
  EXPECT_EQ(h.getFlattenedSequenceData(), PF_Err_INTERNAL_STRUCT_DAMAGED);
}

TEST_F(PluginTest, FlattenOfABlockWithANullMasterPointerSucceedsAndHandsNothingBack) {
  thost::Host& h = setUpEffect();
  PF_Handle empty = h.newEmptyHandle();
  h.setSequenceData(empty);
  h.clearCalls();
  EXPECT_EQ(h.sequenceFlatten(), PF_Err_NONE);
  EXPECT_EQ(h.outData().sequence_data, nullptr);
  EXPECT_EQ(h.sequenceData(), empty);
  EXPECT_TRUE(h.callsTo("host_new_handle").empty());
  EXPECT_EQ(h.getFlattenedSequenceData(), PF_Err_NONE);
  EXPECT_EQ(h.outData().sequence_data, nullptr);
}

TEST_F(PluginTest, FlattenOfABlockWithANullMasterPointerLeavesOutDataUntouched) {
  // The host zero-fills out_data; a sentinel shows whether the field was written.
  thost::Host& h = setUpEffect();
  PF_Handle empty = h.newEmptyHandle();
  PF_Handle sentinel = h.newHandle(1);
  h.setSequenceData(empty);
  h.presetOutSequenceData(sentinel);
  EXPECT_EQ(h.sequenceFlatten(), PF_Err_NONE);
  EXPECT_EQ(h.outData().sequence_data, sentinel);
  EXPECT_EQ(h.sequenceData(), empty);
  h.presetOutSequenceData(sentinel);
  EXPECT_EQ(h.getFlattenedSequenceData(), PF_Err_NONE);
  EXPECT_EQ(h.outData().sequence_data, sentinel);
  EXPECT_EQ(h.sequenceData(), empty);
}

TEST_F(PluginTest, FlattenCopiesTheBlockIntoANewHandleAndDisposesTheOld) {
  thost::Host& h = setUpEffect();
  ASSERT_EQ(h.sequenceSetup(), PF_Err_NONE);
  PF_Handle old = h.sequenceData();
  fill(old, kBlock, 0x77);  // the effect never looks inside; any bytes must survive
  h.clearCalls();
  ASSERT_EQ(h.sequenceFlatten(), PF_Err_NONE);
  PF_Handle flat = h.outData().sequence_data;
  ASSERT_NE(flat, nullptr);
  EXPECT_NE(flat, old);
  EXPECT_FALSE(h.isLiveHandle(old));
  EXPECT_EQ(h.sequenceData(), flat);
  EXPECT_EQ(h.handleSize(flat), kBlock);
  EXPECT_EQ(h.lockCount(flat), 0);
  EXPECT_TRUE(sameBytes(flat, kBlock, 0x77));
  EXPECT_EQ(h.acquireCount("PF Handle Suite", 2), 1);
  EXPECT_EQ(h.releaseCount("PF Handle Suite", 2), 1);
  EXPECT_EQ(fnNames(h.calls()),
            (std::vector<std::string>{"AcquireSuite", "host_new_handle", "host_lock_handle",
                                      "host_get_handle_size", "host_dispose_handle",
                                      "host_unlock_handle", "ReleaseSuite"}));
  EXPECT_EQ(h.sequenceSetdown(), PF_Err_NONE);
}

TEST_F(PluginTest, FlattenOfAShorterBlockKeptByResetupCopiesWhatItHoldsAndZerosTheRest) {
  // A project saved by another version: resetup keeps its block as it is.
  for (bool flatten : {true, false}) {
    SCOPED_TRACE(flatten ? "flatten" : "flattened copy");
    thost::Host& h = setUpEffect();
    PF_Handle old = h.newHandle(100);
    fill(old, 100, 0x5B);
    h.setSequenceData(old);
    ASSERT_EQ(h.sequenceResetup(), PF_Err_NONE);
    ASSERT_EQ(h.handleSize(old), 100u);
    ASSERT_EQ(flatten ? h.sequenceFlatten() : h.getFlattenedSequenceData(), PF_Err_NONE);
    PF_Handle flat = h.outData().sequence_data;
    ASSERT_NE(flat, nullptr);
    ASSERT_EQ(h.handleSize(flat), kBlock);
    EXPECT_TRUE(sameBytes(flat, 100, 0x5B));
    for (A_u_longlong i = 100; i < kBlock; ++i) ASSERT_EQ((*flat)[i], 0) << "byte " << i;
    EXPECT_EQ(h.sequenceData(), flatten ? flat : old);
    EXPECT_EQ(h.sequenceSetdown(), PF_Err_NONE);
  }
}

TEST_F(PluginTest, FlattenOfALongerBlockKeptByResetupCopiesItsFirst3240Bytes) {
  thost::Host& h = setUpEffect();
  PF_Handle old = h.newHandle(5000);
  fill(old, 5000, 0x6C);
  h.setSequenceData(old);
  ASSERT_EQ(h.sequenceResetup(), PF_Err_NONE);
  ASSERT_EQ(h.sequenceFlatten(), PF_Err_NONE);
  PF_Handle flat = h.outData().sequence_data;
  ASSERT_NE(flat, nullptr);
  ASSERT_EQ(h.handleSize(flat), kBlock);
  EXPECT_TRUE(sameBytes(flat, kBlock, 0x6C));
  EXPECT_EQ(h.sequenceSetdown(), PF_Err_NONE);
}

TEST_F(PluginTest, FlattenWithoutMemoryIs512) {
  thost::Host& h = setUpEffect();
  ASSERT_EQ(h.sequenceSetup(), PF_Err_NONE);
  PF_Handle old = h.sequenceData();
  h.failCall("host_new_handle", 0, 1);
  EXPECT_EQ(h.sequenceFlatten(), PF_Err_INTERNAL_STRUCT_DAMAGED);
  EXPECT_TRUE(h.isLiveHandle(old));
  EXPECT_EQ(h.sequenceData(), old);
  EXPECT_EQ(h.acquireCount("PF Handle Suite", 2), h.releaseCount("PF Handle Suite", 2));
  EXPECT_EQ(h.sequenceSetdown(), PF_Err_NONE);
}

TEST_F(PluginTest, FlattenWhoseNewHandleCannotBeLockedDisposesItAndKeepsTheBlock) {
  thost::Host& h = setUpEffect();
  ASSERT_EQ(h.sequenceSetup(), PF_Err_NONE);
  PF_Handle old = h.sequenceData();
  fill(old, kBlock, 0x29);
  const size_t live = h.liveHandleCount();
  for (bool flatten : {true, false}) {
    SCOPED_TRACE(flatten ? "flatten" : "flattened copy");
    h.clearCalls();
    h.failCall("host_lock_handle", 0, 1);
    EXPECT_EQ(flatten ? h.sequenceFlatten() : h.getFlattenedSequenceData(), PF_Err_NONE);
    h.clearFailures();
    EXPECT_EQ(h.outData().sequence_data, nullptr);
    EXPECT_EQ(h.sequenceData(), old);
    EXPECT_TRUE(sameBytes(old, kBlock, 0x29));
    ASSERT_EQ(h.callsTo("host_new_handle").size(), 1u);
    ASSERT_EQ(h.callsTo("host_dispose_handle").size(), 1u);
    EXPECT_NE(h.callsTo("host_dispose_handle")[0].args, "#" + std::to_string(h.handleId(old)));
    EXPECT_TRUE(h.callsTo("host_unlock_handle").empty());
    EXPECT_EQ(h.liveHandleCount(), live);
    EXPECT_TRUE(h.contractBreaks().empty()) << joined(h.contractBreaks());
  }
  EXPECT_EQ(h.sequenceSetdown(), PF_Err_NONE);
}

TEST_F(PluginTest, FlattenWithoutTheHandleSuiteIs516WithoutAMessage) {
  thost::Host& h = setUpEffect();
  ASSERT_EQ(h.sequenceSetup(), PF_Err_NONE);
  h.removeSuite("PF Handle Suite", 2);
  EXPECT_EQ(h.sequenceFlatten(), PF_Err_BAD_CALLBACK_PARAM);
  EXPECT_EQ(h.returnMessage(), "");
  EXPECT_FALSE(h.outData().out_flags & PF_OutFlag_DISPLAY_ERROR_MESSAGE);
  EXPECT_EQ(h.getFlattenedSequenceData(), PF_Err_BAD_CALLBACK_PARAM);
  EXPECT_EQ(h.sequenceSetdown(), PF_Err_NONE);
}

TEST_F(PluginTest, FlattenedCopyLeavesTheBlockAlone) {
  thost::Host& h = setUpEffect();
  ASSERT_EQ(h.sequenceSetup(), PF_Err_NONE);
  PF_Handle seq = h.sequenceData();
  fill(seq, kBlock, 0x13);
  h.clearCalls();
  ASSERT_EQ(h.getFlattenedSequenceData(), PF_Err_NONE);
  PF_Handle copy = h.outData().sequence_data;
  ASSERT_NE(copy, nullptr);
  EXPECT_NE(copy, seq);
  EXPECT_TRUE(sameBytes(copy, kBlock, 0x13));
  EXPECT_EQ(h.lockCount(copy), 0);
  EXPECT_EQ(h.sequenceData(), seq);
  EXPECT_TRUE(h.isLiveHandle(seq));
  EXPECT_TRUE(sameBytes(seq, kBlock, 0x13));
  EXPECT_TRUE(h.callsTo("host_dispose_handle").empty());
  EXPECT_EQ(h.sequenceSetdown(), PF_Err_NONE);
}

TEST_F(PluginTest, AWholeInstanceLifecycleLeavesNoHandleBehind) {
  thost::Host& h = setUpEffect();
  const size_t before = h.liveHandleCount();
  ASSERT_EQ(h.sequenceSetup(), PF_Err_NONE);
  ASSERT_EQ(h.getFlattenedSequenceData(), PF_Err_NONE);
  ASSERT_EQ(h.sequenceFlatten(), PF_Err_NONE);
  ASSERT_EQ(h.sequenceResetup(), PF_Err_NONE);
  ASSERT_EQ(h.getFlattenedSequenceData(), PF_Err_NONE);
  ASSERT_EQ(h.sequenceSetdown(), PF_Err_NONE);
  EXPECT_EQ(h.liveHandleCount(), before);
  EXPECT_TRUE(h.contractBreaks().empty()) << joined(h.contractBreaks());
}
