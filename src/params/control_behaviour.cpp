// Placeholder until the control behaviour lands: no control changes state.
#include "params/control_behaviour.h"

PF_Err UIOnParamsUpdated(PF_InData*, PF_OutData*, PF_ParamDef*[]) { return PF_Err_NONE; }
PF_Err UIOnUserChangedParam(PF_InData*, PF_OutData*, PF_ParamDef*[], const PF_UserChangedParamExtra*) {
  return PF_Err_NONE;
}
int findAlignedValue(int, int size) { return size; }
int findAlignedValueStep(int, int size) { return size; }
