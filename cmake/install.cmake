# SPDX-License-Identifier: Apache-2.0
# What is installed: headers, the library with its soname links, the reference platform, and the two ways in which
# build systems find them. DESTDIR and the prefix are honoured. Tests, benchmarks and demo are never installed.
include(CMakePackageConfigHelpers)

set(ybnet_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/ybnet)

install(DIRECTORY include/ybnet DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN *.h)
install(FILES platform/log/yb_log_reference.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ybnet/platform)

# Two export files, because a host may have the library without the reference platform.
install(TARGETS ybnet ybnet_headers EXPORT ybnet-targets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(TARGETS yb_log yb_util ybd EXPORT ybnet-platform-targets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(EXPORT ybnet-targets NAMESPACE ybnet:: DESTINATION ${ybnet_package_dir})
install(EXPORT ybnet-platform-targets NAMESPACE ybnet:: DESTINATION ${ybnet_package_dir})

# The test kit: for programs' tests, not for switches.
install(DIRECTORY testkit/include/ybnet DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN *.h)
install(TARGETS ybnet_testkit EXPORT ybnet-testkit-targets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(EXPORT ybnet-testkit-targets NAMESPACE ybnet:: DESTINATION ${ybnet_package_dir})
install(TARGETS ybnet_testkit_run DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS ybnet_testkit_tool DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/ybnet-testkit)
install(FILES ${PROJECT_BINARY_DIR}/libexec/ybnet-testkit/ip DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/ybnet-testkit)

configure_package_config_file(cmake/ybnet-config.cmake.in ${PROJECT_BINARY_DIR}/ybnet-config.cmake
                              INSTALL_DESTINATION ${ybnet_package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ybnet-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ybnet-config.cmake ${PROJECT_BINARY_DIR}/ybnet-config-version.cmake
        DESTINATION ${ybnet_package_dir})

# Relative to the file itself, so that an installed tree can be moved.
cmake_path(RELATIVE_PATH CMAKE_INSTALL_FULL_BINDIR BASE_DIRECTORY ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig
           OUTPUT_VARIABLE YBNET_PREFIX_FROM_PC)
cmake_path(GET YBNET_PREFIX_FROM_PC PARENT_PATH YBNET_PREFIX_FROM_PC)
cmake_path(GET CMAKE_INSTALL_FULL_BINDIR PARENT_PATH bindirs_parent)
foreach(directory LIBDIR INCLUDEDIR) # which may be absolute
  cmake_path(RELATIVE_PATH CMAKE_INSTALL_FULL_${directory} BASE_DIRECTORY ${bindirs_parent}
             OUTPUT_VARIABLE YBNET_${directory}_FROM_PREFIX)
endforeach()
foreach(name libybnet ybnet-platform)
  configure_file(cmake/${name}.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
configure_file(testkit/libybnet-testkit.pc.in ${PROJECT_BINARY_DIR}/libybnet-testkit.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/libybnet-testkit.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# Manual pages, and the pages for people with their pictures and examples, in the tree that their links expect.
install(DIRECTORY ${PROJECT_BINARY_DIR}/docs/man/man3 ${PROJECT_BINARY_DIR}/docs/man/man7
        DESTINATION ${CMAKE_INSTALL_MANDIR})
file(GLOB ybnet_pages CONFIGURE_DEPENDS docs/*.md)
install(FILES README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES lab/README.md DESTINATION ${CMAKE_INSTALL_DOCDIR}/lab)
install(FILES platform/README.md DESTINATION ${CMAKE_INSTALL_DOCDIR}/platform)
install(FILES python/README.md DESTINATION ${CMAKE_INSTALL_DOCDIR}/python)
install(FILES testkit/README.md DESTINATION ${CMAKE_INSTALL_DOCDIR}/testkit)
install(DIRECTORY testkit/example DESTINATION ${CMAKE_INSTALL_DOCDIR}/testkit)
install(FILES ${ybnet_pages} DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs)
install(DIRECTORY docs/examples docs/pictures DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs
        PATTERN *.dot EXCLUDE PATTERN render EXCLUDE)

# Where systemd looks under any prefix; what a distribution has packages put elsewhere, it says.
set(YBNET_SYSTEMD_UNIT_DIR lib/systemd/system CACHE STRING "Where systemd units are installed, from the prefix")
# The prefix may be another than when configuring; and two installations of one build may run at the same time.
install(CODE "
  set(bindir \"${CMAKE_INSTALL_BINDIR}\")
  cmake_path(ABSOLUTE_PATH bindir BASE_DIRECTORY \"\${CMAKE_INSTALL_PREFIX}\" NORMALIZE)
  file(READ \"${PROJECT_SOURCE_DIR}/tools/ybnetctl/ybnetctl-hold.service\" unit)
  string(REPLACE \"=/usr/bin/\" \"=\${bindir}/\" unit \"\${unit}\")
  set(unit_file \"${PROJECT_BINARY_DIR}/units\${bindir}/ybnetctl-hold.service\")
  file(CONFIGURE OUTPUT \"\${unit_file}\" CONTENT \"\${unit}\" @ONLY)
  set(unit_dir \"${YBNET_SYSTEMD_UNIT_DIR}\")
  cmake_path(ABSOLUTE_PATH unit_dir BASE_DIRECTORY \"\${CMAKE_INSTALL_PREFIX}\")
  file(INSTALL DESTINATION \"\${unit_dir}\" TYPE FILE FILES \"\${unit_file}\")")
