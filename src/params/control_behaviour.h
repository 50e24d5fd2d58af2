// Keeps the controls consistent while the user edits them: enabling rules and
// the "Align" button.
#pragma once

#include "aesdk/aesdk.h"

PF_Err UIOnParamsUpdated(PF_InData* in_data, PF_OutData* out_data, PF_ParamDef* params[]);
PF_Err UIOnUserChangedParam(PF_InData* in_data, PF_OutData* out_data, PF_ParamDef* params[],
                            const PF_UserChangedParamExtra* extra);

// The block size nearest to `size` that tiles a layer dimension `total`.
int findAlignedValue(int total, int size);
int findAlignedValueStep(int total, int size);
