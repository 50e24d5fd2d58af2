# Compiles one probe with the macOS names header forced in front and checks the
# outcome: EXPECT_RC 0 means it must compile, 1 that it must fail with a
# diagnostic matching EXPECT_RE. Diagnostics in the C locale for plain quotes.
execute_process(
  COMMAND ${CMAKE_COMMAND} -E env LC_ALL=C LANG=C
          ${CXX} -std=c++17 -fsyntax-only -Wall -Wextra -include ${HEADER} ${PROBE}
  RESULT_VARIABLE rc
  OUTPUT_VARIABLE out
  ERROR_VARIABLE out)
message("${out}")
if(EXPECT_RC EQUAL 0)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${PROBE} should compile next to the macOS names, but did not")
  endif()
else()
  if(rc EQUAL 0)
    message(FATAL_ERROR "${PROBE} compiled, but its name collides with a macOS global name")
  endif()
  if(NOT out MATCHES "${EXPECT_RE}")
    message(FATAL_ERROR "${PROBE} failed, but not with a diagnostic matching '${EXPECT_RE}'")
  endif()
endif()
