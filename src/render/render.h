// The block renderer: one entry point per pixel depth. Each lines up the time
// frames, converts the record's values to the kernel's integer forms, runs the
// block shuffle kernel on `output` and frees what it allocated.
#pragma once

#include "aesdk/aesdk.h"
#include "params/param_values.h"

// 8 bits per channel (ARGB, 4 bytes a pixel).
PF_Err renderARGB8(PF_LayerDef* input, PF_LayerDef* output, ParamValues values, float downsample);
// 16 bits per channel, 0..32768 (8 bytes a pixel).
PF_Err renderARGB16(PF_LayerDef* input, PF_LayerDef* output, ParamValues values, float downsample);
// 32-bit float per channel, 1.0 full (16 bytes a pixel).
PF_Err renderARGB32(PF_LayerDef* input, PF_LayerDef* output, ParamValues values, float downsample);
