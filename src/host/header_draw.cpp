// Placeholder until the header drawing lands: nothing is drawn.
#include "host/header_draw.h"

void PrepareHeaderImage() {}
const void* HeaderImagePixels() { return nullptr; }
PF_Err DrawHeaderImage(PF_InData*, PF_OutData*, PF_EventExtra*, const void*) { return PF_Err_NONE; }
