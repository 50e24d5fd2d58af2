// From a host render command to one call of the block renderer.
#pragma once

#include "aesdk/aesdk.h"

PF_Err PreRender(PF_InData* in_data, PF_OutData* out_data, PF_PreRenderExtra* extra);
PF_Err SmartRender(PF_InData* in_data, PF_OutData* out_data, PF_ParamDef* params[],
                   PF_SmartRenderExtra* extra);
PF_Err LegacyRender(PF_InData* in_data, PF_OutData* out_data, PF_ParamDef* params[],
                    PF_LayerDef* output);
