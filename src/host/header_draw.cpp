// The header image: its pixels, prepared once per process, and its drawing
// through the host's Drawbot suites.
#include "host/header_draw.h"

#include <cstring>

#include "host/suites.h"
#include "params/param_table.h"

namespace {

constexpr int kHeaderRowBytes = HEADER_IMAGE_WIDTH * 4;
constexpr int kHeaderBytes = kHeaderRowBytes * HEADER_IMAGE_HEIGHT;

// Straight BGRA, converted from resources/header.png when the plug-in is built.
unsigned char g_headerPixels[kHeaderBytes];
bool g_headerPrepared = false;

// Gives back the Drawbot suites of a set that was only partly acquired, and
// only those: releasing one never had would underflow the host's count.
PF_Err releaseHeldDrawbotSuites(PF_InData* in_data, PF_OutData* out_data,
                                const DRAWBOT_Suites& suites) {
  const struct {
    const void* suite;
    const char* name;
    int32_t version;
  } held[] = {
      {suites.drawbot_suiteP, kDRAWBOT_DrawSuite, kDRAWBOT_DrawSuite_Version1},
      {suites.supplier_suiteP, kDRAWBOT_SupplierSuite, kDRAWBOT_SupplierSuite_Version1},
      {suites.surface_suiteP, kDRAWBOT_SurfaceSuite, kDRAWBOT_SurfaceSuite_Version2},
      {suites.path_suiteP, kDRAWBOT_PathSuite, kDRAWBOT_PathSuite_Version1},
  };
  PF_Err err = PF_Err_NONE;
  for (const auto& s : held) {
    if (!s.suite) continue;
    const PF_Err released = AEFX_ReleaseSuite(in_data, out_data, s.name, s.version, nullptr);
    if (!err) err = released;
  }
  return err;
}

}  // namespace

// Defined in the source generated from the PNG.
extern const unsigned char kTesseluxHeaderBGRA[kHeaderBytes];

void PrepareHeaderImage() {
  if (g_headerPrepared) return;
  std::memcpy(g_headerPixels, kTesseluxHeaderBGRA, sizeof g_headerPixels);
  g_headerPrepared = true;
}

const void* HeaderImagePixels() { return g_headerPrepared ? g_headerPixels : nullptr; }

PF_Err DrawHeaderImage(PF_InData* in_data, PF_OutData* out_data, PF_EventExtra* event,
                       const void* pixels) {
  // The first failure is the result; releasing what is held still happens.
  PF_Err err = PF_Err_NONE;
  DRAWBOT_Suites drawbot{};
  DRAWBOT_SupplierRef supplier = nullptr;
  DRAWBOT_SurfaceRef surface = nullptr;

  err = AEFX_AcquireDrawbotSuites(in_data, out_data, &drawbot);
  const bool allSuites = !err;
  if (!err) {
    PF_EffectCustomUISuite1* customUI = nullptr;
    DRAWBOT_DrawRef drawing_ref = nullptr;
    err = AEFX_AcquireSuite(in_data, out_data, kPFEffectCustomUISuite,
                            kPFEffectCustomUISuiteVersion1, nullptr,
                            reinterpret_cast<void**>(&customUI));
    if (!err) {
      err = customUI->PF_GetDrawingReference(event->contextH, &drawing_ref);
      const PF_Err released = AEFX_ReleaseSuite(in_data, out_data, kPFEffectCustomUISuite,
                                                kPFEffectCustomUISuiteVersion1, nullptr);
      if (!err) err = released;
    }
    if (!err) err = drawbot.drawbot_suiteP->GetSupplier(drawing_ref, &supplier);
    if (!err) err = drawbot.drawbot_suiteP->GetSurface(drawing_ref, &surface);
  }

  // 13.23 shows the header as a control of its own; every other version puts
  // it in the parameter's title row.
  const bool controlAreaHost = hostIsApi13_23(in_data);
  const PF_LRect* frame = nullptr;
  if (event->effect_win.area == PF_EA_PARAM_TITLE) {
    if (!controlAreaHost) frame = &event->effect_win.param_title_frame;
  } else if (event->effect_win.area == PF_EA_CONTROL && controlAreaHost) {
    frame = &event->effect_win.current_frame;
  }

  if (frame) {
    DRAWBOT_ImageRef image = nullptr;
    bool imageMade = false;
    if (!err) {
      err = drawbot.supplier_suiteP->NewImageFromBuffer(
          supplier, HEADER_IMAGE_WIDTH, HEADER_IMAGE_HEIGHT, kHeaderRowBytes,
          kDRAWBOT_PixelLayout_32BGRA_Straight, pixels, &image);
      imageMade = !err && image != nullptr;
      if (!err) {
        const DRAWBOT_PointF32 origin = {static_cast<float>(frame->left),
                                         static_cast<float>(frame->top)};
        err = drawbot.surface_suiteP->DrawImage(surface, image, &origin, 1.0f);
      }
    }
    if (imageMade) {
      const PF_Err released =
          drawbot.supplier_suiteP->ReleaseObject(reinterpret_cast<DRAWBOT_ObjectRef>(image));
      if (!err) err = released;
    }
  }

  const PF_Err released = allSuites ? AEFX_ReleaseDrawbotSuites(in_data, out_data)
                                    : releaseHeldDrawbotSuites(in_data, out_data, drawbot);
  if (!err) err = released;

  if (!err) event->evt_out_flags = PF_EO_HANDLED_EVENT;
  return err;
}
