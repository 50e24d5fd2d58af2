// The render commands are not wired to the block renderer yet: they answer
// PF_Err_NONE and leave the output as the host gave it.
#include "host/render_pipeline.h"

PF_Err PreRender(PF_InData*, PF_OutData*, PF_PreRenderExtra*) { return PF_Err_NONE; }
PF_Err SmartRender(PF_InData*, PF_OutData*, PF_ParamDef*[], PF_SmartRenderExtra*) { return PF_Err_NONE; }
PF_Err LegacyRender(PF_InData*, PF_OutData*, PF_ParamDef*[], PF_LayerDef*) { return PF_Err_NONE; }
