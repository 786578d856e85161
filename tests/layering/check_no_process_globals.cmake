# SPDX-License-Identifier: MIT
# Fails with every line of SOURCE_DIR's transport/, paramlist/ and session/
# that holds "g_": those layers get what they need of the process as
# arguments, never from a process-wide variable. The same as
#   grep -rn 'g_' src/transport src/paramlist src/session
get_filename_component(SOURCE_DIR "${SOURCE_DIR}" ABSOLUTE)
set(found "")
foreach(folder transport paramlist session)
  file(GLOB_RECURSE files RELATIVE "${SOURCE_DIR}" "${SOURCE_DIR}/${folder}/*")
  list(SORT files)
  foreach(source IN LISTS files)
    # One list element per line: the characters that a CMake list treats
    # specially are masked first, and put back for the message.
    file(READ "${SOURCE_DIR}/${source}" text)
    string(REPLACE ";" "<s>" text "${text}")
    string(REPLACE "[" "<o>" text "${text}")
    string(REPLACE "]" "<c>" text "${text}")
    string(REPLACE "\n" ";" lines "${text}")
    set(number 0)
    foreach(line IN LISTS lines)
      math(EXPR number "${number} + 1")
      string(FIND "${line}" "g_" at)
      if(NOT at EQUAL -1)
        string(REPLACE "<s>" ";" line "${line}")
        string(REPLACE "<o>" "[" line "${line}")
        string(REPLACE "<c>" "]" line "${line}")
        string(APPEND found "\n  ${source}:${number}: ${line}")
      endif()
    endforeach()
  endforeach()
endforeach()
if(found)
  message(FATAL_ERROR "Process-wide names in the lower layers:${found}")
endif()
message(STATUS "transport/, paramlist/ and session/ name no process-wide variable")
