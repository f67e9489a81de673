# Checks in the linker's MAP that PROGRAM contains objects of the library STORE and none of BASE. Then
# runs PROGRAM with FOLDER, under EMULATOR if it is set, and checks its output.

file(READ "${MAP}" map)
string(FIND "${map}" "${STORE}" store)
if(store EQUAL -1)
  message(FATAL_ERROR "${MAP}: does not name the store, so it proves nothing about base")
endif()
string(FIND "${map}" "${BASE}" base)
if(NOT base EQUAL -1)
  message(FATAL_ERROR "${MAP}: the program links ${BASE}")
endif()

execute_process(COMMAND ${EMULATOR} "${PROGRAM}" "${FOLDER}" OUTPUT_VARIABLE output RESULT_VARIABLE result)
set(expected
  "schema host-1 with host_note\n"
  "message 1 at 1700000000000: Hello!\n"
  "host log 4: [^\n]*no such table: absent")
foreach(line IN LISTS expected)
  if(NOT result EQUAL 0 OR NOT output MATCHES "${line}")
    message(FATAL_ERROR "${PROGRAM}: status ${result}, expected 0 and \"${line}\" in:\n${output}")
  endif()
endforeach()
