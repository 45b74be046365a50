# Installation: headers, the versioned shared libraries, a CMake package and a pkg-config file.
#
# Every shared library of the project (the contract libraries and libopcvkservices) installs
# as libX.so -> libX.so.1 -> libX.so.1.0.0, with SONAME libX.so.1.  The subsystem archives
# are inside libopcvkservices and are not installed.
include(CMakePackageConfigHelpers)

get_property(installed_targets GLOBAL PROPERTY OPCVK_INSTALLED_TARGETS)

# An installation works wherever it lands and wherever it is moved: each shared library finds
# the others beside it ($ORIGIN), and the tool finds them in the libdir seen from its bindir,
# with no LD_LIBRARY_PATH.  The build tree keeps its own absolute paths.
# The build tree's runtime path gets $ORIGIN too, so that a library that needs no other of the
# project's still has an entry for the install step to rewrite.
foreach(target IN LISTS installed_targets)
  set_target_properties(${target} PROPERTIES BUILD_RPATH "$ORIGIN" INSTALL_RPATH "$ORIGIN")
endforeach()
if(TARGET opcvk)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_BINDIR}" OR IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
    set(opcvk_tool_rpath "${CMAKE_INSTALL_FULL_LIBDIR}")
  else()
    file(RELATIVE_PATH opcvk_bin_to_lib "/root/${CMAKE_INSTALL_BINDIR}"
         "/root/${CMAKE_INSTALL_LIBDIR}")
    set(opcvk_tool_rpath "$ORIGIN/${opcvk_bin_to_lib}")
  endif()
  set_target_properties(opcvk PROPERTIES INSTALL_RPATH "${opcvk_tool_rpath}")
endif()
install(TARGETS ${installed_targets}
  EXPORT opcvkservicesTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

# What the installed libraries name in their public interface, a consumer must find again:
# Boost (error_code and ptime in the headers) always, Xerces-C once the package model's XML
# library, whose wrappers show it, is installed.
set(OPCVK_PACKAGE_DEPENDENCIES "find_dependency(Boost 1.74 COMPONENTS system date_time)")
set(OPCVK_PC_REQUIRES "")
if(opcmodel_xml IN_LIST installed_targets)
  string(APPEND OPCVK_PACKAGE_DEPENDENCIES "\nfind_dependency(XercesC 3.2)")
  set(OPCVK_PC_REQUIRES "xerces-c >= 3.2")
endif()

set(OPCVK_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/opcvkservices)
install(EXPORT opcvkservicesTargets NAMESPACE opcvkservices:: DESTINATION ${OPCVK_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/opcvkservicesConfig.cmake.in
  ${PROJECT_BINARY_DIR}/opcvkservicesConfig.cmake INSTALL_DESTINATION ${OPCVK_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/opcvkservicesConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/opcvkservicesConfig.cmake
              ${PROJECT_BINARY_DIR}/opcvkservicesConfigVersion.cmake
        DESTINATION ${OPCVK_CMAKE_DIR})

# The pkg-config file finds the prefix from its own place, so that an installation moved or
# made with `cmake --install --prefix` elsewhere still points at itself.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(OPCVK_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
  set(OPCVK_PC_LIBDIR "${CMAKE_INSTALL_LIBDIR}")
else()
  file(RELATIVE_PATH pc_to_prefix "/root/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/root")
  string(REGEX REPLACE "/$" "" pc_to_prefix "${pc_to_prefix}")
  set(OPCVK_PC_PREFIX "\${pcfiledir}/${pc_to_prefix}")
  set(OPCVK_PC_LIBDIR "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
endif()
if(IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
  set(OPCVK_PC_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}")
else()
  set(OPCVK_PC_INCLUDEDIR "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
endif()
# libopcvkservices first, then the contract libraries it stands on.
set(OPCVK_PC_LIBS "-lopcvkservices")
foreach(target IN LISTS installed_targets)
  if(NOT target STREQUAL "opcvkservices")
    string(APPEND OPCVK_PC_LIBS " -l${target}")
  endif()
endforeach()
configure_file(${PROJECT_SOURCE_DIR}/cmake/opcvkservices.pc.in
  ${PROJECT_BINARY_DIR}/opcvkservices.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/opcvkservices.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
