// Scalar types, constants and small value records of the effect host interface
// (API 13.28, LP64). Layouts match the host's; see tests/sdk_layout for the checks.
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef int32_t A_long;
typedef uint32_t A_u_long;
typedef int16_t A_short;
typedef uint16_t A_u_short;
typedef char A_char;
typedef uint8_t A_u_char;
typedef uint8_t A_Boolean;
typedef A_long A_Err;
typedef double A_FpLong;
typedef float A_FpShort;
typedef int32_t A_Fixed;
typedef uint32_t A_UFixed;
typedef void* A_Handle;
typedef intptr_t A_intptr_t;
typedef uint64_t A_u_longlong;
typedef A_u_longlong A_HandleSize;
typedef A_u_short A_UTF16Char;

typedef int32_t PF_Fixed;
typedef A_u_long PF_UFixed;
typedef double PF_FpLong;
typedef float PF_FpShort;
typedef unsigned char PF_Boolean;
typedef A_long PF_Err;
typedef char** PF_Handle;

typedef struct PF_ProgressInfo* PF_ProgPtr;
typedef A_long PF_ParamIndex;
typedef A_long PF_ParamValue;
typedef A_long PF_ParamFlags;
typedef A_long PF_ParamUIFlags;
typedef A_long PF_ChangeFlags;
typedef A_short PF_ValueDisplayFlags;
typedef A_long PF_PixelFormat;
typedef A_long PF_Quality;
typedef A_long PF_Field;
typedef A_long PF_InFlags;
typedef A_long PF_OutFlags;
typedef A_long PF_OutFlags2;
typedef A_long PF_ParamType;
typedef A_long PF_CustomEventFlags;
typedef A_long PF_EventType;
typedef A_long PF_EventOutFlags;
typedef A_long PF_EventInFlags;
typedef A_long PF_EffectArea;
typedef A_long PF_WindowType;
typedef A_long PF_Cmd;
typedef A_long PF_Stage;
typedef A_long PF_ModeFlags;
typedef A_long PF_WorldFlags;
typedef A_long PF_NewWorldFlags;
typedef A_long PF_ChannelMask;
typedef A_long PF_GPU_Framework;
typedef A_long PF_UIAlignment;
typedef A_long PF_Modifiers;
typedef A_long PF_CursorType;
typedef A_long PF_TransferMode;
typedef PF_TransferMode PF_XferMode;
typedef A_long PF_CallbackID;
typedef A_long PF_PlatDataID;
typedef A_long PF_TimeDir;
typedef A_long PF_KeyIndex;
typedef A_u_long PF_FSliderFlags;
typedef A_u_long PF_PathID;
typedef A_u_long PF_PixLong;
typedef A_u_long PF_KernelFlags;
typedef A_u_long PF_KeyCode;
typedef short PF_RenderOutputFlags;
typedef A_short PF_SoundChannels;
typedef A_short PF_SoundFormat;
typedef A_short PF_SoundSampleSize;
typedef unsigned int PF_TimeDisplay;

typedef struct _PF_LayerAudio* PF_LayerAudio;
typedef struct PF_ContextRefconOpaque* PF_ContextRefcon;
typedef struct PF_AsyncManagerOpaque* PF_AsyncManagerP;
typedef struct PF_PluginData* PF_PluginDataPtr;
typedef void* PF_SndSamplePtr;
// The host hands back an untyped address; callers cast it to the function type they asked for.
typedef struct PF_YouMustCastThisToActualFunctionType* PF_CallbackFunc;
typedef void (*PF_DeletePreRenderDataFunc)(void*);
typedef PF_Fixed PF_HLS_Pixel[3];
typedef PF_Fixed PF_RGB_Pixel[3];
typedef PF_Fixed PF_YIQ_Pixel[3];

typedef int32_t SPErr;
typedef uint8_t SPBoolean;

typedef int prFieldType;
typedef int PrTimelineID;
typedef int PrClipID;
typedef int64_t PrTime;
typedef uint32_t csSDK_uint32;

typedef struct PrSDKString {
  int64_t opaque[2];
} PrSDKString;

// Effect version word: build 0-8, stage 9-10, bug fix 11-14, subversion 15-18,
// version low three bits 19-21, version high four bits 26-29.
#define PF_VERSION(vers, subvers, bugvers, stage, build)                                   \
  ((A_u_long)((((A_u_long)(vers) >> 3) & 15u) << 26 | ((A_u_long)(vers) & 7u) << 19 |      \
              ((A_u_long)(subvers) & 15u) << 15 | ((A_u_long)(bugvers) & 15u) << 11 |      \
              ((A_u_long)(stage) & 3u) << 9 | ((A_u_long)(build) & 511u)))

enum { PF_Stage_DEVELOP = 0, PF_Stage_ALPHA = 1, PF_Stage_BETA = 2, PF_Stage_RELEASE = 3 };

enum {
  PF_AE_PLUG_IN_VERSION = 13,
  PF_AE_PLUG_IN_SUBVERS = 28,
  PF_MAX_EFFECT_NAME_LEN = 31,
  PF_MAX_EFFECT_CATEGORY_NAME_LEN = 31,
  PF_MAX_EFFECT_PARAM_NAME_LEN = 31,
  PF_MAX_PARAM_DESCRIPTION_LEN = 31,
  PF_MAX_PARAM_VALUE_LEN = 31,
  PF_MAX_EFFECT_MSG_LEN = 255,
  PF_MAX_WORLD_WIDTH = 30000,
  PF_MAX_WORLD_HEIGHT = 30000,
  PF_FIRST_ERR = 512,
  PF_MAX_CHAN8 = 255,
  PF_HALF_CHAN8 = 128,
  PF_MAX_CHAN16 = 32768,
  PF_HALF_CHAN16 = 16384,
  PF_CHANNEL_NAME_LEN = 63
};
// The same pair under the names the resource description reads.
#define PF_PLUG_IN_VERSION 13
#define PF_PLUG_IN_SUBVERS 28
#define PF_CONTEXT_MAGIC 0x05EA771EU

enum {
  PF_Precision_INTEGER = 0,
  PF_Precision_TENTHS = 1,
  PF_Precision_HUNDREDTHS = 2,
  PF_Precision_THOUSANDTHS = 3,
  PF_Precision_TEN_THOUSANDTHS = 4
};
enum {
  PF_ParamIndex_NONE = -1,
  PF_ParamIndex_CHECK_ALL = -2,
  PF_ParamIndex_CHECK_ALL_EXCEPT_LAYER_PARAMS = -3,
  PF_ParamIndex_CHECK_ALL_HONOR_EXCLUDE = -4
};
enum { PF_KeyIndex_NONE = -1 };

// Commands, consecutive from 0.
enum {
  PF_Cmd_ABOUT = 0,
  PF_Cmd_GLOBAL_SETUP,
  PF_Cmd_UNUSED_0,
  PF_Cmd_GLOBAL_SETDOWN,
  PF_Cmd_PARAMS_SETUP,
  PF_Cmd_SEQUENCE_SETUP,
  PF_Cmd_SEQUENCE_RESETUP,
  PF_Cmd_SEQUENCE_FLATTEN,
  PF_Cmd_SEQUENCE_SETDOWN,
  PF_Cmd_DO_DIALOG,
  PF_Cmd_FRAME_SETUP,
  PF_Cmd_RENDER,
  PF_Cmd_FRAME_SETDOWN,
  PF_Cmd_USER_CHANGED_PARAM,
  PF_Cmd_UPDATE_PARAMS_UI,
  PF_Cmd_EVENT,
  PF_Cmd_GET_EXTERNAL_DEPENDENCIES,
  PF_Cmd_COMPLETELY_GENERAL,
  PF_Cmd_QUERY_DYNAMIC_FLAGS,
  PF_Cmd_AUDIO_RENDER,
  PF_Cmd_AUDIO_SETUP,
  PF_Cmd_AUDIO_SETDOWN,
  PF_Cmd_ARBITRARY_CALLBACK,
  PF_Cmd_SMART_PRE_RENDER,
  PF_Cmd_SMART_RENDER,
  PF_Cmd_RESERVED1,
  PF_Cmd_RESERVED2,
  PF_Cmd_RESERVED3,
  PF_Cmd_GET_FLATTENED_SEQUENCE_DATA,
  PF_Cmd_TRANSLATE_PARAMS_TO_PREFS,
  PF_Cmd_RESERVED4,
  PF_Cmd_SMART_RENDER_GPU,
  PF_Cmd_GPU_DEVICE_SETUP,
  PF_Cmd_GPU_DEVICE_SETDOWN,
  PF_Cmd_NUM_CMDS
};

enum {
  PF_OutFlag_NONE = 0,
  PF_OutFlag_KEEP_RESOURCE_OPEN = 1L << 0,
  PF_OutFlag_WIDE_TIME_INPUT = 1L << 1,
  PF_OutFlag_NON_PARAM_VARY = 1L << 2,
  PF_OutFlag_RESERVED6 = 1L << 3,
  PF_OutFlag_SEQUENCE_DATA_NEEDS_FLATTENING = 1L << 4,
  PF_OutFlag_I_DO_DIALOG = 1L << 5,
  PF_OutFlag_USE_OUTPUT_EXTENT = 1L << 6,
  PF_OutFlag_SEND_DO_DIALOG = 1L << 7,
  PF_OutFlag_DISPLAY_ERROR_MESSAGE = 1L << 8,
  PF_OutFlag_I_EXPAND_BUFFER = 1L << 9,
  PF_OutFlag_PIX_INDEPENDENT = 1L << 10,
  PF_OutFlag_I_WRITE_INPUT_BUFFER = 1L << 11,
  PF_OutFlag_I_SHRINK_BUFFER = 1L << 12,
  PF_OutFlag_WORKS_IN_PLACE = 1L << 13,
  PF_OutFlag_RESERVED8 = 1L << 14,
  PF_OutFlag_CUSTOM_UI = 1L << 15,
  PF_OutFlag_RESERVED7 = 1L << 16,
  PF_OutFlag_REFRESH_UI = 1L << 17,
  PF_OutFlag_NOP_RENDER = 1L << 18,
  PF_OutFlag_I_USE_SHUTTER_ANGLE = 1L << 19,
  PF_OutFlag_I_USE_AUDIO = 1L << 20,
  PF_OutFlag_I_AM_OBSOLETE = 1L << 21,
  PF_OutFlag_FORCE_RERENDER = 1L << 22,
  PF_OutFlag_PiPL_OVERRIDES_OUTDATA_OUTFLAGS = 1L << 23,
  PF_OutFlag_I_HAVE_EXTERNAL_DEPENDENCIES = 1L << 24,
  PF_OutFlag_DEEP_COLOR_AWARE = 1L << 25,
  PF_OutFlag_SEND_UPDATE_PARAMS_UI = 1L << 26,
  PF_OutFlag_AUDIO_FLOAT_ONLY = 1L << 27,
  PF_OutFlag_AUDIO_IIR = 1L << 28,
  PF_OutFlag_I_SYNTHESIZE_AUDIO = 1L << 29,
  PF_OutFlag_AUDIO_EFFECT_TOO = 1L << 30,
  PF_OutFlag_AUDIO_EFFECT_ONLY = (A_long)0x80000000U
};

enum {
  PF_OutFlag2_NONE = 0,
  PF_OutFlag2_SUPPORTS_QUERY_DYNAMIC_FLAGS = 1L << 0,
  PF_OutFlag2_I_USE_3D_CAMERA = 1L << 1,
  PF_OutFlag2_I_USE_3D_LIGHTS = 1L << 2,
  PF_OutFlag2_PARAM_GROUP_START_COLLAPSED_FLAG = 1L << 3,
  PF_OutFlag2_I_AM_THREADSAFE = 1L << 4,
  PF_OutFlag2_CAN_COMBINE_WITH_DESTINATION = 1L << 5,
  PF_OutFlag2_DOESNT_NEED_EMPTY_PIXELS = 1L << 6,
  PF_OutFlag2_REVEALS_ZERO_ALPHA = 1L << 7,
  PF_OutFlag2_PRESERVES_FULLY_OPAQUE_PIXELS = 1L << 8,
  PF_OutFlag2_SUPPORTS_SMART_RENDER = 1L << 10,
  PF_OutFlag2_RESERVED9 = 1L << 11,
  PF_OutFlag2_FLOAT_COLOR_AWARE = 1L << 12,
  PF_OutFlag2_I_USE_COLORSPACE_ENUMERATION = 1L << 13,
  PF_OutFlag2_I_AM_DEPRECATED = 1L << 14,
  PF_OutFlag2_PPRO_DO_NOT_CLONE_SEQUENCE_DATA_FOR_RENDER = 1L << 15,
  PF_OutFlag2_RESERVED10 = 1L << 16,
  PF_OutFlag2_AUTOMATIC_WIDE_TIME_INPUT = 1L << 17,
  PF_OutFlag2_I_USE_TIMECODE = 1L << 18,
  PF_OutFlag2_DEPENDS_ON_UNREFERENCED_MASKS = 1L << 19,
  PF_OutFlag2_OUTPUT_IS_WATERMARKED = 1L << 20,
  PF_OutFlag2_I_MIX_GUID_DEPENDENCIES = 1L << 21,
  PF_OutFlag2_AE13_5_THREADSAFE = 1L << 22,
  PF_OutFlag2_SUPPORTS_GET_FLATTENED_SEQUENCE_DATA = 1L << 23,
  PF_OutFlag2_CUSTOM_UI_ASYNC_MANAGER = 1L << 24,
  PF_OutFlag2_SUPPORTS_GPU_RENDER_F32 = 1L << 25,
  PF_OutFlag2_RESERVED12 = 1L << 26,
  PF_OutFlag2_SUPPORTS_THREADED_RENDERING = 1L << 27,
  PF_OutFlag2_MUTABLE_RENDER_SEQUENCE_DATA_SLOWER = 1L << 28
};

enum { PF_InFlag_NONE = 0, PF_InFlag_PROJECT_IS_RENDER_ONLY = 1 };

enum {
  PF_ParamFlag_NONE = 0,
  PF_ParamFlag_RESERVED1 = 1L << 0,
  PF_ParamFlag_CANNOT_TIME_VARY = 1L << 1,
  PF_ParamFlag_CANNOT_INTERP = 1L << 2,
  PF_ParamFlag_RESERVED2 = 1L << 3,
  PF_ParamFlag_RESERVED3 = 1L << 4,
  PF_ParamFlag_COLLAPSE_TWIRLY = 1L << 5,
  PF_ParamFlag_SUPERVISE = 1L << 6,
  PF_ParamFlag_START_COLLAPSED = PF_ParamFlag_COLLAPSE_TWIRLY,
  PF_ParamFlag_USE_VALUE_FOR_OLD_PROJECTS = 1L << 7,
  PF_ParamFlag_LAYER_PARAM_IS_TRACKMATTE = 1L << 7,
  PF_ParamFlag_EXCLUDE_FROM_HAVE_INPUTS_CHANGED = 1L << 8,
  PF_ParamFlag_SKIP_REVEAL_WHEN_UNHIDDEN = 1L << 9
};

enum {
  PF_PUI_NONE = 0,
  PF_PUI_TOPIC = 1L << 0,
  PF_PUI_CONTROL = 1L << 1,
  PF_PUI_STD_CONTROL_ONLY = 1L << 2,
  PF_PUI_NO_ECW_UI = 1L << 3,
  PF_PUI_ECW_SEPARATOR = 1L << 4,
  PF_PUI_DISABLED = 1L << 5,
  PF_PUI_DONT_ERASE_TOPIC = 1L << 6,
  PF_PUI_DONT_ERASE_CONTROL = 1L << 7,
  PF_PUI_RADIO_BUTTON = 1L << 8,
  PF_PUI_INVISIBLE = 1L << 9
};

enum {
  PF_ChangeFlag_NONE = 0,
  PF_ChangeFlag_CHANGED_VALUE = 1L << 0,
  PF_ChangeFlag_RESERVED = 1L << 1,
  PF_ChangeFlag_SET_TO_VARY = 1L << 2,
  PF_ChangeFlag_SET_TO_CONSTANT = 1L << 3
};

enum {
  PF_ValueDisplayFlag_NONE = 0,
  PF_ValueDisplayFlag_PERCENT = 1 << 0,
  PF_ValueDisplayFlag_PIXEL = 1 << 1,
  PF_ValueDisplayFlag_RESERVED1 = 1 << 2,
  PF_ValueDisplayFlag_REVERSE = 1 << 3
};

enum { PF_FSliderFlag_NONE = 0, PF_FSliderFlag_WANT_PHASE = 1 };

enum {
  PF_Param_RESERVED = -1,
  PF_Param_LAYER = 0,
  PF_Param_SLIDER,
  PF_Param_FIX_SLIDER,
  PF_Param_ANGLE,
  PF_Param_CHECKBOX,
  PF_Param_COLOR,
  PF_Param_POINT,
  PF_Param_POPUP,
  PF_Param_CUSTOM,
  PF_Param_NO_DATA,
  PF_Param_FLOAT_SLIDER,
  PF_Param_ARBITRARY_DATA,
  PF_Param_PATH,
  PF_Param_GROUP_START,
  PF_Param_GROUP_END,
  PF_Param_BUTTON,
  PF_Param_RESERVED2,
  PF_Param_RESERVED3,
  PF_Param_POINT_3D
};

enum { PF_LayerDefault_MYSELF = -1, PF_LayerDefault_NONE = 0 };

enum {
  PF_Err_NONE = 0,
  PF_Err_OUT_OF_MEMORY = 4,
  PF_Err_INTERNAL_STRUCT_DAMAGED = PF_FIRST_ERR,
  PF_Err_INVALID_INDEX,
  PF_Err_UNRECOGNIZED_PARAM_TYPE,
  PF_Err_INVALID_CALLBACK,
  PF_Err_BAD_CALLBACK_PARAM,
  PF_Interrupt_CANCEL,
  PF_Err_CANNOT_PARSE_KEYFRAME_TEXT
};

enum {
  A_Err_NONE = 0,
  A_Err_GENERIC = 1,
  A_Err_STRUCT = 2,
  A_Err_PARAMETER = 3,
  A_Err_ALLOC = 4,
  A_Err_WRONG_THREAD = 5,
  A_Err_CONST_PROJECT_MODIFICATION = 6,
  A_Err_MISSING_SUITE = 13,
  A_Err_NOT_IN_CACHE_OR_COMPUTE_PENDING = 22,
  A_Err_PROJECT_LOAD_FATAL = 23,
  A_Err_EFFECT_APPLY_FATAL = 24,
  A_Err_LAST = 25
};

enum {
  PF_Event_NONE = -1,
  PF_Event_NEW_CONTEXT = 0,
  PF_Event_ACTIVATE,
  PF_Event_DO_CLICK,
  PF_Event_DRAG,
  PF_Event_DRAW,
  PF_Event_DEACTIVATE,
  PF_Event_CLOSE_CONTEXT,
  PF_Event_IDLE,
  PF_Event_KEYDOWN_OBSOLETE,
  PF_Event_ADJUST_CURSOR,
  PF_Event_KEYDOWN,
  PF_Event_MOUSE_EXITED,
  PF_Event_NUM_EVENTS
};

enum { PF_EA_NONE = 0, PF_EA_PARAM_TITLE = 1, PF_EA_CONTROL = 2 };
enum {
  PF_EO_NONE = 0,
  PF_EO_HANDLED_EVENT = 1,
  PF_EO_ALWAYS_UPDATE = 2,
  PF_EO_NEVER_UPDATE = 4,
  PF_EO_UPDATE_NOW = 8
};
enum { PF_EI_NONE = 0, PF_EI_DONT_DRAW = 1 };
enum {
  PF_Window_NONE = -1,
  PF_Window_COMP = 0,
  PF_Window_LAYER = 1,
  PF_Window_EFFECT = 2,
  PF_Window_PREVIEW = 3
};
enum {
  PF_CustomEFlag_NONE = 0,
  PF_CustomEFlag_COMP = 1,
  PF_CustomEFlag_LAYER = 2,
  PF_CustomEFlag_EFFECT = 4,
  PF_CustomEFlag_PREVIEW = 8
};
enum {
  PF_UIAlignment_NONE = 0,
  PF_UIAlignment_TOP = 1,
  PF_UIAlignment_LEFT = 2,
  PF_UIAlignment_BOTTOM = 4,
  PF_UIAlignment_RIGHT = 8
};
enum {
  PF_Mod_NONE = 0,
  PF_Mod_CMD_CTRL_KEY = 256,
  PF_Mod_SHIFT_KEY = 512,
  PF_Mod_CAPS_LOCK_KEY = 1024,
  PF_Mod_OPT_ALT_KEY = 2048,
  PF_Mod_MAC_CONTROL_KEY = 4096
};

enum { PF_Quality_DRAWING_AUDIO = -1, PF_Quality_LO = 0, PF_Quality_HI = 1 };
enum { PF_Field_FRAME = 0, PF_Field_UPPER = 1, PF_Field_LOWER = 2 };
enum { PF_MF_Alpha_PREMUL = 0, PF_MF_Alpha_STRAIGHT = 1 };
enum { PF_WorldFlag_DEEP = 1, PF_WorldFlag_WRITEABLE = 2 };
enum {
  PF_NewWorldFlag_NONE = 0,
  PF_NewWorldFlag_CLEAR_PIXELS = 1,
  PF_NewWorldFlag_DEEP_PIXELS = 2
};
enum {
  PF_RenderOutputFlag_RETURNS_EXTRA_PIXELS = 1,
  PF_RenderOutputFlag_GPU_RENDER_POSSIBLE = 2,
  PF_RenderOutputFlag_RESERVED1 = 4
};
enum {
  PF_ChannelMask_ALPHA = 1,
  PF_ChannelMask_RED = 2,
  PF_ChannelMask_GREEN = 4,
  PF_ChannelMask_BLUE = 8,
  PF_ChannelMask_ARGB = 15
};
enum {
  PF_GPU_Framework_NONE = 0,
  PF_GPU_Framework_OPENCL = 1,
  PF_GPU_Framework_METAL = 2,
  PF_GPU_Framework_CUDA = 3
};

// After Effects pixel formats (four characters, first character in the low byte).
#define PF_PixelFormat_ARGB32 ((PF_PixelFormat)0x62677261)
#define PF_PixelFormat_ARGB64 ((PF_PixelFormat)0x36316561)
#define PF_PixelFormat_ARGB128 ((PF_PixelFormat)0x32336561)
#define PF_PixelFormat_GPU_BGRA128 ((PF_PixelFormat)0x41444340)
#define PF_PixelFormat_RESERVED ((PF_PixelFormat)0x61444340)
#define PF_PixelFormat_BGRA32 ((PF_PixelFormat)0x61726762)
#define PF_PixelFormat_VUYA32 ((PF_PixelFormat)0x61797576)
#define PF_PixelFormat_NTSCDV25 ((PF_PixelFormat)0x326E7664)
#define PF_PixelFormat_PALDV25 ((PF_PixelFormat)0x32707664)
#define PF_PixelFormat_INVALID ((PF_PixelFormat)0x66646162)

// Premiere pixel formats, an enumeration as in the host's own headers (four bytes:
// every code fits in an int). The three ARGB_4444 codes are the ones this effect
// announces; they share the A, R, G, B channel order of the After Effects worlds.
enum PrPixelFormat {
  PrPixelFormat_BGRA_4444_8u = 0x61726762,
  PrPixelFormat_BGRA_4444_16u = 0x61726742,
  PrPixelFormat_BGRA_4444_32f = 0x61724742,
  PrPixelFormat_ARGB_4444_8u = 0x62677261,
  PrPixelFormat_ARGB_4444_16u = 0x62677241,
  PrPixelFormat_ARGB_4444_32f = 0x62675241,
  PrPixelFormat_VUYA_4444_8u = 0x61797576,
  PrPixelFormat_Invalid = 0x66646162,
  PrPixelFormat_Any = 0
};
typedef enum PrPixelFormat PrPixelFormat;

// Plug-in kind and host application codes.
#define PF_Kind_EFFECT ((A_long)0x65464B54) /* 'eFKT' */
#define PF_APPL_ID_PREMIERE ((A_long)0x50724D72) /* 'PrMr' */
#define PF_APPL_ID_AFTER_EFFECTS ((A_long)0x46585443) /* 'FXTC' */

// Drawbot.
typedef struct _DRAWBOT_DrawRef* DRAWBOT_DrawRef;
typedef struct _DRAWBOT_SupplierRef* DRAWBOT_SupplierRef;
typedef struct _DRAWBOT_SurfaceRef* DRAWBOT_SurfaceRef;
typedef struct _DRAWBOT_PenRef* DRAWBOT_PenRef;
typedef struct _DRAWBOT_PathRef* DRAWBOT_PathRef;
typedef struct _DRAWBOT_BrushRef* DRAWBOT_BrushRef;
typedef struct _DRAWBOT_ImageRef* DRAWBOT_ImageRef;
typedef struct _DRAWBOT_FontRef* DRAWBOT_FontRef;
typedef struct _DRAWBOT_ObjectRef* DRAWBOT_ObjectRef;
typedef int DRAWBOT_PixelLayout;
typedef int DRAWBOT_FillType;
typedef int DRAWBOT_TextAlignment;
typedef int DRAWBOT_TextTruncation;
typedef int DRAWBOT_InterpolationPolicy;
typedef int DRAWBOT_AntiAliasPolicy;
typedef uint8_t DRAWBOT_Boolean;
typedef uint16_t DRAWBOT_UTF16Char;

enum {
  kDRAWBOT_PixelLayout_24RGB = 0,
  kDRAWBOT_PixelLayout_24BGR,
  kDRAWBOT_PixelLayout_32RGB,
  kDRAWBOT_PixelLayout_32BGR,
  kDRAWBOT_PixelLayout_32ARGB_Straight,
  kDRAWBOT_PixelLayout_32ARGB_Premul,
  kDRAWBOT_PixelLayout_32BGRA_Straight,
  kDRAWBOT_PixelLayout_32BGRA_Premul
};
enum { kDRAWBOT_FillType_EvenOdd = 0, kDRAWBOT_FillType_Winding = 1, kDRAWBOT_FillType_Default = 1 };
enum {
  kDRAWBOT_TextAlignment_Left = 0,
  kDRAWBOT_TextAlignment_Center = 1,
  kDRAWBOT_TextAlignment_Right = 2,
  kDRAWBOT_TextAlignment_Default = 0
};
enum {
  kDRAWBOT_TextTruncation_None = 0,
  kDRAWBOT_TextTruncation_End = 1,
  kDRAWBOT_TextTruncation_EndEllipsis = 2,
  kDRAWBOT_TextTruncation_PathEllipsis = 3
};
enum {
  kDRAWBOT_InterpolationPolicy_None = 0,
  kDRAWBOT_InterpolationPolicy_Med = 1,
  kDRAWBOT_InterpolationPolicy_High = 2,
  kDRAWBOT_InterpolationPolicy_Default = 0
};
enum {
  kDRAWBOT_AntiAliasPolicy_None = 0,
  kDRAWBOT_AntiAliasPolicy_Med = 1,
  kDRAWBOT_AntiAliasPolicy_High = 2,
  kDRAWBOT_AntiAliasPolicy_Default = 0
};

// Small value records.
typedef struct PF_Pixel {
  A_u_char alpha, red, green, blue;
} PF_Pixel;
typedef PF_Pixel PF_Pixel8;
typedef PF_Pixel PF_UnionablePixel;

typedef struct PF_Pixel16 {
  A_u_short alpha, red, green, blue;
} PF_Pixel16;

typedef struct PF_PixelFloat {
  PF_FpShort alpha, red, green, blue;
} PF_PixelFloat;
typedef PF_PixelFloat PF_Pixel32;

typedef PF_Pixel* PF_PixelPtr;

typedef struct PF_Point {
  A_long h, v;
} PF_Point;

typedef struct PF_LRect {
  A_long left, top, right, bottom;
} PF_LRect;
typedef PF_LRect PF_Rect;
typedef PF_LRect PF_UnionableRect;

typedef struct PF_RationalScale {
  A_long num;
  A_u_long den;
} PF_RationalScale;

typedef struct PF_SpecVersion {
  A_short major;
  A_short minor;
} PF_SpecVersion;

typedef struct PF_FixedPoint {
  PF_Fixed x, y;
} PF_FixedPoint;

typedef struct A_Time {
  A_long value;
  A_u_long scale;
} A_Time;

typedef struct A_Ratio {
  A_long num;
  A_u_long den;
} A_Ratio;

typedef struct A_LRect {
  A_long left, top, right, bottom;
} A_LRect;

typedef struct A_FloatPoint {
  A_FpLong x, y;
} A_FloatPoint;

typedef struct DRAWBOT_PointF32 {
  float x, y;
} DRAWBOT_PointF32;

typedef struct DRAWBOT_RectF32 {
  float left, top, width, height;
} DRAWBOT_RectF32;

typedef struct DRAWBOT_Rect32 {
  int left, top, width, height;
} DRAWBOT_Rect32;

typedef struct DRAWBOT_ColorRGBA {
  float red, green, blue, alpha;
} DRAWBOT_ColorRGBA;

typedef struct DRAWBOT_MatrixF32 {
  float mat[3][3];
} DRAWBOT_MatrixF32;

typedef struct PF_State {
  A_long reservedAL[4];
} PF_State;

#ifdef __cplusplus
}
#endif
