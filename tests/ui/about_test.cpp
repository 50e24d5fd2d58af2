// The about box, from the about command and from a double click on the header.
#include <string>

#include "plugin_fixture.h"
#include "ui_helpers.h"

namespace {

bool aboutText(const thost::Host& h) {
  const std::string msg = h.returnMessage();
  return msg.find("Tesselux") != std::string::npos && msg.find("1.5.1") != std::string::npos;
}

// Outside the about command the host shows the text only when asked to.
bool aboutShown(thost::Host& h) {
  return aboutText(h) && (h.outData().out_flags & PF_OutFlag_DISPLAY_ERROR_MESSAGE);
}

class AboutTest : public PluginTest {
 protected:
  thost::Host& effect() {
    host_.reset();  // unload the previous copy of the module first
    thost::Host& h = setUpEffect();
    header_ = ui::indexOf(h, ui::kHeader);
    return h;
  }
  PF_ParamIndex header_ = -1;
};

}  // namespace

TEST_F(AboutTest, TheAboutCommandShowsNameAndVersion) {
  thost::Host& h = effect();
  ASSERT_EQ(h.about(), PF_Err_NONE);
  EXPECT_TRUE(aboutText(h)) << h.returnMessage();
}

TEST_F(AboutTest, ClicksUpTo31ApartAreADoubleClickAnd32AreNot) {
  thost::Host& h = effect();
  ASSERT_EQ(h.click(header_, 10000), PF_Err_NONE);
  EXPECT_FALSE(aboutShown(h));
  ASSERT_EQ(h.click(header_, 10032), PF_Err_NONE);  // 32 later: a new single click
  EXPECT_FALSE(aboutShown(h));
  ASSERT_EQ(h.click(header_, 10063), PF_Err_NONE);  // 31 after that one
  EXPECT_TRUE(aboutShown(h)) << h.returnMessage();
}

TEST_F(AboutTest, AfterADoubleClickTheNextClickIsASingleOne) {
  thost::Host& h = effect();
  ASSERT_EQ(h.click(header_, 500), PF_Err_NONE);
  ASSERT_EQ(h.click(header_, 510), PF_Err_NONE);
  ASSERT_TRUE(aboutShown(h));
  ASSERT_EQ(h.click(header_, 515), PF_Err_NONE);  // the memory was reset to all ones
  EXPECT_FALSE(aboutShown(h));
}

TEST_F(AboutTest, TheFirstClickCountsFromAllOnes) {
  // 30 - 0xFFFFFFFF is 31 in unsigned arithmetic: already a double click.
  {
    thost::Host& h = effect();
    ASSERT_EQ(h.click(header_, 30), PF_Err_NONE);
    EXPECT_TRUE(aboutShown(h));
  }
  {
    thost::Host& h = effect();
    ASSERT_EQ(h.click(header_, 31), PF_Err_NONE);
    EXPECT_FALSE(aboutShown(h));
  }
}

TEST_F(AboutTest, TimeStampsThatWrapAroundStillPair) {
  thost::Host& h = effect();
  ASSERT_EQ(h.click(header_, 0xFFFFFFF0u), PF_Err_NONE);
  EXPECT_FALSE(aboutShown(h));
  ASSERT_EQ(h.click(header_, 0x0000000Au), PF_Err_NONE);  // 26 later across the wrap
  EXPECT_TRUE(aboutShown(h));
}
