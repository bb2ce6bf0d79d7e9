# Runs PROGRAM and fails unless it exits with 0 and its standard output equals
# the file EXPECTED exactly. EMULATOR runs it on a cross-built target.
execute_process(COMMAND ${EMULATOR} ${PROGRAM}
  OUTPUT_VARIABLE actual
  ERROR_VARIABLE errors
  RESULT_VARIABLE status)
file(READ ${EXPECTED} expected)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "${PROGRAM} exited with ${status}\nstderr:\n${errors}\nstdout:\n${actual}")
endif()
if(NOT actual STREQUAL expected)
  message(FATAL_ERROR "standard output differs\n--- expected\n${expected}--- actual\n${actual}--- stderr\n${errors}")
endif()
