# SPDX-License-Identifier: MIT
# Runs one example program and holds it to its exit status and to lines that
# its output must contain.
#
#   cmake -DPROGRAM=<path> [-DARGUMENTS=a|b] [-DEXPECT=text|text...]
#         [-DEMULATOR=command|argument...] -P run_example.cmake
#
# EMULATOR runs a program that was built for another system (Wine).
# Lists are separated by "|"; each EXPECT text is looked for as it stands.
string(REPLACE "|" ";" arguments "${ARGUMENTS}")
string(REPLACE "|" ";" expected "${EXPECT}")
string(REPLACE "|" ";" emulator "${EMULATOR}")

execute_process(COMMAND ${emulator} "${PROGRAM}" ${arguments}
                OUTPUT_VARIABLE output ERROR_VARIABLE output
                RESULT_VARIABLE status TIMEOUT 50)
message("${output}")

if(NOT status STREQUAL "0")
  message(FATAL_ERROR "${PROGRAM} ended with '${status}', not 0")
endif()
foreach(text IN LISTS expected)
  string(FIND "${output}" "${text}" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "the output lacks \"${text}\"")
  endif()
endforeach()
