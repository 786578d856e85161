# SPDX-License-Identifier: MIT
# One switch for the sanitizer builds that every change touching threads must pass.
if(VXBUS_SANITIZE STREQUAL "address")
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer
                      -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
elseif(VXBUS_SANITIZE STREQUAL "thread")
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
elseif(NOT VXBUS_SANITIZE STREQUAL "")
  message(FATAL_ERROR "VXBUS_SANITIZE must be empty, 'address' or 'thread'")
endif()

# The fuzz build: coverage for libFuzzer in every object, with ASan and UBSan;
# the harnesses add the fuzzer's own main when they link.
if(VXBUS_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "VXBUS_FUZZ needs clang (CMAKE_CXX_COMPILER=clang++)")
  endif()
  if(NOT VXBUS_SANITIZE STREQUAL "")
    message(FATAL_ERROR "VXBUS_FUZZ brings its own sanitizers; leave VXBUS_SANITIZE empty")
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer
                      -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
endif()
