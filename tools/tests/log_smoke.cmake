# `oru-sensor log` on a cross-built target (run by EMULATOR): a virtual sensor
# logged for three seconds into CSV files rotated each second, stopped by
# SIGINT (exit 130) with every file complete; and, in a build without HDF5,
# --format hdf5 refused in one line with the usage status 2.
file(REMOVE_RECURSE ${DIR})
execute_process(COMMAND timeout --preserve-status -s INT 3 ${EMULATOR} ${PROGRAM} --virtual log --dir ${DIR}
    --rotate 1s -n 5 --status-every 1
  RESULT_VARIABLE status ERROR_VARIABLE errors)
if(NOT status EQUAL 130)
  message(FATAL_ERROR "log exited with ${status}, not 130\n${errors}")
endif()
file(GLOB files ${DIR}/A4486-3-12-40-2_*.csv)
list(LENGTH files count)
if(count LESS 2)
  message(FATAL_ERROR "${count} CSV files, not 2 or more\n${errors}")
endif()
set(next_first 0)
foreach(path IN LISTS files)
  file(STRINGS ${path} lines)
  list(GET lines 0 title)
  if(NOT title MATCHES "^# oru-sensor readings")
    message(FATAL_ERROR "${path} begins with ${title}")
  endif()
  # Every reading once across the files: first sequences 0, 5, 10, ...
  foreach(line IN LISTS lines)
    if(line MATCHES "^[0-9-]+T[^,]*,A4486-3-12-40-2,([0-9]+),")
      if(NOT CMAKE_MATCH_1 EQUAL next_first)
        message(FATAL_ERROR "${path}: first sequence ${CMAKE_MATCH_1}, expected ${next_first}")
      endif()
      math(EXPR next_first "${next_first} + 5")
    endif()
  endforeach()
endforeach()
if(next_first EQUAL 0)
  message(FATAL_ERROR "no readings in ${files}")
endif()
if(NOT HDF5)
  execute_process(COMMAND ${EMULATOR} ${PROGRAM} --virtual log --dir ${DIR} --format hdf5
    RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE errors)
  if(NOT status EQUAL 2 OR NOT errors MATCHES "^oru-sensor: [^\n]*without libhdf5[^\n]*\n$")
    message(FATAL_ERROR "--format hdf5: status ${status}, stderr ${errors}")
  endif()
endif()
