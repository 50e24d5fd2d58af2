// The declarations use the host headers' own tags and types where C++ code can
// tell them apart (same sizes either way), so that code written against the
// project's declarations also compiles against the vendor headers. Checked at
// compile time: this binary only exists if every assertion held.
#include <type_traits>

#include "aesdk/aesdk.h"

static_assert(std::is_enum<PrPixelFormat>::value, "PrPixelFormat is an enumeration");
static_assert(std::is_same<PrPixelFormat, enum PrPixelFormat>::value, "PrPixelFormat carries its own tag");
static_assert(sizeof(PrPixelFormat) == 4, "PrPixelFormat is four bytes");
static_assert(!std::is_convertible<int, PrPixelFormat>::value,
              "an int does not pass for a PrPixelFormat");
static_assert(std::is_same<PF_Err (*)(PF_ProgPtr, PrPixelFormat),
                           decltype(PF_PixelFormatSuite1::AddSupportedPixelFormat)>::value,
              "AddSupportedPixelFormat takes the enumeration");

static_assert(std::is_same<PF_CustomUIInfo, struct _PF_CustomUIInfo>::value,
              "PF_CustomUIInfo is struct _PF_CustomUIInfo");
static_assert(std::is_same<PF_Err (*)(PF_ProgPtr, struct _PF_CustomUIInfo*),
                           decltype(PF_InteractCallbacks::register_ui)>::value,
              "register_ui takes struct _PF_CustomUIInfo*");

static_assert(std::is_same<PF_LayerAudio, struct _PF_LayerAudio*>::value,
              "PF_LayerAudio is struct _PF_LayerAudio*");
static_assert(std::is_same<PF_Err (*)(PF_ProgPtr, PF_LayerAudio),
                           decltype(PF_InteractCallbacks::checkin_layer_audio)>::value,
              "checkin_layer_audio takes a PF_LayerAudio");

static_assert(std::is_same<PF_CallbackFunc, struct PF_YouMustCastThisToActualFunctionType*>::value,
              "PF_CallbackFunc is the opaque pointer callers cast");
static_assert(std::is_same<PF_Err (*)(PF_ProgPtr, PF_Quality, PF_ModeFlags, PF_CallbackID,
                                      PF_CallbackFunc*),
                           decltype(PF_UtilCallbacks::get_callback_addr)>::value,
              "get_callback_addr hands back a PF_CallbackFunc");

static_assert(std::is_same<DRAWBOT_PenSuite1*, decltype(DRAWBOT_Suites::pen_suiteP)>::value,
              "DRAWBOT_Suites::pen_suiteP is typed");
static_assert(std::is_same<DRAWBOT_ImageSuite1*, decltype(DRAWBOT_Suites::image_suiteP)>::value,
              "DRAWBOT_Suites::image_suiteP is typed");

// The resource description's names for the API version are the registered pair.
static_assert(PF_PLUG_IN_VERSION == PF_AE_PLUG_IN_VERSION, "PiPL API version");
static_assert(PF_PLUG_IN_SUBVERS == PF_AE_PLUG_IN_SUBVERS, "PiPL API subversion");
