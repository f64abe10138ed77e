# The language levels and warnings that every target of this repository is built with.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE Release)
endif()

add_library(nyx_warnings INTERFACE)
target_compile_options(nyx_warnings INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
if(NYX_DEVELOPER)
  target_compile_options(nyx_warnings INTERFACE -Werror)
endif()
