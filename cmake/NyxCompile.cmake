# The language levels, warnings and instrumentation of every target of this repository.
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

if(NYX_SANITIZE)
  add_compile_options(-fsanitize=${NYX_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${NYX_SANITIZE})
endif()
if(NYX_COVERAGE)
  # What is forced inline would count once for each place that it went to: here it stays a function.
  add_compile_options(--coverage -fprofile-update=atomic -Dalways_inline=unused)
  add_link_options(--coverage)
endif()
