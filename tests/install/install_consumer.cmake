# SPDX-License-Identifier: MIT
# cmake -DBUILD_DIR=... -DCONSUMER_DIR=... -DWORK_DIR=... -DCXX=... -DPKG_CONFIG=...
#       [-DFLAGS=...] -P install_consumer.cmake
set(prefix ${WORK_DIR}/prefix)
file(REMOVE_RECURSE ${WORK_DIR})

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    string(JOIN " " line ${ARGN})
    message(FATAL_ERROR "failed (${rc}): ${line}\n${out}\n${err}")
  endif()
  set(out "${out}" PARENT_SCOPE)
endfunction()

function(expect_consumer_output out how)
  if(NOT out MATCHES "consumer: order 4711 with tea, 2 parameters")
    message(FATAL_ERROR "the consumer built with ${how} printed:\n${out}")
  endif()
  message(STATUS "${how}: ${out}")
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
file(GLOB_RECURSE installed RELATIVE ${prefix} ${prefix}/*)
foreach(want include/vxbus.h include/vxbus_version.h libvxbus.so.0 vxbusConfig.cmake
        vxbusConfigVersion.cmake vxbusTargets.cmake pkgconfig/vxbus.pc bin/vxctl man1/vxctl.1
        vxbus/paramlist.py)
  string(FIND "${installed}" "${want}" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "not installed: ${want}\ninstalled: ${installed}")
  endif()
endforeach()

# find_package, as examples/consumer/CMakeLists.txt does it.
run(${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/cmake-build -DCMAKE_PREFIX_PATH=${prefix}
    -DCMAKE_CXX_COMPILER=${CXX} "-DCMAKE_CXX_FLAGS=${FLAGS}" -DCMAKE_BUILD_TYPE=Release)
run(${CMAKE_COMMAND} --build ${WORK_DIR}/cmake-build)
run(${CMAKE_COMMAND} --install ${WORK_DIR}/cmake-build --prefix ${WORK_DIR}/consumer-prefix)
run(${WORK_DIR}/consumer-prefix/bin/vxbus_consumer)  # runs through its install rpath
expect_consumer_output("${out}" "find_package")

# pkg-config, as a hand-written Makefile would do it.
file(GLOB_RECURSE pc_files ${prefix}/*/vxbus.pc)
list(GET pc_files 0 pc_file)
get_filename_component(pc_dir ${pc_file} DIRECTORY)
set(ENV{PKG_CONFIG_PATH} ${pc_dir})
run(${PKG_CONFIG} --cflags --libs vxbus)
if(NOT out MATCHES "-I${prefix}/include" OR out MATCHES "\\.\\.")
  message(FATAL_ERROR "pkg-config gave paths that are not the prefix's plain ones: ${out}")
endif()
separate_arguments(pc_flags UNIX_COMMAND "${out}")
separate_arguments(extra_flags UNIX_COMMAND "${FLAGS}")
run(${PKG_CONFIG} --variable=libdir vxbus)
string(STRIP "${out}" libdir)
# Once with an rpath, which runs as it is, once without, which needs the
# library's directory in LD_LIBRARY_PATH, as the README says.
run(${CXX} -std=c++17 ${extra_flags} ${CONSUMER_DIR}/main.cpp ${pc_flags} -Wl,-rpath,${libdir}
    -o ${WORK_DIR}/pkg-config-consumer)
run(${WORK_DIR}/pkg-config-consumer)
expect_consumer_output("${out}" "pkg-config with an rpath")
run(${CXX} -std=c++17 ${extra_flags} ${CONSUMER_DIR}/main.cpp ${pc_flags}
    -o ${WORK_DIR}/pkg-config-consumer-plain)
run(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${libdir} ${WORK_DIR}/pkg-config-consumer-plain)
expect_consumer_output("${out}" "pkg-config with LD_LIBRARY_PATH")
