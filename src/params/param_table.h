// Registration of the controls of params/control_table.h with the host, and
// the id-to-index map.
#pragma once

#include "aesdk/aesdk.h"
#include "params/control_table.h"

// Width and height of the header image control and of its picture.
enum { HEADER_IMAGE_WIDTH = 320, HEADER_IMAGE_HEIGHT = 17 };

// True when the host is not Premiere Pro and its API version is at least 13.9.
bool hostShowsHeaderImage(const PF_InData* in_data);
// True when in_data->version is exactly 13.23 (the header lives in the control area there).
bool hostIsApi13_23(const PF_InData* in_data);
// True when the host API version is at least 13.9.
bool hostApiAtLeast13_9(const PF_InData* in_data);

PF_Err UIInitParams(PF_InData* in_data, PF_OutData* out_data, PF_ParamDef* params[]);
PF_Err AddUIHeaderImage(PF_InData* in_data, PF_OutData* out_data, int id);

// Map maintenance. addParam gives `id` the index size + 1 (inserting it when
// absent); getParamIndexFromId inserts an unknown id with index 0 and returns 0.
void addParam(int id);
int getParamIndexFromId(int id);
// Throws std::logic_error unless the map holds exactly count - 1 entries.
void verifyNumParams(int count);
// Adds the ids that are looked up but never registered (0, and the header's
// when it was not added) with index 0, so that after setup the map is only read.
void completeParamMap(bool headerAdded);

// The definition of control `id`: the host's own (params non-null), or a copy
// checked out at the current time into `scratch` (params null; a host error is
// thrown as an int).
PF_ParamDef* getParam(PF_InData* in_data, PF_ParamDef* params[], int id, PF_ParamDef* scratch);
