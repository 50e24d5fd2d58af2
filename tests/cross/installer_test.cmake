# Installs the setup program silently into a fresh Wine prefix, loads the
# installed module through the headless host, uninstalls silently and checks
# that no file, folder or registry key is left.
# -DSETUP, -DHOST_PROGRAM (render_identity.exe), -DPREFIX (a folder to create).
set(ENV{WINEDEBUG} -all)
set(ENV{WINEPREFIX} ${PREFIX})
file(REMOVE_RECURSE ${PREFIX})
function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  # The installer and uninstaller hand over to child processes: wait for all.
  execute_process(COMMAND wineserver -w)
  set(rc ${rc} PARENT_SCOPE)
  set(out "${out}" PARENT_SCOPE)
endfunction()
function(require what)
  if(NOT (${ARGN}))
    message(FATAL_ERROR "installer test: ${what}")
  endif()
endfunction()

run(wineboot -i)
set(folder "${PREFIX}/drive_c/Program Files/Common Files/Adobe/Common/Plug-ins/7.0/MediaCore/Tesselux")
set(key "HKLM\\Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\Tesselux")
run(wine ${SETUP} /S)
require("setup /S failed (${rc})" rc EQUAL 0)
require("Tesselux.aex not installed in ${folder}" EXISTS "${folder}/Tesselux.aex")
# One query lists every value of the key (each Wine start costs seconds).
run(wine reg query ${key} /reg:64)
require("the uninstall key is missing (${rc}): ${out}" rc EQUAL 0)
foreach(value DisplayName DisplayVersion Publisher UninstallString QuietUninstallString)
  string(REGEX MATCH "${value}[ \t]+REG_SZ[ \t]+[^\r\n]+" line "${out}")
  require("${value} not registered: ${out}" line)
endforeach()
string(REGEX MATCH "DisplayVersion[ \t]+REG_SZ[ \t]+${VERSION}" line "${out}")
require("DisplayVersion is not ${VERSION}: ${out}" line)
string(REGEX MATCH "QuietUninstallString[ \t]+REG_SZ[^\r\n]+/S" line "${out}")
require("QuietUninstallString does not pass /S: ${out}" line)

# The installed module, loaded and rendered through the host.
set(ENV{TESSELUX_PLUGIN} "${folder}/Tesselux.aex")
run(wine ${HOST_PROGRAM} ${PREFIX}/installed-render.bin)
require("the installed module did not load and render (${rc})" rc EQUAL 0)

run(wine "${folder}/Uninstall Tesselux.exe" /S)
require("uninstall /S failed (${rc})" rc EQUAL 0)
require("${folder} left behind" NOT EXISTS "${folder}")
run(wine reg query ${key} /reg:64)
require("the uninstall key is left: ${out}" NOT rc EQUAL 0)
message(STATUS "installed, loaded, uninstalled; nothing left")
