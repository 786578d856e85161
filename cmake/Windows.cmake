# SPDX-License-Identifier: MIT
# What a Windows build adds: every program and the DLL in one folder, as
# Windows finds a DLL next to the program that loads it, together with the
# compiler's runtime DLLs.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)

foreach(runtime libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll)
  execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${runtime}
                  OUTPUT_VARIABLE runtime_path OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(NOT IS_ABSOLUTE "${runtime_path}" OR NOT EXISTS "${runtime_path}")
    message(FATAL_ERROR "The compiler's ${runtime} was not found")
  endif()
  file(COPY ${runtime_path} DESTINATION ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
endforeach()

# Wine runs the test programs: headless, quiet, and in a prefix of this build
# of its own, so that nothing of the user's is touched.
if(CMAKE_CROSSCOMPILING_EMULATOR)
  set(VXBUS_WINE_PREFIX ${PROJECT_BINARY_DIR}/wine-prefix)
  set(CMAKE_CROSSCOMPILING_EMULATOR
      env -u DISPLAY -u WAYLAND_DISPLAY WINEPREFIX=${VXBUS_WINE_PREFIX} WINEDEBUG=-all
      WINEDLLOVERRIDES=mscoree,mshtml= ${CMAKE_CROSSCOMPILING_EMULATOR})
endif()
