#include "host/suites.h"

#if !defined(TESSELUX_USE_VENDOR_SDK)

namespace {

const char kAcquireFailed[] = "Not able to acquire AEFX Suite.";
const char kReleaseFailed[] = "Not able to release AEFX Suite.";

// Shows `message` through the host: the text goes in as sprintf's format, as
// the helpers always have done it.
void reportSuiteError(PF_InData* in_data, PF_OutData* out_data, const char* message) {
  if (!out_data) return;
  out_data->out_flags |= PF_OutFlag_DISPLAY_ERROR_MESSAGE;
  if (in_data && in_data->utils) in_data->utils->ansi.sprintf(out_data->return_msg, message);
}

}  // namespace

PF_Err AEFX_AcquireSuite(PF_InData* in_data, PF_OutData* out_data, const char* name,
                         int32_t version, const char* error_stringPC0, void** suitePP) {
  // The host's own result is not trusted: a null table is what counts as failure.
  if (in_data->pica_basicP) {
    in_data->pica_basicP->AcquireSuite(name, version, const_cast<const void**>(suitePP));
  }
  if (!in_data->pica_basicP || *suitePP == nullptr) {
    reportSuiteError(in_data, out_data, error_stringPC0 ? error_stringPC0 : kAcquireFailed);
    return PF_Err_BAD_CALLBACK_PARAM;
  }
  return PF_Err_NONE;
}

PF_Err AEFX_ReleaseSuite(PF_InData* in_data, PF_OutData* out_data, const char* name,
                         int32_t version, const char* error_stringPC0) {
  if (!in_data->pica_basicP) {
    reportSuiteError(in_data, out_data, error_stringPC0 ? error_stringPC0 : kReleaseFailed);
    return PF_Err_BAD_CALLBACK_PARAM;
  }
  in_data->pica_basicP->ReleaseSuite(name, version);
  return PF_Err_NONE;
}

PF_Err AEFX_AcquireDrawbotSuites(PF_InData* in_data, PF_OutData* out_data,
                                 DRAWBOT_Suites* suitesP) {
  if (!suitesP) {
    reportSuiteError(in_data, out_data, "NULL suite pointer passed to AEFX_AcquireDrawbotSuites");
    return PF_Err_BAD_CALLBACK_PARAM;
  }
  PF_Err err = AEFX_AcquireSuite(in_data, out_data, kDRAWBOT_DrawSuite,
                                 kDRAWBOT_DrawSuite_Version1, nullptr,
                                 reinterpret_cast<void**>(&suitesP->drawbot_suiteP));
  if (!err) {
    err = AEFX_AcquireSuite(in_data, out_data, kDRAWBOT_SupplierSuite,
                            kDRAWBOT_SupplierSuite_Version1, nullptr,
                            reinterpret_cast<void**>(&suitesP->supplier_suiteP));
  }
  if (!err) {
    err = AEFX_AcquireSuite(in_data, out_data, kDRAWBOT_SurfaceSuite,
                            kDRAWBOT_SurfaceSuite_Version2, nullptr,
                            reinterpret_cast<void**>(&suitesP->surface_suiteP));
  }
  if (!err) {
    err = AEFX_AcquireSuite(in_data, out_data, kDRAWBOT_PathSuite, kDRAWBOT_PathSuite_Version1,
                            nullptr, reinterpret_cast<void**>(&suitesP->path_suiteP));
  }
  return err;
}

PF_Err AEFX_ReleaseDrawbotSuites(PF_InData* in_data, PF_OutData* out_data) {
  // All four are released whatever happens; the first failure is the result.
  PF_Err err = AEFX_ReleaseSuite(in_data, out_data, kDRAWBOT_DrawSuite,
                                 kDRAWBOT_DrawSuite_Version1, nullptr);
  PF_Err next = AEFX_ReleaseSuite(in_data, out_data, kDRAWBOT_SupplierSuite,
                                  kDRAWBOT_SupplierSuite_Version1, nullptr);
  if (!err) err = next;
  next = AEFX_ReleaseSuite(in_data, out_data, kDRAWBOT_SurfaceSuite,
                           kDRAWBOT_SurfaceSuite_Version2, nullptr);
  if (!err) err = next;
  next = AEFX_ReleaseSuite(in_data, out_data, kDRAWBOT_PathSuite, kDRAWBOT_PathSuite_Version1,
                           nullptr);
  if (!err) err = next;
  return err;
}

AEGP_SuiteHandler::AEGP_SuiteHandler(const SPBasicSuite* pica_basicP) : pica_basicP_(pica_basicP) {
  if (!pica_basicP_) MissingSuiteError();
}

AEGP_SuiteHandler::~AEGP_SuiteHandler() {
  if (handle_suite1_) pica_basicP_->ReleaseSuite(kPFHandleSuite, kPFHandleSuiteVersion1);
  if (param_utils_suite3_) {
    pica_basicP_->ReleaseSuite(kPFParamUtilsSuite, kPFParamUtilsSuiteVersion3);
  }
}

const void* AEGP_SuiteHandler::Acquire(const char* name, int32_t version,
                                       const void** slot) const {
  if (*slot == nullptr) {
    const void* suite = nullptr;
    const SPErr err = pica_basicP_->AcquireSuite(name, version, &suite);
    if (err != kSPNoError || suite == nullptr) MissingSuiteError();
    *slot = suite;
  }
  return *slot;
}

const PF_HandleSuite1* AEGP_SuiteHandler::HandleSuite1() const {
  return static_cast<const PF_HandleSuite1*>(
      Acquire(kPFHandleSuite, kPFHandleSuiteVersion1, &handle_suite1_));
}

const PF_ParamUtilsSuite3* AEGP_SuiteHandler::ParamUtilsSuite3() const {
  return static_cast<const PF_ParamUtilsSuite3*>(
      Acquire(kPFParamUtilsSuite, kPFParamUtilsSuiteVersion3, &param_utils_suite3_));
}

#endif  // !TESSELUX_USE_VENDOR_SDK

// The suite handler leaves this one to the plug-in (the SDK's handler declares
// it and does not define it): a missing suite ends the command with 516 and no message.
void AEGP_SuiteHandler::MissingSuiteError() const {
  throw static_cast<A_long>(PF_Err_BAD_CALLBACK_PARAM);
}

PF_Boolean IsEmptyRect(const PF_LRect* r) {
  return (r->left >= r->right) || (r->top >= r->bottom);
}

void UnionLRect(const PF_LRect* src, PF_LRect* dst) {
  if (IsEmptyRect(dst)) {
    *dst = *src;
  } else if (!IsEmptyRect(src)) {
    if (src->left < dst->left) dst->left = src->left;
    if (src->top < dst->top) dst->top = src->top;
    if (src->right > dst->right) dst->right = src->right;
    if (src->bottom > dst->bottom) dst->bottom = src->bottom;
  }
}
