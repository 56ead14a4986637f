include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/quorbix_virtdisk)
install(TARGETS quorbix_virtdisk EXPORT quorbix_virtdiskTargets FILE_SET HEADERS)
install(EXPORT quorbix_virtdiskTargets NAMESPACE quorbix:: DESTINATION ${package_dir})

configure_package_config_file(cmake/quorbix_virtdiskConfig.cmake.in
  ${PROJECT_BINARY_DIR}/quorbix_virtdiskConfig.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/quorbix_virtdiskConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/quorbix_virtdiskConfig.cmake
  ${PROJECT_BINARY_DIR}/quorbix_virtdiskConfigVersion.cmake
  DESTINATION ${package_dir})

configure_file(cmake/quorbix_virtdisk.pc.in ${PROJECT_BINARY_DIR}/quorbix_virtdisk.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/quorbix_virtdisk.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
