// Host records: worlds, parameters, command data, SmartFX and event records.
#pragma once

#include "aesdk/ae_types.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct PF_LayerDef {
  void* reserved0;
  void* reserved1;
  PF_WorldFlags world_flags;
  PF_PixelPtr data;
  A_long rowbytes;
  A_long width;
  A_long height;
  PF_UnionableRect extent_hint;
  void* platform_ref;
  A_long reserved_long1;
  void* reserved_long4;
  PF_RationalScale pix_aspect_ratio;
  void* reserved_long2;
  A_long origin_x;
  A_long origin_y;
  A_long reserved_long3;
  A_long dephault;
} PF_LayerDef;
typedef PF_LayerDef PF_EffectWorld;

typedef struct PF_SoundFormatInfo {
  PF_FpLong rateF;
  PF_SoundChannels num_channels;
  PF_SoundFormat format;
  PF_SoundSampleSize sample_size;
} PF_SoundFormatInfo;

typedef struct PF_SoundWorld {
  PF_SoundFormatInfo fi;
  A_long num_samples;
  void* dataP;
} PF_SoundWorld;

// Parameter value records (members of PF_ParamDefUnion).
typedef struct PF_SliderDef {
  PF_ParamValue value;
  A_char value_str[PF_MAX_PARAM_VALUE_LEN + 1];
  A_char value_desc[PF_MAX_PARAM_DESCRIPTION_LEN + 1];
  PF_ParamValue valid_min, valid_max;
  PF_ParamValue slider_min, slider_max;
  PF_ParamValue dephault;
} PF_SliderDef;

typedef struct PF_FixedSliderDef {
  PF_Fixed value;
  A_char value_str[PF_MAX_PARAM_VALUE_LEN + 1];
  A_char value_desc[PF_MAX_PARAM_DESCRIPTION_LEN + 1];
  PF_Fixed valid_min, valid_max;
  PF_Fixed slider_min, slider_max;
  PF_Fixed dephault;
  A_short precision;
  PF_ValueDisplayFlags display_flags;
} PF_FixedSliderDef;

typedef struct PF_FloatSliderDef {
  PF_FpLong value;
  PF_FpLong phase;
  A_char value_desc[PF_MAX_PARAM_DESCRIPTION_LEN + 1];
  PF_FpShort valid_min, valid_max;
  PF_FpShort slider_min, slider_max;
  PF_FpShort dephault;
  A_short precision;
  PF_ValueDisplayFlags display_flags;
  PF_FSliderFlags fs_flags;
  PF_FpShort curve_tolerance;
  PF_Boolean useExponent;
  PF_FpShort exponent;
} PF_FloatSliderDef;

typedef struct PF_AngleDef {
  PF_Fixed value;
  PF_Fixed dephault;
  PF_Fixed valid_min, valid_max;
} PF_AngleDef;

typedef struct PF_CheckBoxDef {
  PF_ParamValue value;
  PF_Boolean dephault;
  A_char reserved;
  A_short reserved1;
  union {
    const A_char* nameptr;
  } u;
} PF_CheckBoxDef;

typedef struct PF_ColorDef {
  PF_UnionablePixel value;
  PF_UnionablePixel dephault;
} PF_ColorDef;

typedef struct PF_PointDef {
  PF_Fixed x_value;
  PF_Fixed y_value;
  A_char reserved[3];
  PF_Boolean restrict_bounds;
  PF_Fixed x_dephault;
  PF_Fixed y_dephault;
} PF_PointDef;

typedef struct PF_Point3DDef {
  PF_FpLong x_value, y_value, z_value;
  PF_FpLong x_dephault, y_dephault, z_dephault;
  char reserved[16];
} PF_Point3DDef;

typedef struct PF_PopupDef {
  PF_ParamValue value;
  A_short num_choices;
  A_short dephault;
  union {
    const A_char* namesptr;
  } u;
} PF_PopupDef;

typedef struct PF_ButtonDef {
  PF_ParamValue value;
  union {
    const A_char* namesptr;
  } u;
} PF_ButtonDef;

typedef struct PF_PathDef {
  PF_PathID path_id;
  A_long reserved0;
  A_long dephault;
} PF_PathDef;

typedef PF_Handle PF_ArbitraryH;

typedef struct PF_ArbitraryDef {
  A_short id;
  A_short pad;
  PF_ArbitraryH dephault;
  PF_ArbitraryH value;
  void* refconPV;
} PF_ArbitraryDef;

typedef union PF_ParamDefUnion {
  PF_LayerDef ld;
  PF_SliderDef sd;
  PF_FixedSliderDef fd;
  PF_AngleDef ad;
  PF_CheckBoxDef bd;
  PF_ColorDef cd;
  PF_PointDef td;
  PF_PopupDef pd;
  PF_FloatSliderDef fs_d;
  PF_ArbitraryDef arb_d;
  PF_PathDef path_d;
  PF_ButtonDef button_d;
  PF_Point3DDef point3d_d;
} PF_ParamDefUnion;

typedef struct PF_ParamDef {
  union {
    A_long id;
    PF_ChangeFlags change_flags;
  } uu;
  PF_ParamUIFlags ui_flags;
  A_short ui_width;
  A_short ui_height;
  PF_ParamType param_type;
  A_char name[PF_MAX_EFFECT_PARAM_NAME_LEN + 1];
  PF_ParamFlags flags;
  A_long unused;
  PF_ParamDefUnion u;
} PF_ParamDef;

typedef PF_ParamDef* PF_ParamDefPtr;
typedef PF_ParamDef** PF_ParamDefH;
typedef PF_ParamDef** PF_ParamList;

typedef struct PF_UserChangedParamExtra {
  PF_ParamIndex param_index;
} PF_UserChangedParamExtra;

typedef struct _PF_CustomUIInfo {
  A_long reserved;
  PF_CustomEventFlags events;
  A_long comp_ui_width;
  A_long comp_ui_height;
  PF_UIAlignment comp_ui_alignment;
  A_long layer_ui_width;
  A_long layer_ui_height;
  PF_UIAlignment layer_ui_alignment;
  A_long preview_ui_width;
  A_long preview_ui_height;
  PF_UIAlignment preview_ui_alignment;
} PF_CustomUIInfo;

// Opaque records that appear only behind pointers in callback signatures.
typedef struct PF_SampPB PF_SampPB;
typedef struct PF_CompositeMode PF_CompositeMode;
typedef struct PF_MaskWorld PF_MaskWorld;
typedef struct PF_FloatMatrix PF_FloatMatrix;
typedef struct PF_InData PF_InData;
typedef PF_Err (*PF_IteratePixel8Func)(void* refcon, A_long x, A_long y, PF_Pixel* in, PF_Pixel* out);
typedef PF_Err (*PF_IteratePixel16Func)(void* refcon, A_long x, A_long y, PF_Pixel16* in,
                                        PF_Pixel16* out);

typedef struct PF_InteractCallbacks {
  PF_Err (*checkout_param)(PF_ProgPtr effect_ref, PF_ParamIndex index, A_long what_time,
                           A_long time_step, A_u_long time_scale, PF_ParamDef* param);
  PF_Err (*checkin_param)(PF_ProgPtr effect_ref, PF_ParamDef* param);
  PF_Err (*add_param)(PF_ProgPtr effect_ref, PF_ParamIndex index, PF_ParamDefPtr def);
  PF_Err (*abort)(PF_ProgPtr effect_ref);
  PF_Err (*progress)(PF_ProgPtr effect_ref, A_long current, A_long total);
  PF_Err (*register_ui)(PF_ProgPtr effect_ref, struct _PF_CustomUIInfo* cust_info);
  PF_Err (*checkout_layer_audio)(PF_ProgPtr effect_ref, PF_ParamIndex index, A_long start_time,
                                 A_long duration, A_u_long time_scale, PF_UFixed rate,
                                 A_long bytes_per_sample, A_long num_channels, A_long fmt_signed,
                                 PF_LayerAudio* audio);
  PF_Err (*checkin_layer_audio)(PF_ProgPtr effect_ref, PF_LayerAudio audio);
  PF_Err (*get_audio_data)(PF_ProgPtr effect_ref, PF_LayerAudio audio, PF_SndSamplePtr* data,
                           A_long* num_samples, PF_UFixed* rate, A_long* bytes_per_sample,
                           A_long* num_channels, A_long* fmt_signed);
  void* reserved_str[3];
  void* reserved[10];
} PF_InteractCallbacks;

typedef struct PF_ANSICallbacks {
  A_FpLong (*atan)(A_FpLong);
  A_FpLong (*atan2)(A_FpLong y, A_FpLong x);
  A_FpLong (*ceil)(A_FpLong);
  A_FpLong (*cos)(A_FpLong);
  A_FpLong (*exp)(A_FpLong);
  A_FpLong (*fabs)(A_FpLong);
  A_FpLong (*floor)(A_FpLong);
  A_FpLong (*fmod)(A_FpLong, A_FpLong);
  A_FpLong (*hypot)(A_FpLong, A_FpLong);
  A_FpLong (*log)(A_FpLong);
  A_FpLong (*log10)(A_FpLong);
  A_FpLong (*pow)(A_FpLong, A_FpLong);
  A_FpLong (*sin)(A_FpLong);
  A_FpLong (*sqrt)(A_FpLong);
  A_FpLong (*tan)(A_FpLong);
  int (*sprintf)(A_char* buffer, const A_char* format, ...);
  A_char* (*strcpy)(A_char* dst, const A_char* src);
  A_FpLong (*asin)(A_FpLong);
  A_FpLong (*acos)(A_FpLong);
  A_long ansi_procs[1];
} PF_ANSICallbacks;

typedef struct PF_ColorCallbacks {
  PF_Err (*RGBtoHLS)(PF_ProgPtr, PF_Pixel*, PF_Fixed*);
  PF_Err (*HLStoRGB)(PF_ProgPtr, PF_Fixed*, PF_Pixel*);
  PF_Err (*RGBtoYIQ)(PF_ProgPtr, PF_Pixel*, PF_Fixed*);
  PF_Err (*YIQtoRGB)(PF_ProgPtr, PF_Fixed*, PF_Pixel*);
  PF_Err (*Luminance)(PF_ProgPtr, PF_Pixel*, A_long*);
  PF_Err (*Hue)(PF_ProgPtr, PF_Pixel*, A_long*);
  PF_Err (*Lightness)(PF_ProgPtr, PF_Pixel*, A_long*);
  PF_Err (*Saturation)(PF_ProgPtr, PF_Pixel*, A_long*);
} PF_ColorCallbacks;

typedef struct _PF_UtilCallbacks {
  PF_Err (*begin_sampling)(PF_ProgPtr, PF_Quality, PF_ModeFlags, PF_SampPB*);
  PF_Err (*subpixel_sample)(PF_ProgPtr, PF_Fixed, PF_Fixed, const PF_SampPB*, PF_Pixel*);
  PF_Err (*area_sample)(PF_ProgPtr, PF_Fixed, PF_Fixed, const PF_SampPB*, PF_Pixel*);
  void* get_batch_func_is_deprecated;
  PF_Err (*end_sampling)(PF_ProgPtr, PF_Quality, PF_ModeFlags, PF_SampPB*);
  PF_Err (*composite_rect)(PF_ProgPtr, PF_Rect*, A_long, PF_EffectWorld*, A_long, A_long, PF_Field,
                           PF_XferMode, PF_EffectWorld*);
  PF_Err (*blend)(PF_ProgPtr, const PF_EffectWorld*, const PF_EffectWorld*, PF_Fixed,
                  PF_EffectWorld*);
  PF_Err (*convolve)(PF_ProgPtr, PF_EffectWorld*, const PF_Rect*, PF_KernelFlags, A_long, void*,
                     void*, void*, void*, PF_EffectWorld*);
  PF_Err (*copy)(PF_ProgPtr, PF_EffectWorld*, PF_EffectWorld*, PF_Rect*, PF_Rect*);
  PF_Err (*fill)(PF_ProgPtr, const PF_Pixel*, const PF_Rect*, PF_EffectWorld*);
  PF_Err (*gaussian_kernel)(PF_ProgPtr, A_FpLong, PF_KernelFlags, A_FpLong, A_long*, void*);
  PF_Err (*iterate)(PF_InData*, A_long, A_long, PF_EffectWorld*, const PF_Rect*, void*,
                    PF_IteratePixel8Func, PF_EffectWorld*);
  PF_Err (*premultiply)(PF_ProgPtr, A_long, PF_EffectWorld*);
  PF_Err (*premultiply_color)(PF_ProgPtr, PF_EffectWorld*, const PF_Pixel*, A_long,
                              PF_EffectWorld*);
  PF_Err (*new_world)(PF_ProgPtr, A_long, A_long, PF_NewWorldFlags, PF_EffectWorld*);
  PF_Err (*dispose_world)(PF_ProgPtr, PF_EffectWorld*);
  PF_Err (*iterate_origin)(PF_InData*, A_long, A_long, PF_EffectWorld*, const PF_Rect*,
                           const PF_Point*, void*, PF_IteratePixel8Func, PF_EffectWorld*);
  PF_Err (*iterate_lut)(PF_InData*, A_long, A_long, PF_EffectWorld*, const PF_Rect*, A_u_char*,
                        A_u_char*, A_u_char*, A_u_char*, PF_EffectWorld*);
  PF_Err (*transfer_rect)(PF_ProgPtr, PF_Quality, PF_ModeFlags, PF_Field, const PF_Rect*,
                          const PF_EffectWorld*, const PF_CompositeMode*, const PF_MaskWorld*,
                          A_long, A_long, PF_EffectWorld*);
  PF_Err (*transform_world)(PF_ProgPtr, PF_Quality, PF_ModeFlags, PF_Field, const PF_EffectWorld*,
                            const PF_CompositeMode*, const PF_MaskWorld*, const PF_FloatMatrix*,
                            A_long, PF_Boolean, const PF_Rect*, PF_EffectWorld*);
  PF_Handle (*host_new_handle)(A_u_longlong size);
  void* (*host_lock_handle)(PF_Handle);
  void (*host_unlock_handle)(PF_Handle);
  void (*host_dispose_handle)(PF_Handle);
  PF_Err (*get_callback_addr)(PF_ProgPtr, PF_Quality, PF_ModeFlags, PF_CallbackID,
                              PF_CallbackFunc*);
  PF_Err (*app)(PF_ProgPtr, A_long, ...);
  PF_ANSICallbacks ansi;
  PF_ColorCallbacks colorCB;
  PF_Err (*get_platform_data)(PF_ProgPtr, PF_PlatDataID, void*);
  A_u_longlong (*host_get_handle_size)(PF_Handle);
  PF_Err (*iterate_origin_non_clip_src)(PF_InData*, A_long, A_long, PF_EffectWorld*,
                                        const PF_Rect*, const PF_Point*, void*,
                                        PF_IteratePixel8Func, PF_EffectWorld*);
  PF_Err (*iterate_generic)(A_long iterationsL, void* refconPV,
                            PF_Err (*fn_func)(void* refconPV, A_long thread_indexL, A_long i,
                                              A_long iterationsL));
  PF_Err (*host_resize_handle)(A_u_longlong new_sizeL, PF_Handle* handlePH);
  PF_Err (*subpixel_sample16)(PF_ProgPtr, PF_Fixed, PF_Fixed, const PF_SampPB*, PF_Pixel16*);
  PF_Err (*area_sample16)(PF_ProgPtr, PF_Fixed, PF_Fixed, const PF_SampPB*, PF_Pixel16*);
  PF_Err (*fill16)(PF_ProgPtr, const PF_Pixel16*, const PF_Rect*, PF_EffectWorld*);
  PF_Err (*premultiply_color16)(PF_ProgPtr, PF_EffectWorld*, const PF_Pixel16*, A_long,
                                PF_EffectWorld*);
  PF_Err (*iterate16)(PF_InData*, A_long, A_long, PF_EffectWorld*, const PF_Rect*, void*,
                      PF_IteratePixel16Func, PF_EffectWorld*);
  PF_Err (*iterate_origin16)(PF_InData*, A_long, A_long, PF_EffectWorld*, const PF_Rect*,
                             const PF_Point*, void*, PF_IteratePixel16Func, PF_EffectWorld*);
  PF_Err (*iterate_origin_non_clip_src16)(PF_InData*, A_long, A_long, PF_EffectWorld*,
                                          const PF_Rect*, const PF_Point*, void*,
                                          PF_IteratePixel16Func, PF_EffectWorld*);
  PF_Err (*get_pixel_data8)(PF_EffectWorld*, PF_PixelPtr, PF_Pixel8**);
  PF_Err (*get_pixel_data16)(PF_EffectWorld*, PF_PixelPtr, PF_Pixel16**);
  A_long reserved[1];
} PF_UtilCallbacks;

struct SPBasicSuite;

struct PF_InData {
  PF_InteractCallbacks inter;
  struct _PF_UtilCallbacks* utils;
  PF_ProgPtr effect_ref;
  PF_Quality quality;
  PF_SpecVersion version;
  A_long serial_num;
  A_long appl_id;
  A_long num_params;
  A_long reserved;
  A_long what_cpu;
  A_long what_fpu;
  A_long current_time;
  A_long time_step;
  A_long total_time;
  A_long local_time_step;
  A_u_long time_scale;
  PF_Field field;
  PF_Fixed shutter_angle;
  A_long width;
  A_long height;
  PF_Rect extent_hint;
  A_long output_origin_x;
  A_long output_origin_y;
  PF_RationalScale downsample_x;
  PF_RationalScale downsample_y;
  PF_RationalScale pixel_aspect_ratio;
  PF_InFlags in_flags;
  PF_Handle global_data;
  PF_Handle sequence_data;
  PF_Handle frame_data;
  A_long start_sampL;
  A_long dur_sampL;
  A_long total_sampL;
  PF_SoundWorld src_snd;
  struct SPBasicSuite* pica_basicP;
  A_long pre_effect_source_origin_x;
  A_long pre_effect_source_origin_y;
  PF_Fixed shutter_phase;
};

typedef struct PF_OutData {
  A_u_long my_version;
  A_char name[PF_MAX_EFFECT_NAME_LEN + 1];
  PF_Handle global_data;
  A_long num_params;
  PF_Handle sequence_data;
  A_long flat_sdata_size;
  PF_Handle frame_data;
  A_long width;
  A_long height;
  PF_Point origin;
  PF_OutFlags out_flags;
  A_char return_msg[PF_MAX_EFFECT_MSG_LEN + 1];
  A_long start_sampL;
  A_long dur_sampL;
  PF_SoundWorld dest_snd;
  PF_OutFlags2 out_flags2;
} PF_OutData;

// SmartFX.
typedef struct PF_RenderRequest {
  PF_LRect rect;
  PF_Field field;
  PF_ChannelMask channel_mask;
  PF_Boolean preserve_rgb_of_zero_alpha;
  char unused[3];
  A_long reserved[4];
} PF_RenderRequest;

typedef struct PF_PreRenderInput {
  PF_RenderRequest output_request;
  short bitdepth;
  const void* gpu_data;
  PF_GPU_Framework what_gpu;
  A_u_long device_index;
} PF_PreRenderInput;

typedef struct PF_PreRenderOutput {
  PF_LRect result_rect;
  PF_LRect max_result_rect;
  PF_Boolean solid;
  PF_Boolean reserved;
  PF_RenderOutputFlags flags;
  void* pre_render_data;
  PF_DeletePreRenderDataFunc delete_pre_render_data_func;
} PF_PreRenderOutput;

typedef struct PF_CheckoutResult {
  PF_LRect result_rect;
  PF_LRect max_result_rect;
  PF_RationalScale par;
  PF_Boolean solid;
  PF_Boolean reservedB[3];
  A_long ref_width;
  A_long ref_height;
  A_long reserved[6];
} PF_CheckoutResult;

typedef struct PF_PreRenderCallbacks {
  PF_Err (*checkout_layer)(PF_ProgPtr effect_ref, PF_ParamIndex index, A_long checkout_idL,
                           const PF_RenderRequest* req, A_long what_time, A_long time_step,
                           A_u_long time_scale, PF_CheckoutResult* checkout_result);
  PF_Err (*GuidMixInPtr)(PF_ProgPtr effect_ref, A_u_long buf_sizeLu, const void* buf);
} PF_PreRenderCallbacks;

typedef struct PF_PreRenderExtra {
  PF_PreRenderInput* input;
  PF_PreRenderOutput* output;
  PF_PreRenderCallbacks* cb;
} PF_PreRenderExtra;

typedef struct PF_SmartRenderInput {
  PF_RenderRequest output_request;
  short bitdepth;
  void* pre_render_data;
  const void* gpu_data;
  PF_GPU_Framework what_gpu;
  A_u_long device_index;
} PF_SmartRenderInput;

typedef struct PF_SmartRenderCallbacks {
  PF_Err (*checkout_layer_pixels)(PF_ProgPtr effect_ref, A_long checkout_idL,
                                  PF_EffectWorld** pixels);
  PF_Err (*checkin_layer_pixels)(PF_ProgPtr effect_ref, A_long checkout_idL);
  PF_Err (*checkout_output)(PF_ProgPtr effect_ref, PF_EffectWorld** output);
} PF_SmartRenderCallbacks;

typedef struct PF_SmartRenderExtra {
  PF_SmartRenderInput* input;
  PF_SmartRenderCallbacks* cb;
} PF_SmartRenderExtra;

// Events and custom UI.
typedef struct PF_Context {
  A_u_long magic;
  PF_WindowType w_type;
  PF_ContextRefcon reserved_flt;
  A_intptr_t plugin_state[4];
  DRAWBOT_DrawRef reserved_drawref;
  void* reserved_paneP;
  void* reserved_job_manageP;
} PF_Context;
typedef PF_Context** PF_ContextH;

typedef struct PF_DoClickEventInfo {
  A_u_long when;
  PF_Point screen_point;
  A_long num_clicks;
  PF_Modifiers modifiers;
  A_intptr_t continue_refcon[4];
  PF_Boolean send_drag;
  PF_Boolean last_time;
} PF_DoClickEventInfo;

typedef struct PF_DrawEventInfo {
  PF_UnionableRect update_rect;
  A_long depth;
} PF_DrawEventInfo;

typedef struct PF_KeyDownEvent {
  A_u_long when;
  PF_Point screen_point;
  PF_KeyCode keycode;
  PF_Modifiers modifiers;
} PF_KeyDownEvent;

typedef struct PF_AdjustCursorEventInfo {
  PF_Point screen_point;
  PF_Modifiers modifiers;
  PF_CursorType set_cursor;
} PF_AdjustCursorEventInfo;

typedef union PF_EventUnion {
  PF_DoClickEventInfo do_click;
  PF_DrawEventInfo draw;
  PF_KeyDownEvent key_down;
  PF_AdjustCursorEventInfo adjust_cursor;
} PF_EventUnion;

typedef struct PF_EffectWindowInfo {
  PF_ParamIndex index;
  PF_EffectArea area;
  PF_UnionableRect current_frame;
  PF_UnionableRect param_title_frame;
  A_long horiz_offset;
} PF_EffectWindowInfo;

typedef struct PF_ItemWindowInfo {
  PF_UnionableRect port_rect;
} PF_ItemWindowInfo;

typedef struct PF_EventCallbacks {
  void* refcon;
  PF_Err (*layer_to_comp)(void* refcon, PF_ContextH context, A_long curr_time, A_long time_scale,
                          PF_FixedPoint* pt);
  PF_Err (*comp_to_layer)(void* refcon, PF_ContextH context, A_long curr_time, A_long time_scale,
                          PF_FixedPoint* pt);
  PF_Err (*get_comp2layer_xform)(void* refcon, PF_ContextH context, A_long curr_time,
                                 A_long time_scale, A_long* exists, PF_FloatMatrix* c2l);
  PF_Err (*get_layer2comp_xform)(void* refcon, PF_ContextH context, A_long curr_time,
                                 A_long time_scale, PF_FloatMatrix* l2c);
  PF_Err (*source_to_frame)(void* refcon, PF_ContextH context, PF_FixedPoint* pt);
  PF_Err (*frame_to_source)(void* refcon, PF_ContextH context, PF_FixedPoint* pt);
  PF_Err (*info_draw_color)(void* refcon, PF_Pixel color);
  PF_Err (*info_draw_text)(void* refcon, const A_char* text1, const A_char* text2);
} PF_EventCallbacks;

typedef struct PF_EventExtra {
  PF_ContextH contextH;
  PF_EventType e_type;
  PF_EventUnion u;
  PF_EffectWindowInfo effect_win;
  PF_EventCallbacks cbs;
  PF_EventInFlags evt_in_flags;
  PF_EventOutFlags evt_out_flags;
} PF_EventExtra;

// Entry points.
typedef A_Err (*PF_PluginDataCB)(PF_PluginDataPtr inPtr, const A_u_char* inNameZ,
                                 const A_u_char* inMatchNameZ, const A_u_char* inCategoryZ,
                                 const A_u_char* inEntryPointNameZ, A_long inkind,
                                 A_long inApiVersionMajor, A_long inApiVersionMinor,
                                 A_long inReservedInfo);

typedef A_Err (*PF_PluginDataEntryFunc)(PF_PluginDataPtr inPtr, PF_PluginDataCB inPluginDataCallBackPtr,
                                        struct SPBasicSuite* inSPBasicSuitePtr,
                                        const char* inHostName, const char* inHostVersion);

typedef PF_Err (*PF_FilterProc)(PF_Cmd cmd, PF_InData* in_data, PF_OutData* out_data,
                                PF_ParamDef* params[], PF_LayerDef* output, void* extra);

#ifdef __cplusplus
}
#endif
