#include "entry/entry.h"

#include <cstring>

#include "entry/effect_info.h"
#include "host/header_draw.h"
#include "host/render_pipeline.h"
#include "host/suites.h"
#include "params/control_behaviour.h"
#include "params/param_table.h"

A_Err PluginDataEntryFunction(PF_PluginDataPtr inPtr, PF_PluginDataCB inPluginDataCallBackPtr,
                              SPBasicSuite*, const char*, const char*) {
  return inPluginDataCallBackPtr(
      inPtr, reinterpret_cast<const A_u_char*>(EFFECT_NAME),
      reinterpret_cast<const A_u_char*>(EFFECT_MATCH_NAME),
      reinterpret_cast<const A_u_char*>(EFFECT_CATEGORY),
      reinterpret_cast<const A_u_char*>(EFFECT_ENTRY_POINT), PF_Kind_EFFECT, PF_AE_PLUG_IN_VERSION,
      PF_AE_PLUG_IN_SUBVERS, EFFECT_RESERVED_INFO);
}

void initRender(PF_InData*, PF_OutData*) {}
void cleanUpRender(PF_InData*, PF_OutData*) {}

PF_Err GlobalSetup(PF_InData* in_data, PF_OutData* out_data, PF_ParamDef*[], PF_LayerDef*,
                   PF_OutFlags out_flags, PF_OutFlags2 out_flags2) {
  out_data->my_version = PF_VERSION(EFFECT_MAJOR_VERSION, EFFECT_MINOR_VERSION,
                                    EFFECT_BUG_VERSION, EFFECT_STAGE_VERSION, EFFECT_BUILD_VERSION);
  out_data->out_flags = out_flags;
  out_data->out_flags2 = out_flags2;

  if (in_data->appl_id == PF_APPL_ID_PREMIERE) {
    // Premiere Pro renders in the formats announced here; these three keep the
    // A, R, G, B channel order the kernels share with After Effects.
    AEFX_SuiteScoper<PF_PixelFormatSuite1> pixelFormats(in_data, kPFPixelFormatSuite,
                                                        kPFPixelFormatSuiteVersion1, out_data);
    pixelFormats->ClearSupportedPixelFormats(in_data->effect_ref);
    pixelFormats->AddSupportedPixelFormat(in_data->effect_ref, PrPixelFormat_ARGB_4444_8u);
    pixelFormats->AddSupportedPixelFormat(in_data->effect_ref, PrPixelFormat_ARGB_4444_16u);
    pixelFormats->AddSupportedPixelFormat(in_data->effect_ref, PrPixelFormat_ARGB_4444_32f);
    {
      // Time-shifted frames must arrive in the render's own format.
      AEFX_SuiteScoper<PF_UtilitySuite4> utility(in_data, kPFUtilitySuite,
                                                 kPFUtilitySuiteVersion4, out_data);
      utility->EffectWantsCheckedOutFramesToMatchRenderPixelFormat(in_data->effect_ref);
    }
  }
  initRender(in_data, out_data);
  return PF_Err_NONE;
}

PF_Err About(PF_InData* in_data, PF_OutData* out_data) {
  in_data->utils->ansi.sprintf(out_data->return_msg,
                               "%s v%d.%d.%d\r"
                               "Cuts each frame into blocks and swaps random pairs of them.\r"
                               "%s",
                               EFFECT_NAME, EFFECT_MAJOR_VERSION, EFFECT_MINOR_VERSION,
                               EFFECT_BUG_VERSION, EFFECT_CATEGORY);
  return PF_Err_NONE;
}

namespace {

// The `when` of the last single click on the header; all ones means none pending.
A_u_long gLastHeaderClick = 0xFFFFFFFFu;

PF_Err noSequenceBlock(PF_InData* in_data, PF_OutData* out_data) {
  in_data->utils->ansi.strcpy(out_data->return_msg, "Internal Error");
  out_data->out_flags |= PF_OutFlag_DISPLAY_ERROR_MESSAGE;
  return PF_Err_INTERNAL_STRUCT_DAMAGED;
}

PF_Err newSequenceBlock(PF_InData* in_data, PF_OutData* out_data) {
  PF_Handle h = in_data->utils->host_new_handle(SEQUENCE_BLOCK_SIZE);
  if (!h) return noSequenceBlock(in_data, out_data);
  void* block = in_data->utils->host_lock_handle(h);
  if (!block) {
    // A block that cannot be cleared is as good as none.
    in_data->utils->host_dispose_handle(h);
    return noSequenceBlock(in_data, out_data);
  }
  std::memset(block, 0, SEQUENCE_BLOCK_SIZE);
  in_data->utils->host_unlock_handle(h);
  out_data->sequence_data = h;
  out_data->flat_sdata_size = SEQUENCE_BLOCK_SIZE;
  return PF_Err_NONE;
}

// Copies the instance's block into a new handle for the host to save.
// `replace` disposes the old block and hands the copy over as the new one.
PF_Err copySequenceBlock(PF_InData* in_data, PF_OutData* out_data, bool replace) {
  if (!in_data->sequence_data) return PF_Err_INTERNAL_STRUCT_DAMAGED;
  if (!*in_data->sequence_data) return PF_Err_NONE;
  AEGP_SuiteHandler suites(in_data->pica_basicP);
  const PF_HandleSuite1* handles = suites.HandleSuite1();
  PF_Handle flat = handles->host_new_handle(SEQUENCE_BLOCK_SIZE);
  if (!flat) return PF_Err_INTERNAL_STRUCT_DAMAGED;
  void* dst = handles->host_lock_handle(flat);
  if (!dst) {
    // Nothing to hand over; the block stays as it is and the copy must not leak.
    handles->host_dispose_handle(flat);
    return PF_Err_NONE;
  }
  // A block kept from another version may be shorter: copy what it holds.
  A_u_longlong held = handles->host_get_handle_size(in_data->sequence_data);
  if (held > SEQUENCE_BLOCK_SIZE) held = SEQUENCE_BLOCK_SIZE;
  std::memcpy(dst, *in_data->sequence_data, static_cast<size_t>(held));
  std::memset(static_cast<char*>(dst) + held, 0, static_cast<size_t>(SEQUENCE_BLOCK_SIZE - held));
  if (replace) handles->host_dispose_handle(in_data->sequence_data);
  out_data->sequence_data = flat;
  handles->host_unlock_handle(flat);
  return PF_Err_NONE;
}

}  // namespace

PF_Err SequenceSetup(PF_InData* in_data, PF_OutData* out_data) {
  if (in_data->sequence_data) {
    if (in_data->utils->host_get_handle_size(in_data->sequence_data) != SEQUENCE_BLOCK_SIZE) {
      // Kept as it is: only the size is restored, the bytes are left alone.
      in_data->utils->host_resize_handle(SEQUENCE_BLOCK_SIZE, &in_data->sequence_data);
    }
    return PF_Err_NONE;
  }
  return newSequenceBlock(in_data, out_data);
}

PF_Err SequenceResetup(PF_InData* in_data, PF_OutData* out_data) {
  if (in_data->sequence_data) return PF_Err_NONE;
  return newSequenceBlock(in_data, out_data);
}

PF_Err SequenceSetdown(PF_InData* in_data, PF_OutData* out_data) {
  if (!in_data->sequence_data) return PF_Err_NONE;
  if (in_data->utils->host_get_handle_size(in_data->sequence_data) != SEQUENCE_BLOCK_SIZE) {
    in_data->utils->host_resize_handle(SEQUENCE_BLOCK_SIZE, &in_data->sequence_data);
  }
  in_data->utils->host_dispose_handle(in_data->sequence_data);
  out_data->sequence_data = nullptr;
  in_data->sequence_data = nullptr;
  return PF_Err_NONE;
}

PF_Err SequenceFlatten(PF_InData* in_data, PF_OutData* out_data) {
  return copySequenceBlock(in_data, out_data, true);
}

PF_Err GetFlattenedSequenceData(PF_InData* in_data, PF_OutData* out_data) {
  return copySequenceBlock(in_data, out_data, false);
}

PF_Err HandleEvent(PF_InData* in_data, PF_OutData* out_data, PF_EventExtra* event) {
  if (!hostApiAtLeast13_9(in_data)) return PF_Err_NONE;
  const int headerIndex = getParamIndexFromId(ID_HEADER_IMAGE);
  if (event->effect_win.index != headerIndex) return PF_Err_NONE;

  if (event->e_type == PF_Event_DO_CLICK) {
    // Unsigned on purpose: from the all-ones start, an early first click counts as a double.
    const A_u_long sinceLast = event->u.do_click.when - gLastHeaderClick;
    if (sinceLast <= 31) {
      gLastHeaderClick = 0xFFFFFFFFu;
      About(in_data, out_data);
      out_data->out_flags |= PF_OutFlag_DISPLAY_ERROR_MESSAGE;  // an event shows it only when asked
    } else {
      gLastHeaderClick = event->u.do_click.when;
    }
    return PF_Err_NONE;
  }
  if (event->e_type == PF_Event_DRAW) {
    const bool v13_23 = hostIsApi13_23(in_data);
    const PF_EffectArea area = event->effect_win.area;
    if ((area == PF_EA_PARAM_TITLE && !v13_23) || (area == PF_EA_CONTROL && v13_23)) {
      return DrawHeaderImage(in_data, out_data, event, HeaderImagePixels());
    }
  }
  return PF_Err_NONE;
}

PF_Err EffectMain(PF_Cmd cmd, PF_InData* in_data, PF_OutData* out_data, PF_ParamDef* params[],
                  PF_LayerDef* output, void* extra) {
  try {
    switch (cmd) {
      case PF_Cmd_ABOUT:
        return About(in_data, out_data);
      case PF_Cmd_GLOBAL_SETUP:
        GlobalSetup(in_data, out_data, params, output, EFFECT_OUT_FLAGS, EFFECT_OUT_FLAGS2);
        PrepareHeaderImage();
        return PF_Err_NONE;
      case PF_Cmd_PARAMS_SETUP:
        return UIInitParams(in_data, out_data, params);
      case PF_Cmd_SEQUENCE_SETUP:
        return SequenceSetup(in_data, out_data);
      case PF_Cmd_SEQUENCE_RESETUP:
        return SequenceResetup(in_data, out_data);
      case PF_Cmd_SEQUENCE_FLATTEN:
        return SequenceFlatten(in_data, out_data);
      case PF_Cmd_SEQUENCE_SETDOWN:
        return SequenceSetdown(in_data, out_data);
      case PF_Cmd_RENDER:
        return LegacyRender(in_data, out_data, params, output);
      case PF_Cmd_USER_CHANGED_PARAM:
        return UIOnUserChangedParam(in_data, out_data, params,
                                    static_cast<const PF_UserChangedParamExtra*>(extra));
      case PF_Cmd_UPDATE_PARAMS_UI:
        return UIOnParamsUpdated(in_data, out_data, params);
      case PF_Cmd_EVENT:
        return HandleEvent(in_data, out_data, static_cast<PF_EventExtra*>(extra));
      case PF_Cmd_SMART_PRE_RENDER:
        return PreRender(in_data, out_data, static_cast<PF_PreRenderExtra*>(extra));
      case PF_Cmd_SMART_RENDER:
        return SmartRender(in_data, out_data, params, static_cast<PF_SmartRenderExtra*>(extra));
      case PF_Cmd_GET_FLATTENED_SEQUENCE_DATA:
        return GetFlattenedSequenceData(in_data, out_data);
      default:
        // PF_Cmd_GLOBAL_SETDOWN, dialogs, frame setup, audio, reserved and anything newer.
        return PF_Err_NONE;
    }
  } catch (A_long thrown) {
    return thrown;
  }
}
