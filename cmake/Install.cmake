# `cmake --install` gives another project find_package(Orvistelle) with the Orvistelle:: targets, and
# pkg-config files for builds that do not use CMake.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/orvistelle DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS orvistelle_config EXPORT OrvistelleTargets)
install(EXPORT OrvistelleTargets NAMESPACE Orvistelle:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Orvistelle)

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/OrvistelleConfig.cmake.in
  ${CMAKE_BINARY_DIR}/OrvistelleConfig.cmake INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Orvistelle)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/OrvistelleConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/OrvistelleConfig.cmake ${CMAKE_BINARY_DIR}/OrvistelleConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Orvistelle)
