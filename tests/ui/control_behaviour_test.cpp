// Enabling rules and the "Align" button, driven through EffectMain by the
// headless host: which controls get PF_UpdateParamUI, in which order, with
// which flags, and what is written into the host's own definitions.
#include <string>
#include <vector>

#include "plugin_fixture.h"
#include "ui_helpers.h"

using ui::Update;

namespace {

constexpr PF_Err kHostError = PF_Err_INVALID_CALLBACK;  // what injected failures return
constexpr PF_Fixed kFrames0_49 = static_cast<PF_Fixed>(0.49 * 65536);  // 32112
constexpr PF_Fixed kFrames0_5 = 32768;
constexpr A_long kSecond = 1, kFrame = 2;
constexpr A_long kThreshold = 1, kRandomizedThreshold = 2, kRandomizedMask = 3;

const A_long kTimeShiftIds[] = {ui::kProbability, ui::kSteppingUnit, ui::kStepSeconds,
                                ui::kStepFrames,  ui::kEdgeTimeMode, ui::kTimeSeed,
                                ui::kExclusive};

class ControlBehaviourTest : public PluginTest {
 protected:
  // A freshly applied effect; the previous host of the test (if any) must have
  // ended without contract breaks.
  thost::Host& fresh(A_short major = 13, A_short minor = 28) {
    if (host_) {
      EXPECT_TRUE(host_->contractBreaks().empty()) << ui::joined(host_->contractBreaks());
    }
    // The old host goes first: it unloads the module, so the new one starts
    // from a fresh id map instead of sharing the loaded copy's.
    host_.reset();
    thost::Host& h = setUpEffect(thost::App::AfterEffects, major, minor);
    h.clearParamUIUpdates();
    h.clearCalls();
    return h;
  }

  PF_ParamIndex idx(A_long id) { return ui::indexOf(*host_, id); }
  PF_ParamDef& def(A_long id) { return host_->param(idx(id)); }

  // What step 2 sends: the seven time shift controls in order, flags untouched.
  std::vector<Update> timeShiftUpdates(A_long uiFlags) {
    std::vector<Update> u;
    for (A_long id : kTimeShiftIds) u.push_back({idx(id), uiFlags, def(id).flags});
    return u;
  }

  std::vector<Update> seedUpdate(A_long uiFlags) {
    return {{idx(ui::kMaskSeed), uiFlags, def(ui::kMaskSeed).flags}};
  }

  // What step 3 sends for a unit: seconds then frames, both with flags 32.
  std::vector<Update> stepPairUpdates(A_long unit) {
    const A_long secondsUi = unit == kSecond ? 0 : PF_PUI_DISABLED;
    const A_long framesUi = unit == kSecond ? PF_PUI_DISABLED : 0;
    return {{idx(ui::kStepSeconds), secondsUi, PF_ParamFlag_COLLAPSE_TWIRLY},
            {idx(ui::kStepFrames), framesUi, PF_ParamFlag_COLLAPSE_TWIRLY}};
  }

  static std::vector<Update> cat(std::vector<Update> a, const std::vector<Update>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
  }

  std::string sent() { return ui::render(host_->paramUIUpdates()); }

  // ui_flags of every control, index by index.
  std::vector<A_long> allUiFlags() {
    std::vector<A_long> v;
    for (PF_ParamIndex i = 0; i < host_->numParams(); ++i) v.push_back(host_->param(i).ui_flags);
    return v;
  }
};

}  // namespace

TEST_F(ControlBehaviourTest, FramesAt0_49DisablesTheSevenTimeShiftControlsUnderBothUnits) {
  for (A_long unit : {kSecond, kFrame}) {
    SCOPED_TRACE(unit == kSecond ? "Second" : "Frame");
    thost::Host& h = fresh();
    def(ui::kFrames).u.fd.value = kFrames0_49;
    def(ui::kSteppingUnit).u.pd.value = unit;
    const std::string expected = ui::render(cat(seedUpdate(32), timeShiftUpdates(32)));
    ASSERT_EQ(h.updateParamsUI(), PF_Err_NONE);
    EXPECT_EQ(sent(), expected);
    for (A_long id : kTimeShiftIds) EXPECT_EQ(def(id).ui_flags, PF_PUI_DISABLED) << id;
    // The step controls' flags are left as declared when the time shift is off.
    EXPECT_EQ(def(ui::kStepSeconds).flags, 0);
    EXPECT_EQ(def(ui::kStepFrames).flags, 0);
  }
}

TEST_F(ControlBehaviourTest, FramesAt0_5EnablesThemAndDisablesTheOtherUnitsStepControl) {
  for (A_long unit : {kSecond, kFrame}) {
    SCOPED_TRACE(unit == kSecond ? "Second" : "Frame");
    thost::Host& h = fresh();
    def(ui::kFrames).u.fd.value = kFrames0_5;
    def(ui::kSteppingUnit).u.pd.value = unit;
    const std::string expected =
        ui::render(cat(cat(seedUpdate(32), timeShiftUpdates(0)), stepPairUpdates(unit)));
    ASSERT_EQ(h.updateParamsUI(), PF_Err_NONE);
    EXPECT_EQ(sent(), expected);

    // Exactly one of the pair ends up disabled, and both carry flags 32 alone.
    EXPECT_EQ(def(ui::kStepSeconds).ui_flags, unit == kSecond ? 0 : PF_PUI_DISABLED);
    EXPECT_EQ(def(ui::kStepFrames).ui_flags, unit == kSecond ? PF_PUI_DISABLED : 0);
    EXPECT_EQ(def(ui::kStepSeconds).flags, PF_ParamFlag_COLLAPSE_TWIRLY);
    EXPECT_EQ(def(ui::kStepFrames).flags, PF_ParamFlag_COLLAPSE_TWIRLY);
    for (A_long id : {ui::kProbability, ui::kSteppingUnit, ui::kEdgeTimeMode, ui::kTimeSeed,
                      ui::kExclusive}) {
      EXPECT_EQ(def(id).ui_flags, 0) << id;
    }
  }
}

TEST_F(ControlBehaviourTest, StepControlFlagsAreReplacedNotAddedTo) {
  thost::Host& h = fresh();
  def(ui::kFrames).u.fd.value = 3 << 16;
  def(ui::kStepSeconds).flags = PF_ParamFlag_CANNOT_INTERP | PF_ParamFlag_SUPERVISE;
  def(ui::kStepFrames).flags = PF_ParamFlag_CANNOT_TIME_VARY;
  ASSERT_EQ(h.updateParamsUI(), PF_Err_NONE);
  EXPECT_EQ(def(ui::kStepSeconds).flags, PF_ParamFlag_COLLAPSE_TWIRLY);
  EXPECT_EQ(def(ui::kStepFrames).flags, PF_ParamFlag_COLLAPSE_TWIRLY);
}

TEST_F(ControlBehaviourTest, TheTimeShiftIsOffExactlyWhileRawFramesFitsSixteenBits) {
  struct Case {
    PF_Fixed raw;
    bool off;
  };
  const Case cases[] = {{0, true},          {32767, true}, {32768, false}, {65536, false},
                        {16 << 16, false},  {-32768, true}, {-32769, false}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.raw);
    thost::Host& h = fresh();
    def(ui::kFrames).u.fd.value = c.raw;
    ASSERT_EQ(h.updateParamsUI(), PF_Err_NONE);
    EXPECT_EQ(def(ui::kProbability).ui_flags, c.off ? PF_PUI_DISABLED : 0);
    // On: the seed, the seven, and the pair; off: the seed and the seven.
    EXPECT_EQ(h.paramUIUpdates().size(), c.off ? 8u : 10u);
  }
}

TEST_F(ControlBehaviourTest, ThePairIsRewrittenOnEveryPassEvenWhenAlreadyRight) {
  thost::Host& h = fresh();
  def(ui::kFrames).u.fd.value = 4 << 16;
  def(ui::kSteppingUnit).u.pd.value = kFrame;
  ASSERT_EQ(h.updateParamsUI(), PF_Err_NONE);
  ASSERT_EQ(def(ui::kStepSeconds).ui_flags, PF_PUI_DISABLED);
  ASSERT_EQ(def(ui::kStepFrames).ui_flags, 0);

  // Nothing changed, yet every pass enables all seven and then redoes the pair.
  for (int pass = 0; pass < 2; ++pass) {
    h.clearParamUIUpdates();
    const std::string expected = ui::render(cat(timeShiftUpdates(0), stepPairUpdates(kFrame)));
    ASSERT_EQ(h.updateParamsUI(), PF_Err_NONE);
    EXPECT_EQ(sent(), expected) << "pass " << pass;
  }
}

TEST_F(ControlBehaviourTest, SwitchingTheUnitSwapsWhichStepControlIsDisabled) {
  thost::Host& h = fresh();
  def(ui::kFrames).u.fd.value = 2 << 16;
  ASSERT_EQ(h.updateParamsUI(), PF_Err_NONE);
  def(ui::kSteppingUnit).u.pd.value = kFrame;
  h.clearParamUIUpdates();
  const std::string expected = ui::render(cat(timeShiftUpdates(0), stepPairUpdates(kFrame)));
  ASSERT_EQ(h.updateParamsUI(), PF_Err_NONE);
  EXPECT_EQ(sent(), expected);
  EXPECT_EQ(def(ui::kStepSeconds).ui_flags, PF_PUI_DISABLED);
  EXPECT_EQ(def(ui::kStepFrames).ui_flags, 0);
}

TEST_F(ControlBehaviourTest, ThresholdDisablesTheProbabilitySeedAndTheRandomizedTypesEnableIt) {
  thost::Host& h = fresh();
  ASSERT_EQ(def(ui::kMaskType).u.pd.value, kThreshold);  // the default
  ASSERT_EQ(def(ui::kMaskSeed).ui_flags, 0);
  std::string expected = ui::render(cat(seedUpdate(PF_PUI_DISABLED), timeShiftUpdates(32)));
  ASSERT_EQ(h.updateParamsUI(), PF_Err_NONE);
  EXPECT_EQ(sent(), expected);
  EXPECT_EQ(def(ui::kMaskSeed).ui_flags, PF_PUI_DISABLED);

  for (A_long type : {kRandomizedThreshold, kRandomizedMask}) {
    SCOPED_TRACE(type);
    // From disabled (Threshold) to the randomized type: one update enabling it.
    def(ui::kMaskType).u.pd.value = kThreshold;
    h.clearParamUIUpdates();
    ASSERT_EQ(h.updateParamsUI(), PF_Err_NONE);
    ASSERT_EQ(def(ui::kMaskSeed).ui_flags, PF_PUI_DISABLED);

    def(ui::kMaskType).u.pd.value = type;
    h.clearParamUIUpdates();
    expected = ui::render(cat(seedUpdate(0), timeShiftUpdates(32)));
    ASSERT_EQ(h.updateParamsUI(), PF_Err_NONE);
    EXPECT_EQ(sent(), expected);
    EXPECT_EQ(def(ui::kMaskSeed).ui_flags, 0);

    // Back to Threshold: disabled again with one update.
    def(ui::kMaskType).u.pd.value = kThreshold;
    h.clearParamUIUpdates();
    expected = ui::render(cat(seedUpdate(PF_PUI_DISABLED), timeShiftUpdates(32)));
    ASSERT_EQ(h.updateParamsUI(), PF_Err_NONE);
    EXPECT_EQ(sent(), expected);
  }
}

TEST_F(ControlBehaviourTest, AnUnchangedStateSendsNoUpdateForTheProbabilitySeed) {
  for (A_long type : {kThreshold, kRandomizedThreshold, kRandomizedMask}) {
    SCOPED_TRACE(type);
    thost::Host& h = fresh();
    def(ui::kMaskType).u.pd.value = type;
    ASSERT_EQ(h.updateParamsUI(), PF_Err_NONE);
    const std::vector<A_long> before = allUiFlags();

    // Same values again: the seed is left alone; the seven time shift
    // controls are always sent (that step has no "unchanged" test).
    h.clearParamUIUpdates();
    const std::string expected = ui::render(timeShiftUpdates(32));
    ASSERT_EQ(h.updateParamsUI(), PF_Err_NONE);
    EXPECT_EQ(sent(), expected);
    EXPECT_EQ(allUiFlags(), before);
  }
}

TEST_F(ControlBehaviourTest, NoOtherControlIsEverDisabled) {
  thost::Host& h = fresh();
  const std::vector<A_long> declared = allUiFlags();
  std::vector<PF_ParamIndex> managed = {idx(ui::kMaskSeed)};
  for (A_long id : kTimeShiftIds) managed.push_back(idx(id));

  for (A_long type : {kThreshold, kRandomizedThreshold, kRandomizedMask}) {
    for (PF_Fixed frames : {0, kFrames0_49, kFrames0_5, 16 << 16}) {
      for (A_long unit : {kSecond, kFrame}) {
        def(ui::kMaskType).u.pd.value = type;
        def(ui::kFrames).u.fd.value = frames;
        def(ui::kSteppingUnit).u.pd.value = unit;
        def(ui::kMaskIntensity).u.fs_d.value = 100.0;
        h.clearParamUIUpdates();
        ASSERT_EQ(h.updateParamsUI(), PF_Err_NONE);
        const std::vector<A_long> now = allUiFlags();
        for (PF_ParamIndex i = 0; i < h.numParams(); ++i) {
          bool isManaged = false;
          for (PF_ParamIndex m : managed) isManaged = isManaged || m == i;
          if (!isManaged) {
            EXPECT_EQ(now[i], declared[i]) << "control " << i;
          }
        }
        for (const auto& u : h.paramUIUpdates()) {
          bool isManaged = false;
          for (PF_ParamIndex m : managed) isManaged = isManaged || m == u.index;
          EXPECT_TRUE(isManaged) << "update for control " << u.index;
        }
      }
    }
  }
}

TEST_F(ControlBehaviourTest, AFailingUpdateStopsLaterUpdatesButNotTheWrites) {
  // A pass that makes ten calls: the seed, the seven, the pair.
  auto prepare = [&](thost::Host&) {
    def(ui::kFrames).u.fd.value = 5 << 16;
    def(ui::kSteppingUnit).u.pd.value = kFrame;
  };

  // Reference run without failure.
  thost::Host& ref = fresh();
  prepare(ref);
  const std::vector<Update> all =
      cat(cat(seedUpdate(32), timeShiftUpdates(0)), stepPairUpdates(kFrame));
  ASSERT_EQ(all.size(), 10u);
  ASSERT_EQ(ref.updateParamsUI(), PF_Err_NONE);
  ASSERT_EQ(sent(), ui::render(all));
  const std::vector<A_long> finalUi = allUiFlags();
  const A_long secondsFlags = def(ui::kStepSeconds).flags;
  const A_long framesFlags = def(ui::kStepFrames).flags;

  for (int nth = 1; nth <= 10; ++nth) {
    SCOPED_TRACE("failing call " + std::to_string(nth));
    thost::Host& h = fresh();
    prepare(h);
    h.failCall("PF_UpdateParamUI", kHostError, nth);
    EXPECT_EQ(h.updateParamsUI(), kHostError);
    // Calls up to and including the failing one, none after it.
    EXPECT_EQ(h.callsTo("PF_UpdateParamUI").size(), static_cast<size_t>(nth));
    std::vector<std::string> indices;
    for (const auto& c : h.callsTo("PF_UpdateParamUI")) indices.push_back(c.args);
    for (int i = 0; i < nth && i < static_cast<int>(indices.size()); ++i) {
      EXPECT_EQ(indices[i], std::to_string(all[i].index)) << "call " << i + 1;
    }
    // Every flag write of the pass was still made.
    EXPECT_EQ(allUiFlags(), finalUi);
    EXPECT_EQ(def(ui::kStepSeconds).flags, secondsFlags);
    EXPECT_EQ(def(ui::kStepFrames).flags, framesFlags);
  }
}

TEST_F(ControlBehaviourTest, AFailingUpdateWithTheTimeShiftOffStopsLaterUpdatesToo) {
  for (int nth = 1; nth <= 8; ++nth) {
    SCOPED_TRACE("failing call " + std::to_string(nth));
    thost::Host& h = fresh();
    h.failCall("PF_UpdateParamUI", kHostError, nth);
    EXPECT_EQ(h.updateParamsUI(), kHostError);
    EXPECT_EQ(h.callsTo("PF_UpdateParamUI").size(), static_cast<size_t>(nth));
    EXPECT_EQ(def(ui::kMaskSeed).ui_flags, PF_PUI_DISABLED);
    for (A_long id : kTimeShiftIds) EXPECT_EQ(def(id).ui_flags, PF_PUI_DISABLED) << id;
  }
}

TEST_F(ControlBehaviourTest, AMissingParamUtilsSuiteIsTheSuiteHandlersError) {
  thost::Host& h = fresh();
  h.removeSuite("PF Param Utils Suite", 3);
  EXPECT_EQ(h.updateParamsUI(), PF_Err_BAD_CALLBACK_PARAM);
  EXPECT_TRUE(h.callsTo("PF_UpdateParamUI").empty());
  // The write that needed the first update was made before the suite was asked for.
  EXPECT_EQ(def(ui::kMaskSeed).ui_flags, PF_PUI_DISABLED);
  EXPECT_EQ(h.userChangedParam(idx(ui::kAlign)), PF_Err_BAD_CALLBACK_PARAM);
}

// --- "Align" ---------------------------------------------------------------

namespace {

struct AlignRow {
  int total, size, expected;
};

const AlignRow kAlignTable[] = {
    {1920, 32, 32},   {1920, 100, 96},  {1920, 88, 80},      {1080, 32, 30},
    {1080, 100, 108}, {97, 10, 11},     {101, 10, 11},       {7, 3, 4},
    {5, 3, 2},        {3, 2, 1},        {1, 1, 1},           {2000, 4095, 2000},
    {720, 5000, 720}, {6000, 4096, 4096}, {8198, 4000, 4096}, {4099, 100, 100},
};

}  // namespace

TEST_F(ControlBehaviourTest, AlignGivesTheDocumentedResultsForWidthAndHeight) {
  thost::Host& h = fresh();
  ASSERT_EQ(h.updateParamsUI(), PF_Err_NONE);  // settle the enabling first
  const PF_ParamIndex align = idx(ui::kAlign);
  const PF_ParamIndex width = idx(ui::kBlockWidth), height = idx(ui::kBlockHeight);

  for (const AlignRow& row : kAlignTable) {
    for (bool alongWidth : {true, false}) {
      SCOPED_TRACE(std::to_string(row.total) + ", " + std::to_string(row.size) +
                   (alongWidth ? " (width)" : " (height)"));
      // The other dimension is 64 with a block of 32, which already tiles it.
      if (alongWidth) {
        h.setLayerSize(row.total, 64);
      } else {
        h.setLayerSize(64, row.total);
      }
      PF_ParamDef& moved = h.param(alongWidth ? width : height);
      PF_ParamDef& still = h.param(alongWidth ? height : width);
      moved.u.fd.value = row.size << 16;
      still.u.fd.value = 32 << 16;
      moved.uu.id = alongWidth ? ui::kBlockWidth : ui::kBlockHeight;
      still.uu.id = alongWidth ? ui::kBlockHeight : ui::kBlockWidth;
      h.clearParamUIUpdates();

      ASSERT_EQ(h.userChangedParam(align), PF_Err_NONE);
      EXPECT_EQ(moved.u.fd.value, row.expected << 16);
      EXPECT_EQ(still.u.fd.value, 32 << 16);

      std::vector<PF_ParamIndex> sizeUpdates;
      for (const auto& u : h.paramUIUpdates()) {
        if (u.index == width || u.index == height) sizeUpdates.push_back(u.index);
      }
      if (row.expected == row.size) {
        EXPECT_TRUE(sizeUpdates.empty());
      } else {
        ASSERT_EQ(sizeUpdates.size(), 1u);
        EXPECT_EQ(sizeUpdates[0], alongWidth ? width : height);
        const PF_ParamDef& passed = h.paramUIUpdates().back().def;
        EXPECT_EQ(passed.u.fd.value, row.expected << 16);
        EXPECT_EQ(passed.uu.change_flags, PF_ChangeFlag_CHANGED_VALUE);
        EXPECT_TRUE(passed.flags & PF_ParamFlag_COLLAPSE_TWIRLY);
      }
    }
  }
}

TEST_F(ControlBehaviourTest, AlignWritesValueChangeFlagAndCollapseFlagThenUpdatesWidthThenHeight) {
  thost::Host& h = fresh();
  h.setLayerSize(1920, 1080);
  ASSERT_EQ(h.updateParamsUI(), PF_Err_NONE);
  def(ui::kBlockWidth).u.fd.value = 100 << 16;
  def(ui::kBlockHeight).u.fd.value = 100 << 16;
  def(ui::kBlockWidth).flags = PF_ParamFlag_CANNOT_INTERP;
  h.clearParamUIUpdates();
  const std::vector<Update> expected =
      cat(timeShiftUpdates(32), {{idx(ui::kBlockWidth), 0, PF_ParamFlag_CANNOT_INTERP | 32},
                                 {idx(ui::kBlockHeight), 0, PF_ParamFlag_COLLAPSE_TWIRLY}});

  ASSERT_EQ(h.userChangedParam(idx(ui::kAlign)), PF_Err_NONE);
  EXPECT_EQ(sent(), ui::render(expected));
  EXPECT_EQ(def(ui::kBlockWidth).u.fd.value, 96 << 16);
  EXPECT_EQ(def(ui::kBlockHeight).u.fd.value, 108 << 16);
  EXPECT_EQ(def(ui::kBlockWidth).uu.change_flags, PF_ChangeFlag_CHANGED_VALUE);
  EXPECT_EQ(def(ui::kBlockHeight).uu.change_flags, PF_ChangeFlag_CHANGED_VALUE);
  // Added to what was there, not replacing it.
  EXPECT_EQ(def(ui::kBlockWidth).flags, PF_ParamFlag_CANNOT_INTERP | PF_ParamFlag_COLLAPSE_TWIRLY);
}

TEST_F(ControlBehaviourTest, AlignWhenBothSizesAlreadyDivideChangesNothing) {
  thost::Host& h = fresh();
  h.setLayerSize(1920, 1080);
  ASSERT_EQ(h.updateParamsUI(), PF_Err_NONE);
  def(ui::kBlockWidth).u.fd.value = 32 << 16;
  def(ui::kBlockHeight).u.fd.value = 30 << 16;
  const PF_ParamDef widthBefore = def(ui::kBlockWidth), heightBefore = def(ui::kBlockHeight);
  h.clearParamUIUpdates();

  ASSERT_EQ(h.userChangedParam(idx(ui::kAlign)), PF_Err_NONE);
  // Only the enabling pass that every user change runs; nothing for the sizes.
  EXPECT_EQ(sent(), ui::render(timeShiftUpdates(32)));
  EXPECT_EQ(def(ui::kBlockWidth).u.fd.value, widthBefore.u.fd.value);
  EXPECT_EQ(def(ui::kBlockHeight).u.fd.value, heightBefore.u.fd.value);
  EXPECT_EQ(def(ui::kBlockWidth).uu.id, widthBefore.uu.id);
  EXPECT_EQ(def(ui::kBlockHeight).uu.id, heightBefore.uu.id);
  EXPECT_EQ(def(ui::kBlockWidth).flags, widthBefore.flags);
  EXPECT_EQ(def(ui::kBlockHeight).flags, heightBefore.flags);
}

TEST_F(ControlBehaviourTest, AlignOnlyTouchesTheDimensionThatNeedsIt) {
  thost::Host& h = fresh();
  h.setLayerSize(1920, 1080);
  ASSERT_EQ(h.updateParamsUI(), PF_Err_NONE);
  def(ui::kBlockWidth).u.fd.value = 64 << 16;   // divides 1920
  def(ui::kBlockHeight).u.fd.value = 32 << 16;  // 1080 wants 30
  h.clearParamUIUpdates();
  ASSERT_EQ(h.userChangedParam(idx(ui::kAlign)), PF_Err_NONE);
  EXPECT_EQ(sent(), ui::render(cat(timeShiftUpdates(32),
                                   {{idx(ui::kBlockHeight), 0, PF_ParamFlag_COLLAPSE_TWIRLY}})));
  EXPECT_EQ(def(ui::kBlockWidth).u.fd.value, 64 << 16);
  EXPECT_EQ(def(ui::kBlockHeight).u.fd.value, 30 << 16);
}

TEST_F(ControlBehaviourTest, AlignIgnoresTheFractionOfABlockSize) {
  thost::Host& h = fresh();
  h.setLayerSize(1920, 1080);
  def(ui::kBlockWidth).u.fd.value = (32 << 16) + 0x8000;   // 32.5: the whole part 32 divides
  def(ui::kBlockHeight).u.fd.value = (100 << 16) + 0xFFFF;  // 100.99...: aligned from 100
  ASSERT_EQ(h.userChangedParam(idx(ui::kAlign)), PF_Err_NONE);
  EXPECT_EQ(def(ui::kBlockWidth).u.fd.value, (32 << 16) + 0x8000);  // untouched
  EXPECT_EQ(def(ui::kBlockHeight).u.fd.value, 108 << 16);
}

TEST_F(ControlBehaviourTest, ChangingAnyOtherControlOnlyRunsTheEnablingPass) {
  for (A_long id : {ui::kBlockWidth, ui::kBlockHeight, ui::kFrames, ui::kChannels}) {
    SCOPED_TRACE(id);
    thost::Host& h = fresh();
    h.setLayerSize(1920, 1080);
    def(ui::kBlockWidth).u.fd.value = 100 << 16;
    def(ui::kBlockHeight).u.fd.value = 100 << 16;
    const std::string expected = ui::render(cat(seedUpdate(32), timeShiftUpdates(32)));
    EXPECT_EQ(h.userChangedParam(idx(id)), PF_Err_NONE);
    EXPECT_EQ(sent(), expected);
    EXPECT_EQ(def(ui::kBlockWidth).u.fd.value, 100 << 16);
    EXPECT_EQ(def(ui::kBlockHeight).u.fd.value, 100 << 16);
  }
}

TEST_F(ControlBehaviourTest, AFailingEnablingPassStopsAlignBeforeItStarts) {
  thost::Host& h = fresh();
  h.setLayerSize(1920, 1080);
  def(ui::kBlockWidth).u.fd.value = 100 << 16;
  def(ui::kBlockHeight).u.fd.value = 100 << 16;
  h.failCall("PF_UpdateParamUI", kHostError, 3);
  EXPECT_EQ(h.userChangedParam(idx(ui::kAlign)), kHostError);
  EXPECT_EQ(h.callsTo("PF_UpdateParamUI").size(), 3u);
  EXPECT_EQ(def(ui::kBlockWidth).u.fd.value, 100 << 16);
  EXPECT_EQ(def(ui::kBlockHeight).u.fd.value, 100 << 16);
}

TEST_F(ControlBehaviourTest, AFailingWidthUpdateStillWritesTheHeightButDoesNotSendIt) {
  thost::Host& h = fresh();
  h.setLayerSize(1920, 1080);
  ASSERT_EQ(h.updateParamsUI(), PF_Err_NONE);  // settled: the next pass makes 7 calls
  def(ui::kBlockWidth).u.fd.value = 100 << 16;
  def(ui::kBlockHeight).u.fd.value = 100 << 16;
  h.clearCalls();
  h.failCall("PF_UpdateParamUI", kHostError, 8);  // the width's update
  EXPECT_EQ(h.userChangedParam(idx(ui::kAlign)), kHostError);
  const auto calls = h.callsTo("PF_UpdateParamUI");
  ASSERT_EQ(calls.size(), 8u);
  EXPECT_EQ(calls.back().args, std::to_string(idx(ui::kBlockWidth)));
  EXPECT_EQ(def(ui::kBlockWidth).u.fd.value, 96 << 16);
  EXPECT_EQ(def(ui::kBlockHeight).u.fd.value, 108 << 16);
  EXPECT_EQ(def(ui::kBlockHeight).uu.change_flags, PF_ChangeFlag_CHANGED_VALUE);
  EXPECT_TRUE(def(ui::kBlockHeight).flags & PF_ParamFlag_COLLAPSE_TWIRLY);
}

TEST_F(ControlBehaviourTest, AFailingHeightUpdateIsTheResult) {
  thost::Host& h = fresh();
  h.setLayerSize(1920, 1080);
  ASSERT_EQ(h.updateParamsUI(), PF_Err_NONE);
  def(ui::kBlockWidth).u.fd.value = 100 << 16;
  def(ui::kBlockHeight).u.fd.value = 100 << 16;
  h.clearCalls();
  h.failCall("PF_UpdateParamUI", kHostError, 9);  // the height's update
  EXPECT_EQ(h.userChangedParam(idx(ui::kAlign)), kHostError);
  const auto calls = h.callsTo("PF_UpdateParamUI");
  ASSERT_EQ(calls.size(), 9u);
  EXPECT_EQ(calls[7].args, std::to_string(idx(ui::kBlockWidth)));
  EXPECT_EQ(calls[8].args, std::to_string(idx(ui::kBlockHeight)));
  EXPECT_EQ(def(ui::kBlockWidth).u.fd.value, 96 << 16);
  EXPECT_EQ(def(ui::kBlockHeight).u.fd.value, 108 << 16);
}

TEST_F(ControlBehaviourTest, ControlsAreFoundByIdOnHostsWithoutTheHeader) {
  // Version 13.8 has no header control, so every index is one lower.
  thost::Host& h = fresh(13, 8);
  ASSERT_EQ(idx(ui::kChannels), 1);
  h.setLayerSize(1920, 1080);
  def(ui::kFrames).u.fd.value = 1 << 16;
  def(ui::kBlockWidth).u.fd.value = 100 << 16;
  def(ui::kBlockHeight).u.fd.value = 32 << 16;
  const std::string expected = ui::render(
      cat(cat(seedUpdate(32), timeShiftUpdates(0)),
          cat(stepPairUpdates(kSecond),
              {{idx(ui::kBlockWidth), 0, 32}, {idx(ui::kBlockHeight), 0, 32}})));
  ASSERT_EQ(h.userChangedParam(idx(ui::kAlign)), PF_Err_NONE);
  EXPECT_EQ(sent(), expected);
  EXPECT_EQ(def(ui::kBlockWidth).u.fd.value, 96 << 16);
  EXPECT_EQ(def(ui::kBlockHeight).u.fd.value, 30 << 16);
}
