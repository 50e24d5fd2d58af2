// The two exported entry points and the global and per-instance commands.
#pragma once

#include "aesdk/aesdk.h"

#define TESSELUX_EXPORT extern "C" __attribute__((visibility("default")))

TESSELUX_EXPORT A_Err PluginDataEntryFunction(PF_PluginDataPtr inPtr,
                                              PF_PluginDataCB inPluginDataCallBackPtr,
                                              SPBasicSuite* inSPBasicSuitePtr,
                                              const char* inHostName, const char* inHostVersion);

TESSELUX_EXPORT PF_Err EffectMain(PF_Cmd cmd, PF_InData* in_data, PF_OutData* out_data,
                                  PF_ParamDef* params[], PF_LayerDef* output, void* extra);

PF_Err GlobalSetup(PF_InData* in_data, PF_OutData* out_data, PF_ParamDef* params[],
                   PF_LayerDef* output, PF_OutFlags out_flags, PF_OutFlags2 out_flags2);

// Global hooks of the render side; neither has work to do.
void initRender(PF_InData* in_data, PF_OutData* out_data);
void cleanUpRender(PF_InData* in_data, PF_OutData* out_data);

PF_Err About(PF_InData* in_data, PF_OutData* out_data);

PF_Err SequenceSetup(PF_InData* in_data, PF_OutData* out_data);
PF_Err SequenceResetup(PF_InData* in_data, PF_OutData* out_data);
PF_Err SequenceSetdown(PF_InData* in_data, PF_OutData* out_data);
PF_Err SequenceFlatten(PF_InData* in_data, PF_OutData* out_data);
PF_Err GetFlattenedSequenceData(PF_InData* in_data, PF_OutData* out_data);

PF_Err HandleEvent(PF_InData* in_data, PF_OutData* out_data, PF_EventExtra* event);
