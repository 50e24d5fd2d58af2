// The PF suites the host hands out: Pixel Format 1 and Utility 4 (Premiere
// Pro), Handle 2, World 2 and Param Utils 3; plus the worlds they make.
#include <cstring>
#include <new>
#include <string>

#include "impl.h"

namespace thost {

using Impl = Host::Impl;

namespace {

constexpr char kPixelFormatVia[] = kPFPixelFormatSuite;
constexpr char kUtilityVia[] = kPFUtilitySuite;
constexpr char kHandleVia[] = kPFHandleSuite;
constexpr char kWorldVia[] = kPFWorldSuite;
constexpr char kParamUtilsVia[] = kPFParamUtilsSuite;

int aeBytesPerPixel(A_long format) {
  switch (format) {
    case PF_PixelFormat_ARGB32:
      return 4;
    case PF_PixelFormat_ARGB64:
      return 8;
    case PF_PixelFormat_ARGB128:
      return 16;
    default:
      return 0;
  }
}

int prBytesPerPixel(A_long format) { return premiereBytesPerPixel(format); }

}  // namespace

int premiereBytesPerPixel(A_long format) {
  switch (format) {
    case PrPixelFormat_ARGB_4444_8u:
    case PrPixelFormat_BGRA_4444_8u:
      return 4;
    case PrPixelFormat_ARGB_4444_16u:
    case PrPixelFormat_BGRA_4444_16u:
      return 8;
    case PrPixelFormat_ARGB_4444_32f:
    case PrPixelFormat_BGRA_4444_32f:
      return 16;
    default:
      return 0;
  }
}

A_long aePixelFormat(Depth depth) {
  switch (depth) {
    case Depth::Bits8:
      return PF_PixelFormat_ARGB32;
    case Depth::Bits16:
      return PF_PixelFormat_ARGB64;
    case Depth::Float32:
      return PF_PixelFormat_ARGB128;
  }
  return PF_PixelFormat_INVALID;
}

A_long premiereArgbFormat(Depth depth) {
  switch (depth) {
    case Depth::Bits8:
      return PrPixelFormat_ARGB_4444_8u;
    case Depth::Bits16:
      return PrPixelFormat_ARGB_4444_16u;
    case Depth::Float32:
      return PrPixelFormat_ARGB_4444_32f;
  }
  return PrPixelFormat_Invalid;
}

namespace {

// One pixel of colour (each 0..1) in a Premiere 4444 format; false for formats
// the host does not paint.
bool writePixel(A_long format, float a, float r, float g, float b, void* out) {
  const bool argb = format == PrPixelFormat_ARGB_4444_8u || format == PrPixelFormat_ARGB_4444_16u ||
                    format == PrPixelFormat_ARGB_4444_32f;
  const float ch[4] = {argb ? a : b, argb ? r : g, argb ? g : r, argb ? b : a};
  switch (prBytesPerPixel(format)) {
    case 4:
      for (int i = 0; i < 4; ++i)
        static_cast<uint8_t*>(out)[i] = static_cast<uint8_t>(ch[i] * 255.0f + 0.5f);
      return true;
    case 8:
      for (int i = 0; i < 4; ++i)
        static_cast<uint16_t*>(out)[i] = static_cast<uint16_t>(ch[i] * 32768.0f + 0.5f);
      return true;
    case 16:
      std::memcpy(out, ch, sizeof ch);
      return true;
    default:
      return false;
  }
}

// ---------------------------------------------------------------- Pixel Format Suite 1

PF_Err pfAddSupported(PF_ProgPtr ref, PrPixelFormat format) {
  Impl* h = Impl::fromRef(ref, "AddSupportedPixelFormat");
  if (!h) return PF_Err_BAD_CALLBACK_PARAM;
  if (auto f = h->enter("AddSupportedPixelFormat", hex32(static_cast<uint32_t>(format)),
                        kPixelFormatVia))
    return *f;
  h->pixelFormats.push_back(format);
  return PF_Err_NONE;
}

PF_Err pfClearSupported(PF_ProgPtr ref) {
  Impl* h = Impl::fromRef(ref, "ClearSupportedPixelFormats");
  if (!h) return PF_Err_BAD_CALLBACK_PARAM;
  if (auto f = h->enter("ClearSupportedPixelFormats", "", kPixelFormatVia)) return *f;
  h->pixelFormats.clear();
  return PF_Err_NONE;
}

PF_Err pfNewWorld(PF_ProgPtr ref, A_u_long width, A_u_long height, PF_NewWorldFlags flags,
                  PrPixelFormat format, PF_EffectWorld* world) {
  Impl* h = Impl::fromRef(ref, "NewWorldOfPixelFormat");
  if (!h) return PF_Err_BAD_CALLBACK_PARAM;
  if (auto f = h->enter("NewWorldOfPixelFormat",
                        std::to_string(width) + "," + std::to_string(height) + "," +
                            hex32(static_cast<uint32_t>(format)),
                        kPixelFormatVia))
    return *f;
  const int bpp = prBytesPerPixel(format);
  if (bpp == 0) return PF_Err_BAD_CALLBACK_PARAM;
  return makeWorld(*h, static_cast<A_long>(width), static_cast<A_long>(height),
                   (flags & PF_NewWorldFlag_CLEAR_PIXELS) != 0, format, bpp, world);
}

PF_Err pfDisposeWorld(PF_ProgPtr ref, PF_EffectWorld* world) {
  Impl* h = Impl::fromRef(ref, "DisposeWorld");
  if (!h) return PF_Err_BAD_CALLBACK_PARAM;
  if (auto f = h->enter("DisposeWorld", "", kPixelFormatVia)) return *f;
  return disposeWorld(*h, world);
}

// Both suites answer from the codes the host keeps per world: the World Suite
// the After Effects one, the Pixel Format Suite the Premiere Pro one.
PF_Err worldFormat(const char* fn, const char* via, const PF_EffectWorld* world, A_long* format,
                   bool premiere) {
  Impl* h = Impl::current(fn);
  if (!h) return PF_Err_BAD_CALLBACK_PARAM;
  if (auto f = h->enter(fn, "", via)) return *f;
  if (!format) {
    h->addBreak(std::string(fn) + " without a result pointer");
    return PF_Err_BAD_CALLBACK_PARAM;
  }
  const WorldRecord* rec = h->findWorld(world);
  if (!rec) return PF_Err_BAD_CALLBACK_PARAM;
  *format = premiere ? rec->prFormat : rec->format;
  return PF_Err_NONE;
}

PF_Err pfGetPixelFormat(PF_EffectWorld* world, PrPixelFormat* format) {
  A_long code = 0;
  PF_Err err =
      worldFormat("GetPixelFormat", kPixelFormatVia, world, format ? &code : nullptr, true);
  if (err == PF_Err_NONE) *format = static_cast<PrPixelFormat>(code);
  return err;
}

PF_Err paintPixel(const char* fn, PrPixelFormat format, float a, float r, float g, float b,
                  void* out) {
  Impl* h = Impl::current(fn);
  if (!h) return PF_Err_BAD_CALLBACK_PARAM;
  if (auto f = h->enter(fn, hex32(static_cast<uint32_t>(format)), kPixelFormatVia)) return *f;
  if (!out) {
    h->addBreak(std::string(fn) + " without a buffer");
    return PF_Err_BAD_CALLBACK_PARAM;
  }
  return writePixel(format, a, r, g, b, out) ? PF_Err_NONE : PF_Err_BAD_CALLBACK_PARAM;
}

// ---------------------------------------------------------------- Utility Suite 4

template <typename T, typename F>
PF_Err answerUtility(const char* fn, PF_ProgPtr ref, T* out, F value) {
  Impl* h = Impl::fromRef(ref, fn);
  if (!h) return PF_Err_BAD_CALLBACK_PARAM;
  if (auto f = h->enter(fn, "", kUtilityVia)) return *f;
  if (!out) {
    h->addBreak(std::string(fn) + " without a result pointer");
    return PF_Err_BAD_CALLBACK_PARAM;
  }
  *out = value(*h);
  return PF_Err_NONE;
}

A_long frames(const Impl& h, A_long time) {
  return h.in.time_step > 0 ? time / h.in.time_step : 0;
}

// Premiere's time base: 254,016,000,000 ticks per second.
constexpr PrTime kTicksPerSecond = 254016000000LL;

// ---------------------------------------------------------------- Param Utils Suite 3

Impl* paramUtilsHost(const char* fn, PF_ProgPtr ref, const std::string& args,
                     std::optional<PF_Err>& fail) {
  Impl* h = Impl::fromRef(ref, fn);
  if (h) fail = h->enter(fn, args, kParamUtilsVia);
  return h;
}

PF_Err puUpdateParamUI(PF_ProgPtr ref, PF_ParamIndex index, const PF_ParamDef* def) {
  std::optional<PF_Err> fail;
  Impl* h = paramUtilsHost("PF_UpdateParamUI", ref, std::to_string(index), fail);
  if (!h) return PF_Err_BAD_CALLBACK_PARAM;
  if (!def) {
    h->addBreak("PF_UpdateParamUI without a definition");
    return PF_Err_BAD_CALLBACK_PARAM;
  }
  if (fail) return *fail;
  if (!h->validIndex(index)) return PF_Err_INVALID_INDEX;
  h->uiUpdates.push_back(ParamUIUpdate{index, *def});
  PF_ParamDef& target = h->live[static_cast<size_t>(index)];
  target.ui_flags = def->ui_flags;
  if (&target != def) {
    std::memcpy(target.name, def->name, sizeof target.name);
    target.name[sizeof target.name - 1] = '\0';
  }
  return PF_Err_NONE;
}

// A parameter's state is a digest of its current definition: it changes
// exactly when the definition does.
PF_Err puGetCurrentState(PF_ProgPtr ref, PF_ParamIndex index, const A_Time*, const A_Time*,
                         PF_State* state) {
  std::optional<PF_Err> fail;
  Impl* h = paramUtilsHost("PF_GetCurrentState", ref, std::to_string(index), fail);
  if (!h) return PF_Err_BAD_CALLBACK_PARAM;
  if (fail) return *fail;
  if (!state) {
    h->addBreak("PF_GetCurrentState without a result pointer");
    return PF_Err_BAD_CALLBACK_PARAM;
  }
  if (!h->validIndex(index)) return PF_Err_INVALID_INDEX;
  const auto* bytes = reinterpret_cast<const unsigned char*>(&h->live[static_cast<size_t>(index)]);
  uint64_t digest = 1469598103934665603ULL;
  for (size_t i = 0; i < sizeof(PF_ParamDef); ++i) digest = (digest ^ bytes[i]) * 1099511628211ULL;
  state->reservedAL[0] = static_cast<A_long>(digest & 0xFFFFFFFFu);
  state->reservedAL[1] = static_cast<A_long>(digest >> 32);
  state->reservedAL[2] = index;
  state->reservedAL[3] = 0;
  return PF_Err_NONE;
}

PF_Err puAreStatesIdentical(PF_ProgPtr ref, const PF_State* a, const PF_State* b,
                            A_Boolean* same) {
  std::optional<PF_Err> fail;
  Impl* h = paramUtilsHost("PF_AreStatesIdentical", ref, "", fail);
  if (!h) return PF_Err_BAD_CALLBACK_PARAM;
  if (fail) return *fail;
  if (!a || !b || !same) {
    h->addBreak("PF_AreStatesIdentical with a null pointer");
    return PF_Err_BAD_CALLBACK_PARAM;
  }
  *same = std::memcmp(a, b, sizeof(PF_State)) == 0;
  return PF_Err_NONE;
}

// Parameters have no keyframes in this host, so they never vary over time.
PF_Err puIsIdenticalCheckout(PF_ProgPtr ref, PF_ParamIndex index, A_long, A_long, A_u_long, A_long,
                             A_long, A_u_long, PF_Boolean* identical) {
  std::optional<PF_Err> fail;
  Impl* h = paramUtilsHost("PF_IsIdenticalCheckout", ref, std::to_string(index), fail);
  if (!h) return PF_Err_BAD_CALLBACK_PARAM;
  if (fail) return *fail;
  if (!identical) {
    h->addBreak("PF_IsIdenticalCheckout without a result pointer");
    return PF_Err_BAD_CALLBACK_PARAM;
  }
  if (!h->validIndex(index)) return PF_Err_INVALID_INDEX;
  *identical = 1;
  return PF_Err_NONE;
}

PF_Err puFindKeyframeTime(PF_ProgPtr ref, PF_ParamIndex index, A_long, A_u_long, PF_TimeDir,
                          PF_Boolean* found, PF_KeyIndex* key, A_long*, A_u_long*) {
  std::optional<PF_Err> fail;
  Impl* h = paramUtilsHost("PF_FindKeyframeTime", ref, std::to_string(index), fail);
  if (!h) return PF_Err_BAD_CALLBACK_PARAM;
  if (fail) return *fail;
  if (!found) {
    h->addBreak("PF_FindKeyframeTime without a result pointer");
    return PF_Err_BAD_CALLBACK_PARAM;
  }
  if (!h->validIndex(index)) return PF_Err_INVALID_INDEX;
  *found = 0;
  if (key) *key = PF_KeyIndex_NONE;
  return PF_Err_NONE;
}

PF_Err puGetKeyframeCount(PF_ProgPtr ref, PF_ParamIndex index, PF_KeyIndex* count) {
  std::optional<PF_Err> fail;
  Impl* h = paramUtilsHost("PF_GetKeyframeCount", ref, std::to_string(index), fail);
  if (!h) return PF_Err_BAD_CALLBACK_PARAM;
  if (fail) return *fail;
  if (!count) {
    h->addBreak("PF_GetKeyframeCount without a result pointer");
    return PF_Err_BAD_CALLBACK_PARAM;
  }
  if (!h->validIndex(index)) return PF_Err_INVALID_INDEX;
  *count = 0;
  return PF_Err_NONE;
}

PF_Err puCheckoutKeyframe(PF_ProgPtr ref, PF_ParamIndex index, PF_KeyIndex, A_long*, A_u_long*,
                          PF_ParamDef*) {
  std::optional<PF_Err> fail;
  Impl* h = paramUtilsHost("PF_CheckoutKeyframe", ref, std::to_string(index), fail);
  if (!h) return PF_Err_BAD_CALLBACK_PARAM;
  if (fail) return *fail;
  return PF_Err_INVALID_INDEX;  // there is no keyframe to check out
}

PF_Err puCheckinKeyframe(PF_ProgPtr ref, PF_ParamDef*) {
  std::optional<PF_Err> fail;
  Impl* h = paramUtilsHost("PF_CheckinKeyframe", ref, "", fail);
  if (!h) return PF_Err_BAD_CALLBACK_PARAM;
  if (fail) return *fail;
  h->addBreak("PF_CheckinKeyframe of a keyframe that was never checked out");
  return PF_Err_BAD_CALLBACK_PARAM;
}

PF_Err puKeyIndexToTime(PF_ProgPtr ref, PF_ParamIndex index, PF_KeyIndex, A_long*, A_u_long*) {
  std::optional<PF_Err> fail;
  Impl* h = paramUtilsHost("PF_KeyIndexToTime", ref, std::to_string(index), fail);
  if (!h) return PF_Err_BAD_CALLBACK_PARAM;
  if (fail) return *fail;
  return PF_Err_INVALID_INDEX;
}

}  // namespace

// ---------------------------------------------------------------- worlds

PF_Err makeWorld(Impl& h, A_long width, A_long height, bool clear, A_long format,
                 int bytesPerPixel, PF_EffectWorld* world) {
  if (!world) {
    h.addBreak("a new world asked for without a world record to fill");
    return PF_Err_BAD_CALLBACK_PARAM;
  }
  if (width <= 0 || height <= 0 || width > PF_MAX_WORLD_WIDTH || height > PF_MAX_WORLD_HEIGHT)
    return PF_Err_BAD_CALLBACK_PARAM;
  const size_t rowbytes = static_cast<size_t>(width) * static_cast<size_t>(bytesPerPixel);
  const size_t bytes = rowbytes * static_cast<size_t>(height);
  std::unique_ptr<char[]> pixels(new (std::nothrow) char[bytes]);
  if (!pixels) return PF_Err_OUT_OF_MEMORY;
  std::memset(pixels.get(), clear ? 0 : HandleStore::kFill, bytes);
  auto it = h.worlds.find(world);
  if (it != h.worlds.end() && it->second.byEffect)
    h.addBreak("a new world made into a world record whose world was never disposed");
  std::memset(world, 0, sizeof *world);
  world->data = reinterpret_cast<PF_PixelPtr>(pixels.get());
  world->rowbytes = static_cast<A_long>(rowbytes);
  world->width = width;
  world->height = height;
  world->extent_hint = PF_LRect{0, 0, width, height};
  world->world_flags = PF_WorldFlag_WRITEABLE | (bytesPerPixel > 4 ? PF_WorldFlag_DEEP : 0);
  world->pix_aspect_ratio = PF_RationalScale{1, 1};
  WorldRecord& rec = h.worlds[world];
  rec.format = format;
  rec.prFormat = format;
  rec.pixels = std::move(pixels);
  rec.byEffect = true;
  rec.width = width;
  rec.height = height;
  return PF_Err_NONE;
}

PF_Err disposeWorld(Impl& h, PF_EffectWorld* world) {
  auto it = h.worlds.find(world);
  if (!world || it == h.worlds.end() || !it->second.byEffect) {
    h.addBreak("a world disposed that the effect did not make");
    return PF_Err_BAD_CALLBACK_PARAM;
  }
  h.worlds.erase(it);
  world->data = nullptr;
  return PF_Err_NONE;
}

// ---------------------------------------------------------------- tables

const void* pixelFormatSuite1() {
  static const PF_PixelFormatSuite1 table = {
      pfAddSupported,
      pfClearSupported,
      pfNewWorld,
      pfDisposeWorld,
      pfGetPixelFormat,
      [](PrPixelFormat f, void* out) { return paintPixel("GetBlackForPixelFormat", f, 1, 0, 0, 0, out); },
      [](PrPixelFormat f, void* out) { return paintPixel("GetWhiteForPixelFormat", f, 1, 1, 1, 1, out); },
      [](PrPixelFormat f, float a, float r, float g, float b, void* out) {
        return paintPixel("ConvertColorToPixelFormattedData", f, a, r, g, b, out);
      }};
  return &table;
}

const void* utilitySuite4() {
  static const PF_UtilitySuite4 table = {
      [](PF_ProgPtr ref, A_long* id) {
        return answerUtility("GetFilterInstanceID", ref, id, [](Impl&) { return A_long{1}; });
      },
      [](PF_ProgPtr ref, A_long* frame, PF_TimeDisplay* display) {
        if (display) *display = 0;
        return answerUtility("GetMediaTimecode", ref, frame,
                             [](Impl& h) { return frames(h, h.in.current_time); });
      },
      [](PF_ProgPtr ref, double* speed) {
        return answerUtility("GetClipSpeed", ref, speed, [](Impl&) { return 1.0; });
      },
      [](PF_ProgPtr ref, A_long* n) {
        return answerUtility("GetClipDuration", ref, n,
                             [](Impl& h) { return frames(h, h.in.total_time); });
      },
      [](PF_ProgPtr ref, A_long* n) {
        return answerUtility("GetClipStart", ref, n, [](Impl&) { return A_long{0}; });
      },
      [](PF_ProgPtr ref, A_long* n) {
        return answerUtility("GetUnscaledClipDuration", ref, n,
                             [](Impl& h) { return frames(h, h.in.total_time); });
      },
      [](PF_ProgPtr ref, A_long* n) {
        return answerUtility("GetUnscaledClipStart", ref, n, [](Impl&) { return A_long{0}; });
      },
      [](PF_ProgPtr ref, A_long* n) {
        return answerUtility("GetTrackItemStart", ref, n, [](Impl&) { return A_long{0}; });
      },
      [](PF_ProgPtr ref, prFieldType* field) {
        return answerUtility("GetMediaFieldType", ref, field, [](Impl&) { return prFieldType{0}; });
      },
      [](PF_ProgPtr ref, PrTime* ticks) {
        return answerUtility("GetMediaFrameRate", ref, ticks, [](Impl& h) {
          return h.in.time_scale ? kTicksPerSecond * h.in.time_step / h.in.time_scale : PrTime{0};
        });
      },
      [](PF_ProgPtr ref, PrTimelineID* id) {
        return answerUtility("GetContainingTimelineID", ref, id,
                             [](Impl&) { return PrTimelineID{1}; });
      },
      [](PF_ProgPtr ref, PrSDKString* name) {
        return answerUtility("GetClipName", ref, name, [](Impl&) { return PrSDKString{}; });
      },
      [](PF_ProgPtr ref) {
        Impl* h = Impl::fromRef(ref, "EffectWantsCheckedOutFramesToMatchRenderPixelFormat");
        if (!h) return PF_Err(PF_Err_BAD_CALLBACK_PARAM);
        if (auto f = h->enter("EffectWantsCheckedOutFramesToMatchRenderPixelFormat", "",
                              kUtilityVia))
          return *f;
        return PF_Err(PF_Err_NONE);
      }};
  return &table;
}

const void* handleSuite1() {
  static const PF_HandleSuite1 table = {
      [](A_HandleSize size) { return handlecb::newHandle(size, kHandleVia); },
      [](PF_Handle h) { return handlecb::lock(h, kHandleVia); },
      [](PF_Handle h) { handlecb::unlock(h, kHandleVia); },
      [](PF_Handle h) { handlecb::dispose(h, kHandleVia); },
      [](PF_Handle h) { return handlecb::size(h, kHandleVia); },
      [](A_HandleSize size, PF_Handle* h) { return handlecb::resize(size, h, kHandleVia); }};
  return &table;
}

const void* worldSuite2() {
  static const PF_WorldSuite2 table = {
      [](PF_ProgPtr ref, A_long width, A_long height, PF_Boolean clear, PF_PixelFormat format,
         PF_EffectWorld* world) {
        Impl* h = Impl::fromRef(ref, "PF_NewWorld");
        if (!h) return PF_Err(PF_Err_BAD_CALLBACK_PARAM);
        if (auto f = h->enter("PF_NewWorld",
                              std::to_string(width) + "," + std::to_string(height) + "," +
                                  hex32(static_cast<uint32_t>(format)),
                              kWorldVia))
          return *f;
        const int bpp = aeBytesPerPixel(format);
        if (bpp == 0) return PF_Err(PF_Err_BAD_CALLBACK_PARAM);
        return makeWorld(*h, width, height, clear != 0, format, bpp, world);
      },
      [](PF_ProgPtr ref, PF_EffectWorld* world) {
        Impl* h = Impl::fromRef(ref, "PF_DisposeWorld");
        if (!h) return PF_Err(PF_Err_BAD_CALLBACK_PARAM);
        if (auto f = h->enter("PF_DisposeWorld", "", kWorldVia)) return *f;
        return disposeWorld(*h, world);
      },
      [](const PF_EffectWorld* world, PF_PixelFormat* format) {
        return worldFormat("PF_GetPixelFormat", kWorldVia, world, format, false);
      }};
  return &table;
}

const void* paramUtilsSuite3() {
  static const PF_ParamUtilsSuite3 table = {
      puUpdateParamUI,      puGetCurrentState,  puAreStatesIdentical,
      puIsIdenticalCheckout, puFindKeyframeTime, puGetKeyframeCount,
      puCheckoutKeyframe,   puCheckinKeyframe,  puKeyIndexToTime};
  return &table;
}

}  // namespace thost
