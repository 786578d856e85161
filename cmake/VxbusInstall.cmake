# Install rules and the Debian package: the library with its SONAME links, the
# header, a CMake package (vxbus::vxbus), a pkg-config file, vxctl with its
# manual page, all in the GNUInstallDirs places, and the Python binding.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS vxbus EXPORT vxbusTargets
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES ${PROJECT_SOURCE_DIR}/include/vxbus.h ${PROJECT_BINARY_DIR}/include/vxbus_version.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

set(vxbus_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/vxbus)
install(EXPORT vxbusTargets NAMESPACE vxbus:: DESTINATION ${vxbus_cmake_dir})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/vxbusConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/vxbusConfig.cmake
                              INSTALL_DESTINATION ${vxbus_cmake_dir})
# 0.x releases promise nothing across minor versions.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vxbusConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/vxbusConfig.cmake ${PROJECT_BINARY_DIR}/vxbusConfigVersion.cmake
        DESTINATION ${vxbus_cmake_dir})

# The .pc file finds its prefix from where it lies, so that an install with
# `cmake --install --prefix` elsewhere, or a moved tree, still works.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(vxbus_pc_PREFIX "${CMAKE_INSTALL_PREFIX}")
else()
  file(RELATIVE_PATH vxbus_pc_up "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
  string(REGEX REPLACE "/$" "" vxbus_pc_up "${vxbus_pc_up}")
  set(vxbus_pc_PREFIX "\${pcfiledir}/${vxbus_pc_up}")
endif()
foreach(dir LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${dir}}")
    set(vxbus_pc_${dir} "${CMAKE_INSTALL_${dir}}")
  else()
    set(vxbus_pc_${dir} "\${prefix}/${CMAKE_INSTALL_${dir}}")
  endif()
endforeach()
configure_file(${CMAKE_CURRENT_LIST_DIR}/vxbus.pc.in ${PROJECT_BINARY_DIR}/vxbus.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vxbus.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# The Python binding, where Debian's python3 looks for packages of the system.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/python/vxbus DESTINATION lib/python3/dist-packages
        PATTERN "__pycache__" EXCLUDE)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vxbus)
set(CPACK_PACKAGE_VENDOR "vxbus developers")
set(CPACK_PACKAGE_CONTACT "vxbus developers <vxbus@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "brokerless message bus between the processes of one installation")
string(CONCAT CPACK_PACKAGE_DESCRIPTION
       "A shared library with typed calls, notifications and signals between processes,\n"
       "over TCP or local pipes, with the header, CMake and pkg-config files to build\n"
       "against it, and vxctl, a command-line tool to call, listen and serve.")
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The package's own library is found in the staging tree, not on the system.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
include(CPack)
