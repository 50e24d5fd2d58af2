// Loading one frame's control values into a ParamValues record, and the extra
// layers (mask, time-shifted frames) checked out for it.
#pragma once

#include "aesdk/aesdk.h"
#include "params/param_values.h"

// Zero-fills `pv`, reads every control (checked out at the current time when
// `params` is null), converts the values, then checks out the mask layer and
// the time-shifted frames: as pre-render requests with `extra`, as checked-out
// parameters without. Host errors are thrown as int.
void LoadParamValues(PF_InData* in_data, PF_ParamDef** params, PF_PreRenderExtra* extra,
                     ParamValues* pv);

// Smart render: fetches the pixels of the layers pre-render asked for. On a
// host error the layers fetched so far are given back before it is thrown.
void LoadLayerParamsAE(PF_InData* in_data, PF_SmartRenderExtra* extra, ParamValues* pv);

// Gives back every layer LoadParamValues checked out (mask included); results ignored.
void CleanupLayerParams(PF_InData* in_data, PF_ParamDef** params, PF_SmartRenderExtra* extra,
                        ParamValues* pv);
