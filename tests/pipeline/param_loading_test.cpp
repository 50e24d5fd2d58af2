// The record pre-render fills from the controls: reading order, conversions,
// the time frame slots, and the values legacy render reads from its params.
#include <limits>

#include "pipeline_support.h"
#include "../render/render_support.h"

using namespace pipeline;

class ParamLoading : public PipelineTest {
 protected:
  thost::Host& ready(int frames = 30, int k = 10) {
    thost::Host& h = setUpInstance();
    h.setLayerClip(0, makeClip(frames, 20, 12));
    setClipTime(h, frames, k);
    return h;
  }
  ParamValues preRendered(thost::Host& h) {
    EXPECT_EQ(h.preRender(), PF_Err_NONE);
    return recordOf(h);
  }
};

TEST_F(ParamLoading, ControlsAreReadInTheirFixedOrderAtTheCurrentTime) {
  thost::Host& h = ready();
  h.clearCalls();
  ASSERT_EQ(h.preRender(), PF_Err_NONE);
  std::vector<std::string> expected;
  for (int id : {1, 20, 21, 22, 2, 3, 4, 5, 6, 7, 25, 9, 10, 11, 12, 13, 14, 15, 16}) {
    expected.push_back(std::to_string(indexOf(h, id)) + ",1000,100,3000");
  }
  std::vector<std::string> got;
  for (const thost::HostCall& c : h.callsTo("checkout_param")) got.push_back(c.args);
  EXPECT_EQ(got, expected);
  // Value reads are never checked in: one tolerated notice each, nothing else.
  EXPECT_EQ(h.toleratedNotices(), 19);
  ASSERT_EQ(h.smartRender(), PF_Err_NONE);
}

TEST_F(ParamLoading, DefaultsConvertToRenderUnits) {
  thost::Host& h = ready();
  const ParamValues pv = preRendered(h);
  EXPECT_EQ(pv.compositeOnOriginal, 1);
  EXPECT_EQ(pv.channels, 0);
  EXPECT_EQ(pv.blockWidth, 32);
  EXPECT_EQ(pv.blockHeight, 32);
  EXPECT_DOUBLE_EQ(pv.shuffleStrength, 0.1);
  EXPECT_DOUBLE_EQ(pv.shuffleSpread, 0.1);
  EXPECT_EQ(pv.shuffleDirection, 0);
  EXPECT_EQ(pv.shuffleSeed, 777);
  EXPECT_DOUBLE_EQ(pv.maskIntensity, 0.0);
  EXPECT_EQ(pv.maskType, 0);
  EXPECT_EQ(pv.maskSeed, 133);
  EXPECT_EQ(pv.timeFrames, 0);
  EXPECT_DOUBLE_EQ(pv.timeProbability, 25.0);
  EXPECT_EQ(pv.steppingUnit, 0);
  EXPECT_DOUBLE_EQ(pv.timeStepSeconds, 0.05);
  EXPECT_DOUBLE_EQ(pv.timeStepFrames, 2.0);
  EXPECT_EQ(pv.edgeTimeMode, 2);  // "Mirror"
  EXPECT_EQ(pv.timeSeed, 337);
  EXPECT_EQ(pv.exclusiveMode, 0);
  EXPECT_EQ(pv.maskLayer, nullptr);  // filled in smart render only
  for (PF_EffectWorld* w : pv.timeLayers) EXPECT_EQ(w, nullptr);
  ASSERT_EQ(h.smartRender(), PF_Err_NONE);
}

TEST_F(ParamLoading, FramesRoundToTheNearestCountWithHalvesUp) {
  const std::pair<double, A_long> cases[] = {{0.49, 0}, {0.5, 1}, {1.49, 1}, {2.5, 3}, {16.0, 16}};
  for (const auto& [shown, frames] : cases) {
    thost::Host& h = ready();
    setFixed(h, ID_TIME_FRAMES, shown);
    EXPECT_EQ(preRendered(h).timeFrames, frames) << shown;
    ASSERT_EQ(h.smartRender(), PF_Err_NONE);
  }
}

TEST_F(ParamLoading, BlockSizesKeepTheIntegerPartOnly) {
  thost::Host& h = ready();
  setFixed(h, ID_BLOCK_WIDTH, 32.9);
  setFixed(h, ID_BLOCK_HEIGHT, 7.5);
  const ParamValues pv = preRendered(h);
  EXPECT_EQ(pv.blockWidth, 32);
  EXPECT_EQ(pv.blockHeight, 7);
  ASSERT_EQ(h.smartRender(), PF_Err_NONE);
}

TEST_F(ParamLoading, EveryControlReachesItsField) {
  thost::Host& h = ready();
  setCheckbox(h, ID_COMPOSITE_ON_ORIGINAL, 0);
  setPopup(h, ID_CHANNELS, 5);
  setFloat(h, ID_SHUFFLE_STRENGTH, 0.75);
  setFloat(h, ID_SHUFFLE_SPREAD, 0.25);
  setPopup(h, ID_SHUFFLE_DIRECTION, 3);
  setFixed(h, ID_SHUFFLE_SEED, 1234.75);
  setFloat(h, ID_MASK_INTENSITY, 42.5);
  setPopup(h, ID_MASK_TYPE, 3);
  setFixed(h, ID_MASK_SEED, 99);
  setFloat(h, ID_TIME_PROBABILITY, 60.0);
  setPopup(h, ID_STEPPING_UNIT, 2);
  setFloat(h, ID_TIME_STEP_SECONDS, -1.5);
  setFloat(h, ID_TIME_STEP_FRAMES, -4.0);
  setPopup(h, ID_EDGE_TIME_MODE, 1);
  setFixed(h, ID_TIME_SEED, 5);
  setCheckbox(h, ID_EXCLUSIVE_MODE, 1);
  const ParamValues pv = preRendered(h);
  EXPECT_EQ(pv.compositeOnOriginal, 0);
  EXPECT_EQ(pv.channels, 4);
  EXPECT_DOUBLE_EQ(pv.shuffleStrength, 0.75);
  EXPECT_DOUBLE_EQ(pv.shuffleSpread, 0.25);
  EXPECT_EQ(pv.shuffleDirection, 2);
  EXPECT_EQ(pv.shuffleSeed, 1234);
  EXPECT_DOUBLE_EQ(pv.maskIntensity, 42.5);
  EXPECT_EQ(pv.maskType, 2);
  EXPECT_EQ(pv.maskSeed, 99);
  EXPECT_DOUBLE_EQ(pv.timeProbability, 60.0);
  EXPECT_EQ(pv.steppingUnit, 1);
  EXPECT_DOUBLE_EQ(pv.timeStepSeconds, -1.5);
  EXPECT_DOUBLE_EQ(pv.timeStepFrames, -4.0);
  EXPECT_EQ(pv.edgeTimeMode, 0);
  EXPECT_EQ(pv.timeSeed, 5);
  EXPECT_EQ(pv.exclusiveMode, 1);
  ASSERT_EQ(h.smartRender(), PF_Err_NONE);
}

// Popup values a damaged project could carry load one lower and stay outside
// the choices, the lowest int included (one lower would not be an int).
TEST_F(ParamLoading, DamagedPopupValuesStayOutsideTheChoices) {
  const int popups[] = {ID_CHANNELS, ID_SHUFFLE_DIRECTION, ID_MASK_TYPE, ID_STEPPING_UNIT,
                        ID_EDGE_TIME_MODE};
  for (const A_long value : {std::numeric_limits<A_long>::min(), -7, 0, 6,
                             std::numeric_limits<A_long>::max()}) {
    thost::Host& h = ready();
    for (int id : popups) setPopup(h, id, value);
    const ParamValues pv = preRendered(h);
    const A_long expected = value == std::numeric_limits<A_long>::min() ? value : value - 1;
    for (const A_long got :
         {pv.channels, pv.shuffleDirection, pv.maskType, pv.steppingUnit, pv.edgeTimeMode})
      EXPECT_EQ(got, expected) << value;
    EXPECT_EQ(h.smartRender(), PF_Err_NONE) << value;
    EXPECT_TRUE(h.contractBreaks().empty()) << value;
  }
}

TEST_F(ParamLoading, FrameStepsAreMultiplesOfTheCompositionTimeStep) {
  // "Frame", 2 frames, composition time step 100: frame i at 200 i.
  thost::Host& h = ready(60, 5);
  setFixed(h, ID_TIME_FRAMES, 4);
  setPopup(h, ID_STEPPING_UNIT, 2);
  setFloat(h, ID_TIME_STEP_FRAMES, 2.0);
  ASSERT_EQ(h.preRender(), PF_Err_NONE);
  std::vector<A_long> times;
  for (const thost::LayerCheckout& c : h.layerCheckouts()) {
    if (c.checkoutId >= 1024) times.push_back(c.time - 500);
  }
  EXPECT_EQ(times, (std::vector<A_long>{200, 400, 600, 800}));
  ASSERT_EQ(h.smartRender(), PF_Err_NONE);
}

TEST_F(ParamLoading, SecondStepsAreSecondsAtTheTimeScale) {
  // "Second", 0.05 s at 3000 units a second: frame i at 150 i; negative steps go back.
  for (double step : {0.05, -0.05}) {
    thost::Host& h = ready(60, 30);
    setFixed(h, ID_TIME_FRAMES, 3);
    setPopup(h, ID_STEPPING_UNIT, 1);
    setFloat(h, ID_TIME_STEP_SECONDS, step);
    ASSERT_EQ(h.preRender(), PF_Err_NONE);
    std::vector<A_long> offsets;
    for (const thost::LayerCheckout& c : h.layerCheckouts()) {
      if (c.checkoutId >= 1024) offsets.push_back(c.time - 3000);
    }
    const A_long sign = step > 0 ? 1 : -1;
    EXPECT_EQ(offsets, (std::vector<A_long>{150 * sign, 300 * sign, 450 * sign}));
    ASSERT_EQ(h.smartRender(), PF_Err_NONE);
  }
}

TEST_F(ParamLoading, ThreeTimeFramesFillExactlyTheFirstThreeSlots) {
  thost::Host& h = ready();
  h.setMaskClip(makeClip(30, 7, 5, 9));
  setFixed(h, ID_TIME_FRAMES, 3);
  ASSERT_EQ(h.preRender(), PF_Err_NONE);
  ASSERT_EQ(h.smartRender(), PF_Err_NONE);
  // Smart render completes the record in the host's handle with the pixels.
  const ParamValues pv = recordOf(h);
  for (int k = 0; k < MAX_TIME_FRAMES; ++k) {
    if (k < 3) {
      EXPECT_EQ(pv.timeLayers[k], h.checkoutWorld(1024 + k)) << k;
      EXPECT_NE(pv.timeLayers[k], nullptr) << k;
    } else {
      EXPECT_EQ(pv.timeLayers[k], nullptr) << k;
    }
  }
  EXPECT_EQ(pv.maskLayer, h.checkoutWorld(h.maskParamIndex()));
  EXPECT_NE(pv.maskLayer, nullptr);
}

TEST_F(ParamLoading, NoMaskLayerLeavesTheMaskNull) {
  thost::Host& h = ready();
  ASSERT_EQ(h.preRender(), PF_Err_NONE);
  ASSERT_EQ(h.smartRender(), PF_Err_NONE);
  EXPECT_EQ(recordOf(h).maskLayer, nullptr);
}

TEST_F(ParamLoading, LegacyRenderReadsTheParamsArrayAndChecksOutLayersAsParameters) {
  thost::Host& h = setUpInstance(thost::App::PremierePro);
  h.setLayerClip(0, makeClip(30, 20, 12));
  h.setMaskClip(makeClip(30, 9, 9, 4));
  setClipTime(h, 30, 6);
  setFixed(h, ID_TIME_FRAMES, 2);
  setPopup(h, ID_STEPPING_UNIT, 2);
  setFloat(h, ID_TIME_STEP_FRAMES, 3.0);
  h.clearCalls();
  ASSERT_EQ(h.legacyRender(), PF_Err_NONE);
  std::vector<std::string> got;
  for (const thost::HostCall& c : h.callsTo("checkout_param")) got.push_back(c.args);
  const std::string mask = std::to_string(h.maskParamIndex());
  // Mask at the current time, then the two frames, then the input itself.
  EXPECT_EQ(got, (std::vector<std::string>{mask + ",600,100,3000", "0,900,100,3000",
                                           "0,1200,100,3000", "0,600,100,3000"}));
  // Everything but the input layer comes back.
  EXPECT_EQ(h.callsTo("checkin_param").size(), 3u);
  EXPECT_EQ(h.toleratedNotices(), 1);
}

// Each control, set away from its default, lands in the field the control
// table names for it, converted as the table's users convert it.
TEST_F(ParamLoading, EveryControlLoadsIntoTheFieldTheControlTableNames) {
  for (const ControlRow& row : kControlRows) {
    if (row.field == ValueField::None || row.field == ValueField::maskLayer) continue;
    SCOPED_TRACE(row.id);
    thost::Host& h = ready();
    double x = 0;
    switch (row.kind) {
      case ControlKind::Popup: x = row.dflt == 1 ? 2 : 1; setPopup(h, row.id, static_cast<int>(x)); break;
      case ControlKind::Checkbox: x = row.dflt ? 0 : 1; setCheckbox(h, row.id, static_cast<int>(x)); break;
      case ControlKind::Fixed: x = row.dflt + 3; setFixed(h, row.id, x); break;
      case ControlKind::Float: x = (row.validMin + row.validMax) / 2 + 0.25; setFloat(h, row.id, x); break;
      default: FAIL() << "a control without a value names a field";
    }
    ParamValues expected = rt::defaultValues();
    rt::storeField(expected, row.field, x);
    const ParamValues got = preRendered(h);
    // Only the values: the layer pointers and checkouts differ by design.
    EXPECT_EQ(memcmp(&got, &expected, offsetof(ParamValues, maskLayer)), 0);
    ParamValues defaults = rt::defaultValues();
    EXPECT_NE(memcmp(&got, &defaults, offsetof(ParamValues, maskLayer)), 0) << "the set value was not loaded";
    ASSERT_EQ(h.smartRender(), PF_Err_NONE);
  }
}
