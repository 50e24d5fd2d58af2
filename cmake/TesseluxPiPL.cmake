# Generates the effect's PiPL from resources/effect_description.cmake:
#   tesselux_pipl.r   the macOS source, for Rez;
#   tesselux_pipl.rc  the Windows resource (type PiPL, id 16000), for windres;
#   tesselux_pipl_bytes.h  the same bytes as an array, for the host's checks.
# The Windows bytes follow the vendor's Windows PiPL layout: little-endian
# integers, four-character codes stored as little-endian integers, payloads
# padded with zeros to a multiple of 4.

# Appends to the hex string in <var> a <bytes>-byte little-endian integer.
function(_pipl_int var bytes value)
  math(EXPR v "${value}" OUTPUT_FORMAT HEXADECIMAL)
  string(SUBSTRING "${v}" 2 -1 v)
  string(LENGTH "${v}" n)
  math(EXPR pad "${bytes} * 2 - ${n}")
  if(pad GREATER 0)
    string(REPEAT "0" ${pad} zeros)
    set(v "${zeros}${v}")
  endif()
  set(out "")
  foreach(i RANGE 0 ${bytes})
    if(i EQUAL bytes)
      break()
    endif()
    math(EXPR at "(${bytes} - 1 - ${i}) * 2")
    string(SUBSTRING "${v}" ${at} 2 b)
    string(APPEND out "${b}")
  endforeach()
  set(${var} "${${var}}${out}" PARENT_SCOPE)
endfunction()

# A four-character code as a little-endian 32-bit integer: its bytes reversed.
function(_pipl_code var code)
  string(HEX "${code}" h)
  set(out "")
  foreach(at 6 4 2 0)
    string(SUBSTRING "${h}" ${at} 2 b)
    string(APPEND out "${b}")
  endforeach()
  set(${var} "${${var}}${out}" PARENT_SCOPE)
endfunction()

# Pads hex payload <p> with zero bytes to a multiple of 4; sets <p>_length to
# the padded length in bytes.
function(_pipl_pad p)
  string(LENGTH "${${p}}" n)
  math(EXPR bytes "${n} / 2")
  math(EXPR rest "(4 - ${bytes} % 4) % 4")
  if(rest GREATER 0)
    math(EXPR zeros "${rest} * 2")
    string(REPEAT "0" ${zeros} z)
    set(${p} "${${p}}${z}" PARENT_SCOPE)
  endif()
  math(EXPR len "${bytes} + ${rest}")
  set(${p}_length ${len} PARENT_SCOPE)
endfunction()

# A Pascal string payload: a length byte and the characters (the property's
# length, not this byte, counts the padding).
function(_pipl_pascal var text)
  string(LENGTH "${text}" n)
  string(HEX "${text}" h)
  set(body "")
  _pipl_int(body 1 ${n})
  set(${var} "${body}${h}" PARENT_SCOPE)
endfunction()

# Appends one property (vendor 8BIM, key, id 0, length, padded payload).
macro(_pipl_property key payload)
  set(_p "${payload}")
  _pipl_pad(_p)
  _pipl_code(pipl_props "8BIM")
  _pipl_code(pipl_props "${key}")
  _pipl_int(pipl_props 4 0)
  _pipl_int(pipl_props 4 ${_p_length})
  string(APPEND pipl_props "${_p}")
  math(EXPR pipl_count "${pipl_count} + 1")
endmacro()

function(tesselux_generate_pipl description outdir)
  include(${description})
  list(GET TESSELUX_EFFECT_PIPL_VERSION 0 pipl_major)
  list(GET TESSELUX_EFFECT_PIPL_VERSION 1 pipl_minor)
  list(GET TESSELUX_EFFECT_SPEC_VERSION 0 spec_major)
  list(GET TESSELUX_EFFECT_SPEC_VERSION 1 spec_minor)
  list(GET TESSELUX_EFFECT_VERSION 0 v_major)
  list(GET TESSELUX_EFFECT_VERSION 1 v_minor)
  list(GET TESSELUX_EFFECT_VERSION 2 v_bug)
  list(GET TESSELUX_EFFECT_VERSION 3 v_stage)
  list(GET TESSELUX_EFFECT_VERSION 4 v_build)
  math(EXPR version "(${v_major} << 19) | (${v_minor} << 15) | (${v_bug} << 11) | (${v_stage} << 9) | ${v_build}")

  set(pipl_props "")
  set(pipl_count 0)
  set(p "")
  _pipl_code(p "eFKT")
  _pipl_property("kind" "${p}")
  set(p "")
  _pipl_pascal(p "${TESSELUX_EFFECT_NAME}")
  _pipl_property("name" "${p}")
  set(p "")
  _pipl_pascal(p "${TESSELUX_EFFECT_CATEGORY}")
  _pipl_property("catg" "${p}")
  string(HEX "${TESSELUX_EFFECT_ENTRY}" p)
  _pipl_property("8664" "${p}00")
  # Two 16-bit halves of one 32-bit word, major in the high half.
  set(p "")
  _pipl_int(p 4 "(${pipl_major} << 16) | ${pipl_minor}")
  _pipl_property("ePVR" "${p}")
  set(p "")
  _pipl_int(p 4 "(${spec_major} << 16) | ${spec_minor}")
  _pipl_property("eSVR" "${p}")
  set(p "")
  _pipl_int(p 4 ${version})
  _pipl_property("eVER" "${p}")
  # 16 bits, stored in 4 bytes but declared as 2.
  set(p "")
  _pipl_int(p 2 ${TESSELUX_EFFECT_INFO_FLAGS})
  set(_p "${p}0000")
  _pipl_code(pipl_props "8BIM")
  _pipl_code(pipl_props "eINF")
  _pipl_int(pipl_props 4 0)
  _pipl_int(pipl_props 4 2)
  string(APPEND pipl_props "${_p}")
  math(EXPR pipl_count "${pipl_count} + 1")
  set(p "")
  _pipl_int(p 4 ${TESSELUX_EFFECT_OUT_FLAGS})
  _pipl_property("eGLO" "${p}")
  set(p "")
  _pipl_int(p 4 ${TESSELUX_EFFECT_OUT_FLAGS2})
  _pipl_property("eGL2" "${p}")
  set(p "")
  _pipl_pascal(p "${TESSELUX_EFFECT_MATCH_NAME}")
  _pipl_property("eMNA" "${p}")
  set(p "")
  _pipl_int(p 4 ${TESSELUX_EFFECT_RESERVED_INFO})
  _pipl_property("aeFL" "${p}")

  set(hex "")
  _pipl_int(hex 2 1)
  _pipl_int(hex 4 0)
  _pipl_int(hex 4 ${pipl_count})
  string(APPEND hex "${pipl_props}")

  # The .rc carries the bytes as 16-bit words (the total is even).
  string(LENGTH "${hex}" n)
  set(words "")
  set(array "")
  math(EXPR last "${n} - 4")
  foreach(at RANGE 0 ${last} 4)
    string(SUBSTRING "${hex}" ${at} 2 lo)
    math(EXPR at2 "${at} + 2")
    string(SUBSTRING "${hex}" ${at2} 2 hi)
    string(APPEND words "  0x${hi}${lo},\n")
    string(APPEND array "0x${lo}, 0x${hi}, ")
  endforeach()
  string(REGEX REPLACE ",\n$" "\n" words "${words}")
  file(CONFIGURE OUTPUT ${outdir}/tesselux_pipl.rc CONTENT
"// Generated from effect_description.cmake; do not edit.
16000 PiPL
BEGIN
${words}END
" @ONLY)
  file(CONFIGURE OUTPUT ${outdir}/tesselux_pipl_bytes.h CONTENT
"// Generated from effect_description.cmake; do not edit. The effect's
// Windows PiPL resource, byte for byte.
#pragma once
static const unsigned char kTesseluxPiPL[] = {${array}};
" @ONLY)

  math(EXPR out_flags "${TESSELUX_EFFECT_OUT_FLAGS}" OUTPUT_FORMAT HEXADECIMAL)
  math(EXPR out_flags2 "${TESSELUX_EFFECT_OUT_FLAGS2}" OUTPUT_FORMAT HEXADECIMAL)
  configure_file(${PROJECT_SOURCE_DIR}/resources/tesselux_pipl.r.in ${outdir}/tesselux_pipl.r @ONLY)
  set_property(DIRECTORY ${PROJECT_SOURCE_DIR} APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
    ${description} ${PROJECT_SOURCE_DIR}/cmake/TesseluxPiPL.cmake)
endfunction()
