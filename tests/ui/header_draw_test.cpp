// The header image drawn by the headless host's Drawbot suites, compared pixel
// for pixel with resources/header.png, and every failure of the drawing path.
#include <png.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "host/header_draw.h"
#include "plugin_fixture.h"
#include "ui_helpers.h"

namespace {

constexpr int kW = 320, kH = 17;
constexpr PF_Err kHostError = PF_Err_INVALID_CALLBACK;

const std::string kSourceDir = TESSELUX_SOURCE_DIR;

// Any PNG as 8-bit straight RGBA, read with libpng's simplified API (the
// plug-in's own pixels come from a separate build-time converter).
bool readRgba(const std::string& path, int* w, int* h, std::vector<uint8_t>* rgba) {
  png_image image;
  std::memset(&image, 0, sizeof image);
  image.version = PNG_IMAGE_VERSION;
  if (!png_image_begin_read_from_file(&image, path.c_str())) return false;
  image.format = PNG_FORMAT_RGBA;
  rgba->assign(PNG_IMAGE_SIZE(image), 0);
  if (!png_image_finish_read(&image, nullptr, rgba->data(), 0, nullptr)) {
    png_image_free(&image);
    return false;
  }
  *w = static_cast<int>(image.width);
  *h = static_cast<int>(image.height);
  return true;
}

struct Picture {
  int width = 0, height = 0;
  std::vector<uint8_t> bgra;
};

// The panel as the host clears it.
Picture panel(int w, int h) {
  Picture p{w, h, std::vector<uint8_t>(size_t(w) * h * 4, 0)};
  for (size_t i = 0; i < p.bgra.size(); i += 4) {
    p.bgra[i + 0] = p.bgra[i + 1] = p.bgra[i + 2] = thost::Host::kPanelGrey;
    p.bgra[i + 3] = 255;
  }
  return p;
}

// The header composited over the panel at (x, y), straight alpha, full opacity.
Picture expectedPanel(int w, int h, int x0, int y0, const std::vector<uint8_t>& headerRgba) {
  Picture p = panel(w, h);
  for (int y = 0; y < kH; ++y) {
    for (int x = 0; x < kW; ++x) {
      const int px = x0 + x, py = y0 + y;
      if (px < 0 || py < 0 || px >= w || py >= h) continue;
      const uint8_t* s = &headerRgba[(size_t(y) * kW + x) * 4];
      uint8_t* d = &p.bgra[(size_t(py) * w + px) * 4];
      const unsigned a = s[3];
      // Blue, green, red from the source's R, G, B.
      for (int c = 0; c < 3; ++c) {
        const unsigned src = s[2 - c];
        d[c] = static_cast<uint8_t>((src * a + d[c] * (255 - a) + 127) / 255);
      }
    }
  }
  return p;
}

// The first differing pixel, or empty when the surface equals the picture.
std::string firstDifference(const thost::Surface& s, const Picture& p) {
  if (s.width != p.width || s.height != p.height) {
    return "size " + std::to_string(s.width) + "x" + std::to_string(s.height) + " vs " +
           std::to_string(p.width) + "x" + std::to_string(p.height);
  }
  for (size_t i = 0; i < p.bgra.size(); i += 4) {
    if (std::memcmp(&s.bgra[i], &p.bgra[i], 4) != 0) {
      const size_t px = i / 4;
      char buf[160];
      std::snprintf(buf, sizeof buf, "pixel (%zu, %zu): BGRA %u,%u,%u,%u, expected %u,%u,%u,%u",
                    px % p.width, px / p.width, s.bgra[i], s.bgra[i + 1], s.bgra[i + 2],
                    s.bgra[i + 3], p.bgra[i], p.bgra[i + 1], p.bgra[i + 2], p.bgra[i + 3]);
      return buf;
    }
  }
  return {};
}

const char* const kDrawbotSuites[] = {"DRAWBOT Draw Suite", "DRAWBOT Supplier Suite",
                                      "DRAWBOT Surface Suite", "DRAWBOT Path Suite"};
const int kDrawbotVersions[] = {1, 1, 2, 1};

class HeaderDrawTest : public PluginTest {
 protected:
  void SetUp() override {
    int w = 0, h = 0;
    ASSERT_TRUE(readRgba(kSourceDir + "/resources/header.png", &w, &h, &header_));
    ASSERT_EQ(w, kW);
    ASSERT_EQ(h, kH);
  }

  thost::Host& fresh(A_short minor = 28) {
    if (host_) {
      EXPECT_TRUE(host_->contractBreaks().empty()) << ui::joined(host_->contractBreaks());
    }
    // The old host goes first: it unloads the module, so the new one starts
    // from a fresh id map instead of sharing the loaded copy's.
    host_.reset();
    thost::Host& h = setUpEffect(thost::App::AfterEffects, 13, minor);
    header_index_ = ui::indexOf(h, ui::kHeader);
    h.clearCalls();
    h.clearSuiteCounts();
    return h;
  }

  PF_Err drawTitle(thost::Host& h) { return h.draw(header_index_, PF_EA_PARAM_TITLE); }

  // Every suite the command acquired was released as often, and nothing else
  // stayed behind.
  void expectSuitesBalanced(const thost::Host& h) {
    for (int i = 0; i < 4; ++i) {
      EXPECT_EQ(h.acquireCount(kDrawbotSuites[i], kDrawbotVersions[i]),
                h.releaseCount(kDrawbotSuites[i], kDrawbotVersions[i]))
          << kDrawbotSuites[i];
    }
    EXPECT_EQ(h.acquireCount("PF Effect Custom UI Suite", 1),
              h.releaseCount("PF Effect Custom UI Suite", 1));
  }

  // The effect asked once to release its image and the host refused: the host
  // then still holds the image and says so; nothing else may be left over.
  void expectRefusedReleaseOnly(thost::Host& h) {
    ASSERT_EQ(h.contractBreaks().size(), 1u) << ui::joined(h.contractBreaks());
    EXPECT_NE(h.contractBreaks()[0].find("image"), std::string::npos);
    EXPECT_NE(h.contractBreaks()[0].find("not released"), std::string::npos);
    h.clearContractBreaks();
  }

  bool handled(thost::Host& h) { return h.lastEvent().evt_out_flags == PF_EO_HANDLED_EVENT; }

  std::vector<uint8_t> header_;
  PF_ParamIndex header_index_ = -1;
};

}  // namespace

TEST_F(HeaderDrawTest, TheResourceIsADesigned320By17BannerWithCrispAlpha) {
  // Only fully transparent or fully opaque pixels, so it sits on any panel
  // colour without fringes; and enough drawn pixels to be a picture.
  size_t opaque = 0;
  for (size_t i = 3; i < header_.size(); i += 4) {
    ASSERT_TRUE(header_[i] == 0 || header_[i] == 255) << "pixel " << i / 4;
    opaque += header_[i] == 255;
  }
  EXPECT_GT(opaque, 500u);
  EXPECT_LT(opaque, size_t(kW) * kH / 2);
}

TEST_F(HeaderDrawTest, ThePreparedPixelsAreThePngAsStraightBgra) {
  // This test binary's own copy of the code: nothing here has prepared it yet.
  EXPECT_EQ(HeaderImagePixels(), nullptr);
  PrepareHeaderImage();
  const auto* pixels = static_cast<const uint8_t*>(HeaderImagePixels());
  ASSERT_NE(pixels, nullptr);
  for (size_t i = 0; i < header_.size(); i += 4) {
    ASSERT_EQ(pixels[i + 0], header_[i + 2]) << "blue of pixel " << i / 4;
    ASSERT_EQ(pixels[i + 1], header_[i + 1]) << "green of pixel " << i / 4;
    ASSERT_EQ(pixels[i + 2], header_[i + 0]) << "red of pixel " << i / 4;
    ASSERT_EQ(pixels[i + 3], header_[i + 3]) << "alpha of pixel " << i / 4;
  }
  // Prepared once: a second call keeps the same buffer.
  PrepareHeaderImage();
  EXPECT_EQ(HeaderImagePixels(), pixels);
}

TEST_F(HeaderDrawTest, DrawnPixelForPixelOnEachVersionInItsOwnAreaOnly) {
  const PF_LRect title = {12, 4, 332, 21};
  const PF_LRect control = {20, 30, 340, 47};
  const int sw = 360, sh = 56;
  for (A_short minor : {22, 23, 24}) {
    for (PF_EffectArea area : {PF_EA_PARAM_TITLE, PF_EA_CONTROL}) {
      const bool drawsHere = (minor == 23) == (area == PF_EA_CONTROL);
      SCOPED_TRACE("13." + std::to_string(minor) +
                   (area == PF_EA_CONTROL ? " control area" : " title area"));
      thost::Host& h = fresh(minor);
      h.setSurfaceSize(sw, sh);
      ASSERT_EQ(h.draw(header_index_, area, control, title), PF_Err_NONE);

      const Picture want =
          drawsHere ? expectedPanel(sw, sh, area == PF_EA_CONTROL ? control.left : title.left,
                                    area == PF_EA_CONTROL ? control.top : title.top, header_)
                    : panel(sw, sh);
      EXPECT_EQ(firstDifference(h.surface(), want), "");
      EXPECT_EQ(handled(h), drawsHere);
      EXPECT_EQ(h.callsTo("DrawImage").size(), drawsHere ? 1u : 0u);
      if (drawsHere) {
        const PF_LRect& f = area == PF_EA_CONTROL ? control : title;
        EXPECT_EQ(h.callsTo("DrawImage")[0].args,
                  std::to_string(f.left) + "," + std::to_string(f.top) + ",1");
        EXPECT_EQ(h.callsTo("NewImageFromBuffer")[0].args, "320,17,1280,6");
      }
      expectSuitesBalanced(h);
    }
  }
}

TEST_F(HeaderDrawTest, TheDrawingTalksToTheHostInThisOrder) {
  thost::Host& h = fresh();
  ASSERT_EQ(drawTitle(h), PF_Err_NONE);
  std::vector<std::string> seen;
  for (const auto& c : h.calls()) seen.push_back(c.fn + "(" + c.args + ")");
  const std::vector<std::string> expected = {
      "AcquireSuite(DRAWBOT Draw Suite,1)",
      "AcquireSuite(DRAWBOT Supplier Suite,1)",
      "AcquireSuite(DRAWBOT Surface Suite,2)",
      "AcquireSuite(DRAWBOT Path Suite,1)",
      "AcquireSuite(PF Effect Custom UI Suite,1)",
      "PF_GetDrawingReference()",
      "ReleaseSuite(PF Effect Custom UI Suite,1)",
      "GetSupplier()",
      "GetSurface()",
      "NewImageFromBuffer(320,17,1280,6)",
      "DrawImage(0,0,1)",
      "ReleaseObject(image)",
      "ReleaseSuite(DRAWBOT Draw Suite,1)",
      "ReleaseSuite(DRAWBOT Supplier Suite,1)",
      "ReleaseSuite(DRAWBOT Surface Suite,2)",
      "ReleaseSuite(DRAWBOT Path Suite,1)",
  };
  EXPECT_EQ(seen, expected);
  EXPECT_TRUE(handled(h));
}

TEST_F(HeaderDrawTest, ThePanelPictureInTheDocsIsWhatTheHostDraws) {
  // A panel with some room around the header, as the README shows it.
  thost::Host& h = fresh();
  h.setSurfaceSize(344, 29);
  ASSERT_EQ(h.draw(header_index_, PF_EA_PARAM_TITLE, {0, 0, 0, 0}, {12, 6, 332, 23}),
            PF_Err_NONE);
  ASSERT_EQ(firstDifference(h.surface(), expectedPanel(344, 29, 12, 6, header_)), "");

  const std::string docs = kSourceDir + "/docs/header-in-panel.png";
  // TESSELUX_UPDATE_DOCS=1 rewrites the committed picture from this drawing.
  const char* update = std::getenv("TESSELUX_UPDATE_DOCS");
  if (update && std::string(update) == "1") {
    ASSERT_TRUE(h.surface().writePng(docs));
  }

  // The host's PNG writer, read back independently.
  const std::string written = ::testing::TempDir() + "header-in-panel.png";
  ASSERT_TRUE(h.surface().writePng(written));
  int w = 0, hh = 0;
  std::vector<uint8_t> rgba;
  ASSERT_TRUE(readRgba(written, &w, &hh, &rgba));
  Picture back{w, hh, rgba};
  for (size_t i = 0; i < back.bgra.size(); i += 4) std::swap(back.bgra[i], back.bgra[i + 2]);
  EXPECT_EQ(firstDifference(h.surface(), back), "");

  // The committed picture is up to date.
  std::vector<uint8_t> committed;
  ASSERT_TRUE(readRgba(docs, &w, &hh, &committed)) << docs;
  Picture doc{w, hh, committed};
  for (size_t i = 0; i < doc.bgra.size(); i += 4) std::swap(doc.bgra[i], doc.bgra[i + 2]);
  EXPECT_EQ(firstDifference(h.surface(), doc), "") << "run with TESSELUX_UPDATE_DOCS=1 to refresh";
}

TEST_F(HeaderDrawTest, EventsForOtherControlsNeverReachTheDrawing) {
  thost::Host& h = fresh();
  for (PF_ParamIndex i = 0; i < h.numParams(); ++i) {
    if (i == header_index_) continue;
    ASSERT_EQ(h.draw(i, PF_EA_PARAM_TITLE), PF_Err_NONE);
    ASSERT_EQ(h.draw(i, PF_EA_CONTROL), PF_Err_NONE);
  }
  EXPECT_TRUE(h.calls().empty());
  EXPECT_EQ(firstDifference(h.surface(), panel(h.surface().width, h.surface().height)), "");
}

TEST_F(HeaderDrawTest, EachMissingDrawbotSuiteFailsWithTheMessageAndReleasesEverything) {
  for (int missing = 0; missing < 4; ++missing) {
    SCOPED_TRACE(kDrawbotSuites[missing]);
    thost::Host& h = fresh();
    h.removeSuite(kDrawbotSuites[missing], kDrawbotVersions[missing]);
    EXPECT_EQ(drawTitle(h), PF_Err_BAD_CALLBACK_PARAM);
    EXPECT_EQ(h.returnMessage(), "Not able to acquire AEFX Suite.");
    EXPECT_TRUE(h.outData().out_flags & PF_OutFlag_DISPLAY_ERROR_MESSAGE);
    EXPECT_FALSE(handled(h));
    // Acquisition stopped at the missing suite and nothing was drawn.
    for (int i = 0; i < 4; ++i) {
      EXPECT_EQ(h.acquireCount(kDrawbotSuites[i], kDrawbotVersions[i]), i < missing ? 1 : 0);
    }
    EXPECT_EQ(h.acquireCount("PF Effect Custom UI Suite", 1), 0);
    EXPECT_TRUE(h.callsTo("NewImageFromBuffer").empty());
    EXPECT_EQ(firstDifference(h.surface(), panel(h.surface().width, h.surface().height)), "");
    // Exactly the suites that were had are given back: releasing one never
    // acquired would take a real host's reference count below zero.
    for (int i = 0; i < 4; ++i) {
      EXPECT_EQ(h.releaseCount(kDrawbotSuites[i], kDrawbotVersions[i]), i < missing ? 1 : 0)
          << kDrawbotSuites[i];
    }
    expectSuitesBalanced(h);
    EXPECT_TRUE(h.contractBreaks().empty()) << ui::joined(h.contractBreaks());
  }
}

TEST_F(HeaderDrawTest, AMissingCustomUISuiteFailsAndReleasesTheDrawbotSuites) {
  thost::Host& h = fresh();
  h.removeSuite("PF Effect Custom UI Suite", 1);
  EXPECT_EQ(drawTitle(h), PF_Err_BAD_CALLBACK_PARAM);
  EXPECT_EQ(h.returnMessage(), "Not able to acquire AEFX Suite.");
  EXPECT_FALSE(handled(h));
  EXPECT_TRUE(h.callsTo("GetSupplier").empty());
  EXPECT_TRUE(h.callsTo("NewImageFromBuffer").empty());
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(h.acquireCount(kDrawbotSuites[i], kDrawbotVersions[i]), 1);
  }
  expectSuitesBalanced(h);
  EXPECT_EQ(firstDifference(h.surface(), panel(h.surface().width, h.surface().height)), "");
}

TEST_F(HeaderDrawTest, AFailingNewImageFromBufferIsTheResultAndNothingIsDrawn) {
  thost::Host& h = fresh();
  h.failCall("NewImageFromBuffer", kHostError, 1);
  EXPECT_EQ(drawTitle(h), kHostError);
  EXPECT_FALSE(handled(h));
  EXPECT_TRUE(h.callsTo("DrawImage").empty());
  EXPECT_TRUE(h.callsTo("ReleaseObject").empty());  // no image was made
  expectSuitesBalanced(h);
  EXPECT_EQ(h.releaseCount("DRAWBOT Draw Suite", 1), 1);
  EXPECT_EQ(firstDifference(h.surface(), panel(h.surface().width, h.surface().height)), "");
}

TEST_F(HeaderDrawTest, AFailingDrawImageIsTheResultAndTheImageIsStillReleased) {
  thost::Host& h = fresh();
  h.failCall("DrawImage", kHostError, 1);
  EXPECT_EQ(drawTitle(h), kHostError);
  EXPECT_FALSE(handled(h));
  ASSERT_EQ(h.callsTo("ReleaseObject").size(), 1u);
  EXPECT_EQ(h.callsTo("ReleaseObject")[0].args, "image");
  expectSuitesBalanced(h);
  EXPECT_EQ(h.releaseCount("DRAWBOT Draw Suite", 1), 1);
}

TEST_F(HeaderDrawTest, TheFirstErrorWinsOverAFailingImageRelease) {
  thost::Host& h = fresh();
  h.failCall("DrawImage", kHostError, 1);
  h.failCall("ReleaseObject", PF_Err_OUT_OF_MEMORY, 1);
  EXPECT_EQ(drawTitle(h), kHostError);
  EXPECT_EQ(h.callsTo("ReleaseObject").size(), 1u);
  expectSuitesBalanced(h);
  expectRefusedReleaseOnly(h);
}

TEST_F(HeaderDrawTest, AFailingImageReleaseAloneIsTheResult) {
  thost::Host& h = fresh();
  h.failCall("ReleaseObject", PF_Err_OUT_OF_MEMORY, 1);
  EXPECT_EQ(drawTitle(h), PF_Err_OUT_OF_MEMORY);
  EXPECT_FALSE(handled(h));
  EXPECT_EQ(h.callsTo("DrawImage").size(), 1u);
  expectSuitesBalanced(h);
  expectRefusedReleaseOnly(h);
}

TEST_F(HeaderDrawTest, FailuresBeforeTheImageStopTheDrawingAndReleaseEverything) {
  for (const char* fn : {"PF_GetDrawingReference", "GetSupplier", "GetSurface"}) {
    SCOPED_TRACE(fn);
    thost::Host& h = fresh();
    h.failCall(fn, kHostError, 1);
    EXPECT_EQ(drawTitle(h), kHostError);
    EXPECT_FALSE(handled(h));
    EXPECT_TRUE(h.callsTo("NewImageFromBuffer").empty());
    expectSuitesBalanced(h);
    EXPECT_EQ(h.releaseCount("PF Effect Custom UI Suite", 1), 1);
    EXPECT_EQ(h.releaseCount("DRAWBOT Path Suite", 1), 1);
  }
}

namespace {

// The drawing itself, called the way the event handler calls it but for any
// area: its own frame rules are tested apart from the handler's filter.
PF_Err drawHeaderDirectly(PF_Cmd, PF_InData* in_data, PF_OutData* out_data, PF_ParamDef*[],
                          PF_LayerDef*, void* extra) {
  return DrawHeaderImage(in_data, out_data, static_cast<PF_EventExtra*>(extra),
                         HeaderImagePixels());
}

PF_EventExtra drawEvent(thost::Host& h, PF_ParamIndex index, PF_EffectArea area) {
  PF_EventExtra e{};
  e.contextH = h.contextHandle();
  e.e_type = PF_Event_DRAW;
  e.effect_win.index = index;
  e.effect_win.area = area;
  e.effect_win.current_frame = PF_LRect{0, 20, 320, 37};
  e.effect_win.param_title_frame = PF_LRect{0, 0, 320, 17};
  e.u.draw.update_rect = area == PF_EA_CONTROL ? e.effect_win.current_frame
                                               : e.effect_win.param_title_frame;
  return e;
}

}  // namespace

TEST_F(HeaderDrawTest, OutsideItsOwnAreaTheDrawingDrawsNothingReleasesAllAndHandlesTheEvent) {
  PrepareHeaderImage();
  struct Case {
    A_short minor;
    PF_EffectArea area;
    bool draws;
  };
  const Case cases[] = {
      {23, PF_EA_PARAM_TITLE, false}, {23, PF_EA_NONE, false}, {23, PF_EA_CONTROL, true},
      {28, PF_EA_CONTROL, false},     {28, PF_EA_NONE, false}, {28, PF_EA_PARAM_TITLE, true},
      {22, PF_EA_CONTROL, false},     {24, PF_EA_CONTROL, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE("13." + std::to_string(c.minor) + " area " + std::to_string(c.area));
    thost::Host& h = fresh(c.minor);
    PF_EventExtra e = drawEvent(h, header_index_, c.area);
    EXPECT_EQ(h.sendTo(drawHeaderDirectly, PF_Cmd_EVENT, &e), PF_Err_NONE);
    EXPECT_EQ(e.evt_out_flags, PF_EO_HANDLED_EVENT);
    EXPECT_EQ(h.callsTo("NewImageFromBuffer").size(), c.draws ? 1u : 0u);
    EXPECT_EQ(h.callsTo("DrawImage").size(), c.draws ? 1u : 0u);
    if (!c.draws) {
      EXPECT_EQ(firstDifference(h.surface(), panel(h.surface().width, h.surface().height)), "");
      EXPECT_TRUE(h.callsTo("ReleaseObject").empty());
    }
    for (int i = 0; i < 4; ++i) {
      EXPECT_EQ(h.acquireCount(kDrawbotSuites[i], kDrawbotVersions[i]), 1) << kDrawbotSuites[i];
    }
    expectSuitesBalanced(h);
    EXPECT_EQ(h.callsTo("GetSurface").size(), 1u);
    EXPECT_TRUE(h.contractBreaks().empty()) << ui::joined(h.contractBreaks());
  }
}
