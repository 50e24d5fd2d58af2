// The layout checks themselves are static_asserts in layout_asserts.cpp: this
// binary only exists if every one of them held. The tests below pin the few
// facts that other code relies on by name.
#include <gtest/gtest.h>

#include "aesdk/aesdk.h"

extern const int kLayoutRowsAsserted;

TEST(SdkLayout, EveryMeasuredRowOfTheDeclaredRecordsIsAsserted) {
  // 711 measured rows, minus the two suite tables the project does not declare.
  EXPECT_EQ(kLayoutRowsAsserted, 643);
}

TEST(SdkLayout, ParamDefSizeFixesTheValuesRecordSize) {
  EXPECT_EQ(sizeof(PF_ParamDef), 176u);
  EXPECT_EQ(248 + 17 * sizeof(PF_ParamDef), 3240u);
}

TEST(SdkLayout, VersionWordPacking) {
  EXPECT_EQ(PF_VERSION(1, 5, 1, PF_Stage_RELEASE, 1), 691713u);
  EXPECT_EQ(PF_VERSION(1, 0, 0, PF_Stage_DEVELOP, 1), 524289u);
}
