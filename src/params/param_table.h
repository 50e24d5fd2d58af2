// The table of controls, their stable ids, and the id-to-index map.
#pragma once

#include "aesdk/aesdk.h"

// Stable control ids (PF_ParamDef::uu.id). Code finds controls by id, never by position.
enum ParamId {
  ID_CHANNELS = 1,
  ID_BLOCK_WIDTH = 2,
  ID_BLOCK_HEIGHT = 3,
  ID_SHUFFLE_STRENGTH = 4,
  ID_SHUFFLE_SPREAD = 5,
  ID_SHUFFLE_DIRECTION = 6,
  ID_SHUFFLE_SEED = 7,
  ID_HEADER_IMAGE = 8,
  ID_TIME_FRAMES = 9,
  ID_TIME_PROBABILITY = 10,
  ID_STEPPING_UNIT = 11,
  ID_TIME_STEP_SECONDS = 12,
  ID_TIME_STEP_FRAMES = 13,
  ID_EDGE_TIME_MODE = 14,
  ID_TIME_SEED = 15,
  ID_EXCLUSIVE_MODE = 16,
  ID_TIME_GROUP_START = 17,
  ID_TIME_GROUP_END = 18,
  ID_MASK_SOURCE = 19,
  ID_MASK_INTENSITY = 20,
  ID_MASK_TYPE = 21,
  ID_MASK_SEED = 22,
  ID_MASK_GROUP_START = 23,
  ID_MASK_GROUP_END = 24,
  ID_COMPOSITE_ON_ORIGINAL = 25,
  ID_ALIGN_BUTTON = 26
};

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
