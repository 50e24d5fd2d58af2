// The values record is a host-facing block of bytes: its field order and
// offsets must not drift.
#include <gtest/gtest.h>

#include <stddef.h>

#include <type_traits>

#include "params/param_values.h"

namespace {

TEST(ParamValues, SizeAndFieldOffsets) {
  EXPECT_EQ(sizeof(ParamValues), 3240u);
  EXPECT_EQ(MAX_TIME_FRAMES, 16);
  EXPECT_TRUE(std::is_standard_layout<ParamValues>::value);
  EXPECT_TRUE(std::is_trivially_copyable<ParamValues>::value);
  EXPECT_EQ(offsetof(ParamValues, compositeOnOriginal), 0u);
  EXPECT_EQ(offsetof(ParamValues, channels), 4u);
  EXPECT_EQ(offsetof(ParamValues, blockWidth), 8u);
  EXPECT_EQ(offsetof(ParamValues, blockHeight), 12u);
  EXPECT_EQ(offsetof(ParamValues, shuffleStrength), 16u);
  EXPECT_EQ(offsetof(ParamValues, shuffleSpread), 24u);
  EXPECT_EQ(offsetof(ParamValues, shuffleDirection), 32u);
  EXPECT_EQ(offsetof(ParamValues, shuffleSeed), 36u);
  EXPECT_EQ(offsetof(ParamValues, maskIntensity), 40u);
  EXPECT_EQ(offsetof(ParamValues, maskType), 48u);
  EXPECT_EQ(offsetof(ParamValues, maskSeed), 52u);
  EXPECT_EQ(offsetof(ParamValues, timeFrames), 56u);
  EXPECT_EQ(offsetof(ParamValues, timeProbability), 64u);
  EXPECT_EQ(offsetof(ParamValues, steppingUnit), 72u);
  EXPECT_EQ(offsetof(ParamValues, timeStepSeconds), 80u);
  EXPECT_EQ(offsetof(ParamValues, timeStepFrames), 88u);
  EXPECT_EQ(offsetof(ParamValues, edgeTimeMode), 96u);
  EXPECT_EQ(offsetof(ParamValues, timeSeed), 100u);
  EXPECT_EQ(offsetof(ParamValues, exclusiveMode), 104u);
  EXPECT_EQ(offsetof(ParamValues, maskLayer), 112u);
  EXPECT_EQ(offsetof(ParamValues, maskParam), 120u);
  EXPECT_EQ(offsetof(ParamValues, timeLayers), 296u);
  EXPECT_EQ(offsetof(ParamValues, timeLayerParams), 424u);
  EXPECT_EQ(sizeof(ParamValues::timeLayers) / sizeof(ParamValues::timeLayers[0]), 16u);
  EXPECT_EQ(sizeof(ParamValues::timeLayerParams) / sizeof(ParamValues::timeLayerParams[0]), 16u);
}

TEST(ParamValues, FieldTypes) {
  ParamValues v{};
  EXPECT_TRUE((std::is_same<decltype(v.compositeOnOriginal), A_long>::value));
  EXPECT_TRUE((std::is_same<decltype(v.shuffleStrength), double>::value));
  EXPECT_TRUE((std::is_same<decltype(v.maskIntensity), double>::value));
  EXPECT_TRUE((std::is_same<decltype(v.timeStepFrames), double>::value));
  EXPECT_TRUE((std::is_same<decltype(v.maskLayer), PF_EffectWorld*>::value));
  EXPECT_TRUE((std::is_same<decltype(v.maskParam), PF_ParamDef>::value));
}

}  // namespace
