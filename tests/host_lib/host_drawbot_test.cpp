// Events, the Custom UI and Drawbot suites, and the surface they paint on.
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "fake_host.h"

using thost::Host;
using thost::HostCall;
using thost::Surface;
using thost_test::FakeHost;
using Breaks = std::vector<std::string>;

namespace {

struct Px {
  int b, g, r, a;
  bool operator==(const Px& o) const { return b == o.b && g == o.g && r == o.r && a == o.a; }
};

void PrintTo(const Px& p, std::ostream* os) {
  *os << "BGRA(" << p.b << "," << p.g << "," << p.r << "," << p.a << ")";
}

Px at(const Surface& s, int x, int y) {
  const uint8_t* p = &s.bgra[(static_cast<size_t>(y) * s.width + x) * 4];
  return Px{p[0], p[1], p[2], p[3]};
}

const Px kPanel{0x23, 0x23, 0x23, 255};

}  // namespace

TEST_F(FakeHost, ClickBuildsAnEventRecordWithAValidContext) {
  ASSERT_EQ(host.click(5, 1234), PF_Err_NONE);
  const PF_EventExtra& e = host.lastEvent();
  ASSERT_EQ(e.contextH, host.contextHandle());
  ASSERT_NE(*e.contextH, nullptr);
  EXPECT_EQ((*e.contextH)->magic, 0x05EA771Eu);
  EXPECT_EQ((*e.contextH)->w_type, PF_Window_EFFECT);
  EXPECT_EQ(e.e_type, PF_Event_DO_CLICK);
  EXPECT_EQ(e.u.do_click.when, 1234u);
  EXPECT_EQ(e.effect_win.index, 5);
  EXPECT_EQ(e.effect_win.area, PF_EA_PARAM_TITLE);
  EXPECT_EQ(e.effect_win.param_title_frame.right, 320);
  EXPECT_EQ(e.effect_win.current_frame.top, 20);
  EXPECT_EQ(e.evt_out_flags, PF_EO_HANDLED_EVENT);
  EXPECT_EQ(host.returnMessage(), "click 1234 on 5");

  ASSERT_EQ(host.click(2, 7, PF_EA_CONTROL), PF_Err_NONE);
  EXPECT_EQ(host.lastEvent().effect_win.area, PF_EA_CONTROL);
  EXPECT_TRUE(breaks().empty());
}

TEST_F(FakeHost, DrawCompositesTheImageOntoThePanel) {
  ASSERT_EQ(host.draw(1, PF_EA_PARAM_TITLE, {0, 20, 320, 37}, {2, 3, 322, 20}), PF_Err_NONE);
  EXPECT_EQ(host.lastEvent().e_type, PF_Event_DRAW);
  EXPECT_EQ(host.lastEvent().evt_out_flags, PF_EO_HANDLED_EVENT);
  const Surface& s = host.surface();
  ASSERT_EQ(s.width, 320);
  ASSERT_EQ(s.height, 40);
  EXPECT_EQ(at(s, 2, 3), (Px{0, 0, 255, 255}));
  EXPECT_EQ(at(s, 3, 3), (Px{0, 255, 0, 255}));
  EXPECT_EQ(at(s, 4, 3), (Px{255, 0, 0, 255}));
  // White at alpha 128 over #232323: 255 * 128/255 + 35 * 127/255 = 145.43.
  EXPECT_EQ(at(s, 5, 3), (Px{145, 145, 145, 255}));
  EXPECT_EQ(at(s, 2, 4), kPanel);  // fully transparent
  EXPECT_EQ(at(s, 3, 4), (Px{128, 128, 128, 255}));
  EXPECT_EQ(at(s, 4, 4), (Px{0, 255, 255, 255}));
  EXPECT_EQ(at(s, 5, 4), (Px{0, 0, 0, 255}));
  int panel = 0;
  for (int y = 0; y < s.height; ++y)
    for (int x = 0; x < s.width; ++x) panel += at(s, x, y) == kPanel;
  EXPECT_EQ(panel, 320 * 40 - 7);

  const std::vector<HostCall> expected = {
      {"AcquireSuite", "PF Effect Custom UI Suite,1"},
      {"AcquireSuite", "DRAWBOT Draw Suite,1"},
      {"AcquireSuite", "DRAWBOT Supplier Suite,1"},
      {"AcquireSuite", "DRAWBOT Surface Suite,2"},
      {"AcquireSuite", "DRAWBOT Path Suite,1"},
      {"PF_GetDrawingReference", ""},
      {"GetSupplier", ""},
      {"GetSurface", ""},
      {"NewImageFromBuffer", "4,2,16,6"},
      {"DrawImage", "2,3,1"},
      {"ReleaseObject", "image"},
      {"ReleaseSuite", "PF Effect Custom UI Suite,1"},
      {"ReleaseSuite", "DRAWBOT Draw Suite,1"},
      {"ReleaseSuite", "DRAWBOT Supplier Suite,1"},
      {"ReleaseSuite", "DRAWBOT Surface Suite,2"},
      {"ReleaseSuite", "DRAWBOT Path Suite,1"},
  };
  EXPECT_EQ(host.calls(), expected);
  EXPECT_EQ(host.calls()[9].via, "DRAWBOT Surface Suite");
  EXPECT_TRUE(breaks().empty());
}

TEST_F(FakeHost, DrawRoundsTheOriginAndAppliesOpacity) {
  ASSERT_EQ(host.draw(2, PF_EA_PARAM_TITLE), PF_Err_NONE);
  const Surface& s = host.surface();
  // Origin (10.4, 2.6) lands on (10, 3); red at half opacity over #232323:
  // red 127.5 + 17.5 = 145, green and blue 17.5, rounded to 18.
  EXPECT_EQ(at(s, 10, 3), (Px{18, 18, 145, 255}));
  EXPECT_EQ(at(s, 9, 3), kPanel);
  EXPECT_EQ(at(s, 10, 2), kPanel);
  // Half-transparent white at half opacity: coverage 128/255 * 0.5.
  EXPECT_EQ(at(s, 13, 3), (Px{90, 90, 90, 255}));
  EXPECT_EQ(at(s, 10, 4), kPanel);
  EXPECT_EQ(host.callsTo("DrawImage"), (std::vector<HostCall>{{"DrawImage", "10.4,2.6,0.5"}}));
}

TEST_F(FakeHost, EachDrawStartsFromAClearPanel) {
  ASSERT_EQ(host.draw(1, PF_EA_PARAM_TITLE), PF_Err_NONE);
  EXPECT_EQ(at(host.surface(), 0, 0), (Px{0, 0, 255, 255}));
  ASSERT_EQ(host.draw(2, PF_EA_PARAM_TITLE), PF_Err_NONE);
  EXPECT_EQ(at(host.surface(), 0, 0), kPanel);
}

TEST_F(FakeHost, ImagesDrawnPastTheEdgeAreClipped) {
  host.setSurfaceSize(3, 4);
  ASSERT_EQ(host.draw(1, PF_EA_PARAM_TITLE, {0, 0, 0, 0}, {1, 3, 5, 5}), PF_Err_NONE);
  const Surface& s = host.surface();
  EXPECT_EQ(s.bgra.size(), 3u * 4u * 4u);
  EXPECT_EQ(at(s, 1, 3), (Px{0, 0, 255, 255}));
  EXPECT_EQ(at(s, 2, 3), (Px{0, 255, 0, 255}));
  EXPECT_EQ(at(s, 0, 3), kPanel);
  EXPECT_TRUE(breaks().empty());
}

TEST_F(FakeHost, UnreleasedImageIsABreak) {
  ASSERT_EQ(host.draw(3, PF_EA_PARAM_TITLE), PF_Err_NONE);
  EXPECT_EQ(breaks(), (Breaks{"PF_Cmd_EVENT: Drawbot image 4x2 not released"}));
  host.clearContractBreaks();
}

TEST_F(FakeHost, OnlyStraightBgraImagesAreAccepted) {
  EXPECT_EQ(host.draw(4, PF_EA_PARAM_TITLE), kSPBadParameterError);
  EXPECT_EQ(host.lastEvent().evt_out_flags, PF_EO_NONE);
  EXPECT_EQ(host.callsTo("NewImageFromBuffer"),
            (std::vector<HostCall>{{"NewImageFromBuffer", "4,2,16,4"}}));
  EXPECT_TRUE(host.callsTo("DrawImage").empty());
  EXPECT_TRUE(breaks().empty());
}

TEST_F(FakeHost, DrawbotSuiteKeptIsABreak) {
  ASSERT_EQ(host.draw(5, PF_EA_PARAM_TITLE), PF_Err_NONE);
  EXPECT_EQ(breaks(), (Breaks{"PF_Cmd_EVENT: suite \"DRAWBOT Path Suite\" version 1 still acquired "
                              "at the end of the command (1 acquisition not released)"}));
  host.clearContractBreaks();
}

TEST_F(FakeHost, PaintRectFillsOnTheSurface) {
  ASSERT_EQ(host.draw(6, PF_EA_PARAM_TITLE), PF_Err_NONE);
  const Surface& s = host.surface();
  for (int y = 0; y < 6; ++y)
    for (int x = 0; x < 5; ++x) {
      const bool inside = x >= 1 && x < 3 && y >= 1 && y < 4;
      EXPECT_EQ(at(s, x, y), inside ? (Px{0, 0, 255, 255}) : kPanel) << x << "," << y;
    }
  EXPECT_EQ(host.callsTo("PaintRect"), (std::vector<HostCall>{{"PaintRect", "1,1,2,3"}}));
  EXPECT_TRUE(breaks().empty());
}

TEST_F(FakeHost, ImageWithTooFewRowBytesIsABreak) {
  EXPECT_EQ(host.draw(7, PF_EA_PARAM_TITLE), kSPBadParameterError);
  EXPECT_EQ(breaks(), (Breaks{"PF_Cmd_EVENT: NewImageFromBuffer with invalid arguments (4x2, row "
                              "bytes 8, layout 6)"}));
  host.clearContractBreaks();
}

TEST_F(FakeHost, ReleasingTheLentSupplierIsABreak) {
  EXPECT_EQ(host.draw(8, PF_EA_PARAM_TITLE), kSPBadParameterError);
  EXPECT_EQ(host.callsTo("ReleaseObject"), (std::vector<HostCall>{{"ReleaseObject", "supplier"}}));
  EXPECT_EQ(breaks(),
            (Breaks{"PF_Cmd_EVENT: ReleaseObject of the supplier, which the effect does not own"}));
  host.clearContractBreaks();
}

TEST_F(FakeHost, DrawImageFailureStillReleasesEverything) {
  host.failCall("DrawImage", 77);
  EXPECT_EQ(host.draw(1, PF_EA_PARAM_TITLE), 77);
  EXPECT_EQ(host.callsTo("ReleaseObject").size(), 1u);
  EXPECT_EQ(at(host.surface(), 0, 0), kPanel);
  EXPECT_TRUE(breaks().empty());
}

TEST_F(FakeHost, MissingDrawbotSuiteLeavesTheEventUnhandled) {
  host.removeSuite("DRAWBOT Draw Suite", 1);
  EXPECT_EQ(host.draw(1, PF_EA_PARAM_TITLE), PF_Err_BAD_CALLBACK_PARAM);
  EXPECT_EQ(host.lastEvent().evt_out_flags, PF_EO_NONE);
  EXPECT_TRUE(breaks().empty());
}

TEST_F(FakeHost, DrawingReferenceNeedsTheHostsContext) {
  ASSERT_EQ(scenario("drawing_ref_outside_event"), PF_Err_NONE);
  EXPECT_EQ(host.returnMessage(), std::to_string(PF_Err_BAD_CALLBACK_PARAM));
  EXPECT_EQ(breaks(), (Breaks{"PF_Cmd_COMPLETELY_GENERAL: PF_GetDrawingReference with a context "
                              "handle the host did not give"}));
  host.clearContractBreaks();
}

TEST_F(FakeHost, EventRecordsBuiltByTheTestAreSentAsTheyAre) {
  PF_EventExtra e{};
  e.contextH = host.contextHandle();
  e.e_type = PF_Event_DRAW;
  e.effect_win.index = 1;
  e.effect_win.area = PF_EA_CONTROL;
  e.effect_win.param_title_frame = PF_LRect{4, 5, 324, 22};
  ASSERT_EQ(host.event(e), PF_Err_NONE);
  EXPECT_EQ(e.evt_out_flags, PF_EO_HANDLED_EVENT);
  EXPECT_EQ(host.lastEvent().effect_win.param_title_frame.left, 4);
  EXPECT_EQ(at(host.surface(), 4, 5), (Px{0, 0, 255, 255}));
}

TEST_F(FakeHost, SurfaceWritesAPngThatReadsBack) {
  ASSERT_EQ(host.draw(1, PF_EA_PARAM_TITLE), PF_Err_NONE);
  const std::string path = ::testing::TempDir() + "thost_surface_test.png";
  ASSERT_TRUE(host.surface().writePng(path));
  Surface back;
  ASSERT_TRUE(Surface::readPng(path, back));
  EXPECT_EQ(back.width, 320);
  EXPECT_EQ(back.height, 40);
  EXPECT_EQ(back.bgra, host.surface().bgra);
  std::remove(path.c_str());
}

TEST(SurfaceTest, PngFailuresAreReported) {
  Surface s;
  s.width = 2;
  s.height = 2;
  s.bgra.assign(16, 0);
  EXPECT_FALSE(s.writePng("/nonexistent/dir/x.png"));
  Surface wrongSize;
  wrongSize.width = 3;
  wrongSize.height = 3;
  EXPECT_FALSE(wrongSize.writePng(::testing::TempDir() + "thost_never.png"));

  const std::string text = ::testing::TempDir() + "thost_not_a_png.png";
  std::FILE* f = std::fopen(text.c_str(), "w");
  ASSERT_NE(f, nullptr);
  std::fputs("not a png", f);
  std::fclose(f);
  Surface out;
  EXPECT_FALSE(Surface::readPng(text, out));
  EXPECT_FALSE(Surface::readPng("/nonexistent/x.png", out));
  std::remove(text.c_str());
}

TEST_F(FakeHost, SurfaceSizeCanBeChanged) {
  host.setSurfaceSize(10, 5);
  EXPECT_EQ(host.surface().bgra.size(), 200u);
  for (int y = 0; y < 5; ++y)
    for (int x = 0; x < 10; ++x) EXPECT_EQ(at(host.surface(), x, y), kPanel);
  EXPECT_THROW(host.setSurfaceSize(0, 5), std::invalid_argument);
}
