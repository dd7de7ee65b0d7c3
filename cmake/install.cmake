# Install rules: the shared and static libraries, the public headers, the tool, a CMake package
# (find_package(rtmonitor CONFIG) -> rtmonitor::rtmonitor) and a pkg-config file. Paths follow
# GNUInstallDirs, so distributions can relocate them with the usual CMAKE_INSTALL_* variables.
include(CMakePackageConfigHelpers)

set(RTM_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/rtmonitor)

install(TARGETS rtmonitor rtmonitor_static EXPORT rtmonitorTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
install(FILES ${PROJECT_SOURCE_DIR}/include/rtmonitor.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/rtmonitor
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development FILES_MATCHING PATTERN "*.h")
if(TARGET rtmonitor_cli)
  install(TARGETS rtmonitor_cli RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
endif()

install(EXPORT rtmonitorTargets NAMESPACE rtmonitor:: DESTINATION ${RTM_CMAKE_DIR}
  COMPONENT development)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/rtmonitorConfig.cmake.in
  ${PROJECT_BINARY_DIR}/rtmonitorConfig.cmake INSTALL_DESTINATION ${RTM_CMAKE_DIR})
# The soname carries the major version, and so does compatibility: any 0.y satisfies a request
# for 0.2, because a change of the binary interface bumps the major version (see CHANGELOG.md).
write_basic_package_version_file(${PROJECT_BINARY_DIR}/rtmonitorConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/rtmonitorConfig.cmake ${PROJECT_BINARY_DIR}/rtmonitorConfigVersion.cmake
  DESTINATION ${RTM_CMAKE_DIR} COMPONENT development)

# pkg-config paths are relative to ${prefix} where possible, and the prefix is the one given at
# install time (cmake --install --prefix DIR), not at configure time, so the file matches the tree.
foreach(dir LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${dir}}")
    set(RTM_PC_${dir} "${CMAKE_INSTALL_${dir}}")
  else()
    set(RTM_PC_${dir} "\${prefix}/${CMAKE_INSTALL_${dir}}")
  endif()
endforeach()
set(RTM_PC_PREFIX "@RTM_INSTALL_PREFIX@")
configure_file(${CMAKE_CURRENT_LIST_DIR}/rtmonitor.pc.in ${PROJECT_BINARY_DIR}/rtmonitor.pc.in @ONLY)
install(CODE "set(RTM_INSTALL_PREFIX \"\${CMAKE_INSTALL_PREFIX}\")
  configure_file(\"${PROJECT_BINARY_DIR}/rtmonitor.pc.in\" \"${PROJECT_BINARY_DIR}/rtmonitor.pc\" @ONLY)"
  COMPONENT development)
install(FILES ${PROJECT_BINARY_DIR}/rtmonitor.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT development)
