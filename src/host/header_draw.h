// The header image at the top of the effect's controls.
#pragma once

#include "aesdk/aesdk.h"

// Prepares the 320 x 17 straight-BGRA header pixels (once per process, at global setup).
void PrepareHeaderImage();
// The prepared pixels (1,280 bytes per row), or null before PrepareHeaderImage.
const void* HeaderImagePixels();

// Paints the header through the Drawbot suites; sets PF_EO_HANDLED_EVENT on success.
PF_Err DrawHeaderImage(PF_InData* in_data, PF_OutData* out_data, PF_EventExtra* event,
                       const void* pixels);
