# The package that another project finds with find_package(VelkoraSDK): the DLL of a build for
# Windows; elsewhere the library on the simulated machine, and the host program. Headers keep their
# folders below include/velkora, so that they include each other as they do here.
include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

if(WIN32)
  set(package_targets VelkoraSDK)
  set(package_guides docs/host-guide.md)
else()
  set(package_targets velkora_host velkora_simulated velkora_simulator velkora_core)
  set(package_guides docs/host-guide.md docs/host-kit.md docs/simulator-guide.md)
  set_target_properties(velkora_simulated PROPERTIES EXPORT_NAME simulated)
  set_target_properties(velkora_simulator PROPERTIES EXPORT_NAME simulator)
  set_target_properties(velkora_core PROPERTIES EXPORT_NAME core)
  set_target_properties(velkora_host PROPERTIES EXPORT_NAME host)
  install(TARGETS velkora-image)
endif()

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/VelkoraSDK)
install(TARGETS ${package_targets} EXPORT VelkoraSDKTargets
  FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/velkora)
install(EXPORT VelkoraSDKTargets NAMESPACE VelkoraSDK:: DESTINATION ${package_folder})

configure_package_config_file(cmake/VelkoraSDKConfig.cmake.in
  ${PROJECT_BINARY_DIR}/VelkoraSDKConfig.cmake INSTALL_DESTINATION ${package_folder})
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/VelkoraSDKConfigVersion.cmake
  VERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}.${PROJECT_VERSION_PATCH}
  COMPATIBILITY SameMajorVersion)
install(
  FILES ${PROJECT_BINARY_DIR}/VelkoraSDKConfig.cmake ${PROJECT_BINARY_DIR}/VelkoraSDKConfigVersion.cmake
  DESTINATION ${package_folder})
install(FILES ${package_guides} DESTINATION ${CMAKE_INSTALL_DOCDIR})
