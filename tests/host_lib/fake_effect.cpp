// A small effect module for testing the headless host itself. It behaves well
// in the ordinary commands and misbehaves on request: PF_Cmd_COMPLETELY_GENERAL
// with `extra` pointing at a scenario name runs one scenario, and draw events
// pick their behaviour by effect_win.index. Results the tests need come back
// in out_data->return_msg, written directly (not through the host).
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "aesdk/aesdk.h"

#define FAKE_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

// in_data->what_cpu set to this makes parameter setup report a wrong count.
constexpr A_long kMisreportParams = 99;

template <typename Suite>
const Suite* acquire(PF_InData* in, const char* name, int version) {
  const void* p = nullptr;
  in->pica_basicP->AcquireSuite(name, version, &p);
  return static_cast<const Suite*>(p);
}

void release(PF_InData* in, const char* name, int version) {
  in->pica_basicP->ReleaseSuite(name, version);
}

void report(PF_OutData* out, const std::string& text) {
  std::snprintf(out->return_msg, sizeof out->return_msg, "%s", text.c_str());
}

PF_Err globalSetup(PF_InData* in, PF_OutData* out) {
  out->my_version = PF_VERSION(2, 3, 4, PF_Stage_BETA, 5);
  out->out_flags = PF_OutFlag_CUSTOM_UI;
  out->out_flags2 = PF_OutFlag2_SUPPORTS_SMART_RENDER;
  if (in->appl_id != PF_APPL_ID_PREMIERE) return PF_Err_NONE;
  auto* formats = acquire<PF_PixelFormatSuite1>(in, kPFPixelFormatSuite, 1);
  if (!formats) return A_Err_MISSING_SUITE;
  formats->ClearSupportedPixelFormats(in->effect_ref);
  formats->AddSupportedPixelFormat(in->effect_ref, PrPixelFormat_ARGB_4444_8u);
  formats->AddSupportedPixelFormat(in->effect_ref, PrPixelFormat_ARGB_4444_32f);
  auto* utility = acquire<PF_UtilitySuite4>(in, kPFUtilitySuite, 4);
  if (utility) {
    utility->EffectWantsCheckedOutFramesToMatchRenderPixelFormat(in->effect_ref);
    release(in, kPFUtilitySuite, 4);
  }
  release(in, kPFPixelFormatSuite, 1);
  return utility ? PF_Err{PF_Err_NONE} : PF_Err{A_Err_MISSING_SUITE};
}

PF_Err paramsSetup(PF_InData* in, PF_OutData* out) {
  PF_ParamDef def;
  auto add = [&]() { return in->inter.add_param(in->effect_ref, -1, &def); };
  auto clear = [&](PF_ParamType type, const char* name, A_long id) {
    std::memset(&def, 0, sizeof def);
    def.param_type = type;
    std::snprintf(def.name, sizeof def.name, "%s", name);
    def.uu.id = id;
  };

  // The choices live in a scratch buffer that is scribbled over right after
  // the call: the host must have kept its own copy.
  char choices[32];
  std::snprintf(choices, sizeof choices, "One|Two|Three");
  clear(PF_Param_POPUP, "Choice", 10);
  def.u.pd.num_choices = 3;
  def.u.pd.dephault = 2;
  def.u.pd.value = 2;
  def.u.pd.u.namesptr = choices;
  if (PF_Err err = add()) return err;
  std::memset(choices, 'X', sizeof choices - 1);

  clear(PF_Param_GROUP_START, "Group", 11);
  if (PF_Err err = add()) return err;

  clear(PF_Param_FIX_SLIDER, "Size", 12);
  def.u.fd.valid_min = 1 << 16;
  def.u.fd.valid_max = 100 << 16;
  def.u.fd.slider_min = 1 << 16;
  def.u.fd.slider_max = 50 << 16;
  def.u.fd.value = def.u.fd.dephault = 32 << 16;
  if (PF_Err err = add()) return err;

  clear(PF_Param_FLOAT_SLIDER, "Amount", 13);
  def.u.fs_d.valid_max = def.u.fs_d.slider_max = 100.0f;
  def.u.fs_d.value = def.u.fs_d.dephault = 25.0f;
  def.u.fs_d.precision = 2;
  def.u.fs_d.display_flags = PF_ValueDisplayFlag_PERCENT;
  def.u.fs_d.curve_tolerance = 0.05f;
  if (PF_Err err = add()) return err;

  clear(PF_Param_CHECKBOX, "Enabled", 14);
  def.u.bd.value = def.u.bd.dephault = 1;
  def.u.bd.u.nameptr = "on";
  def.flags = PF_ParamFlag_CANNOT_INTERP;
  if (PF_Err err = add()) return err;

  clear(PF_Param_GROUP_END, "", 15);
  if (PF_Err err = add()) return err;

  clear(PF_Param_BUTTON, "", 16);
  def.u.button_d.u.namesptr = "Press";
  def.flags = PF_ParamFlag_SUPERVISE;
  if (PF_Err err = add()) return err;

  clear(PF_Param_LAYER, "Other", 17);
  def.u.ld.dephault = PF_LayerDefault_NONE;
  if (PF_Err err = add()) return err;

  clear(PF_Param_NO_DATA, "", 18);
  def.ui_flags = PF_PUI_TOPIC;
  def.ui_width = 320;
  def.ui_height = 17;
  def.flags = PF_ParamFlag_SUPERVISE | PF_ParamFlag_CANNOT_TIME_VARY;
  if (PF_Err err = add()) return err;
  PF_CustomUIInfo ui;
  std::memset(&ui, 0, sizeof ui);
  ui.events = PF_CustomEFlag_EFFECT;
  if (PF_Err err = in->inter.register_ui(in->effect_ref, &ui)) return err;

  out->num_params = in->what_cpu == kMisreportParams ? 5 : 10;
  return PF_Err_NONE;
}

PF_Err sequenceSetup(PF_InData* in, PF_OutData* out) {
  if (in->sequence_data) return PF_Err_NONE;
  PF_Handle h = in->utils->host_new_handle(16);
  if (!h) {
    in->utils->ansi.strcpy(out->return_msg, "no memory");
    out->out_flags |= PF_OutFlag_DISPLAY_ERROR_MESSAGE;
    return PF_Err_INTERNAL_STRUCT_DAMAGED;
  }
  char* p = static_cast<char*>(in->utils->host_lock_handle(h));
  std::memset(p, 0, 16);
  std::memcpy(p, "fake", 4);
  in->utils->host_unlock_handle(h);
  out->sequence_data = h;
  return PF_Err_NONE;
}

// Copies the sequence block through the Handle Suite; the old one is disposed
// when flattening the instance, kept when the host only asks for a copy.
PF_Err flatten(PF_InData* in, PF_OutData* out, bool disposeOld) {
  if (!in->sequence_data) return PF_Err_INTERNAL_STRUCT_DAMAGED;
  if (!*in->sequence_data) return PF_Err_NONE;
  auto* hs = acquire<PF_HandleSuite1>(in, kPFHandleSuite, 2);
  if (!hs) return A_Err_MISSING_SUITE;
  const A_HandleSize size = hs->host_get_handle_size(in->sequence_data);
  PF_Handle copy = hs->host_new_handle(size);
  PF_Err err = PF_Err_NONE;
  if (!copy) {
    err = PF_Err_INTERNAL_STRUCT_DAMAGED;
  } else {
    void* dst = hs->host_lock_handle(copy);
    void* src = hs->host_lock_handle(in->sequence_data);
    std::memcpy(dst, src, size);
    hs->host_unlock_handle(in->sequence_data);
    hs->host_unlock_handle(copy);
    if (disposeOld) hs->host_dispose_handle(in->sequence_data);
    out->sequence_data = copy;
  }
  release(in, kPFHandleSuite, 2);
  return err;
}

PF_Err sequenceSetdown(PF_InData* in, PF_OutData* out) {
  if (in->sequence_data) in->utils->host_dispose_handle(in->sequence_data);
  in->sequence_data = nullptr;
  out->sequence_data = nullptr;
  return PF_Err_NONE;
}

PF_Err updateParamsUI(PF_InData* in, PF_ParamDef* params[]) {
  auto* pu = acquire<PF_ParamUtilsSuite3>(in, kPFParamUtilsSuite, 3);
  if (!pu) return PF_Err_BAD_CALLBACK_PARAM;
  PF_ParamDef copy = *params[1];
  copy.ui_flags = PF_PUI_DISABLED;
  PF_Err err = pu->PF_UpdateParamUI(in->effect_ref, 1, &copy);
  if (!err) {
    copy = *params[3];
    copy.ui_flags = PF_PUI_NONE;
    std::snprintf(copy.name, sizeof copy.name, "Size (px)");
    err = pu->PF_UpdateParamUI(in->effect_ref, 3, &copy);
  }
  release(in, kPFParamUtilsSuite, 3);
  return err;
}

// A 4 x 2 straight BGRA picture: red, green, blue, half-transparent white;
// fully transparent, grey, yellow, black.
const uint8_t kPicture[2 * 4 * 4] = {0,   0,   255, 255, 0,  255, 0,   255, 255, 0,   0,
                                     255, 255, 255, 255, 128, 10, 20,  30,  0,   128, 128,
                                     128, 255, 0,   255, 255, 255, 0,  0,   0,   255};

// Draw modes by effect_win.index: 1 draws at the title frame's origin; 2 at
// (10.4, 2.6) with opacity 0.5; 3 forgets to release the image; 4 asks for an
// ARGB image; 5 keeps the Path suite; 6 paints a rectangle instead; 7 gives
// too few row bytes; 8 releases the supplier it was only lent.
PF_Err drawEvent(PF_InData* in, PF_EventExtra* e) {
  const int mode = e->effect_win.index;
  auto* cui = acquire<PF_EffectCustomUISuite1>(in, kPFEffectCustomUISuite, 1);
  auto* draw = acquire<DRAWBOT_DrawbotSuite1>(in, kDRAWBOT_DrawSuite, 1);
  auto* supplier = acquire<DRAWBOT_SupplierSuite1>(in, kDRAWBOT_SupplierSuite, 1);
  auto* surface = acquire<DRAWBOT_SurfaceSuite2>(in, kDRAWBOT_SurfaceSuite, 2);
  auto* path = acquire<DRAWBOT_PathSuite1>(in, kDRAWBOT_PathSuite, 1);
  SPErr err = (cui && draw && supplier && surface && path) ? 0 : PF_Err_BAD_CALLBACK_PARAM;
  DRAWBOT_DrawRef ref = nullptr;
  DRAWBOT_SupplierRef sup = nullptr;
  DRAWBOT_SurfaceRef surf = nullptr;
  if (!err) err = cui->PF_GetDrawingReference(e->contextH, &ref);
  if (!err) err = draw->GetSupplier(ref, &sup);
  if (!err) err = draw->GetSurface(ref, &surf);
  if (!err && mode == 6) {
    const DRAWBOT_ColorRGBA red{1.0f, 0.0f, 0.0f, 1.0f};
    const DRAWBOT_RectF32 rect{1.0f, 1.0f, 2.0f, 3.0f};
    err = surface->PaintRect(surf, &red, &rect);
  }
  if (!err && mode == 8) err = supplier->ReleaseObject(reinterpret_cast<DRAWBOT_ObjectRef>(sup));
  DRAWBOT_ImageRef image = nullptr;
  if (!err && mode != 6)
    err = supplier->NewImageFromBuffer(sup, 4, 2, mode == 7 ? 8 : 16,
                                       mode == 4 ? kDRAWBOT_PixelLayout_32ARGB_Straight
                                                 : kDRAWBOT_PixelLayout_32BGRA_Straight,
                                       kPicture, &image);
  if (!err && image) {
    DRAWBOT_PointF32 origin{static_cast<float>(e->effect_win.param_title_frame.left),
                            static_cast<float>(e->effect_win.param_title_frame.top)};
    float opacity = 1.0f;
    if (mode == 2) {
      origin = DRAWBOT_PointF32{10.4f, 2.6f};
      opacity = 0.5f;
    }
    err = surface->DrawImage(surf, image, &origin, opacity);
  }
  if (image && mode != 3) supplier->ReleaseObject(reinterpret_cast<DRAWBOT_ObjectRef>(image));
  if (cui) release(in, kPFEffectCustomUISuite, 1);
  if (draw) release(in, kDRAWBOT_DrawSuite, 1);
  if (supplier) release(in, kDRAWBOT_SupplierSuite, 1);
  if (surface) release(in, kDRAWBOT_SurfaceSuite, 2);
  if (path && mode != 5) release(in, kDRAWBOT_PathSuite, 1);
  if (!err) e->evt_out_flags = PF_EO_HANDLED_EVENT;
  return err;
}

PF_Err event(PF_InData* in, PF_OutData* out, PF_EventExtra* e) {
  if (e->e_type == PF_Event_DO_CLICK) {
    char text[64];
    std::snprintf(text, sizeof text, "click %u on %d", e->u.do_click.when, e->effect_win.index);
    report(out, text);
    e->evt_out_flags = PF_EO_HANDLED_EVENT;
    return PF_Err_NONE;
  }
  if (e->e_type == PF_Event_DRAW) return drawEvent(in, e);
  return PF_Err_NONE;
}

// ---------------------------------------------------------------- rendering
//
// A small renderer that touches everything a real one does: "Choice" (1..3)
// time frames of its own layer, "Size" frames apart, the "Other" layer as a
// mask, all read with SmartFX callbacks (or checked-out parameters in
// PF_Cmd_RENDER). Each output pixel averages the input with the time frames at
// the same position; the mask's red replaces alpha. "Amount" picks a
// misbehaviour (25, the default, is none).
enum Misbehaviour {
  kWriteRowPadding = 1,
  kWriteInput = 2,
  kUnrequestedId = 3,
  kKeepMaskPixels = 4,
  kDisposePreRenderData = 5,
  kWriteBeforeOutput = 6,
  kLeakHandle = 7,
  kKeepLayerParam = 8,
  kLeavePreRenderLocked = 9,
};

constexpr PF_ParamIndex kChoice = 1, kSize = 3, kAmount = 4, kOther = 8;
constexpr A_long kTimeIdBase = 100;

struct FakeRecord {
  A_long frames;
  A_long misbehaviour;
};

PF_Err readValue(PF_InData* in, PF_ParamIndex index, PF_ParamDef* def) {
  return in->inter.checkout_param(in->effect_ref, index, in->current_time, in->time_step,
                                  in->time_scale, def);
}

A_long timeOffset(PF_InData* in, A_long sizeValue, int i) {
  return in->time_step * (sizeValue >> 16) * i;
}

PF_Err preRender(PF_InData* in, PF_OutData*, PF_PreRenderExtra* extra) {
  PF_ParamDef choice, size, amount;
  if (PF_Err err = readValue(in, kChoice, &choice)) return err;
  if (PF_Err err = readValue(in, kSize, &size)) return err;
  if (PF_Err err = readValue(in, kAmount, &amount)) return err;
  auto* hs = acquire<PF_HandleSuite1>(in, kPFHandleSuite, 2);
  if (!hs) return A_Err_MISSING_SUITE;
  PF_Handle h = hs->host_new_handle(sizeof(FakeRecord));
  if (!h) {
    release(in, kPFHandleSuite, 2);
    return PF_Err_OUT_OF_MEMORY;
  }
  auto* rec = static_cast<FakeRecord*>(hs->host_lock_handle(h));
  rec->frames = choice.u.pd.value;
  rec->misbehaviour = static_cast<A_long>(amount.u.fs_d.value);
  const PF_RenderRequest req = extra->input->output_request;
  PF_CheckoutResult result;
  PF_Err err = extra->cb->checkout_layer(in->effect_ref, 0, 0, &req, in->current_time,
                                         in->time_step, in->time_scale, &result);
  if (!err) {
    extra->output->result_rect = result.result_rect;
    extra->output->max_result_rect = result.max_result_rect;
    PF_CheckoutResult ignored;
    err = extra->cb->checkout_layer(in->effect_ref, kOther, kOther, &req, in->current_time,
                                    in->time_step, in->time_scale, &ignored);
    for (int i = 1; !err && i <= rec->frames; ++i)
      err = extra->cb->checkout_layer(in->effect_ref, 0, kTimeIdBase + i, &req,
                                      in->current_time + timeOffset(in, size.u.fd.value, i),
                                      in->time_step, in->time_scale, &ignored);
  }
  if (rec->misbehaviour != kLeavePreRenderLocked) hs->host_unlock_handle(h);
  extra->output->pre_render_data = h;
  release(in, kPFHandleSuite, 2);
  return err;
}

template <typename T>
T average(T a, T b) {
  return static_cast<T>((static_cast<double>(a) + static_cast<double>(b)) / 2);
}

template <typename T>
void combine(const PF_EffectWorld* input, const PF_EffectWorld* mask,
             const std::vector<const PF_EffectWorld*>& times, PF_EffectWorld* output,
             bool strideFromWidth) {
  auto at = [](const PF_EffectWorld* w, int x, int y) -> const T* {
    if (!w || !w->data || x >= w->width || y >= w->height) return nullptr;
    return reinterpret_cast<const T*>(reinterpret_cast<const char*>(w->data) + y * w->rowbytes) +
           4 * x;
  };
  const A_long stride = strideFromWidth ? output->width * 4 * A_long(sizeof(T)) : output->rowbytes;
  for (int y = 0; y < output->height; ++y) {
    T* row = reinterpret_cast<T*>(reinterpret_cast<char*>(output->data) + y * stride);
    for (int x = 0; x < output->width; ++x) {
      T px[4] = {};
      if (const T* p = at(input, x, y)) std::memcpy(px, p, sizeof px);
      for (const PF_EffectWorld* t : times)
        if (const T* p = at(t, x, y))
          for (int c = 0; c < 4; ++c) px[c] = average(px[c], p[c]);
      if (const T* m = at(mask, x, y)) px[0] = m[1];
      std::memcpy(row + 4 * x, px, sizeof px);
    }
  }
}

PF_Err draw(A_long format, bool premiere, const PF_EffectWorld* input, const PF_EffectWorld* mask,
            const std::vector<const PF_EffectWorld*>& times, PF_EffectWorld* output,
            bool strideFromWidth) {
  if (format == (premiere ? PrPixelFormat_ARGB_4444_8u : PF_PixelFormat_ARGB32))
    combine<uint8_t>(input, mask, times, output, strideFromWidth);
  else if (format == (premiere ? PrPixelFormat_ARGB_4444_16u : PF_PixelFormat_ARGB64))
    combine<uint16_t>(input, mask, times, output, strideFromWidth);
  else if (format == (premiere ? PrPixelFormat_ARGB_4444_32f : PF_PixelFormat_ARGB128))
    combine<float>(input, mask, times, output, strideFromWidth);
  else
    return PF_Err_UNRECOGNIZED_PARAM_TYPE;
  return PF_Err_NONE;
}

PF_Err smartRender(PF_InData* in, PF_OutData*, PF_SmartRenderExtra* extra) {
  auto* hs = acquire<PF_HandleSuite1>(in, kPFHandleSuite, 2);
  auto* ws = acquire<PF_WorldSuite2>(in, kPFWorldSuite, 2);
  if (!hs || !ws) {
    if (hs) release(in, kPFHandleSuite, 2);
    if (ws) release(in, kPFWorldSuite, 2);
    return A_Err_MISSING_SUITE;
  }
  auto handle = static_cast<PF_Handle>(extra->input->pre_render_data);
  const FakeRecord rec = *static_cast<FakeRecord*>(hs->host_lock_handle(handle));
  PF_EffectWorld *input = nullptr, *output = nullptr, *mask = nullptr;
  std::vector<const PF_EffectWorld*> times;
  PF_Err err = extra->cb->checkout_layer_pixels(in->effect_ref, 0, &input);
  if (!err) err = extra->cb->checkout_output(in->effect_ref, &output);
  if (!err) err = extra->cb->checkout_layer_pixels(in->effect_ref, kOther, &mask);
  for (int i = 1; !err && i <= rec.frames; ++i) {
    PF_EffectWorld* t = nullptr;
    err = extra->cb->checkout_layer_pixels(in->effect_ref, kTimeIdBase + i, &t);
    times.push_back(t);
  }
  if (!err && rec.misbehaviour == kUnrequestedId) {
    PF_EffectWorld* w = nullptr;
    err = extra->cb->checkout_layer_pixels(in->effect_ref, 555, &w);
  }
  PF_PixelFormat format = PF_PixelFormat_INVALID;
  if (!err) err = ws->PF_GetPixelFormat(output, &format);
  if (!err) err = draw(format, false, input, mask, times, output, false);
  if (!err) {
    char* out0 = reinterpret_cast<char*>(output->data);
    if (rec.misbehaviour == kWriteRowPadding) out0[output->width * (format == PF_PixelFormat_ARGB32 ? 4 : format == PF_PixelFormat_ARGB64 ? 8 : 16)] ^= 1;
    if (rec.misbehaviour == kWriteBeforeOutput) out0[-1] ^= 1;
    if (rec.misbehaviour == kWriteInput) reinterpret_cast<char*>(input->data)[0] ^= 1;
    if (rec.misbehaviour == kLeakHandle) hs->host_new_handle(8);
    if (rec.misbehaviour == kDisposePreRenderData) hs->host_dispose_handle(handle);
  }
  for (int i = 1; i <= rec.frames; ++i) extra->cb->checkin_layer_pixels(in->effect_ref, kTimeIdBase + i);
  if (rec.misbehaviour != kKeepMaskPixels) extra->cb->checkin_layer_pixels(in->effect_ref, kOther);
  extra->cb->checkin_layer_pixels(in->effect_ref, 0);
  if (rec.misbehaviour != kDisposePreRenderData) hs->host_unlock_handle(handle);
  release(in, kPFWorldSuite, 2);
  release(in, kPFHandleSuite, 2);
  return err;
}

PF_Err legacyRender(PF_InData* in, PF_ParamDef* params[], PF_LayerDef* output) {
  const A_long frames = params[kChoice]->u.pd.value;
  const A_long misbehaviour = static_cast<A_long>(params[kAmount]->u.fs_d.value);
  PF_ParamDef mask, own;
  std::vector<PF_ParamDef> timeDefs(static_cast<size_t>(frames));
  PF_Err err = readValue(in, kOther, &mask);
  if (err) return err;
  std::vector<const PF_EffectWorld*> times;
  for (int i = 1; !err && i <= frames; ++i) {
    err = in->inter.checkout_param(in->effect_ref, 0,
                                   in->current_time + timeOffset(in, params[kSize]->u.fd.value, i),
                                   in->time_step, in->time_scale, &timeDefs[i - 1]);
    if (!err) times.push_back(&timeDefs[i - 1].u.ld);
  }
  // The own layer at the current time, left checked out as Premiere Pro allows.
  if (!err) err = readValue(in, 0, &own);
  auto* pf = acquire<PF_PixelFormatSuite1>(in, kPFPixelFormatSuite, 1);
  PrPixelFormat format = PrPixelFormat_Invalid;
  if (!err && pf) err = pf->GetPixelFormat(output, &format);
  if (!err)
    err = draw(format, true, &params[0]->u.ld, &mask.u.ld, times, output,
               misbehaviour == kWriteRowPadding);
  if (pf) release(in, kPFPixelFormatSuite, 1);
  for (size_t i = 0; i < times.size(); ++i) in->inter.checkin_param(in->effect_ref, &timeDefs[i]);
  if (misbehaviour != kKeepLayerParam) in->inter.checkin_param(in->effect_ref, &mask);
  return err;
}

PF_Err scenario(const std::string& s, PF_InData* in, PF_OutData* out, PF_ParamDef* params[]) {
  PF_UtilCallbacks* u = in->utils;
  const PF_ProgPtr ref = in->effect_ref;
  char text[256];
  if (s == "leak_handle") {
    u->host_new_handle(24);
  } else if (s == "keep_suite") {
    acquire<PF_HandleSuite1>(in, kPFHandleSuite, 2);
  } else if (s == "lock_sequence") {
    u->host_lock_handle(in->sequence_data);
  } else if (s == "lock_sequence_pointer") {
    void* p = u->host_lock_handle(in->sequence_data);
    report(out, p ? "pointer" : "null");
    if (p) u->host_unlock_handle(in->sequence_data);
  } else if (s == "unknown_suite") {
    report(out, acquire<void>(in, "No Such Suite", 1) ? "granted" : "refused");
  } else if (s == "premiere_suites") {
    const bool formats = acquire<void>(in, kPFPixelFormatSuite, 1) != nullptr;
    const bool utility = acquire<void>(in, kPFUtilitySuite, 4) != nullptr;
    if (formats) release(in, kPFPixelFormatSuite, 1);
    if (utility) release(in, kPFUtilitySuite, 4);
    report(out, std::string(formats ? "formats granted" : "formats refused") +
                    (utility ? ", utility granted" : ", utility refused"));
  } else if (s == "all_suites") {
    const std::pair<const char*, int> suites[] = {
        {kPFHandleSuite, 2},         {kPFWorldSuite, 2},           {kPFEffectCustomUISuite, 1},
        {kDRAWBOT_DrawSuite, 1},     {kDRAWBOT_SupplierSuite, 1},  {kDRAWBOT_SurfaceSuite, 2},
        {kDRAWBOT_PathSuite, 1},     {kPFParamUtilsSuite, 3}};
    std::string granted;
    for (const auto& [name, version] : suites) {
      if (acquire<void>(in, name, version)) {
        granted += "+";
        release(in, name, version);
      } else {
        granted += "-";
      }
    }
    report(out, granted);
  } else if (s == "checkout_keep") {
    PF_ParamDef d;
    in->inter.checkout_param(ref, 2, in->current_time, in->time_step, in->time_scale, &d);
  } else if (s == "checkout_checkin") {
    PF_ParamDef d;
    std::memset(&d, 0, sizeof d);
    PF_Err err = in->inter.checkout_param(ref, 3, 100, 10, 1000, &d);
    std::snprintf(text, sizeof text, "%d %s %d", err, d.name, d.u.fd.value >> 16);
    report(out, text);
    in->inter.checkin_param(ref, &d);
  } else if (s == "checkout_bad_index") {
    PF_ParamDef d;
    std::snprintf(text, sizeof text, "%d", in->inter.checkout_param(ref, 99, 0, 1, 1, &d));
    report(out, text);
  } else if (s == "checkin_unknown") {
    PF_ParamDef d;
    std::memset(&d, 0, sizeof d);
    in->inter.checkin_param(ref, &d);
  } else if (s == "sprintf") {
    u->ansi.sprintf(out->return_msg, "%s=%d", "answer", 42);
  } else if (s == "sprintf_local") {
    char local[64];
    const int n = u->ansi.sprintf(local, "%05.1f|%x", 3.14159, 255);
    std::snprintf(text, sizeof text, "%d:%s", n, local);
    report(out, text);
  } else if (s == "sprintf_long") {
    const std::string t(300, 'x');
    u->ansi.sprintf(out->return_msg, "%s", t.c_str());
  } else if (s == "strcpy") {
    u->ansi.strcpy(out->return_msg, "copied text");
  } else if (s == "double_dispose") {
    PF_Handle h = u->host_new_handle(8);
    u->host_dispose_handle(h);
    u->host_dispose_handle(h);
  } else if (s == "unlock_unlocked") {
    PF_Handle h = u->host_new_handle(8);
    u->host_unlock_handle(h);
    u->host_dispose_handle(h);
  } else if (s == "resize") {
    PF_Handle h = u->host_new_handle(4);
    std::memcpy(u->host_lock_handle(h), "abcd", 4);
    u->host_unlock_handle(h);
    PF_Handle before = h;
    const PF_Err err = u->host_resize_handle(8, &h);
    const auto* p = static_cast<const unsigned char*>(u->host_lock_handle(h));
    std::snprintf(text, sizeof text, "%d %s %llu %.4s %02x%02x%02x%02x", err,
                  h == before ? "same" : "moved",
                  static_cast<unsigned long long>(u->host_get_handle_size(h)),
                  reinterpret_cast<const char*>(p), p[4], p[5], p[6], p[7]);
    u->host_unlock_handle(h);
    u->host_dispose_handle(h);
    report(out, text);
  } else if (s == "resize_locked") {
    PF_Handle h = u->host_new_handle(4);
    u->host_lock_handle(h);
    const PF_Err err = u->host_resize_handle(8, &h);
    u->host_unlock_handle(h);
    u->host_dispose_handle(h);
    std::snprintf(text, sizeof text, "%d", err);
    report(out, text);
  } else if (s == "new_handles") {
    PF_Handle a = u->host_new_handle(8);
    PF_Handle b = u->host_new_handle(8);
    report(out, std::string(a ? "a" : "-") + (b ? "b" : "-"));
    if (a) u->host_dispose_handle(a);
    if (b) u->host_dispose_handle(b);
  } else if (s == "throw") {
    acquire<PF_HandleSuite1>(in, kPFHandleSuite, 2);
    throw std::logic_error("fake failure");
  } else if (s == "release_unheld") {
    release(in, kPFHandleSuite, 2);
  } else if (s == "release_unknown") {
    release(in, "No Such Suite", 1);
  } else if (s == "bad_effect_ref") {
    PF_ParamDef d;
    in->inter.checkout_param(reinterpret_cast<PF_ProgPtr>(&d), 0, 0, 1, 1, &d);
  } else if (s == "alloc_block") {
    void* b = nullptr;
    in->pica_basicP->AllocateBlock(64, &b);
  } else if (s == "alloc_free_block") {
    void* b = nullptr;
    in->pica_basicP->AllocateBlock(64, &b);
    void* bigger = nullptr;
    in->pica_basicP->ReallocateBlock(b, 128, &bigger);
    in->pica_basicP->FreeBlock(bigger);
  } else if (s == "world_format") {
    auto* ws = acquire<PF_WorldSuite2>(in, kPFWorldSuite, 2);
    PF_PixelFormat f = 0;
    const PF_Err err = ws->PF_GetPixelFormat(&params[0]->u.ld, &f);
    PF_EffectWorld unknown;
    std::memset(&unknown, 0, sizeof unknown);
    const PF_Err err2 = ws->PF_GetPixelFormat(&unknown, &f);
    release(in, kPFWorldSuite, 2);
    std::snprintf(text, sizeof text, "%d 0x%08X %d", err, static_cast<unsigned>(f), err2);
    report(out, text);
  } else if (s == "pr_world_format") {
    auto* pf = acquire<PF_PixelFormatSuite1>(in, kPFPixelFormatSuite, 1);
    PrPixelFormat f = 0;
    const PF_Err err = pf->GetPixelFormat(&params[0]->u.ld, &f);
    release(in, kPFPixelFormatSuite, 1);
    std::snprintf(text, sizeof text, "%d 0x%08X", err, static_cast<unsigned>(f));
    report(out, text);
  } else if (s == "new_world") {
    auto* ws = acquire<PF_WorldSuite2>(in, kPFWorldSuite, 2);
    PF_EffectWorld w;
    std::memset(&w, 0, sizeof w);
    PF_Err err = ws->PF_NewWorld(ref, 4, 3, 1, PF_PixelFormat_ARGB64, &w);
    PF_PixelFormat f = 0;
    if (!err) err = ws->PF_GetPixelFormat(&w, &f);
    const uint8_t first = w.data ? reinterpret_cast<const uint8_t*>(w.data)[0] : 0xEE;
    std::snprintf(text, sizeof text, "%d %dx%d rb%d 0x%08X %u", err, w.width, w.height, w.rowbytes,
                  static_cast<unsigned>(f), first);
    if (w.data) ws->PF_DisposeWorld(ref, &w);
    release(in, kPFWorldSuite, 2);
    report(out, text);
  } else if (s == "leak_world") {
    static PF_EffectWorld kept;
    auto* ws = acquire<PF_WorldSuite2>(in, kPFWorldSuite, 2);
    ws->PF_NewWorld(ref, 2, 2, 0, PF_PixelFormat_ARGB32, &kept);
    release(in, kPFWorldSuite, 2);
  } else if (s == "param_utils") {
    auto* pu = acquire<PF_ParamUtilsSuite3>(in, kPFParamUtilsSuite, 3);
    PF_KeyIndex count = -7;
    const PF_Err e1 = pu->PF_GetKeyframeCount(ref, 1, &count);
    PF_State a, b;
    pu->PF_GetCurrentState(ref, 1, nullptr, nullptr, &a);
    pu->PF_GetCurrentState(ref, 1, nullptr, nullptr, &b);
    A_Boolean same = 0;
    pu->PF_AreStatesIdentical(ref, &a, &b, &same);
    PF_State c;
    pu->PF_GetCurrentState(ref, 3, nullptr, nullptr, &c);
    A_Boolean other = 1;
    pu->PF_AreStatesIdentical(ref, &a, &c, &other);
    const PF_Err e2 = pu->PF_UpdateParamUI(ref, 99, params[1]);
    release(in, kPFParamUtilsSuite, 3);
    std::snprintf(text, sizeof text, "%d count=%d same=%d other=%d bad=%d", e1, count, same, other, e2);
    report(out, text);
  } else if (s == "add_param_late") {
    PF_ParamDef d;
    std::memset(&d, 0, sizeof d);
    d.param_type = PF_Param_CHECKBOX;
    std::snprintf(text, sizeof text, "%d", in->inter.add_param(ref, -1, &d));
    report(out, text);
  } else if (s == "math") {
    const double root = u->ansi.sqrt(16.0);
    const double power = u->ansi.pow(2.0, 10.0);
    std::snprintf(text, sizeof text, "%g %g", root, power);
    report(out, text);
  } else if (s == "unsupported") {
    std::snprintf(text, sizeof text, "%d", u->fill(ref, nullptr, nullptr, nullptr));
    report(out, text);
  } else if (s == "drawing_ref_outside_event") {
    auto* cui = acquire<PF_EffectCustomUISuite1>(in, kPFEffectCustomUISuite, 1);
    DRAWBOT_DrawRef r = nullptr;
    PF_ContextH fake = nullptr;
    const PF_Err err = cui->PF_GetDrawingReference(fake, &r);
    release(in, kPFEffectCustomUISuite, 1);
    std::snprintf(text, sizeof text, "%d", err);
    report(out, text);
  } else {
    report(out, "unknown scenario " + s);
    return PF_Err_BAD_CALLBACK_PARAM;
  }
  return PF_Err_NONE;
}

}  // namespace

FAKE_EXPORT A_Err PluginDataEntryFunction(PF_PluginDataPtr inPtr, PF_PluginDataCB cb,
                                          SPBasicSuite*, const char*, const char*) {
  return cb(inPtr, reinterpret_cast<const A_u_char*>("Fake"),
            reinterpret_cast<const A_u_char*>("fake.match"),
            reinterpret_cast<const A_u_char*>("Testing"),
            reinterpret_cast<const A_u_char*>("EffectMain"), PF_Kind_EFFECT, 13, 28, 8);
}

FAKE_EXPORT PF_Err EffectMain(PF_Cmd cmd, PF_InData* in, PF_OutData* out, PF_ParamDef* params[],
                              PF_LayerDef* output, void* extra) {
  switch (cmd) {
    case PF_Cmd_ABOUT:
      in->utils->ansi.sprintf(out->return_msg, "%s %d.%d", "Fake", 2, 3);
      out->out_flags |= PF_OutFlag_DISPLAY_ERROR_MESSAGE;
      return PF_Err_NONE;
    case PF_Cmd_GLOBAL_SETUP:
      return globalSetup(in, out);
    case PF_Cmd_PARAMS_SETUP:
      return paramsSetup(in, out);
    case PF_Cmd_SEQUENCE_SETUP:
      return sequenceSetup(in, out);
    case PF_Cmd_SEQUENCE_FLATTEN:
      return flatten(in, out, true);
    case PF_Cmd_GET_FLATTENED_SEQUENCE_DATA:
      return flatten(in, out, false);
    case PF_Cmd_SEQUENCE_SETDOWN:
      return sequenceSetdown(in, out);
    case PF_Cmd_UPDATE_PARAMS_UI:
      return updateParamsUI(in, params);
    case PF_Cmd_USER_CHANGED_PARAM:
      if (static_cast<PF_UserChangedParamExtra*>(extra)->param_index == 7) {
        params[3]->u.fd.value = 50 << 16;
        params[3]->uu.change_flags = PF_ChangeFlag_CHANGED_VALUE;
      }
      return PF_Err_NONE;
    case PF_Cmd_EVENT:
      return event(in, out, static_cast<PF_EventExtra*>(extra));
    case PF_Cmd_SMART_PRE_RENDER:
      return preRender(in, out, static_cast<PF_PreRenderExtra*>(extra));
    case PF_Cmd_SMART_RENDER:
      return smartRender(in, out, static_cast<PF_SmartRenderExtra*>(extra));
    case PF_Cmd_RENDER:
      return legacyRender(in, params, output);
    case PF_Cmd_COMPLETELY_GENERAL:
      return scenario(static_cast<const char*>(extra), in, out, params);
    default:
      return PF_Err_NONE;
  }
}
