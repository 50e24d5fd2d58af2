#include "host/render_pipeline.h"

#include <cstring>

#include "host/suites.h"
#include "params/param_loading.h"
#include "params/param_values.h"
#include "render/render.h"

namespace {

// Only the horizontal factor reaches the renderer; the denominator is unsigned.
float downsampleFactor(const PF_InData* in_data) {
  const float num = static_cast<float>(in_data->downsample_x.num);
  const float den = static_cast<float>(static_cast<A_u_long>(in_data->downsample_x.den));
  return num / den;
}

// Gives back the layers a legacy load had checked out before it failed: the
// load sets each world pointer only once its checkout succeeded.
void returnLegacyCheckouts(PF_InData* in_data, ParamValues* pv) {
  if (pv->maskLayer) in_data->inter.checkin_param(in_data->effect_ref, &pv->maskParam);
  for (int k = 0; k < MAX_TIME_FRAMES; ++k) {
    if (pv->timeLayers[k]) in_data->inter.checkin_param(in_data->effect_ref, &pv->timeLayerParams[k]);
  }
}

}  // namespace

PF_Err PreRender(PF_InData* in_data, PF_OutData* out_data, PF_PreRenderExtra* extra) {
  AEFX_SuiteScoper<PF_HandleSuite1> handles(in_data, kPFHandleSuite, kPFHandleSuiteVersion1,
                                            out_data);
  PF_Handle h = handles->host_new_handle(sizeof(ParamValues));
  if (!h) return PF_Err_OUT_OF_MEMORY;
  ParamValues* record = static_cast<ParamValues*>(handles->host_lock_handle(h));
  if (!record) {
    handles->host_dispose_handle(h);
    return PF_Err_OUT_OF_MEMORY;
  }
  try {
    LoadParamValues(in_data, nullptr, extra, record);
  } catch (...) {
    // Not yet the host's: a failed load must not leave the record behind.
    handles->host_unlock_handle(h);
    handles->host_dispose_handle(h);
    throw;
  }
  extra->output->pre_render_data = h;

  PF_RenderRequest request = extra->input->output_request;
  PF_CheckoutResult result;
  std::memset(&result, 0, sizeof result);
  const PF_Err err = extra->cb->checkout_layer(in_data->effect_ref, 0, 0, &request,
                                               in_data->current_time, in_data->time_step,
                                               in_data->time_scale, &result);
  UnionLRect(&result.result_rect, &extra->output->result_rect);
  UnionLRect(&result.max_result_rect, &extra->output->max_result_rect);
  handles->host_unlock_handle(h);
  return err;
}

PF_Err SmartRender(PF_InData* in_data, PF_OutData* out_data, PF_ParamDef* params[],
                   PF_SmartRenderExtra* extra) {
  AEFX_SuiteScoper<PF_HandleSuite1> handles(in_data, kPFHandleSuite, kPFHandleSuiteVersion1,
                                            out_data);
  PF_Handle h = static_cast<PF_Handle>(extra->input->pre_render_data);
  ParamValues* record = h ? static_cast<ParamValues*>(handles->host_lock_handle(h)) : nullptr;
  if (!record) return PF_Err_INTERNAL_STRUCT_DAMAGED;

  PF_EffectWorld* input = nullptr;
  PF_EffectWorld* output = nullptr;
  PF_Err err = extra->cb->checkout_layer_pixels(in_data->effect_ref, 0, &input);
  if (!err) err = extra->cb->checkout_output(in_data->effect_ref, &output);
  if (!input || !output) {
    // Nothing to draw: give back what was lent and leave.
    if (input) extra->cb->checkin_layer_pixels(in_data->effect_ref, 0);
    handles->host_unlock_handle(h);
    return err;
  }

  bool layersLoaded = false;
  try {
    LoadLayerParamsAE(in_data, extra, record);
    layersLoaded = true;
    AEFX_SuiteScoper<PF_WorldSuite2> worlds(in_data, kPFWorldSuite, kPFWorldSuiteVersion2,
                                            out_data);
    PF_PixelFormat format = PF_PixelFormat_INVALID;
    if (!err) err = worlds->PF_GetPixelFormat(output, &format);
    const float downsample = downsampleFactor(in_data);
    if (format == PF_PixelFormat_ARGB128) {
      renderARGB32(input, output, *record, downsample);
    } else if (format == PF_PixelFormat_ARGB64) {
      renderARGB16(input, output, *record, downsample);
    } else if (format == PF_PixelFormat_ARGB32) {
      renderARGB8(input, output, *record, downsample);
    } else {
      err = PF_Err_UNRECOGNIZED_PARAM_TYPE;
    }
    CleanupLayerParams(in_data, params, extra, record);
    const PF_Err checkin = extra->cb->checkin_layer_pixels(in_data->effect_ref, 0);
    if (!err) err = checkin;
  } catch (...) {
    if (layersLoaded) CleanupLayerParams(in_data, params, extra, record);
    extra->cb->checkin_layer_pixels(in_data->effect_ref, 0);
    handles->host_unlock_handle(h);
    throw;
  }
  handles->host_unlock_handle(h);
  return err;
}

PF_Err LegacyRender(PF_InData* in_data, PF_OutData* out_data, PF_ParamDef* params[],
                    PF_LayerDef* output) {
  if (in_data->appl_id != PF_APPL_ID_PREMIERE) return PF_Err_NONE;
  ParamValues record;
  try {
    LoadParamValues(in_data, params, nullptr, &record);
    AEFX_SuiteScoper<PF_PixelFormatSuite1> pixelFormats(in_data, kPFPixelFormatSuite,
                                                        kPFPixelFormatSuiteVersion1, out_data);
    // The layer itself is the host's render input; Premiere Pro does not ask
    // for it back.
    PF_ParamDef def;
    std::memset(&def, 0, sizeof def);
    PF_Err err = in_data->inter.checkout_param(in_data->effect_ref, 0, in_data->current_time,
                                               in_data->time_step, in_data->time_scale, &def);
    PrPixelFormat format = PrPixelFormat_ARGB_4444_8u;
    pixelFormats->GetPixelFormat(output, &format);  // a failed query keeps the 8-bit default
    const float downsample = downsampleFactor(in_data);
    if (format == PrPixelFormat_ARGB_4444_32f) {
      renderARGB32(&def.u.ld, output, record, downsample);
    } else if (format == PrPixelFormat_ARGB_4444_16u) {
      renderARGB16(&def.u.ld, output, record, downsample);
    } else if (format == PrPixelFormat_ARGB_4444_8u) {
      renderARGB8(&def.u.ld, output, record, downsample);
    } else {
      err = PF_Err_UNRECOGNIZED_PARAM_TYPE;
    }
    CleanupLayerParams(in_data, params, nullptr, &record);
    return err;
  } catch (...) {
    returnLegacyCheckouts(in_data, &record);
    throw;
  }
}
