// The effect host interface in one include. On Linux the project's own
// declarations are used; a macOS build configured with TESSELUX_AE_SDK_DIR
// takes the vendor headers instead, which declare the same names and layouts.
#pragma once

#if defined(TESSELUX_USE_VENDOR_SDK)
#include "AEConfig.h"
#include "AE_Effect.h"
#include "AE_EffectCB.h"
#include "AE_EffectCBSuites.h"
#include "AE_EffectSuites.h"
#include "AE_EffectUI.h"
#include "AE_Macros.h"
// The SDK keeps the Drawbot header one folder down, as its own helpers include it.
#include "adobesdk/DrawbotSuite.h"
#include "PrSDKAESupport.h"
#include "SPBasic.h"
#include "entry.h"
#define PF_APPL_ID_PREMIERE ((A_long)0x50724D72)
#define PF_APPL_ID_AFTER_EFFECTS ((A_long)0x46585443)
#define PF_Kind_EFFECT ((A_long)0x65464B54)
#else
#include "aesdk/ae_types.h"
#include "aesdk/ae_records.h"
#include "aesdk/ae_suites.h"
#endif
