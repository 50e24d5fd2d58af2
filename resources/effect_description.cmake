# The effect's registration, written once. From it the build generates the
# macOS PiPL source (.r, for Rez), the Windows PiPL resource (.rc, for windres)
# and the PiPL bytes the headless host checks against the loaded effect.
# The flags must equal what global setup writes into out_flags / out_flags2.
set(TESSELUX_EFFECT_NAME "Tesselux")
set(TESSELUX_EFFECT_MATCH_NAME "tesselux")
set(TESSELUX_EFFECT_CATEGORY "Vornik")
set(TESSELUX_EFFECT_ENTRY "EffectMain")
set(TESSELUX_EFFECT_PIPL_VERSION 2 0)
set(TESSELUX_EFFECT_SPEC_VERSION 13 28)
# Major, minor, bug fix, stage (3 = release), build.
set(TESSELUX_EFFECT_VERSION 1 5 1 3 1)
set(TESSELUX_EFFECT_INFO_FLAGS 0)
# CUSTOM_UI | DEEP_COLOR_AWARE | SEND_UPDATE_PARAMS_UI
set(TESSELUX_EFFECT_OUT_FLAGS 0x06008000)
# THREADSAFE | SMART_RENDER | FLOAT_COLOR | FLATTENED_SEQUENCE_DATA | THREADED_RENDERING
set(TESSELUX_EFFECT_OUT_FLAGS2 0x08801410)
set(TESSELUX_EFFECT_RESERVED_INFO 8)
