# Installation: headers, the versioned shared libraries, a CMake package and a pkg-config file.
include(CMakePackageConfigHelpers)

get_property(installed_targets GLOBAL PROPERTY OPCVK_INSTALLED_TARGETS)
install(TARGETS ${installed_targets}
  EXPORT opcvkservicesTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

set(OPCVK_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/opcvkservices)
install(EXPORT opcvkservicesTargets NAMESPACE opcvkservices:: DESTINATION ${OPCVK_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/opcvkservicesConfig.cmake.in
  ${PROJECT_BINARY_DIR}/opcvkservicesConfig.cmake INSTALL_DESTINATION ${OPCVK_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/opcvkservicesConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/opcvkservicesConfig.cmake
              ${PROJECT_BINARY_DIR}/opcvkservicesConfigVersion.cmake
        DESTINATION ${OPCVK_CMAKE_DIR})

configure_file(${PROJECT_SOURCE_DIR}/cmake/opcvkservices.pc.in
  ${PROJECT_BINARY_DIR}/opcvkservices.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/opcvkservices.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
