// The callbacks PF_InData carries (utility and interaction callbacks), the
// registration callback, and the SPBasic suite.
#include <math.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "impl.h"

namespace thost {

using Impl = Host::Impl;

namespace {

constexpr char kUtils[] = "utils";
constexpr char kInter[] = "inter";
constexpr char kSPBasic[] = "SPBasic";
constexpr size_t kReturnMsgSize = sizeof(PF_OutData{}.return_msg);

// A callback this host does not provide: recorded, then refused with
// PF_Err_INVALID_CALLBACK (or the injected error).
template <const char* Name, const char* Via, typename Sig>
struct Unsupported;
template <const char* Name, const char* Via, typename... A>
struct Unsupported<Name, Via, PF_Err (*)(A...)> {
  static PF_Err call(A...) {
    Impl* h = Impl::current(Name);
    if (!h) return PF_Err_INVALID_CALLBACK;
    if (auto f = h->enter(Name, "", Via)) return *f;
    return PF_Err_INVALID_CALLBACK;
  }
};

template <const char* Name, A_FpLong (*Fn)(A_FpLong)>
A_FpLong math1(A_FpLong x) {
  if (Impl* h = Impl::current(Name))
    if (h->enter(Name, fmtFloat(x), kUtils)) return std::numeric_limits<double>::quiet_NaN();
  return Fn(x);
}

template <const char* Name, A_FpLong (*Fn)(A_FpLong, A_FpLong)>
A_FpLong math2(A_FpLong x, A_FpLong y) {
  if (Impl* h = Impl::current(Name))
    if (h->enter(Name, fmtFloat(x) + "," + fmtFloat(y), kUtils))
      return std::numeric_limits<double>::quiet_NaN();
  return Fn(x, y);
}

// Names used as template arguments need linkage.
#define THOST_NAME(n) constexpr char k_##n[] = #n;
THOST_NAME(begin_sampling)
THOST_NAME(subpixel_sample)
THOST_NAME(area_sample)
THOST_NAME(end_sampling)
THOST_NAME(composite_rect)
THOST_NAME(blend)
THOST_NAME(convolve)
THOST_NAME(copy)
THOST_NAME(fill)
THOST_NAME(gaussian_kernel)
THOST_NAME(iterate)
THOST_NAME(premultiply)
THOST_NAME(premultiply_color)
THOST_NAME(iterate_origin)
THOST_NAME(iterate_lut)
THOST_NAME(transfer_rect)
THOST_NAME(transform_world)
THOST_NAME(get_callback_addr)
THOST_NAME(get_platform_data)
THOST_NAME(iterate_origin_non_clip_src)
THOST_NAME(subpixel_sample16)
THOST_NAME(area_sample16)
THOST_NAME(fill16)
THOST_NAME(premultiply_color16)
THOST_NAME(iterate16)
THOST_NAME(iterate_origin16)
THOST_NAME(iterate_origin_non_clip_src16)
THOST_NAME(get_pixel_data8)
THOST_NAME(get_pixel_data16)
THOST_NAME(RGBtoHLS)
THOST_NAME(HLStoRGB)
THOST_NAME(RGBtoYIQ)
THOST_NAME(YIQtoRGB)
THOST_NAME(Luminance)
THOST_NAME(Hue)
THOST_NAME(Lightness)
THOST_NAME(Saturation)
THOST_NAME(checkout_layer_audio)
THOST_NAME(checkin_layer_audio)
THOST_NAME(get_audio_data)
THOST_NAME(atan)
THOST_NAME(atan2)
THOST_NAME(ceil)
THOST_NAME(cos)
THOST_NAME(exp)
THOST_NAME(fabs)
THOST_NAME(floor)
THOST_NAME(fmod)
THOST_NAME(hypot)
THOST_NAME(log)
THOST_NAME(log10)
THOST_NAME(pow)
THOST_NAME(sin)
THOST_NAME(sqrt)
THOST_NAME(tan)
THOST_NAME(asin)
THOST_NAME(acos)
#undef THOST_NAME

template <const char* Name, typename Sig>
Sig unsupportedUtil() {
  return &Unsupported<Name, kUtils, Sig>::call;
}

// ---------------------------------------------------------------- utils

PF_Err cbNewWorld(PF_ProgPtr ref, A_long width, A_long height, PF_NewWorldFlags flags,
                  PF_EffectWorld* world) {
  Impl* h = Impl::fromRef(ref, "new_world");
  if (!h) return PF_Err_BAD_CALLBACK_PARAM;
  if (auto f = h->enter("new_world", std::to_string(width) + "," + std::to_string(height), kUtils))
    return *f;
  const bool deep = (flags & PF_NewWorldFlag_DEEP_PIXELS) != 0;
  return makeWorld(*h, width, height, (flags & PF_NewWorldFlag_CLEAR_PIXELS) != 0,
                   deep ? PF_PixelFormat_ARGB64 : PF_PixelFormat_ARGB32, deep ? 8 : 4, world);
}

PF_Err cbDisposeWorld(PF_ProgPtr ref, PF_EffectWorld* world) {
  Impl* h = Impl::fromRef(ref, "dispose_world");
  if (!h) return PF_Err_BAD_CALLBACK_PARAM;
  if (auto f = h->enter("dispose_world", "", kUtils)) return *f;
  return disposeWorld(*h, world);
}

PF_Err cbApp(PF_ProgPtr ref, A_long, ...) {
  Impl* h = Impl::fromRef(ref, "app");
  if (!h) return PF_Err_BAD_CALLBACK_PARAM;
  if (auto f = h->enter("app", "", kUtils)) return *f;
  return PF_Err_INVALID_CALLBACK;
}

// Runs the iterations one after the other on the calling thread, as thread 0.
PF_Err cbIterateGeneric(A_long iterations, void* refcon,
                        PF_Err (*fn)(void* refcon, A_long thread, A_long i, A_long iterations)) {
  Impl* h = Impl::current("iterate_generic");
  if (!h) return PF_Err_BAD_CALLBACK_PARAM;
  if (auto f = h->enter("iterate_generic", std::to_string(iterations), kUtils)) return *f;
  if (!fn) {
    h->addBreak("iterate_generic without a function");
    return PF_Err_BAD_CALLBACK_PARAM;
  }
  for (A_long i = 0; i < iterations; ++i)
    if (PF_Err err = fn(refcon, 0, i, iterations)) return err;
  return PF_Err_NONE;
}

// The host writes what the effect asks into its buffer. The effect's
// return_msg holds 256 bytes: longer text is cut there, and reported, because
// a host without this care would have written past the end.
void writeText(Impl& h, const char* fn, A_char* buffer, const std::string& text) {
  if (buffer == h.out.return_msg) {
    const size_t n = std::min(text.size(), kReturnMsgSize - 1);
    std::memcpy(buffer, text.data(), n);
    buffer[n] = '\0';
    if (text.size() > n)
      h.addBreak(std::string(fn) + ": " + std::to_string(text.size()) +
                 " characters do not fit out_data->return_msg (255 at most)");
    return;
  }
  std::memcpy(buffer, text.c_str(), text.size() + 1);
}

int cbSprintf(A_char* buffer, const A_char* format, ...) {
  Impl* h = Impl::current("sprintf");
  if (!h) return -1;
  if (!format || !buffer) {
    h->enter("sprintf", "", kUtils);
    h->addBreak("sprintf with a null buffer or format");
    return -1;
  }
  va_list ap;
  va_start(ap, format);
  va_list again;
  va_copy(again, ap);
  const int n = std::vsnprintf(nullptr, 0, format, ap);
  va_end(ap);
  std::string text(n > 0 ? static_cast<size_t>(n) : 0, '\0');
  if (n > 0) std::vsnprintf(text.data(), text.size() + 1, format, again);
  va_end(again);
  if (h->enter("sprintf", text, kUtils)) return -1;
  if (n < 0) {
    h->addBreak("sprintf with a format the host cannot print");
    return -1;
  }
  writeText(*h, "sprintf", buffer, text);
  return n;
}

A_char* cbStrcpy(A_char* dst, const A_char* src) {
  Impl* h = Impl::current("strcpy");
  if (!h) return nullptr;
  if (!dst || !src) {
    h->enter("strcpy", "", kUtils);
    h->addBreak("strcpy with a null destination or source");
    return nullptr;
  }
  const std::string text(src);
  if (h->enter("strcpy", text, kUtils)) return nullptr;
  writeText(*h, "strcpy", dst, text);
  return dst;
}

PF_Handle utilNewHandle(A_u_longlong size) { return handlecb::newHandle(size, kUtils); }
void* utilLockHandle(PF_Handle h) { return handlecb::lock(h, kUtils); }
void utilUnlockHandle(PF_Handle h) { handlecb::unlock(h, kUtils); }
void utilDisposeHandle(PF_Handle h) { handlecb::dispose(h, kUtils); }
A_u_longlong utilGetHandleSize(PF_Handle h) { return handlecb::size(h, kUtils); }
PF_Err utilResizeHandle(A_u_longlong size, PF_Handle* h) {
  return handlecb::resize(size, h, kUtils);
}

// ---------------------------------------------------------------- inter

PF_Err cbCheckoutParam(PF_ProgPtr ref, PF_ParamIndex index, A_long time, A_long step,
                       A_u_long scale, PF_ParamDef* def) {
  Impl* h = Impl::fromRef(ref, "checkout_param");
  if (!h) return PF_Err_BAD_CALLBACK_PARAM;
  auto fail = h->enter("checkout_param",
                       std::to_string(index) + "," + std::to_string(time) + "," +
                           std::to_string(step) + "," + std::to_string(scale),
                       kInter);
  if (!def) {
    h->addBreak("checkout_param without a definition to fill");
    return PF_Err_BAD_CALLBACK_PARAM;
  }
  if (fail) return *fail;
  if (!h->validIndex(index)) return PF_Err_INVALID_INDEX;
  *def = h->live[static_cast<size_t>(index)];
  if (def->param_type == PF_Param_LAYER) {
    // A layer comes with its frame at that time, lent like any layer world.
    if (PF_Err err = h->lendLayerParam(index, time, step, scale, *def)) return err;
  }
  h->checkouts.emplace_back(def, index);
  return PF_Err_NONE;
}

PF_Err cbCheckinParam(PF_ProgPtr ref, PF_ParamDef* def) {
  Impl* h = Impl::fromRef(ref, "checkin_param");
  if (!h) return PF_Err_BAD_CALLBACK_PARAM;
  // The most recent checkout into this definition is the one given back.
  auto it = h->checkouts.end();
  for (auto i = h->checkouts.begin(); i != h->checkouts.end(); ++i)
    if (i->first == def) it = i;
  const std::string index = it == h->checkouts.end() ? "?" : std::to_string(it->second);
  if (auto f = h->enter("checkin_param", index, kInter)) return *f;
  if (it == h->checkouts.end()) {
    h->addBreak("checkin_param of a definition that is not checked out");
    return PF_Err_BAD_CALLBACK_PARAM;
  }
  h->checkouts.erase(it);
  return PF_Err_NONE;
}

PF_Err cbAddParam(PF_ProgPtr ref, PF_ParamIndex index, PF_ParamDefPtr def) {
  Impl* h = Impl::fromRef(ref, "add_param");
  if (!h) return PF_Err_BAD_CALLBACK_PARAM;
  auto fail = h->enter("add_param", def ? std::to_string(def->uu.id) : std::string("?"), kInter);
  if (!def) {
    h->addBreak("add_param without a definition");
    return PF_Err_BAD_CALLBACK_PARAM;
  }
  if (fail) return *fail;
  if (h->currentCmd != PF_Cmd_PARAMS_SETUP) {
    h->addBreak("add_param outside PF_Cmd_PARAMS_SETUP");
    return PF_Err_BAD_CALLBACK_PARAM;
  }
  if (index != -1)
    h->addBreak("add_param with index " + std::to_string(index) +
                "; the host only appends (-1), so the parameter was appended");

  AddedParam added{index, *def, {}};
  PF_ParamDef& copy = added.def;
  if (!std::memchr(copy.name, '\0', sizeof copy.name)) {
    h->addBreak("add_param: the name of parameter id " + std::to_string(def->uu.id) +
                " is not terminated within 32 bytes");
    copy.name[sizeof copy.name - 1] = '\0';
  }
  if (def->uu.id != 0) {
    for (size_t i = 0; i < h->added.size(); ++i)
      if (h->added[i].def.uu.id == def->uu.id)
        h->addBreak("add_param: id " + std::to_string(def->uu.id) + " is already used by parameter " +
                    std::to_string(i + 1));
  }
  // The strings stay in the effect's memory; the host keeps its own copies and
  // points both the record and the live definition at them.
  const A_char** text = nullptr;
  switch (def->param_type) {
    case PF_Param_POPUP:
      text = &copy.u.pd.u.namesptr;
      break;
    case PF_Param_BUTTON:
      text = &copy.u.button_d.u.namesptr;
      break;
    case PF_Param_CHECKBOX:
      text = &copy.u.bd.u.nameptr;
      break;
    default:
      break;
  }
  if (text && *text) {
    added.namesText = *text;
    h->ownedStrings.push_back(added.namesText);
    *text = h->ownedStrings.back().c_str();
  }
  // The array the effect got for this command keeps its length (the input
  // layer); the new parameter appears in the arrays of later commands.
  h->live.push_back(copy);
  h->added.push_back(std::move(added));
  return PF_Err_NONE;
}

PF_Err cbAbort(PF_ProgPtr ref) {
  Impl* h = Impl::fromRef(ref, "abort");
  if (!h) return PF_Err_BAD_CALLBACK_PARAM;
  if (auto f = h->enter("abort", "", kInter)) return *f;
  return PF_Err_NONE;
}

PF_Err cbProgress(PF_ProgPtr ref, A_long current, A_long total) {
  Impl* h = Impl::fromRef(ref, "progress");
  if (!h) return PF_Err_BAD_CALLBACK_PARAM;
  if (auto f = h->enter("progress", std::to_string(current) + "," + std::to_string(total), kInter))
    return *f;
  return PF_Err_NONE;
}

PF_Err cbRegisterUI(PF_ProgPtr ref, PF_CustomUIInfo* info) {
  Impl* h = Impl::fromRef(ref, "register_ui");
  if (!h) return PF_Err_BAD_CALLBACK_PARAM;
  auto fail = h->enter("register_ui", info ? std::to_string(info->events) : std::string("?"), kInter);
  if (!info) {
    h->addBreak("register_ui without a PF_CustomUIInfo");
    return PF_Err_BAD_CALLBACK_PARAM;
  }
  if (fail) return *fail;
  h->ui.push_back(*info);
  return PF_Err_NONE;
}

// ---------------------------------------------------------------- SPBasic

SPErr spAcquireSuite(const char* name, int32_t version, const void** suite) {
  Impl* h = Impl::current("AcquireSuite");
  if (!h) return kSPBadParameterError;
  auto fail = h->enter("AcquireSuite", std::string(name ? name : "(null)") + "," + std::to_string(version),
                       kSPBasic);
  if (!name || !suite) {
    h->addBreak("AcquireSuite with a null name or result pointer");
    return kSPBadParameterError;
  }
  *suite = nullptr;
  if (fail) return *fail;
  switch (h->suites.acquire(name, version, h->app, suite)) {
    case SuiteRegistry::Answer::Granted:
      return kSPNoError;
    case SuiteRegistry::Answer::Refused:
      return kSPSuiteNotFoundError;
    case SuiteRegistry::Answer::Unknown:
      h->addBreak(std::string("unknown suite \"") + name + "\" version " + std::to_string(version) +
                  " asked for");
      return kSPSuiteNotFoundError;
  }
  return kSPSuiteNotFoundError;
}

SPErr spReleaseSuite(const char* name, int32_t version) {
  Impl* h = Impl::current("ReleaseSuite");
  if (!h) return kSPBadParameterError;
  auto fail = h->enter("ReleaseSuite", std::string(name ? name : "(null)") + "," + std::to_string(version),
                       kSPBasic);
  if (!name) {
    h->addBreak("ReleaseSuite with a null name");
    return kSPBadParameterError;
  }
  if (fail) return *fail;
  switch (h->suites.release(name, version)) {
    case SuiteRegistry::Answer::Granted:
      return kSPNoError;
    case SuiteRegistry::Answer::Refused:
      // A real host's reference count would go below zero here.
      h->addBreak(std::string("ReleaseSuite of \"") + name + "\" version " +
                  std::to_string(version) + ", which the effect does not hold");
      return kSPBadParameterError;
    case SuiteRegistry::Answer::Unknown:
      h->addBreak(std::string("ReleaseSuite of unknown suite \"") + name + "\" version " +
                  std::to_string(version));
      return kSPSuiteNotFoundError;
  }
  return kSPSuiteNotFoundError;
}

SPBoolean spIsEqual(const char* a, const char* b) {
  Impl* h = Impl::current("IsEqual");
  if (!h) return 0;
  if (h->enter("IsEqual", std::string(a ? a : "(null)") + "," + (b ? b : "(null)"), kSPBasic))
    return 0;
  return a && b && std::strcmp(a, b) == 0;
}

SPErr spAllocateBlock(size_t size, void** block) {
  Impl* h = Impl::current("AllocateBlock");
  if (!h) return kSPBadParameterError;
  auto fail = h->enter("AllocateBlock", std::to_string(size), kSPBasic);
  if (!block) {
    h->addBreak("AllocateBlock without a result pointer");
    return kSPBadParameterError;
  }
  *block = nullptr;
  if (fail) return *fail;
  void* p = std::malloc(size == 0 ? 1 : size);
  if (!p) return kSPBadParameterError;
  h->blocks.insert(p);
  *block = p;
  return kSPNoError;
}

SPErr spFreeBlock(void* block) {
  Impl* h = Impl::current("FreeBlock");
  if (!h) return kSPBadParameterError;
  if (auto f = h->enter("FreeBlock", "", kSPBasic)) return *f;
  if (!h->blocks.erase(block)) {
    h->addBreak("FreeBlock of a block the host did not allocate");
    return kSPBadParameterError;
  }
  std::free(block);
  return kSPNoError;
}

SPErr spReallocateBlock(void* block, size_t size, void** newBlock) {
  Impl* h = Impl::current("ReallocateBlock");
  if (!h) return kSPBadParameterError;
  auto fail = h->enter("ReallocateBlock", std::to_string(size), kSPBasic);
  if (!newBlock || (block && !h->blocks.count(block))) {
    h->addBreak("ReallocateBlock of a block the host did not allocate");
    return kSPBadParameterError;
  }
  *newBlock = nullptr;
  if (fail) return *fail;
  void* p = std::realloc(block, size == 0 ? 1 : size);
  if (!p) return kSPBadParameterError;
  h->blocks.erase(block);
  h->blocks.insert(p);
  *newBlock = p;
  return kSPNoError;
}

SPErr spUndefined() {
  Impl* h = Impl::current("Undefined");
  if (!h) return kSPBadParameterError;
  if (auto f = h->enter("Undefined", "", kSPBasic)) return *f;
  return kSPBadParameterError;
}

}  // namespace

// ---------------------------------------------------------------- handles

namespace handlecb {

PF_Handle newHandle(A_u_longlong size, const char* via) {
  Impl* h = Impl::current("host_new_handle");
  if (!h) return nullptr;
  if (h->enter("host_new_handle", std::to_string(size), via)) return nullptr;
  return h->handles.create(size, false, h, h->commandSerial);
}

void* lock(PF_Handle handle, const char* via) {
  Impl* h = Impl::current("host_lock_handle");
  if (!h) return nullptr;
  auto storeLock = h->handles.guard();
  auto fail = h->enter("host_lock_handle", handleLabel(*h, handle), via);
  HandleStore::Block* b = h->handles.find(handle);
  if (!b) {
    h->addBreak("host_lock_handle of a handle that is not live (" + handleLabel(*h, handle) + ")");
    return nullptr;
  }
  // An empty handle has nothing to lock: the effect gets null and owes no unlock.
  if (fail || !b->master) return nullptr;
  ++b->locks;
  return b->master;
}

void unlock(PF_Handle handle, const char* via) {
  Impl* h = Impl::current("host_unlock_handle");
  if (!h) return;
  auto storeLock = h->handles.guard();
  auto fail = h->enter("host_unlock_handle", handleLabel(*h, handle), via);
  HandleStore::Block* b = h->handles.find(handle);
  if (!b) {
    h->addBreak("host_unlock_handle of a handle that is not live (" + handleLabel(*h, handle) + ")");
    return;
  }
  if (fail) return;
  if (b->locks == 0) {
    if (b->master)
      h->addBreak("host_unlock_handle of a handle that is not locked (" + handleLabel(*h, handle) +
                  ")");
    return;
  }
  --b->locks;
}

void dispose(PF_Handle handle, const char* via) {
  Impl* h = Impl::current("host_dispose_handle");
  if (!h) return;
  auto storeLock = h->handles.guard();
  auto fail = h->enter("host_dispose_handle", handleLabel(*h, handle), via);
  if (!h->handles.find(handle)) {
    h->addBreak("host_dispose_handle of a handle that is not live (" + handleLabel(*h, handle) +
                ")");
    return;
  }
  if (fail) return;
  if (handle == h->render.preRenderData)
    h->addBreak("host_dispose_handle of the pre-render data handle, which the host owns");
  h->handles.dispose(handle);
  if (handle == h->render.preRenderData) h->render.preRenderData = nullptr;
}

A_u_longlong size(PF_Handle handle, const char* via) {
  Impl* h = Impl::current("host_get_handle_size");
  if (!h) return 0;
  auto storeLock = h->handles.guard();
  auto fail = h->enter("host_get_handle_size", handleLabel(*h, handle), via);
  const HandleStore::Block* b = h->handles.find(handle);
  if (!b) {
    h->addBreak("host_get_handle_size of a handle that is not live (" + handleLabel(*h, handle) +
                ")");
    return 0;
  }
  if (fail) return 0;
  return b->size;
}

PF_Err resize(A_u_longlong newSize, PF_Handle* handle, const char* via) {
  Impl* h = Impl::current("host_resize_handle");
  if (!h) return PF_Err_BAD_CALLBACK_PARAM;
  auto storeLock = h->handles.guard();
  const PF_Handle target = handle ? *handle : nullptr;
  auto fail =
      h->enter("host_resize_handle", std::to_string(newSize) + "," + handleLabel(*h, target), via);
  HandleStore::Block* b = h->handles.find(target);
  if (!b) {
    h->addBreak("host_resize_handle of a handle that is not live (" + handleLabel(*h, target) + ")");
    return PF_Err_BAD_CALLBACK_PARAM;
  }
  if (fail) return *fail;
  // The block may have to move, which a locked handle forbids.
  if (b->locks > 0) return PF_Err_OUT_OF_MEMORY;
  return h->handles.resize(*b, newSize) ? PF_Err_NONE : PF_Err_OUT_OF_MEMORY;
}

}  // namespace handlecb

// ---------------------------------------------------------------- tables

void fillUtilCallbacks(PF_UtilCallbacks& u) {
  using U = PF_UtilCallbacks;
  u.begin_sampling = unsupportedUtil<k_begin_sampling, decltype(U::begin_sampling)>();
  u.subpixel_sample = unsupportedUtil<k_subpixel_sample, decltype(U::subpixel_sample)>();
  u.area_sample = unsupportedUtil<k_area_sample, decltype(U::area_sample)>();
  u.get_batch_func_is_deprecated = nullptr;
  u.end_sampling = unsupportedUtil<k_end_sampling, decltype(U::end_sampling)>();
  u.composite_rect = unsupportedUtil<k_composite_rect, decltype(U::composite_rect)>();
  u.blend = unsupportedUtil<k_blend, decltype(U::blend)>();
  u.convolve = unsupportedUtil<k_convolve, decltype(U::convolve)>();
  u.copy = unsupportedUtil<k_copy, decltype(U::copy)>();
  u.fill = unsupportedUtil<k_fill, decltype(U::fill)>();
  u.gaussian_kernel = unsupportedUtil<k_gaussian_kernel, decltype(U::gaussian_kernel)>();
  u.iterate = unsupportedUtil<k_iterate, decltype(U::iterate)>();
  u.premultiply = unsupportedUtil<k_premultiply, decltype(U::premultiply)>();
  u.premultiply_color = unsupportedUtil<k_premultiply_color, decltype(U::premultiply_color)>();
  u.new_world = cbNewWorld;
  u.dispose_world = cbDisposeWorld;
  u.iterate_origin = unsupportedUtil<k_iterate_origin, decltype(U::iterate_origin)>();
  u.iterate_lut = unsupportedUtil<k_iterate_lut, decltype(U::iterate_lut)>();
  u.transfer_rect = unsupportedUtil<k_transfer_rect, decltype(U::transfer_rect)>();
  u.transform_world = unsupportedUtil<k_transform_world, decltype(U::transform_world)>();
  u.host_new_handle = utilNewHandle;
  u.host_lock_handle = utilLockHandle;
  u.host_unlock_handle = utilUnlockHandle;
  u.host_dispose_handle = utilDisposeHandle;
  u.get_callback_addr = unsupportedUtil<k_get_callback_addr, decltype(U::get_callback_addr)>();
  u.app = cbApp;
  u.ansi.atan = math1<k_atan, ::atan>;
  u.ansi.atan2 = math2<k_atan2, ::atan2>;
  u.ansi.ceil = math1<k_ceil, ::ceil>;
  u.ansi.cos = math1<k_cos, ::cos>;
  u.ansi.exp = math1<k_exp, ::exp>;
  u.ansi.fabs = math1<k_fabs, ::fabs>;
  u.ansi.floor = math1<k_floor, ::floor>;
  u.ansi.fmod = math2<k_fmod, ::fmod>;
  u.ansi.hypot = math2<k_hypot, ::hypot>;
  u.ansi.log = math1<k_log, ::log>;
  u.ansi.log10 = math1<k_log10, ::log10>;
  u.ansi.pow = math2<k_pow, ::pow>;
  u.ansi.sin = math1<k_sin, ::sin>;
  u.ansi.sqrt = math1<k_sqrt, ::sqrt>;
  u.ansi.tan = math1<k_tan, ::tan>;
  u.ansi.sprintf = cbSprintf;
  u.ansi.strcpy = cbStrcpy;
  u.ansi.asin = math1<k_asin, ::asin>;
  u.ansi.acos = math1<k_acos, ::acos>;
  using C = PF_ColorCallbacks;
  u.colorCB.RGBtoHLS = unsupportedUtil<k_RGBtoHLS, decltype(C::RGBtoHLS)>();
  u.colorCB.HLStoRGB = unsupportedUtil<k_HLStoRGB, decltype(C::HLStoRGB)>();
  u.colorCB.RGBtoYIQ = unsupportedUtil<k_RGBtoYIQ, decltype(C::RGBtoYIQ)>();
  u.colorCB.YIQtoRGB = unsupportedUtil<k_YIQtoRGB, decltype(C::YIQtoRGB)>();
  u.colorCB.Luminance = unsupportedUtil<k_Luminance, decltype(C::Luminance)>();
  u.colorCB.Hue = unsupportedUtil<k_Hue, decltype(C::Hue)>();
  u.colorCB.Lightness = unsupportedUtil<k_Lightness, decltype(C::Lightness)>();
  u.colorCB.Saturation = unsupportedUtil<k_Saturation, decltype(C::Saturation)>();
  u.get_platform_data = unsupportedUtil<k_get_platform_data, decltype(U::get_platform_data)>();
  u.host_get_handle_size = utilGetHandleSize;
  u.iterate_origin_non_clip_src =
      unsupportedUtil<k_iterate_origin_non_clip_src, decltype(U::iterate_origin_non_clip_src)>();
  u.iterate_generic = cbIterateGeneric;
  u.host_resize_handle = utilResizeHandle;
  u.subpixel_sample16 = unsupportedUtil<k_subpixel_sample16, decltype(U::subpixel_sample16)>();
  u.area_sample16 = unsupportedUtil<k_area_sample16, decltype(U::area_sample16)>();
  u.fill16 = unsupportedUtil<k_fill16, decltype(U::fill16)>();
  u.premultiply_color16 = unsupportedUtil<k_premultiply_color16, decltype(U::premultiply_color16)>();
  u.iterate16 = unsupportedUtil<k_iterate16, decltype(U::iterate16)>();
  u.iterate_origin16 = unsupportedUtil<k_iterate_origin16, decltype(U::iterate_origin16)>();
  u.iterate_origin_non_clip_src16 =
      unsupportedUtil<k_iterate_origin_non_clip_src16, decltype(U::iterate_origin_non_clip_src16)>();
  u.get_pixel_data8 = unsupportedUtil<k_get_pixel_data8, decltype(U::get_pixel_data8)>();
  u.get_pixel_data16 = unsupportedUtil<k_get_pixel_data16, decltype(U::get_pixel_data16)>();
}

void fillInteractCallbacks(PF_InteractCallbacks& i) {
  using I = PF_InteractCallbacks;
  i.checkout_param = cbCheckoutParam;
  i.checkin_param = cbCheckinParam;
  i.add_param = cbAddParam;
  i.abort = cbAbort;
  i.progress = cbProgress;
  i.register_ui = cbRegisterUI;
  i.checkout_layer_audio =
      &Unsupported<k_checkout_layer_audio, kInter, decltype(I::checkout_layer_audio)>::call;
  i.checkin_layer_audio =
      &Unsupported<k_checkin_layer_audio, kInter, decltype(I::checkin_layer_audio)>::call;
  i.get_audio_data = &Unsupported<k_get_audio_data, kInter, decltype(I::get_audio_data)>::call;
}

void fillBasicSuite(SPBasicSuite& b) {
  b.AcquireSuite = spAcquireSuite;
  b.ReleaseSuite = spReleaseSuite;
  b.IsEqual = spIsEqual;
  b.AllocateBlock = spAllocateBlock;
  b.FreeBlock = spFreeBlock;
  b.ReallocateBlock = spReallocateBlock;
  b.Undefined = spUndefined;
}

// ---------------------------------------------------------------- registration

A_Err registrationCallback(PF_PluginDataPtr inPtr, const A_u_char* name, const A_u_char* matchName,
                           const A_u_char* category, const A_u_char* entryPoint, A_long kind,
                           A_long apiVersion, A_long apiSubversion, A_long reservedInfo) {
  Impl* h = Impl::current("PF_PluginDataCB");
  if (!h) return A_Err_GENERIC;
  auto str = [](const A_u_char* s) {
    return s ? std::string(reinterpret_cast<const char*>(s)) : std::string();
  };
  auto fail = h->enter("PF_PluginDataCB",
                       str(name) + "," + str(matchName) + "," + str(category) + "," +
                           str(entryPoint) + "," + hex32(static_cast<uint32_t>(kind)) + "," +
                           std::to_string(apiVersion) + "," + std::to_string(apiSubversion) + "," +
                           std::to_string(reservedInfo),
                       "registration");
  if (reinterpret_cast<const Impl::Token*>(inPtr) != &h->token)
    h->addBreak("PF_PluginDataCB called with a token other than the one the host passed");
  if (!name || !matchName || !category || !entryPoint)
    h->addBreak("PF_PluginDataCB with a null string");
  if (fail) return *fail;
  Registration& r = h->registration;
  ++r.callCount;
  r.name = str(name);
  r.matchName = str(matchName);
  r.category = str(category);
  r.entryPoint = str(entryPoint);
  r.kind = kind;
  r.apiVersion = apiVersion;
  r.apiSubversion = apiSubversion;
  r.reservedInfo = reservedInfo;
  return A_Err_NONE;
}

}  // namespace thost
