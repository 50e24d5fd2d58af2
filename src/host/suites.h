// Host suite access: the SDK's acquisition helpers, the lazy suite handler,
// the throwing scoped acquisition, and the rectangle helpers.
#pragma once

#include "aesdk/aesdk.h"

#if defined(TESSELUX_USE_VENDOR_SDK)
#include "AEFX_SuiteHelper.h"
#include "AEGP_SuiteHandler.h"
#include "AE_EffectSuitesHelper.h"
#else

#include <stdint.h>

// Acquires `name`/`version` into *suitePP. A null basic suite or a null suite
// pointer reports `error_stringPC0` (or "Not able to acquire AEFX Suite.") in
// return_msg and returns PF_Err_BAD_CALLBACK_PARAM.
PF_Err AEFX_AcquireSuite(PF_InData* in_data, PF_OutData* out_data, const char* name,
                         int32_t version, const char* error_stringPC0, void** suitePP);

// Releases `name`/`version`; only a null basic suite is an error (516, reported).
PF_Err AEFX_ReleaseSuite(PF_InData* in_data, PF_OutData* out_data, const char* name,
                         int32_t version, const char* error_stringPC0);

// Draw 1, Supplier 1, Surface 2, Path 1, stopping at the first failure (516).
PF_Err AEFX_AcquireDrawbotSuites(PF_InData* in_data, PF_OutData* out_data,
                                 DRAWBOT_Suites* suitesP);
PF_Err AEFX_ReleaseDrawbotSuites(PF_InData* in_data, PF_OutData* out_data);

// Acquires each suite on first use and releases everything it acquired when
// destroyed. A suite that cannot be had calls MissingSuiteError(), which throws
// the int PF_Err_BAD_CALLBACK_PARAM.
class AEGP_SuiteHandler {
 public:
  explicit AEGP_SuiteHandler(const SPBasicSuite* pica_basicP);
  ~AEGP_SuiteHandler();
  AEGP_SuiteHandler(const AEGP_SuiteHandler&) = delete;
  AEGP_SuiteHandler& operator=(const AEGP_SuiteHandler&) = delete;

  const PF_HandleSuite1* HandleSuite1() const;
  const PF_ParamUtilsSuite3* ParamUtilsSuite3() const;

 private:
  void MissingSuiteError() const;
  const void* Acquire(const char* name, int32_t version, const void** slot) const;

  const SPBasicSuite* pica_basicP_;
  mutable const void* handle_suite1_ = nullptr;
  mutable const void* param_utils_suite3_ = nullptr;
};

// Inline scoped acquisition: acquires in the constructor and, on failure, sets
// PF_OutFlag_DISPLAY_ERROR_MESSAGE, writes "Not able to acquire AEFX Suite."
// (when out_data is given) and throws the int A_Err_MISSING_SUITE; releases in
// the destructor whatever it holds.
template <typename SuiteType>
class AEFX_SuiteScoper {
 public:
  AEFX_SuiteScoper(const PF_InData* in_data, const char* name, int32_t version,
                   PF_OutData* out_data = nullptr,
                   const char* error_string = "Not able to acquire AEFX Suite.")
      : pica_basicP_(in_data->pica_basicP), name_(name), version_(version) {
    const void* suite = nullptr;
    const SPErr err = pica_basicP_ ? pica_basicP_->AcquireSuite(name, version, &suite) : 1;
    if (err != 0 || suite == nullptr) {
      if (out_data) {
        out_data->out_flags |= PF_OutFlag_DISPLAY_ERROR_MESSAGE;
        if (in_data->utils) in_data->utils->ansi.sprintf(out_data->return_msg, error_string);
      }
      throw static_cast<A_long>(A_Err_MISSING_SUITE);
    }
    suite_ = static_cast<const SuiteType*>(suite);
  }
  ~AEFX_SuiteScoper() {
    if (suite_) pica_basicP_->ReleaseSuite(name_, version_);
  }
  AEFX_SuiteScoper(const AEFX_SuiteScoper&) = delete;
  AEFX_SuiteScoper& operator=(const AEFX_SuiteScoper&) = delete;

  const SuiteType* operator->() const { return suite_; }
  const SuiteType* get() const { return suite_; }

 private:
  const SPBasicSuite* pica_basicP_;
  const char* name_;
  int32_t version_;
  const SuiteType* suite_ = nullptr;
};

#endif  // TESSELUX_USE_VENDOR_SDK

PF_Boolean IsEmptyRect(const PF_LRect* r);
// Grows *dst to hold *src; an empty *dst takes *src whole, an empty *src changes nothing.
void UnionLRect(const PF_LRect* src, PF_LRect* dst);
