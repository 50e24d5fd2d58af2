// Resource description of the effect for the macOS bundle (compiled with Rez
// against the vendor SDK's resource templates). The values must equal what
// the effect registers and what its global setup writes; a test checks them.
#include "AEConfig.h"
#include "AE_EffectVers.h"

#ifndef AE_OS_WIN
#include <AE_General.r>
#endif

resource 'PiPL' (16000) {
	{
		Kind {
			AEEffect
		},
		Name {
			"Tesselux"
		},
		Category {
			"Vornik"
		},
#ifdef AE_OS_WIN
		CodeWin64X86 {"EffectMain"},
#else
		CodeMacIntel64 {"EffectMain"},
		CodeMacARM64 {"EffectMain"},
#endif
		AE_PiPL_Version {
			2,
			0
		},
		AE_Effect_Spec_Version {
			PF_PLUG_IN_VERSION,
			PF_PLUG_IN_SUBVERS
		},
		AE_Effect_Version {
			691713	/* 1.5.1 release, build 1 */
		},
		AE_Effect_Info_Flags {
			0
		},
		AE_Effect_Global_OutFlags {
			0x06008000	/* CUSTOM_UI | DEEP_COLOR_AWARE | SEND_UPDATE_PARAMS_UI */
		},
		AE_Effect_Global_OutFlags_2 {
			0x08801410	/* THREADSAFE | SMART_RENDER | FLOAT_COLOR | FLATTENED_SEQUENCE_DATA | THREADED_RENDERING */
		},
		AE_Effect_Match_Name {
			"tesselux"
		},
		AE_Reserved_Info {
			8
		}
	}
};
