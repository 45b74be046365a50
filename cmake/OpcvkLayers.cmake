# Helpers that give every layer the same shape.
#
# A contract layer (src/contracts/<name>) is a shared library of its own with an installed
# include directory, like the closed libraries it stands for.  A subsystem layer
# (src/<name>) is a set of position-independent objects that the shared library
# opcvkservices is made of, also packed as an archive that unit tests link directly, so that
# they can reach the internals that the shared library hides.

# Every shared library of the project binds its own functions to themselves at link time:
# nothing outside is meant to replace them, and a program then starts with fewer symbol
# look-ups and relocations to do (the loader's work is a fair part of a short command).
# Data and typeinfo keep default binding, so exceptions and their types still match across
# the libraries.
function(opcvk_shared_library_options name)
  target_link_options(${name} PRIVATE -Wl,-O1 -Wl,--hash-style=gnu -Wl,-Bsymbolic-functions
    -Wl,--as-needed)
endfunction()

function(opcvk_contract_library name)
  cmake_parse_arguments(ARG "" "EXPORT_MACRO_HEADER" "SOURCES;PUBLIC_LIBS;PRIVATE_LIBS" ${ARGN})
  add_library(${name} SHARED ${ARG_SOURCES})
  add_library(opcvkservices::${name} ALIAS ${name})
  target_include_directories(${name} PUBLIC
    $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/include>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  target_link_libraries(${name} PUBLIC ${ARG_PUBLIC_LIBS} PRIVATE ${ARG_PRIVATE_LIBS})
  opcvk_shared_library_options(${name})
  set_target_properties(${name} PROPERTIES
    VERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}.${PROJECT_VERSION_PATCH}
    SOVERSION ${OPCVK_SOVERSION})
  set_property(GLOBAL APPEND PROPERTY OPCVK_INSTALLED_TARGETS ${name})
  install(DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
endfunction()

function(opcvk_subsystem_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;PUBLIC_LIBS" ${ARGN})
  # The objects are compiled once and used twice: whole in libopcvkservices.so, and as the
  # archive ${name} that unit tests and higher layers link.
  add_library(${name}_objects OBJECT ${ARG_SOURCES})
  target_include_directories(${name}_objects PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/src>)
  target_link_libraries(${name}_objects PUBLIC ${ARG_PUBLIC_LIBS})
  add_library(${name} STATIC)
  target_link_libraries(${name} PUBLIC ${name}_objects)
  set_property(GLOBAL APPEND PROPERTY OPCVK_SUBSYSTEM_LAYERS ${name})
endfunction()

# A companion library: a shared library that a library of the project loads by name the first
# time a call needs it (src/contracts/companion/companion_library.h), and that nothing links.
# It is built into the folder of the library that loads it (BESIDE), where that library looks
# for it first, and installed beside the libraries as its versioned file and soname only: no
# link-time name, no headers, no part of the CMake package or the pkg-config file, since no
# user of the project links it.
function(opcvk_companion_library name)
  cmake_parse_arguments(ARG "" "BESIDE" "SOURCES;LIBS" ${ARGN})
  add_library(${name} SHARED ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LIBS})
  opcvk_shared_library_options(${name})
  set_target_properties(${name} PROPERTIES
    VERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}.${PROJECT_VERSION_PATCH}
    SOVERSION ${OPCVK_SOVERSION}
    LIBRARY_OUTPUT_DIRECTORY $<TARGET_FILE_DIR:${ARG_BESIDE}>
    BUILD_RPATH "$ORIGIN"
    INSTALL_RPATH "$ORIGIN")
  # Nothing links a companion, so nothing else would tell of a symbol it needs and does not
  # find: the link must.  (Sanitizer builds leave the sanitizer's symbols to the program.)
  if(NOT OPCVK_SANITIZE AND NOT OPCVK_BUILD_FUZZ)
    target_link_options(${name} PRIVATE -Wl,-z,defs)
  endif()
  install(TARGETS ${name} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} NAMELINK_SKIP)
endfunction()
