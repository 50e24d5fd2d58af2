# Configures the project with TESSELUX_AE_SDK_DIR pointing at a fake SDK folder
# (empty files, this project's own, only the SDK's file layout) and checks,
# through CMake's file API, that
#   - the plug-in compiles the SDK helper sources into its module (and not the SDK's sample
#     MissingSuiteError.cpp, which the plug-in defines itself) on the vendor
#     include folders, with TESSELUX_USE_VENDOR_SDK defined;
#   - the headless host and the command stay on the project's declarations;
#   - the tests and benchmarks are left out;
#   - Rez is given AE_OS_MAC and every architecture of the bundle;
#   - the host interface header finds every vendor header on those folders
#     (compiled alone against the empty files).
cmake_minimum_required(VERSION 3.25)

set(sdk ${WORK_DIR}/sdk)
set(bin ${WORK_DIR}/build)
file(REMOVE_RECURSE ${WORK_DIR})

# The SDK's layout: Examples/Headers (with adobesdk/ below it), Headers/SP,
# Util and Resources. The Drawbot header exists only under adobesdk/.
set(fake_files
  Examples/Headers/AEConfig.h
  Examples/Headers/AE_Effect.h
  Examples/Headers/AE_EffectCB.h
  Examples/Headers/AE_EffectCBSuites.h
  Examples/Headers/AE_EffectSuites.h
  Examples/Headers/AE_EffectUI.h
  Examples/Headers/AE_EffectVers.h
  Examples/Headers/AE_Macros.h
  Examples/Headers/AE_EffectSuitesHelper.h
  Examples/Headers/PrSDKAESupport.h
  Examples/Headers/entry.h
  Examples/Headers/adobesdk/DrawbotSuite.h
  Examples/Headers/SP/SPBasic.h
  Examples/Util/AEFX_SuiteHelper.c
  Examples/Util/AEFX_SuiteHelper.h
  Examples/Util/AEGP_SuiteHandler.cpp
  Examples/Util/AEGP_SuiteHandler.h
  Examples/Util/MissingSuiteError.cpp
  Examples/Resources/AE_General.r)
foreach(f ${fake_files})
  file(WRITE ${sdk}/${f} "")
endforeach()

file(WRITE ${bin}/.cmake/api/v1/query/codemodel-v2 "")
execute_process(
  COMMAND ${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${bin} -G ${GENERATOR}
          -DCMAKE_C_COMPILER=${C_COMPILER} -DCMAKE_CXX_COMPILER=${CXX_COMPILER}
          -DCMAKE_BUILD_TYPE=Release
          -DTESSELUX_AE_SDK_DIR=${sdk}
          "-DCMAKE_OSX_ARCHITECTURES=x86_64;arm64"
  RESULT_VARIABLE rc
  OUTPUT_VARIABLE out
  ERROR_VARIABLE out)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "configuring with the fake SDK failed:\n${out}")
endif()

set(failures "")
# check("<if() condition>" "<message>"): records the message when the condition is false.
macro(check condition message)
  cmake_language(EVAL CODE "if(${condition})\nset(check_ok TRUE)\nelse()\nset(check_ok FALSE)\nendif()")
  if(NOT check_ok)
    list(APPEND failures "${message}")
  endif()
endmacro()

# File API reply: index -> code model -> one file per target.
file(GLOB index_files ${bin}/.cmake/api/v1/reply/index-*.json)
list(GET index_files 0 index_file)
file(READ ${index_file} index)
string(JSON codemodel_file GET "${index}" reply codemodel-v2 jsonFile)
file(READ ${bin}/.cmake/api/v1/reply/${codemodel_file} codemodel)
string(JSON targets GET "${codemodel}" configurations 0 targets)
string(JSON target_count LENGTH "${targets}")
set(target_names "")
math(EXPR last "${target_count} - 1")
foreach(i RANGE ${last})
  string(JSON name GET "${targets}" ${i} name)
  string(JSON json GET "${targets}" ${i} jsonFile)
  list(APPEND target_names ${name})
  set(target_json_${name} ${bin}/.cmake/api/v1/reply/${json})
endforeach()

# Reads one target: its source paths, and per compile group its defines and
# include folders, into <prefix>_sources, <prefix>_defines, <prefix>_includes.
function(read_target name prefix)
  file(READ ${target_json_${name}} t)
  set(sources "")
  string(JSON n ERROR_VARIABLE no_sources LENGTH "${t}" sources)
  if(NOT no_sources AND n GREATER 0)
    math(EXPR last "${n} - 1")
    foreach(i RANGE ${last})
      string(JSON p GET "${t}" sources ${i} path)
      # Paths inside the source tree come relative to it.
      if(NOT IS_ABSOLUTE "${p}")
        set(p ${SOURCE_DIR}/${p})
      endif()
      list(APPEND sources ${p})
    endforeach()
  endif()
  set(defines "")
  set(includes "")
  string(JSON groups ERROR_VARIABLE no_groups LENGTH "${t}" compileGroups)
  if(NOT no_groups AND groups GREATER 0)
    math(EXPR last_group "${groups} - 1")
    foreach(g RANGE ${last_group})
      string(JSON nd ERROR_VARIABLE no_defines LENGTH "${t}" compileGroups ${g} defines)
      if(NOT no_defines AND nd GREATER 0)
        math(EXPR last "${nd} - 1")
        foreach(i RANGE ${last})
          string(JSON d GET "${t}" compileGroups ${g} defines ${i} define)
          list(APPEND defines ${d})
        endforeach()
      endif()
      string(JSON ni ERROR_VARIABLE no_includes LENGTH "${t}" compileGroups ${g} includes)
      if(NOT no_includes AND ni GREATER 0)
        math(EXPR last "${ni} - 1")
        foreach(i RANGE ${last})
          string(JSON p GET "${t}" compileGroups ${g} includes ${i} path)
          if(NOT IS_ABSOLUTE "${p}")
            set(p ${SOURCE_DIR}/${p})
          endif()
          list(APPEND includes ${p})
        endforeach()
      endif()
    endforeach()
  endif()
  set(${prefix}_sources ${sources} PARENT_SCOPE)
  set(${prefix}_defines ${defines} PARENT_SCOPE)
  set(${prefix}_includes ${includes} PARENT_SCOPE)
endfunction()

foreach(t tesselux tesselux_objects thost tesselux_cli)
  check("${t} IN_LIST target_names" "target ${t} is missing")
endforeach()
foreach(t tesselux_core render_tests entry_tests host_lib_tests tesselux_bench)
  check("NOT ${t} IN_LIST target_names" "target ${t} exists although the vendor build leaves it out")
endforeach()
if(failures)
  list(JOIN failures "\n  " failures)
  message(FATAL_ERROR "vendor configuration:\n  ${failures}")
endif()

# The plug-in.
read_target(tesselux_objects plugin)
check("\"${sdk}/Examples/Util/AEFX_SuiteHelper.c\" IN_LIST plugin_sources"
      "the plug-in does not compile the SDK's AEFX_SuiteHelper.c")
check("\"${sdk}/Examples/Util/AEGP_SuiteHandler.cpp\" IN_LIST plugin_sources"
      "the plug-in does not compile the SDK's AEGP_SuiteHandler.cpp")
check("NOT \"${sdk}/Examples/Util/MissingSuiteError.cpp\" IN_LIST plugin_sources"
      "the plug-in compiles the SDK's MissingSuiteError.cpp instead of its own definition")
check("\"${SOURCE_DIR}/src/host/suites.cpp\" IN_LIST plugin_sources"
      "the plug-in lost src/host/suites.cpp (its MissingSuiteError)")
check("\"TESSELUX_USE_VENDOR_SDK=1\" IN_LIST plugin_defines"
      "the plug-in is not compiled with TESSELUX_USE_VENDOR_SDK")
foreach(dir Examples/Headers Examples/Headers/SP Examples/Util)
  check("\"${sdk}/${dir}\" IN_LIST plugin_includes" "the plug-in does not include ${dir}")
endforeach()

# The loadable module is made of those objects, the SDK helpers' included.
read_target(tesselux module)
list(JOIN module_sources "\n" module_objects)
foreach(helper AEFX_SuiteHelper.c AEGP_SuiteHandler.cpp)
  check("module_objects MATCHES \"/Examples/Util/${helper}\\\\.o\""
        "the plug-in module does not link the object of ${helper}")
endforeach()

# The headless host and the command: the project's declarations, nothing of the SDK.
foreach(t thost tesselux_cli)
  read_target(${t} host)
  check("\"${SOURCE_DIR}/sdk/include\" IN_LIST host_includes"
        "${t} does not include the project's declarations (sdk/include)")
  foreach(d ${host_defines})
    check("NOT d MATCHES \"^TESSELUX_USE_VENDOR_SDK\"" "${t} is compiled with ${d}")
  endforeach()
  foreach(p ${host_includes})
    string(FIND "${p}" "${sdk}" at)
    check("at EQUAL -1" "${t} includes the vendor folder ${p}")
  endforeach()
endforeach()

# The PiPL rule: Rez with AE_OS_MAC and both architectures.
file(GLOB_RECURSE rule_files ${bin}/*.make ${bin}/build.ninja)
set(rez_line "")
foreach(f ${rule_files})
  file(STRINGS ${f} lines REGEX "Rez .*tesselux_pipl\\.r")
  if(lines)
    list(GET lines 0 rez_line)
  endif()
endforeach()
check("NOT rez_line STREQUAL \"\"" "no Rez rule for resources/tesselux_pipl.r")
check("rez_line MATCHES \"-d AE_OS_MAC\"" "Rez is not given AE_OS_MAC: ${rez_line}")
check("rez_line MATCHES \"-arch x86_64 -arch arm64\"" "Rez is not given both architectures: ${rez_line}")
check("rez_line MATCHES \"-i ${sdk}/Examples/Resources\"" "Rez does not search the SDK's Resources: ${rez_line}")

# The host interface header against the vendor folders: every include resolves.
set(include_args "")
foreach(p ${plugin_includes})
  list(APPEND include_args -I${p})
endforeach()
execute_process(
  COMMAND ${CXX_COMPILER} -std=c++17 -fsyntax-only -x c++ -DTESSELUX_USE_VENDOR_SDK=1
          ${include_args} ${SOURCE_DIR}/sdk/include/aesdk/aesdk.h
  RESULT_VARIABLE rc
  OUTPUT_VARIABLE out
  ERROR_VARIABLE out)
check("rc EQUAL 0" "aesdk.h does not find the vendor headers on the plug-in's include folders:\n${out}")

if(failures)
  list(JOIN failures "\n  " failures)
  message(FATAL_ERROR "vendor configuration:\n  ${failures}")
endif()
message("vendor configuration: plug-in on the SDK with its helpers, host and command on the project's declarations")
