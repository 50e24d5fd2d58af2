// The id-to-index map, getParam and the Premiere branch of the header control,
// reached directly because no host command leads to them on their own.
#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>
#include <vector>

#include "params/param_table.h"

namespace {

// A minimal host side: records what the effect adds and checks out.
struct FakeHost {
  std::vector<PF_ParamDef> added;
  std::vector<PF_CustomUIInfo> ui;
  std::vector<PF_ParamIndex> checkedOut;
  std::vector<A_long> checkoutTimes;
  PF_Err checkoutError = PF_Err_NONE;
};
FakeHost* fake = nullptr;

PF_Err fakeAddParam(PF_ProgPtr, PF_ParamIndex, PF_ParamDefPtr def) {
  fake->added.push_back(*def);
  return PF_Err_NONE;
}
PF_Err fakeRegisterUI(PF_ProgPtr, PF_CustomUIInfo* info) {
  fake->ui.push_back(*info);
  return PF_Err_NONE;
}
PF_Err fakeCheckout(PF_ProgPtr, PF_ParamIndex index, A_long time, A_long, A_u_long,
                    PF_ParamDef* def) {
  fake->checkedOut.push_back(index);
  fake->checkoutTimes.push_back(time);
  if (fake->checkoutError) return fake->checkoutError;
  std::memset(def, 0, sizeof *def);
  def->u.fd.value = index * 65536;
  return PF_Err_NONE;
}

class ParamMap : public ::testing::Test {
 protected:
  void SetUp() override {
    fake = &host;
    std::memset(&in, 0, sizeof in);
    in.inter.add_param = fakeAddParam;
    in.inter.register_ui = fakeRegisterUI;
    in.inter.checkout_param = fakeCheckout;
    in.version = {13, 28};
    in.appl_id = PF_APPL_ID_AFTER_EFFECTS;
    in.current_time = 1234;
    std::memset(&out, 0, sizeof out);
  }
  void TearDown() override { fake = nullptr; }
  FakeHost host;
  PF_InData in;
  PF_OutData out;
};

// The map is process-wide and never cleared, so the whole story is one test.
TEST_F(ParamMap, IdsMapToIndicesAndUnknownIdsAreInsertedWithIndexZero) {
  ASSERT_EQ(UIInitParams(&in, &out, nullptr), PF_Err_NONE);
  ASSERT_EQ(out.num_params, 27);
  EXPECT_EQ(getParamIndexFromId(ID_HEADER_IMAGE), 1);
  EXPECT_EQ(getParamIndexFromId(ID_CHANNELS), 2);
  EXPECT_EQ(getParamIndexFromId(ID_ALIGN_BUTTON), 5);
  EXPECT_EQ(getParamIndexFromId(ID_MASK_SOURCE), 24);
  EXPECT_EQ(getParamIndexFromId(ID_MASK_GROUP_END), 26);
  // Setup ends by adding id 0, the effect's own layer, so the 26 controls
  // plus that entry make the map one larger than the count check wanted.
  EXPECT_EQ(getParamIndexFromId(0), 0);
  EXPECT_THROW(verifyNumParams(27), std::logic_error);
  EXPECT_NO_THROW(verifyNumParams(28));

  // An id that was never added names the input layer and grows the map.
  EXPECT_EQ(getParamIndexFromId(99), 0);
  EXPECT_THROW(verifyNumParams(28), std::logic_error);
  EXPECT_NO_THROW(verifyNumParams(29));

  // Re-adding a present id gives it size + 1 without growing the map.
  addParam(ID_CHANNELS);
  EXPECT_EQ(getParamIndexFromId(ID_CHANNELS), 29);
  EXPECT_NO_THROW(verifyNumParams(29));

  try {
    verifyNumParams(5);
    FAIL();
  } catch (const std::logic_error& e) {
    EXPECT_STREQ(e.what(),
                 "Reported parameter count does not match actual parameter count. This would "
                 "lead to incorrect values.");
  }
}

TEST_F(ParamMap, GetParamReturnsTheHostsOwnDefinitionOrAFreshCheckout) {
  addParam(ID_BLOCK_WIDTH);
  const int index = getParamIndexFromId(ID_BLOCK_WIDTH);
  ASSERT_GT(index, 0);
  std::vector<PF_ParamDef> defs(index + 1);
  std::vector<PF_ParamDef*> params;
  for (auto& d : defs) params.push_back(&d);
  PF_ParamDef scratch;
  EXPECT_EQ(getParam(&in, params.data(), ID_BLOCK_WIDTH, &scratch), &defs[index]);
  EXPECT_TRUE(host.checkedOut.empty());

  PF_ParamDef* got = getParam(&in, nullptr, ID_BLOCK_WIDTH, &scratch);
  EXPECT_EQ(got, &scratch);
  ASSERT_EQ(host.checkedOut, std::vector<PF_ParamIndex>{index});
  EXPECT_EQ(host.checkoutTimes, std::vector<A_long>{1234});
  EXPECT_EQ(scratch.u.fd.value, index * 65536);

  host.checkoutError = PF_Err_INVALID_INDEX;
  try {
    getParam(&in, nullptr, ID_BLOCK_WIDTH, &scratch);
    FAIL() << "a failed checkout must throw";
  } catch (A_long err) {
    EXPECT_EQ(err, PF_Err_INVALID_INDEX);
  }
}

TEST_F(ParamMap, PremiereBranchOfTheHeaderIsAnArbitraryDataControl) {
  in.appl_id = PF_APPL_ID_PREMIERE;
  ASSERT_EQ(AddUIHeaderImage(&in, &out, ID_HEADER_IMAGE), PF_Err_NONE);
  ASSERT_EQ(host.added.size(), 1u);
  const PF_ParamDef& d = host.added[0];
  EXPECT_EQ(d.param_type, PF_Param_ARBITRARY_DATA);
  EXPECT_STREQ(d.name, "");
  EXPECT_EQ(d.ui_flags, 67);
  EXPECT_EQ(d.ui_width, 320);
  EXPECT_EQ(d.ui_height, 17);
  EXPECT_EQ(d.flags, 578);
  EXPECT_EQ(d.uu.id, 8);
  EXPECT_EQ(d.u.arb_d.id, 8);
  EXPECT_EQ(d.u.arb_d.pad, 0);
  EXPECT_EQ(d.u.arb_d.dephault, nullptr);
  EXPECT_EQ(d.u.arb_d.value, nullptr);
  EXPECT_EQ(d.u.arb_d.refconPV, nullptr);
  ASSERT_EQ(host.ui.size(), 1u);
  EXPECT_EQ(host.ui[0].events, 255);
  EXPECT_EQ(host.ui[0].comp_ui_width, 0);
  EXPECT_EQ(host.ui[0].preview_ui_alignment, 0);
}

TEST(HostVersion, TheHeaderNeedsAfterEffects13_9OrLater) {
  PF_InData in;
  std::memset(&in, 0, sizeof in);
  in.appl_id = PF_APPL_ID_AFTER_EFFECTS;
  struct Case {
    A_short major, minor;
    bool shows;
  };
  for (Case c : {Case{12, 99, false}, Case{13, 0, false}, Case{13, 8, false}, Case{13, 9, true},
                 Case{13, 28, true}, Case{14, 0, true}}) {
    in.version = {c.major, c.minor};
    EXPECT_EQ(hostShowsHeaderImage(&in), c.shows) << c.major << "." << c.minor;
  }
  in.appl_id = PF_APPL_ID_PREMIERE;
  in.version = {13, 28};
  EXPECT_FALSE(hostShowsHeaderImage(&in));
}

}  // namespace
