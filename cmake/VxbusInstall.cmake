# SPDX-License-Identifier: MIT
# Install rules, in four components that match the Debian packages that
# scripts/package.sh makes from them:
#   runtime  the shared library and its SONAME link           (libvxbus0)
#   dev      the header, the unversioned link, the CMake package
#            (vxbus::vxbus) and the pkg-config file            (libvxbus-dev)
#   tools    vxctl and the other programs under tools/         (vxbus-tools)
#   python   the Python binding                                (python3-vxbus)
# A plain `cmake --install` installs all four.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS vxbus EXPORT vxbusTargets
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime
                NAMELINK_COMPONENT dev
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)
install(FILES ${PROJECT_SOURCE_DIR}/include/vxbus.h ${PROJECT_BINARY_DIR}/include/vxbus_version.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)

set(vxbus_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/vxbus)
install(EXPORT vxbusTargets NAMESPACE vxbus:: DESTINATION ${vxbus_cmake_dir} COMPONENT dev)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/vxbusConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/vxbusConfig.cmake
                              INSTALL_DESTINATION ${vxbus_cmake_dir})
# 0.x releases promise nothing across minor versions.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vxbusConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/vxbusConfig.cmake ${PROJECT_BINARY_DIR}/vxbusConfigVersion.cmake
        DESTINATION ${vxbus_cmake_dir} COMPONENT dev)

# The .pc file names the prefix of the install itself, which `cmake --install
# --prefix` may change after configuring: so it is written at install time,
# with plain absolute paths that compilers print as they are.
foreach(dir LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${dir}}")
    set(vxbus_pc_${dir} "${CMAKE_INSTALL_${dir}}")
  else()
    set(vxbus_pc_${dir} "\${prefix}/${CMAKE_INSTALL_${dir}}")
  endif()
endforeach()
# Configured twice: the directories now, the prefix at install time.
set(vxbus_pc_PREFIX "@vxbus_pc_PREFIX@")
configure_file(${CMAKE_CURRENT_LIST_DIR}/vxbus.pc.in ${PROJECT_BINARY_DIR}/vxbus.pc.in @ONLY)
install(CODE "set(vxbus_pc_PREFIX \"\${CMAKE_INSTALL_PREFIX}\")
  configure_file(\"${PROJECT_BINARY_DIR}/vxbus.pc.in\" \"${PROJECT_BINARY_DIR}/vxbus.pc\" @ONLY)"
  COMPONENT dev)
install(FILES ${PROJECT_BINARY_DIR}/vxbus.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT dev)

# The Python binding goes where the prefix's Python looks for packages: for
# Debian's python3 /usr/lib/python3/dist-packages under /usr and
# lib/python3.X/dist-packages under any other prefix (such as /usr/local),
# for other builds of Python their lib/python3.X/site-packages.
# VXBUS_INSTALL_PYTHONDIR (relative to the prefix) overrides the choice.
find_package(Python3 COMPONENTS Interpreter QUIET)
if(NOT VXBUS_INSTALL_PYTHONDIR)
  set(vxbus_python_dir lib/python3/dist-packages)
  if(Python3_Interpreter_FOUND)
    execute_process(
      COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_LIST_DIR}/python_install_dir.py
              ${CMAKE_INSTALL_PREFIX}
      OUTPUT_VARIABLE vxbus_found_dir OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE rc)
    if(rc EQUAL 0 AND vxbus_found_dir)
      set(vxbus_python_dir ${vxbus_found_dir})
    endif()
  endif()
  set(VXBUS_INSTALL_PYTHONDIR ${vxbus_python_dir} CACHE STRING
      "Where the Python binding is installed, relative to the prefix")
endif()
install(DIRECTORY ${PROJECT_SOURCE_DIR}/python/vxbus DESTINATION ${VXBUS_INSTALL_PYTHONDIR}
        COMPONENT python PATTERN "__pycache__" EXCLUDE)

# pip and vxbus.__version__ read the binding's version from _version.py; it
# must be this one.
file(STRINGS ${PROJECT_SOURCE_DIR}/python/vxbus/_version.py vxbus_pip_version
     REGEX "^__version__ = ")
if(NOT vxbus_pip_version STREQUAL "__version__ = \"${PROJECT_VERSION}\"")
  message(FATAL_ERROR "python/vxbus/_version.py says '${vxbus_pip_version}', the project is ${PROJECT_VERSION}")
endif()
