# Runs the command line in CMD (a ;-list) and checks its exit status against
# EXPECT_RC and its combined output against the regular expression EXPECT_RE.
execute_process(COMMAND ${CMD} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
set(all "${out}${err}")
if(NOT rc STREQUAL EXPECT_RC)
  message(FATAL_ERROR "exit status ${rc}, expected ${EXPECT_RC}\n${all}")
endif()
if(DEFINED EXPECT_RE AND NOT all MATCHES "${EXPECT_RE}")
  message(FATAL_ERROR "output does not match '${EXPECT_RE}':\n${all}")
endif()
