// The basic suite and the host suites (function tables handed out by name and version).
#pragma once

#include "aesdk/ae_records.h"

#ifdef __cplusplus
extern "C" {
#endif

#define kSPBasicSuite "SP Basic Suite"
#define kSPBasicSuiteVersion 4

#define kSPNoError 0
#define kSPSuiteNotFoundError ((SPErr)0x53214664) /* 'S!Fd' */
#define kSPBadParameterError ((SPErr)0x5061726D) /* 'Parm' */

typedef struct SPBasicSuite {
  SPErr (*AcquireSuite)(const char* name, int32_t version, const void** suite);
  SPErr (*ReleaseSuite)(const char* name, int32_t version);
  SPBoolean (*IsEqual)(const char* token1, const char* token2);
  SPErr (*AllocateBlock)(size_t size, void** block);
  SPErr (*FreeBlock)(void* block);
  SPErr (*ReallocateBlock)(void* block, size_t newSize, void** newblock);
  SPErr (*Undefined)(void);
} SPBasicSuite;

// "PF Pixel Format Suite" version 1 (Premiere Pro).
#define kPFPixelFormatSuite "PF Pixel Format Suite"
#define kPFPixelFormatSuiteVersion1 1
typedef struct PF_PixelFormatSuite1 {
  PF_Err (*AddSupportedPixelFormat)(PF_ProgPtr effect_ref, PrPixelFormat pixel_format);
  PF_Err (*ClearSupportedPixelFormats)(PF_ProgPtr effect_ref);
  PF_Err (*NewWorldOfPixelFormat)(PF_ProgPtr effect_ref, A_u_long width, A_u_long height,
                                  PF_NewWorldFlags flags, PrPixelFormat pixel_format,
                                  PF_EffectWorld* world);
  PF_Err (*DisposeWorld)(PF_ProgPtr effect_ref, PF_EffectWorld* world);
  PF_Err (*GetPixelFormat)(PF_EffectWorld* world, PrPixelFormat* pixel_format);
  PF_Err (*GetBlackForPixelFormat)(PrPixelFormat pixel_format, void* pixel_data);
  PF_Err (*GetWhiteForPixelFormat)(PrPixelFormat pixel_format, void* pixel_data);
  PF_Err (*ConvertColorToPixelFormattedData)(PrPixelFormat pixel_format, float alpha, float red,
                                             float green, float blue, void* pixel_data);
} PF_PixelFormatSuite1;

// Version 2 of the same name (After Effects).
#define kPFPixelFormatSuiteVersion2 2
typedef struct PF_PixelFormatSuite2 {
  PF_Err (*PF_AddSupportedPixelFormat)(PF_ProgPtr effect_ref, PF_PixelFormat pixel_format);
  PF_Err (*PF_ClearSupportedPixelFormats)(PF_ProgPtr effect_ref);
} PF_PixelFormatSuite2;

// "PF World Suite".
#define kPFWorldSuite "PF World Suite"
#define kPFWorldSuiteVersion1 1
#define kPFWorldSuiteVersion2 2
typedef struct PF_WorldSuite1 {
  PF_Err (*new_world)(PF_ProgPtr effect_ref, A_long width, A_long height, PF_NewWorldFlags flags,
                      PF_EffectWorld* world);
  PF_Err (*dispose_world)(PF_ProgPtr effect_ref, PF_EffectWorld* world);
} PF_WorldSuite1;
typedef struct PF_WorldSuite2 {
  PF_Err (*PF_NewWorld)(PF_ProgPtr effect_ref, A_long width, A_long height, PF_Boolean clear_pix,
                        PF_PixelFormat pixel_format, PF_EffectWorld* world);
  PF_Err (*PF_DisposeWorld)(PF_ProgPtr effect_ref, PF_EffectWorld* world);
  PF_Err (*PF_GetPixelFormat)(const PF_EffectWorld* world, PF_PixelFormat* pixel_format);
} PF_WorldSuite2;

// "PF Utility Suite" version 4 (Premiere Pro).
#define kPFUtilitySuite "PF Utility Suite"
#define kPFUtilitySuiteVersion4 4
typedef struct PF_UtilitySuite4 {
  PF_Err (*GetFilterInstanceID)(PF_ProgPtr effect_ref, A_long* filter_instance_id);
  PF_Err (*GetMediaTimecode)(PF_ProgPtr effect_ref, A_long* current_frame,
                             PF_TimeDisplay* time_display);
  PF_Err (*GetClipSpeed)(PF_ProgPtr effect_ref, double* speed);
  PF_Err (*GetClipDuration)(PF_ProgPtr effect_ref, A_long* frame_duration);
  PF_Err (*GetClipStart)(PF_ProgPtr effect_ref, A_long* start_frame);
  PF_Err (*GetUnscaledClipDuration)(PF_ProgPtr effect_ref, A_long* frame_duration);
  PF_Err (*GetUnscaledClipStart)(PF_ProgPtr effect_ref, A_long* start_frame);
  PF_Err (*GetTrackItemStart)(PF_ProgPtr effect_ref, A_long* start_frame);
  PF_Err (*GetMediaFieldType)(PF_ProgPtr effect_ref, prFieldType* field_type);
  PF_Err (*GetMediaFrameRate)(PF_ProgPtr effect_ref, PrTime* ticks_per_frame);
  PF_Err (*GetContainingTimelineID)(PF_ProgPtr effect_ref, PrTimelineID* timeline_id);
  PF_Err (*GetClipName)(PF_ProgPtr effect_ref, PrSDKString* clip_name);
  PF_Err (*EffectWantsCheckedOutFramesToMatchRenderPixelFormat)(PF_ProgPtr effect_ref);
} PF_UtilitySuite4;

// "PF Handle Suite": the table named version 1 is asked for with the number 2.
#define kPFHandleSuite "PF Handle Suite"
#define kPFHandleSuiteVersion1 2
typedef struct PF_HandleSuite1 {
  PF_Handle (*host_new_handle)(A_HandleSize size);
  void* (*host_lock_handle)(PF_Handle pf_handle);
  void (*host_unlock_handle)(PF_Handle pf_handle);
  void (*host_dispose_handle)(PF_Handle pf_handle);
  A_HandleSize (*host_get_handle_size)(PF_Handle pf_handle);
  PF_Err (*host_resize_handle)(A_HandleSize new_size, PF_Handle* handle);
} PF_HandleSuite1;

// "PF Effect Custom UI Suite".
#define kPFEffectCustomUISuite "PF Effect Custom UI Suite"
#define kPFEffectCustomUISuiteVersion1 1
#define kPFEffectCustomUISuiteVersion2 2
typedef struct PF_EffectCustomUISuite1 {
  PF_Err (*PF_GetDrawingReference)(const PF_ContextH effect_context, DRAWBOT_DrawRef* reference);
} PF_EffectCustomUISuite1;
typedef struct PF_EffectCustomUISuite2 {
  PF_Err (*PF_GetDrawingReference)(const PF_ContextH effect_context, DRAWBOT_DrawRef* reference);
  PF_Err (*PF_GetContextAsyncManager)(PF_InData* in_data, PF_EventExtra* extra,
                                      PF_AsyncManagerP* managerP);
} PF_EffectCustomUISuite2;

// Drawbot.
#define kDRAWBOT_DrawSuite "DRAWBOT Draw Suite"
#define kDRAWBOT_DrawSuite_Version1 1
#define kDRAWBOT_DrawSuite_VersionCurrent kDRAWBOT_DrawSuite_Version1
typedef struct DRAWBOT_DrawbotSuite1 {
  SPErr (*GetSupplier)(DRAWBOT_DrawRef in_drawbot_ref, DRAWBOT_SupplierRef* out_supplierP);
  SPErr (*GetSurface)(DRAWBOT_DrawRef in_drawbot_ref, DRAWBOT_SurfaceRef* out_surfaceP);
} DRAWBOT_DrawbotSuite1;
typedef DRAWBOT_DrawbotSuite1 DRAWBOT_DrawbotSuiteCurrent;

#define kDRAWBOT_SupplierSuite "DRAWBOT Supplier Suite"
#define kDRAWBOT_SupplierSuite_Version1 1
#define kDRAWBOT_SupplierSuite_VersionCurrent kDRAWBOT_SupplierSuite_Version1
typedef struct DRAWBOT_SupplierSuite1 {
  SPErr (*NewPen)(DRAWBOT_SupplierRef in_supplier_ref, const DRAWBOT_ColorRGBA* in_colorP,
                  float in_size, DRAWBOT_PenRef* out_penP);
  SPErr (*NewBrush)(DRAWBOT_SupplierRef in_supplier_ref, const DRAWBOT_ColorRGBA* in_colorP,
                    DRAWBOT_BrushRef* out_brushP);
  SPErr (*SupportsText)(DRAWBOT_SupplierRef in_supplier_ref, DRAWBOT_Boolean* out_supports_textB);
  SPErr (*GetDefaultFontSize)(DRAWBOT_SupplierRef in_supplier_ref, float* out_font_sizeF);
  SPErr (*NewDefaultFont)(DRAWBOT_SupplierRef in_supplier_ref, float in_font_sizeF,
                          DRAWBOT_FontRef* out_fontP);
  SPErr (*NewImageFromBuffer)(DRAWBOT_SupplierRef in_supplier_ref, int in_width, int in_height,
                              int in_row_bytes, DRAWBOT_PixelLayout in_pl, const void* in_dataP,
                              DRAWBOT_ImageRef* out_imageP);
  SPErr (*NewPath)(DRAWBOT_SupplierRef in_supplier_ref, DRAWBOT_PathRef* out_pathP);
  SPErr (*SupportsPixelLayoutBGRA)(DRAWBOT_SupplierRef in_supplier_ref,
                                   DRAWBOT_Boolean* out_supports_bgraPB);
  SPErr (*PrefersPixelLayoutBGRA)(DRAWBOT_SupplierRef in_supplier_ref,
                                  DRAWBOT_Boolean* out_prefers_bgraPB);
  SPErr (*SupportsPixelLayoutARGB)(DRAWBOT_SupplierRef in_supplier_ref,
                                   DRAWBOT_Boolean* out_supports_argbPB);
  SPErr (*PrefersPixelLayoutARGB)(DRAWBOT_SupplierRef in_supplier_ref,
                                  DRAWBOT_Boolean* out_prefers_argbPB);
  SPErr (*RetainObject)(DRAWBOT_ObjectRef in_obj_ref);
  SPErr (*ReleaseObject)(DRAWBOT_ObjectRef in_obj_ref);
} DRAWBOT_SupplierSuite1;
typedef DRAWBOT_SupplierSuite1 DRAWBOT_SupplierSuiteCurrent;

#define kDRAWBOT_SurfaceSuite "DRAWBOT Surface Suite"
#define kDRAWBOT_SurfaceSuite_Version1 1
#define kDRAWBOT_SurfaceSuite_Version2 2
#define kDRAWBOT_SurfaceSuite_VersionCurrent kDRAWBOT_SurfaceSuite_Version2
typedef struct DRAWBOT_SurfaceSuite2 {
  SPErr (*PushStateStack)(DRAWBOT_SurfaceRef in_surface_ref);
  SPErr (*PopStateStack)(DRAWBOT_SurfaceRef in_surface_ref);
  SPErr (*PaintRect)(DRAWBOT_SurfaceRef in_surface_ref, const DRAWBOT_ColorRGBA* in_colorP,
                     const DRAWBOT_RectF32* in_rectPR);
  SPErr (*FillPath)(DRAWBOT_SurfaceRef in_surface_ref, DRAWBOT_BrushRef in_brush_ref,
                    DRAWBOT_PathRef in_path_ref, DRAWBOT_FillType in_fill_type);
  SPErr (*StrokePath)(DRAWBOT_SurfaceRef in_surface_ref, DRAWBOT_PenRef in_pen_ref,
                      DRAWBOT_PathRef in_path_ref);
  SPErr (*Clip)(DRAWBOT_SurfaceRef in_surface_ref, DRAWBOT_SupplierRef in_supplier_ref,
                const DRAWBOT_Rect32* in_rectPR);
  SPErr (*GetClipBounds)(DRAWBOT_SurfaceRef in_surface_ref, DRAWBOT_Rect32* out_rectPR);
  SPErr (*IsWithinClipBounds)(DRAWBOT_SurfaceRef in_surface_ref, const DRAWBOT_Rect32* in_rectPR,
                              DRAWBOT_Boolean* out_withinPB);
  SPErr (*Transform)(DRAWBOT_SurfaceRef in_surface_ref, const DRAWBOT_MatrixF32* in_matrixP);
  SPErr (*DrawString)(DRAWBOT_SurfaceRef in_surface_ref, DRAWBOT_BrushRef in_brush_ref,
                      DRAWBOT_FontRef in_font_ref, const DRAWBOT_UTF16Char* in_stringP,
                      const DRAWBOT_PointF32* in_originP, DRAWBOT_TextAlignment in_alignment_style,
                      DRAWBOT_TextTruncation in_truncation_style, float in_truncation_width);
  SPErr (*DrawImage)(DRAWBOT_SurfaceRef in_surface_ref, DRAWBOT_ImageRef in_image_ref,
                     const DRAWBOT_PointF32* in_originP, float in_alpha);
  SPErr (*SetInterpolationPolicy)(DRAWBOT_SurfaceRef in_surface_ref,
                                  DRAWBOT_InterpolationPolicy in_interp);
  SPErr (*GetInterpolationPolicy)(DRAWBOT_SurfaceRef in_surface_ref,
                                  DRAWBOT_InterpolationPolicy* out_interpP);
  SPErr (*SetAntiAliasPolicy)(DRAWBOT_SurfaceRef in_surface_ref,
                              DRAWBOT_AntiAliasPolicy in_policy);
  SPErr (*GetAntiAliasPolicy)(DRAWBOT_SurfaceRef in_surface_ref,
                              DRAWBOT_AntiAliasPolicy* out_policyP);
  SPErr (*Flush)(DRAWBOT_SurfaceRef in_surface_ref);
  SPErr (*GetTransformToScreenScale)(DRAWBOT_SurfaceRef in_surface_ref, float* out_scale);
} DRAWBOT_SurfaceSuite2;
typedef DRAWBOT_SurfaceSuite2 DRAWBOT_SurfaceSuiteCurrent;

#define kDRAWBOT_PathSuite "DRAWBOT Path Suite"
#define kDRAWBOT_PathSuite_Version1 1
#define kDRAWBOT_PathSuite_VersionCurrent kDRAWBOT_PathSuite_Version1
typedef struct DRAWBOT_PathSuite1 {
  SPErr (*MoveTo)(DRAWBOT_PathRef in_path_ref, float in_x, float in_y);
  SPErr (*LineTo)(DRAWBOT_PathRef in_path_ref, float in_x, float in_y);
  SPErr (*BezierTo)(DRAWBOT_PathRef in_path_ref, const DRAWBOT_PointF32* in_pt1P,
                    const DRAWBOT_PointF32* in_pt2P, const DRAWBOT_PointF32* in_pt3P);
  SPErr (*AddRect)(DRAWBOT_PathRef in_path_ref, const DRAWBOT_RectF32* in_rectPR);
  SPErr (*AddArc)(DRAWBOT_PathRef in_path_ref, const DRAWBOT_PointF32* in_centerP,
                  float in_radius, float in_start_angle, float in_sweep);
  SPErr (*Close)(DRAWBOT_PathRef in_path_ref);
} DRAWBOT_PathSuite1;
typedef DRAWBOT_PathSuite1 DRAWBOT_PathSuiteCurrent;

// Pen and image suites: the effect never calls them, so only their names are declared.
typedef struct DRAWBOT_PenSuite1 DRAWBOT_PenSuite1;
typedef struct DRAWBOT_ImageSuite1 DRAWBOT_ImageSuite1;

// The suite set filled by the Drawbot acquisition helper; only the first four are used.
typedef struct DRAWBOT_Suites {
  DRAWBOT_DrawbotSuite1* drawbot_suiteP;
  DRAWBOT_SupplierSuite1* supplier_suiteP;
  DRAWBOT_SurfaceSuite2* surface_suiteP;
  DRAWBOT_PathSuite1* path_suiteP;
  DRAWBOT_PenSuite1* pen_suiteP;
  DRAWBOT_ImageSuite1* image_suiteP;
} DRAWBOT_Suites;

// "PF Param Utils Suite" version 3.
#define kPFParamUtilsSuite "PF Param Utils Suite"
#define kPFParamUtilsSuiteVersion3 3
typedef struct PF_ParamUtilsSuite3 {
  PF_Err (*PF_UpdateParamUI)(PF_ProgPtr effect_ref, PF_ParamIndex param_index,
                             const PF_ParamDef* defP);
  PF_Err (*PF_GetCurrentState)(PF_ProgPtr effect_ref, PF_ParamIndex param_index,
                               const A_Time* startPT0, const A_Time* durationPT0,
                               PF_State* stateP);
  PF_Err (*PF_AreStatesIdentical)(PF_ProgPtr effect_ref, const PF_State* state1P,
                                  const PF_State* state2P, A_Boolean* samePB);
  PF_Err (*PF_IsIdenticalCheckout)(PF_ProgPtr effect_ref, PF_ParamIndex param_index,
                                   A_long what_time1, A_long time_step1, A_u_long time_scale1,
                                   A_long what_time2, A_long time_step2, A_u_long time_scale2,
                                   PF_Boolean* identicalPB);
  PF_Err (*PF_FindKeyframeTime)(PF_ProgPtr effect_ref, PF_ParamIndex param_index, A_long what_time,
                                A_u_long time_scale, PF_TimeDir time_dir, PF_Boolean* foundPB,
                                PF_KeyIndex* key_indexP0, A_long* key_timeP0,
                                A_u_long* key_timescaleP0);
  PF_Err (*PF_GetKeyframeCount)(PF_ProgPtr effect_ref, PF_ParamIndex param_index,
                                PF_KeyIndex* key_countP);
  PF_Err (*PF_CheckoutKeyframe)(PF_ProgPtr effect_ref, PF_ParamIndex param_index,
                                PF_KeyIndex key_index, A_long* key_timeP0,
                                A_u_long* key_timescaleP0, PF_ParamDef* paramP0);
  PF_Err (*PF_CheckinKeyframe)(PF_ProgPtr effect_ref, PF_ParamDef* paramP);
  PF_Err (*PF_KeyIndexToTime)(PF_ProgPtr effect_ref, PF_ParamIndex param_index,
                              PF_KeyIndex key_indexP, A_long* key_timeP,
                              A_u_long* key_timescaleP);
} PF_ParamUtilsSuite3;

#ifdef __cplusplus
}
#endif
