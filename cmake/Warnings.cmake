# SPDX-License-Identifier: MIT
# Warnings for this project's own targets, set per target and per compiler
# instead of for every directory: a project that adds vxbus with
# add_subdirectory gets no flag of ours on its own targets, and need not fail
# its build on a warning that a newer compiler finds in our code.
if(CMAKE_SOURCE_DIR STREQUAL PROJECT_SOURCE_DIR)
  set(vxbus_top_level ON)
else()
  set(vxbus_top_level OFF)
endif()
option(VXBUS_WARNINGS_AS_ERRORS "Fail the build on a warning in vxbus's own code"
       ${vxbus_top_level})

add_library(vxbus_warnings INTERFACE)
if(MSVC)
  target_compile_options(vxbus_warnings INTERFACE /W4
                         $<$<BOOL:${VXBUS_WARNINGS_AS_ERRORS}>:/WX>)
else()  # GCC, MinGW-w64's GCC and Clang, the fuzzers' compiler
  target_compile_options(vxbus_warnings INTERFACE -Wall -Wextra
                         $<$<BOOL:${VXBUS_WARNINGS_AS_ERRORS}>:-Werror>)
  # With ASan, gcc 12 reports maybe-uninitialized inside the standard
  # library's own <regex>; it is a known false positive, so not an error here.
  if(VXBUS_SANITIZE STREQUAL "address" AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(vxbus_warnings INTERFACE -Wno-error=maybe-uninitialized)
  endif()
endif()

# Gives every target that compiles something, in `directory` and below, the
# warnings of vxbus_warnings. Run once, after the whole tree is read, so that
# no target of ours is missed and none of an enclosing project is touched.
function(vxbus_apply_warnings directory)
  get_property(targets DIRECTORY ${directory} PROPERTY BUILDSYSTEM_TARGETS)
  foreach(target IN LISTS targets)
    get_target_property(type ${target} TYPE)
    if(type MATCHES "^(EXECUTABLE|STATIC_LIBRARY|SHARED_LIBRARY|MODULE_LIBRARY|OBJECT_LIBRARY)$")
      target_link_libraries(${target} PRIVATE vxbus_warnings)
    endif()
  endforeach()
  get_property(subdirectories DIRECTORY ${directory} PROPERTY SUBDIRECTORIES)
  foreach(subdirectory IN LISTS subdirectories)
    vxbus_apply_warnings(${subdirectory})
  endforeach()
endfunction()
