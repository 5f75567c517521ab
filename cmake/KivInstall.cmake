include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# kivfll_testing (the test doubles) installs beside it, for hosts' own tests.
install(TARGETS kivfll kivfll_testing EXPORT kivfllTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
# The command-line host, when the apps are built.
if(TARGET kivfll_cli)
  install(TARGETS kivfll_cli RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
install(DIRECTORY include/kiv DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
# The SDK's own resources (the loading spinner); the library looks for them
# at this place relative to itself (see src/platform/resources/library_location.hpp).
install(DIRECTORY resources/ DESTINATION ${CMAKE_INSTALL_DATADIR}/kivfll/resources)
install(EXPORT kivfllTargets NAMESPACE kiv:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/kivfll)

configure_package_config_file(cmake/kivfllConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/kivfllConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/kivfll)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/kivfllConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/kivfllConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/kivfllConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/kivfll)

# pkg-config, for hosts that build with something other than CMake (and for
# bridges: the C interface needs nothing else).
file(RELATIVE_PATH KIV_PC_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(cmake/kivfll.pc.in ${CMAKE_CURRENT_BINARY_DIR}/kivfll.pc @ONLY)
configure_file(cmake/kivfll_testing.pc.in ${CMAKE_CURRENT_BINARY_DIR}/kivfll_testing.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/kivfll.pc ${CMAKE_CURRENT_BINARY_DIR}/kivfll_testing.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
