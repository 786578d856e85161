# SPDX-License-Identifier: MIT
# Cross-build for 64-bit Windows with MinGW-w64 on a Linux host. The posix
# flavour of the compiler is needed: its standard library has std::thread.
# Test programs run through Wine, which CTest starts for each of them.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(mingw_prefix x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${mingw_prefix}-gcc-posix)
set(CMAKE_CXX_COMPILER ${mingw_prefix}-g++-posix)
set(CMAKE_RC_COMPILER ${mingw_prefix}-windres)
set(CMAKE_OBJDUMP ${mingw_prefix}-objdump)

set(CMAKE_FIND_ROOT_PATH /usr/${mingw_prefix})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

find_program(VXBUS_WINE wine REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${VXBUS_WINE})
