// Drawing in the effect window: the Custom UI suite and the Drawbot suites.
// Images and painted rectangles really land on the host's Surface; paths,
// pens, brushes and text are not drawn by this host.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "impl.h"

namespace thost {

using Impl = Host::Impl;

namespace {

constexpr char kCustomUIVia[] = kPFEffectCustomUISuite;
constexpr char kDrawVia[] = kDRAWBOT_DrawSuite;
constexpr char kSupplierVia[] = kDRAWBOT_SupplierSuite;
constexpr char kSurfaceVia[] = kDRAWBOT_SurfaceSuite;
constexpr char kPathVia[] = kDRAWBOT_PathSuite;

// Straight-alpha "over" of one BGRA pixel with an extra opacity.
void blendOver(uint8_t* dst, const uint8_t* src, double opacity) {
  const double sa = src[3] / 255.0 * opacity;
  const double da = dst[3] / 255.0;
  const double oa = sa + da * (1.0 - sa);
  if (oa <= 0.0) {
    std::memset(dst, 0, 4);
    return;
  }
  for (int c = 0; c < 3; ++c) {
    const double v = (src[c] * sa + dst[c] * da * (1.0 - sa)) / oa;
    dst[c] = static_cast<uint8_t>(std::lround(std::clamp(v, 0.0, 255.0)));
  }
  dst[3] = static_cast<uint8_t>(std::lround(std::clamp(oa * 255.0, 0.0, 255.0)));
}

const char* objectKind(Impl& h, const void* obj) {
  if (h.images.count(obj)) return "image";
  if (obj == &h.supplierTag) return "supplier";
  if (obj == &h.surfaceTag) return "surface";
  if (obj == &h.drawTag) return "draw";
  return "unknown";
}

bool isHostObject(Impl& h, const void* obj) {
  return obj == &h.supplierTag || obj == &h.surfaceTag || obj == &h.drawTag;
}

// ---------------------------------------------------------------- Custom UI Suite 1

PF_Err getDrawingReference(const PF_ContextH context, DRAWBOT_DrawRef* ref) {
  Impl* h = Impl::current("PF_GetDrawingReference");
  if (!h) return PF_Err_BAD_CALLBACK_PARAM;
  auto fail = h->enter("PF_GetDrawingReference", "", kCustomUIVia);
  if (!ref) {
    h->addBreak("PF_GetDrawingReference without a result pointer");
    return PF_Err_BAD_CALLBACK_PARAM;
  }
  *ref = nullptr;
  if (context != &h->ctxPointer || !*context || (*context)->magic != PF_CONTEXT_MAGIC) {
    h->addBreak("PF_GetDrawingReference with a context handle the host did not give");
    return PF_Err_BAD_CALLBACK_PARAM;
  }
  if (h->currentCmd != PF_Cmd_EVENT) {
    h->addBreak("PF_GetDrawingReference outside PF_Cmd_EVENT");
    return PF_Err_BAD_CALLBACK_PARAM;
  }
  if (fail) return *fail;
  *ref = h->drawRef();
  return PF_Err_NONE;
}

// ---------------------------------------------------------------- Draw Suite 1

template <typename Ref>
SPErr drawGet(const char* fn, DRAWBOT_DrawRef draw, Ref* out, Ref (Impl::*make)()) {
  Impl* h = Impl::current(fn);
  if (!h) return kSPBadParameterError;
  auto fail = h->enter(fn, "", kDrawVia);
  if (!out) {
    h->addBreak(std::string(fn) + " without a result pointer");
    return kSPBadParameterError;
  }
  *out = nullptr;
  if (draw != h->drawRef()) {
    h->addBreak(std::string(fn) + " with a draw reference the host did not give");
    return kSPBadParameterError;
  }
  if (fail) return *fail;
  *out = (h->*make)();
  return kSPNoError;
}

// ---------------------------------------------------------------- Supplier Suite 1

// Enters `fn` for a call on one of the host's own Drawbot objects. A reference
// the host did not give is a break, and the call goes no further (null).
template <typename Ref>
Impl* objectHost(const char* fn, Ref given, Ref (Impl::*own)(), const char* via,
                 const char* what, std::string args, std::optional<PF_Err>& fail) {
  Impl* h = Impl::current(fn);
  if (!h) return nullptr;
  fail = h->enter(fn, std::move(args), via);
  if (given != (h->*own)()) {
    h->addBreak(std::string(fn) + " with a " + what + " the host did not give");
    return nullptr;
  }
  return h;
}

// A query on one of the host's objects that answers `value` through `out`.
template <typename Ref, typename T>
SPErr objectAnswer(const char* fn, Ref given, Ref (Impl::*own)(), const char* via,
                   const char* what, T* out, T value) {
  std::optional<PF_Err> fail;
  Impl* h = objectHost(fn, given, own, via, what, "", fail);
  if (!h) return kSPBadParameterError;
  if (!out) {
    h->addBreak(std::string(fn) + " without a result pointer");
    return kSPBadParameterError;
  }
  if (fail) return *fail;
  *out = value;
  return kSPNoError;
}

Impl* supplierHost(const char* fn, DRAWBOT_SupplierRef supplier, std::string args,
                   std::optional<PF_Err>& fail) {
  return objectHost(fn, supplier, &Impl::supplierRef, kSupplierVia, "supplier", std::move(args),
                    fail);
}

SPErr newImageFromBuffer(DRAWBOT_SupplierRef supplier, int width, int height, int rowBytes,
                         DRAWBOT_PixelLayout layout, const void* data, DRAWBOT_ImageRef* image) {
  std::optional<PF_Err> fail;
  Impl* h = supplierHost("NewImageFromBuffer", supplier,
                         std::to_string(width) + "," + std::to_string(height) + "," +
                             std::to_string(rowBytes) + "," + std::to_string(layout),
                         fail);
  if (image) *image = nullptr;
  if (!h) return kSPBadParameterError;
  if (!image || !data || width <= 0 || height <= 0 || rowBytes < width * 4 ||
      layout < kDRAWBOT_PixelLayout_24RGB || layout > kDRAWBOT_PixelLayout_32BGRA_Premul) {
    h->addBreak("NewImageFromBuffer with invalid arguments (" + std::to_string(width) + "x" +
                std::to_string(height) + ", row bytes " + std::to_string(rowBytes) + ", layout " +
                std::to_string(layout) + (data ? "" : ", no pixels") + ")");
    return kSPBadParameterError;
  }
  if (fail) return *fail;
  // Only straight BGRA, the layout effect headers use, is drawn here.
  if (layout != kDRAWBOT_PixelLayout_32BGRA_Straight) return kSPBadParameterError;
  auto img = std::make_unique<DrawbotImage>();
  img->width = width;
  img->height = height;
  img->bgra.resize(static_cast<size_t>(width) * height * 4);
  const auto* src = static_cast<const uint8_t*>(data);
  for (int y = 0; y < height; ++y)
    std::memcpy(&img->bgra[static_cast<size_t>(y) * width * 4],
                src + static_cast<size_t>(y) * rowBytes, static_cast<size_t>(width) * 4);
  *image = reinterpret_cast<DRAWBOT_ImageRef>(img.get());
  h->images.emplace(img.get(), std::move(img));
  return kSPNoError;
}

SPErr retainObject(DRAWBOT_ObjectRef obj) {
  Impl* h = Impl::current("RetainObject");
  if (!h) return kSPBadParameterError;
  auto fail = h->enter("RetainObject", objectKind(*h, obj), kSupplierVia);
  auto img = h->images.find(obj);
  if (img == h->images.end() && !isHostObject(*h, obj)) {
    h->addBreak("RetainObject of an object the host did not make");
    return kSPBadParameterError;
  }
  if (fail) return *fail;
  if (img != h->images.end())
    ++img->second->refs;
  else
    ++h->hostObjectRetains[obj];
  return kSPNoError;
}

SPErr releaseObject(DRAWBOT_ObjectRef obj) {
  Impl* h = Impl::current("ReleaseObject");
  if (!h) return kSPBadParameterError;
  auto fail = h->enter("ReleaseObject", objectKind(*h, obj), kSupplierVia);
  auto img = h->images.find(obj);
  if (img == h->images.end()) {
    if (!isHostObject(*h, obj)) {
      h->addBreak("ReleaseObject of an object that is not live");
      return kSPBadParameterError;
    }
    int& retains = h->hostObjectRetains[obj];
    if (retains == 0) {
      h->addBreak(std::string("ReleaseObject of the ") + objectKind(*h, obj) +
                  ", which the effect does not own");
      return kSPBadParameterError;
    }
    if (fail) return *fail;
    --retains;
    return kSPNoError;
  }
  if (fail) return *fail;
  if (--img->second->refs == 0) h->images.erase(img);
  return kSPNoError;
}

template <typename T>
SPErr supplierAnswer(const char* fn, DRAWBOT_SupplierRef supplier, T* out, T value) {
  return objectAnswer(fn, supplier, &Impl::supplierRef, kSupplierVia, "supplier", out, value);
}

// Pens, brushes, fonts and paths are not drawn by this host: it refuses to make them.
template <typename Out>
SPErr supplierRefuse(const char* fn, DRAWBOT_SupplierRef supplier, Out* out) {
  std::optional<PF_Err> fail;
  Impl* h = supplierHost(fn, supplier, "", fail);
  if (out) *out = nullptr;
  if (h && fail) return *fail;
  return kSPBadParameterError;
}

// ---------------------------------------------------------------- Surface Suite 2

Impl* surfaceHost(const char* fn, DRAWBOT_SurfaceRef surface, std::string args,
                  std::optional<PF_Err>& fail) {
  return objectHost(fn, surface, &Impl::surfaceRef, kSurfaceVia, "surface", std::move(args),
                    fail);
}

SPErr drawImage(DRAWBOT_SurfaceRef surface, DRAWBOT_ImageRef image, const DRAWBOT_PointF32* origin,
                float opacity) {
  std::optional<PF_Err> fail;
  Impl* h = surfaceHost("DrawImage", surface,
                        origin ? fmtFloat(origin->x) + "," + fmtFloat(origin->y) + "," +
                                     fmtFloat(opacity)
                               : "?,?," + fmtFloat(opacity),
                        fail);
  if (!h) return kSPBadParameterError;
  auto it = h->images.find(image);
  if (it == h->images.end() || !origin) {
    h->addBreak(origin ? "DrawImage of an image that is not live" : "DrawImage without an origin");
    return kSPBadParameterError;
  }
  if (fail) return *fail;
  const DrawbotImage& img = *it->second;
  Surface& s = h->surface;
  const long ox = std::lround(origin->x), oy = std::lround(origin->y);
  const double alpha = std::clamp(static_cast<double>(opacity), 0.0, 1.0);
  for (int y = 0; y < img.height; ++y) {
    const long sy = oy + y;
    if (sy < 0 || sy >= s.height) continue;
    for (int x = 0; x < img.width; ++x) {
      const long sx = ox + x;
      if (sx < 0 || sx >= s.width) continue;
      blendOver(&s.bgra[(static_cast<size_t>(sy) * s.width + sx) * 4],
                &img.bgra[(static_cast<size_t>(y) * img.width + x) * 4], alpha);
    }
  }
  return kSPNoError;
}

SPErr paintRect(DRAWBOT_SurfaceRef surface, const DRAWBOT_ColorRGBA* color,
                const DRAWBOT_RectF32* rect) {
  std::optional<PF_Err> fail;
  Impl* h = surfaceHost("PaintRect", surface,
                        rect ? fmtFloat(rect->left) + "," + fmtFloat(rect->top) + "," +
                                   fmtFloat(rect->width) + "," + fmtFloat(rect->height)
                             : "?",
                        fail);
  if (!h) return kSPBadParameterError;
  if (!color || !rect) {
    h->addBreak("PaintRect without a colour or rectangle");
    return kSPBadParameterError;
  }
  if (fail) return *fail;
  auto channel = [](float v) {
    return static_cast<uint8_t>(std::lround(std::clamp(static_cast<double>(v), 0.0, 1.0) * 255.0));
  };
  const uint8_t px[4] = {channel(color->blue), channel(color->green), channel(color->red),
                         channel(color->alpha)};
  Surface& s = h->surface;
  const long x0 = std::max(0L, std::lround(rect->left));
  const long y0 = std::max(0L, std::lround(rect->top));
  const long x1 = std::min<long>(s.width, std::lround(rect->left + rect->width));
  const long y1 = std::min<long>(s.height, std::lround(rect->top + rect->height));
  for (long y = y0; y < y1; ++y)
    for (long x = x0; x < x1; ++x)
      blendOver(&s.bgra[(static_cast<size_t>(y) * s.width + x) * 4], px, 1.0);
  return kSPNoError;
}

template <typename T>
SPErr surfaceAnswer(const char* fn, DRAWBOT_SurfaceRef surface, T* out, T value) {
  return objectAnswer(fn, surface, &Impl::surfaceRef, kSurfaceVia, "surface", out, value);
}

SPErr surfaceRecordOnly(const char* fn, DRAWBOT_SurfaceRef surface) {
  std::optional<PF_Err> fail;
  Impl* h = surfaceHost(fn, surface, "", fail);
  if (!h) return kSPBadParameterError;
  return fail ? *fail : kSPNoError;
}

// ---------------------------------------------------------------- Path Suite 1

SPErr pathRecordOnly(const char* fn) {
  Impl* h = Impl::current(fn);
  if (!h) return kSPBadParameterError;
  if (auto f = h->enter(fn, "", kPathVia)) return *f;
  return kSPNoError;
}

}  // namespace

const void* customUISuite1() {
  static const PF_EffectCustomUISuite1 table = {getDrawingReference};
  return &table;
}

const void* drawSuite1() {
  static const DRAWBOT_DrawbotSuite1 table = {
      [](DRAWBOT_DrawRef draw, DRAWBOT_SupplierRef* out) {
        return drawGet("GetSupplier", draw, out, &Impl::supplierRef);
      },
      [](DRAWBOT_DrawRef draw, DRAWBOT_SurfaceRef* out) {
        return drawGet("GetSurface", draw, out, &Impl::surfaceRef);
      }};
  return &table;
}

const void* supplierSuite1() {
  static const DRAWBOT_SupplierSuite1 table = {
      [](DRAWBOT_SupplierRef s, const DRAWBOT_ColorRGBA*, float, DRAWBOT_PenRef* out) {
        return supplierRefuse("NewPen", s, out);
      },
      [](DRAWBOT_SupplierRef s, const DRAWBOT_ColorRGBA*, DRAWBOT_BrushRef* out) {
        return supplierRefuse("NewBrush", s, out);
      },
      [](DRAWBOT_SupplierRef s, DRAWBOT_Boolean* out) {
        return supplierAnswer("SupportsText", s, out, DRAWBOT_Boolean{0});
      },
      [](DRAWBOT_SupplierRef s, float* out) {
        return supplierAnswer("GetDefaultFontSize", s, out, 11.0f);
      },
      [](DRAWBOT_SupplierRef s, float, DRAWBOT_FontRef* out) {
        return supplierRefuse("NewDefaultFont", s, out);
      },
      newImageFromBuffer,
      [](DRAWBOT_SupplierRef s, DRAWBOT_PathRef* out) { return supplierRefuse("NewPath", s, out); },
      [](DRAWBOT_SupplierRef s, DRAWBOT_Boolean* out) {
        return supplierAnswer("SupportsPixelLayoutBGRA", s, out, DRAWBOT_Boolean{1});
      },
      [](DRAWBOT_SupplierRef s, DRAWBOT_Boolean* out) {
        return supplierAnswer("PrefersPixelLayoutBGRA", s, out, DRAWBOT_Boolean{1});
      },
      [](DRAWBOT_SupplierRef s, DRAWBOT_Boolean* out) {
        return supplierAnswer("SupportsPixelLayoutARGB", s, out, DRAWBOT_Boolean{0});
      },
      [](DRAWBOT_SupplierRef s, DRAWBOT_Boolean* out) {
        return supplierAnswer("PrefersPixelLayoutARGB", s, out, DRAWBOT_Boolean{0});
      },
      retainObject,
      releaseObject};
  return &table;
}

const void* surfaceSuite2() {
  static const DRAWBOT_SurfaceSuite2 table = {
      [](DRAWBOT_SurfaceRef s) { return surfaceRecordOnly("PushStateStack", s); },
      [](DRAWBOT_SurfaceRef s) { return surfaceRecordOnly("PopStateStack", s); },
      paintRect,
      [](DRAWBOT_SurfaceRef s, DRAWBOT_BrushRef, DRAWBOT_PathRef, DRAWBOT_FillType) {
        return surfaceRecordOnly("FillPath", s);
      },
      [](DRAWBOT_SurfaceRef s, DRAWBOT_PenRef, DRAWBOT_PathRef) {
        return surfaceRecordOnly("StrokePath", s);
      },
      [](DRAWBOT_SurfaceRef s, DRAWBOT_SupplierRef, const DRAWBOT_Rect32*) {
        return surfaceRecordOnly("Clip", s);
      },
      [](DRAWBOT_SurfaceRef s, DRAWBOT_Rect32* out) {
        Impl* h = Impl::current("GetClipBounds");
        const DRAWBOT_Rect32 all{0, 0, h ? h->surface.width : 0, h ? h->surface.height : 0};
        return surfaceAnswer("GetClipBounds", s, out, all);
      },
      [](DRAWBOT_SurfaceRef s, const DRAWBOT_Rect32*, DRAWBOT_Boolean* out) {
        return surfaceAnswer("IsWithinClipBounds", s, out, DRAWBOT_Boolean{1});
      },
      [](DRAWBOT_SurfaceRef s, const DRAWBOT_MatrixF32*) { return surfaceRecordOnly("Transform", s); },
      [](DRAWBOT_SurfaceRef s, DRAWBOT_BrushRef, DRAWBOT_FontRef, const DRAWBOT_UTF16Char*,
         const DRAWBOT_PointF32*, DRAWBOT_TextAlignment, DRAWBOT_TextTruncation, float) {
        return surfaceRecordOnly("DrawString", s);
      },
      drawImage,
      [](DRAWBOT_SurfaceRef s, DRAWBOT_InterpolationPolicy) {
        return surfaceRecordOnly("SetInterpolationPolicy", s);
      },
      [](DRAWBOT_SurfaceRef s, DRAWBOT_InterpolationPolicy* out) {
        return surfaceAnswer("GetInterpolationPolicy", s, out,
                             DRAWBOT_InterpolationPolicy{kDRAWBOT_InterpolationPolicy_Default});
      },
      [](DRAWBOT_SurfaceRef s, DRAWBOT_AntiAliasPolicy) {
        return surfaceRecordOnly("SetAntiAliasPolicy", s);
      },
      [](DRAWBOT_SurfaceRef s, DRAWBOT_AntiAliasPolicy* out) {
        return surfaceAnswer("GetAntiAliasPolicy", s, out,
                             DRAWBOT_AntiAliasPolicy{kDRAWBOT_AntiAliasPolicy_Default});
      },
      [](DRAWBOT_SurfaceRef s) { return surfaceRecordOnly("Flush", s); },
      [](DRAWBOT_SurfaceRef s, float* out) {
        return surfaceAnswer("GetTransformToScreenScale", s, out, 1.0f);
      }};
  return &table;
}

const void* pathSuite1() {
  static const DRAWBOT_PathSuite1 table = {
      [](DRAWBOT_PathRef, float, float) { return pathRecordOnly("MoveTo"); },
      [](DRAWBOT_PathRef, float, float) { return pathRecordOnly("LineTo"); },
      [](DRAWBOT_PathRef, const DRAWBOT_PointF32*, const DRAWBOT_PointF32*,
         const DRAWBOT_PointF32*) { return pathRecordOnly("BezierTo"); },
      [](DRAWBOT_PathRef, const DRAWBOT_RectF32*) { return pathRecordOnly("AddRect"); },
      [](DRAWBOT_PathRef, const DRAWBOT_PointF32*, float, float, float) {
        return pathRecordOnly("AddArc");
      },
      [](DRAWBOT_PathRef) { return pathRecordOnly("Close"); }};
  return &table;
}

}  // namespace thost
