// The event command: the version gate, double clicks on the header, and which
// draw events reach the header drawing.
#include "plugin_fixture.h"

using thost::App;

namespace {

constexpr PF_ParamIndex kHeaderIndex = 1;  // added first, right after the input layer

bool aboutShown(const thost::Host& h) {
  return h.returnMessage().find("Tesselux") != std::string::npos &&
         h.returnMessage().find("1.5.1") != std::string::npos &&
         (h.outData().out_flags & PF_OutFlag_DISPLAY_ERROR_MESSAGE);
}

bool drewHeader(const thost::Host& h) {
  return h.acquireCount("DRAWBOT Draw Suite", 1) > 0 &&
         h.lastEvent().evt_out_flags == PF_EO_HANDLED_EVENT;
}

}  // namespace

TEST_F(PluginTest, ClicksExactly31ApartAreADoubleClick) {
  thost::Host& h = setUpEffect();
  ASSERT_EQ(h.click(kHeaderIndex, 1000), PF_Err_NONE);
  EXPECT_FALSE(aboutShown(h));
  ASSERT_EQ(h.click(kHeaderIndex, 1031), PF_Err_NONE);
  EXPECT_TRUE(aboutShown(h)) << h.returnMessage();
}

TEST_F(PluginTest, Clicks32ApartAreTwoSingleClicks) {
  thost::Host& h = setUpEffect();
  ASSERT_EQ(h.click(kHeaderIndex, 5000), PF_Err_NONE);
  ASSERT_EQ(h.click(kHeaderIndex, 5032), PF_Err_NONE);
  EXPECT_FALSE(aboutShown(h));
  // The second click is now the one remembered.
  ASSERT_EQ(h.click(kHeaderIndex, 5063), PF_Err_NONE);
  EXPECT_TRUE(aboutShown(h));
}

TEST_F(PluginTest, AThirdClickSoonAfterADoubleClickIsASingleClick) {
  thost::Host& h = setUpEffect();
  ASSERT_EQ(h.click(kHeaderIndex, 100), PF_Err_NONE);
  ASSERT_EQ(h.click(kHeaderIndex, 120), PF_Err_NONE);
  ASSERT_TRUE(aboutShown(h));
  ASSERT_EQ(h.click(kHeaderIndex, 130), PF_Err_NONE);
  EXPECT_FALSE(aboutShown(h));
  ASSERT_EQ(h.click(kHeaderIndex, 140), PF_Err_NONE);
  EXPECT_TRUE(aboutShown(h));
}

TEST_F(PluginTest, AFirstClickAt30OrLessAlreadyCountsAsADoubleClick) {
  // The memory starts at all ones and the difference is unsigned: 30 - 0xFFFFFFFF = 31.
  thost::Host& h = setUpEffect();
  ASSERT_EQ(h.click(kHeaderIndex, 30), PF_Err_NONE);
  EXPECT_TRUE(aboutShown(h));
}

TEST_F(PluginTest, AFirstClickAt31IsASingleClick) {
  thost::Host& h = setUpEffect();
  ASSERT_EQ(h.click(kHeaderIndex, 31), PF_Err_NONE);
  EXPECT_FALSE(aboutShown(h));
}

TEST_F(PluginTest, ClicksOnOtherControlsAreIgnored) {
  thost::Host& h = setUpEffect();
  ASSERT_EQ(h.click(kHeaderIndex + 1, 1000), PF_Err_NONE);
  ASSERT_EQ(h.click(kHeaderIndex + 1, 1001), PF_Err_NONE);
  EXPECT_FALSE(aboutShown(h));
  // ...and do not disturb the header's memory.
  ASSERT_EQ(h.click(kHeaderIndex, 2000), PF_Err_NONE);
  ASSERT_EQ(h.click(kHeaderIndex + 1, 2010), PF_Err_NONE);
  ASSERT_EQ(h.click(kHeaderIndex, 2020), PF_Err_NONE);
  EXPECT_TRUE(aboutShown(h));
}

TEST_F(PluginTest, Api13_8GetsNoEventHandlingOnTheIndexItsOwnHeaderLookupGives) {
  // Below 13.9 no header is added, so the effect's own lookup of the header id
  // gives index 0: that is where an ungated handler would react.
  thost::Host& h = setUpEffect(App::AfterEffects, 13, 8);
  for (const thost::AddedParam& p : h.addedParams()) ASSERT_NE(p.def.uu.id, 8);
  constexpr PF_ParamIndex kLookedUp = 0;
  h.clearCalls();
  h.clearSuiteCounts();
  ASSERT_EQ(h.click(kLookedUp, 10), PF_Err_NONE);  // an early first click would be a double
  EXPECT_FALSE(aboutShown(h));
  ASSERT_EQ(h.click(kLookedUp, 20), PF_Err_NONE);
  EXPECT_FALSE(aboutShown(h));
  ASSERT_EQ(h.draw(kLookedUp, PF_EA_PARAM_TITLE), PF_Err_NONE);
  EXPECT_NE(h.lastEvent().evt_out_flags, PF_EO_HANDLED_EVENT);
  ASSERT_EQ(h.draw(kLookedUp, PF_EA_CONTROL), PF_Err_NONE);
  EXPECT_NE(h.lastEvent().evt_out_flags, PF_EO_HANDLED_EVENT);
  EXPECT_EQ(h.acquireCount("DRAWBOT Draw Suite", 1), 0);
  EXPECT_TRUE(h.calls().empty());
}

TEST_F(PluginTest, Api13_9HandlesEvents) {
  thost::Host& h = setUpEffect(App::AfterEffects, 13, 9);
  ASSERT_EQ(h.click(kHeaderIndex, 10), PF_Err_NONE);  // early first click: a double click
  EXPECT_TRUE(aboutShown(h));
  ASSERT_EQ(h.draw(kHeaderIndex, PF_EA_PARAM_TITLE), PF_Err_NONE);
  EXPECT_TRUE(drewHeader(h));
}

TEST_F(PluginTest, Api13_23DrawsTheHeaderOnlyInTheControlArea) {
  thost::Host& h = setUpEffect(App::AfterEffects, 13, 23);
  ASSERT_EQ(h.draw(kHeaderIndex, PF_EA_PARAM_TITLE), PF_Err_NONE);
  EXPECT_FALSE(drewHeader(h));
  EXPECT_EQ(h.acquireCount("DRAWBOT Draw Suite", 1), 0);
  ASSERT_EQ(h.draw(kHeaderIndex, PF_EA_CONTROL), PF_Err_NONE);
  EXPECT_TRUE(drewHeader(h));
}

TEST_F(PluginTest, OtherVersionsDrawTheHeaderOnlyInTheParameterTitle) {
  for (A_short minor : {9, 22, 24, 28}) {
    thost::Host& h = setUpEffect(App::AfterEffects, 13, minor);
    ASSERT_EQ(h.draw(kHeaderIndex, PF_EA_CONTROL), PF_Err_NONE);
    EXPECT_FALSE(drewHeader(h)) << "13." << minor;
    EXPECT_EQ(h.acquireCount("DRAWBOT Draw Suite", 1), 0) << "13." << minor;
    ASSERT_EQ(h.draw(kHeaderIndex, PF_EA_PARAM_TITLE), PF_Err_NONE);
    EXPECT_TRUE(drewHeader(h)) << "13." << minor;
    EXPECT_TRUE(h.contractBreaks().empty()) << joined(h.contractBreaks());
  }
}

TEST_F(PluginTest, DrawEventsForOtherControlsAndOtherAreasDrawNothing) {
  thost::Host& h = setUpEffect();
  ASSERT_EQ(h.draw(kHeaderIndex + 1, PF_EA_PARAM_TITLE), PF_Err_NONE);
  ASSERT_EQ(h.draw(kHeaderIndex, PF_EA_NONE), PF_Err_NONE);
  EXPECT_EQ(h.acquireCount("DRAWBOT Draw Suite", 1), 0);
}

TEST_F(PluginTest, OtherEventsOnTheHeaderDoNothing) {
  thost::Host& h = setUpEffect();
  h.clearCalls();
  for (PF_EventType type : {PF_Event_NEW_CONTEXT, PF_Event_ACTIVATE, PF_Event_DRAG,
                            PF_Event_IDLE, PF_Event_ADJUST_CURSOR, PF_Event_KEYDOWN}) {
    PF_EventExtra extra{};
    extra.e_type = type;
    extra.effect_win.index = kHeaderIndex;
    extra.effect_win.area = PF_EA_PARAM_TITLE;
    EXPECT_EQ(h.event(extra), PF_Err_NONE);
  }
  EXPECT_TRUE(h.calls().empty());
}
