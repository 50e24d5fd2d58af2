// One frame's control values, converted to the units the renderer works in,
// plus the extra layers the frame needs. Zero-filled before loading and passed
// by value to the renderer, so every render owns its copy.
#pragma once

#include "aesdk/aesdk.h"

// Upper limit of "Frames": the number of time-shifted frames a render can use.
enum { MAX_TIME_FRAMES = 16 };

typedef struct ParamValues {
  A_long compositeOnOriginal;  // 0/1, as the host gives it
  A_long channels;             // 0 RGBA, 1 Red, 2 Green, 3 Blue, 4 Alpha
  A_long blockWidth;           // pixels, 1..4096
  A_long blockHeight;          // pixels, 1..4096
  double shuffleStrength;      // 0..1
  double shuffleSpread;        // 0..1
  A_long shuffleDirection;     // 0 All, 1 Horizontal, 2 Vertical
  A_long shuffleSeed;
  double maskIntensity;        // percent, 0..100
  A_long maskType;             // 0 Threshold, 1 Randomized Threshold, 2 Randomized Mask
  A_long maskSeed;
  A_long timeFrames;           // 0..16; 0 switches the time shift off
  double timeProbability;      // percent, 0..100
  A_long steppingUnit;         // 0 Second, 1 Frame
  double timeStepSeconds;      // -5..5
  double timeStepFrames;       // -256..256
  A_long edgeTimeMode;         // 0 Repeat Last, 1 Wrap, 2 Mirror
  A_long timeSeed;
  A_long exclusiveMode;        // 0/1, as the host gives it
  PF_EffectWorld* maskLayer;   // null when no "Mask Source" layer is chosen
  PF_ParamDef maskParam;       // checked-out mask layer (legacy render only)
  PF_EffectWorld* timeLayers[MAX_TIME_FRAMES];       // entry k: time-shifted frame k + 1
  PF_ParamDef timeLayerParams[MAX_TIME_FRAMES];      // checked-out frames (legacy render only)
} ParamValues;

// The record is also the size of the per-instance sequence data and of the
// pre-render handle, so its layout is part of the host-facing contract.
static_assert(sizeof(ParamValues) == 3240, "ParamValues must stay 3240 bytes");
