// Fetching the effect's own layer at other times (and the mask layer), with
// the edge time modes that map a time outside the layer back into it.
#pragma once

#include "aesdk/aesdk.h"

// Edge time modes, as "Edge Time Mode" gives them (0-based).
enum { EDGE_REPEAT_LAST = 0, EDGE_WRAP = 1, EDGE_MIRROR = 2 };

// Checkout id of time-shifted frame i (1-based): 1023 + i.
enum { TIME_FRAME_CHECKOUT_BASE = 1023 };

// The host time at which to fetch the layer for an offset of `time` from the
// current time (frames of `time_step` units when unitIsFrames is non-zero and
// `time` is already in host units, seconds otherwise), optionally snapped to
// multiples of frameSkip + 1 frames (frameSkip > 0), then mapped into the
// layer's duration by `edgeMode`. Arithmetic is the host's: signed 32-bit,
// truncating toward zero. The result goes to the host as computed: Mirror
// lies in [0, total_time), Wrap can be up to one frame before the start and
// Repeat Last's last frame (total_time - time_step) is before the start for a
// layer shorter than one frame.
A_long sampleTime(const PF_InData* in_data, double time, int unitIsFrames, int edgeMode,
                  double frameSkip);

// Checks out layer control `paramId` at the sample time. With `extra`
// (pre-render) the host only records the request under `checkoutId`; without
// it (legacy render) the parameter is checked out into `param` and *out points
// at its layer. Host errors are thrown as int. Returns 0.
int checkoutLayer(int paramId, int checkoutId, double time, int unitIsFrames, int edgeMode,
                  double frameSkip, PF_InData* in_data, PF_LayerDef** out, PF_ParamDef* param,
                  PF_PreRenderExtra* extra);

// Checks out layer control `paramId` at the current time into `param` (legacy render).
PF_ParamDef* getLayerParam(PF_InData* in_data, int paramId, PF_ParamDef* param);

// The pixels of an earlier pre-render checkout; null when the host has none
// (a layer control naming no layer). Host errors are thrown as int.
PF_EffectWorld* checkoutLayerPixels(int checkoutId, PF_InData* in_data, PF_SmartRenderExtra* extra);

// Gives a layer back: by checkout id with `extra`, else the checked-out `param`.
PF_Err checkinLayer(int checkoutId, PF_ParamDef* param, PF_InData* in_data,
                    PF_SmartRenderExtra* extra);
