// A module that registers but has no EffectMain: loading it must fail loudly.
#include "aesdk/aesdk.h"

extern "C" __attribute__((visibility("default"))) A_Err PluginDataEntryFunction(
    PF_PluginDataPtr, PF_PluginDataCB, SPBasicSuite*, const char*, const char*) {
  return A_Err_NONE;
}
