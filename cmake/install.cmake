# SPDX-License-Identifier: Apache-2.0
# What is installed: headers, the library with its soname links, the reference platform, and the two ways in which
# build systems find them. DESTDIR and the prefix are honoured.
include(CMakePackageConfigHelpers)

set(ybnet_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/ybnet)

install(DIRECTORY include/ybnet DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN *.h)
install(FILES platform/log/yb_log_reference.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ybnet/platform)
install(TARGETS ybnet ybnet_headers yb_log yb_util ybd EXPORT ybnet-targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(EXPORT ybnet-targets NAMESPACE ybnet:: DESTINATION ${ybnet_package_dir})

configure_package_config_file(cmake/ybnet-config.cmake.in ${PROJECT_BINARY_DIR}/ybnet-config.cmake
                              INSTALL_DESTINATION ${ybnet_package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ybnet-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ybnet-config.cmake ${PROJECT_BINARY_DIR}/ybnet-config-version.cmake
        DESTINATION ${ybnet_package_dir})

# Relative to the file itself, so that an installed tree can be moved.
cmake_path(RELATIVE_PATH CMAKE_INSTALL_FULL_BINDIR BASE_DIRECTORY ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig
           OUTPUT_VARIABLE YBNET_PREFIX_FROM_PC)
cmake_path(GET YBNET_PREFIX_FROM_PC PARENT_PATH YBNET_PREFIX_FROM_PC)
configure_file(cmake/libybnet.pc.in ${PROJECT_BINARY_DIR}/libybnet.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/libybnet.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
