// Who the effect is: registration values, version and capability flags.
#pragma once

#include "aesdk/aesdk.h"

#define EFFECT_NAME "Tesselux"
#define EFFECT_MATCH_NAME "tesselux"
#define EFFECT_CATEGORY "Vornik"
#define EFFECT_ENTRY_POINT "EffectMain"
#define EFFECT_RESERVED_INFO 8

enum {
  EFFECT_MAJOR_VERSION = 1,
  EFFECT_MINOR_VERSION = 5,
  EFFECT_BUG_VERSION = 1,
  EFFECT_STAGE_VERSION = PF_Stage_RELEASE,
  EFFECT_BUILD_VERSION = 1
};

// The block size of one instance's sequence data (the size of ParamValues).
enum { SEQUENCE_BLOCK_SIZE = 3240 };

const PF_OutFlags EFFECT_OUT_FLAGS =
    PF_OutFlag_CUSTOM_UI | PF_OutFlag_DEEP_COLOR_AWARE | PF_OutFlag_SEND_UPDATE_PARAMS_UI;
const PF_OutFlags2 EFFECT_OUT_FLAGS2 =
    PF_OutFlag2_I_AM_THREADSAFE | PF_OutFlag2_SUPPORTS_SMART_RENDER |
    PF_OutFlag2_FLOAT_COLOR_AWARE | PF_OutFlag2_SUPPORTS_GET_FLATTENED_SEQUENCE_DATA |
    PF_OutFlag2_SUPPORTS_THREADED_RENDERING;
