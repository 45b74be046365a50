# Warnings every target of the project is built with.
add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wold-style-cast
                    -Wcast-align -Woverloaded-virtual -Wnull-dereference)
if(CMAKE_BUILD_TYPE STREQUAL "Debug" OR OPCVK_WERROR)
  add_compile_options(-Werror)
endif()
