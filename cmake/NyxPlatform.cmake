# A shared library of the platform: C at its border, without a C++ runtime, with a package of its own.
#
# nyx_add_platform_library(NAME DESCRIPTION SOURCES SOURCE... [REQUIRES LIBRARY...])
#   The directory holds include/NAME/, src/ and NAME.map, the list of what the library exports. The target is NAME, for
#   users NAME::NAME; NAME.pc and NAMEConfig.cmake are installed beside it. LIBRARYs are others of the platform whose
#   headers those of NAME include.
include(CMakePackageConfigHelpers)

# What a mistake in a release must not be turned into: a return address that was overwritten (stack protector, shadow
# stack), a buffer of known size that is overrun (fortified C functions), a jump into the middle of things (indirect
# branch tracking), a table or a stack that is written and then run. docs/reliability.md tells what each costs.
if(NOT TARGET nyx_hardened)
  add_library(nyx_hardened INTERFACE)
  # Large frames must not step over a small stack's guard page.
  target_compile_options(nyx_hardened INTERFACE
    -fstack-protector-strong -fstack-clash-protection -fcf-protection=full)
  if(NOT NYX_SANITIZE)  # sanitizers watch the plain names of the C library's functions
    set(optimised $<CONFIG:Release,RelWithDebInfo,MinSizeRel>)  # fortified functions need the optimiser
    target_compile_options(nyx_hardened INTERFACE
      "$<${optimised}:SHELL:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3>")
  endif()
  target_link_options(nyx_hardened INTERFACE
    LINKER:-z,relro,-z,now LINKER:-z,noexecstack LINKER:-z,separate-code)
endif()

# Holds for what the including directory builds: the platform's libraries and the programs that come with them.
include(CheckPIESupported)
check_pie_supported()
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
add_compile_options($<TARGET_PROPERTY:nyx_hardened,INTERFACE_COMPILE_OPTIONS>)
add_link_options($<TARGET_PROPERTY:nyx_hardened,INTERFACE_LINK_OPTIONS>)

function(nyx_harden_library name map)
  target_link_libraries(${name} PRIVATE $<BUILD_INTERFACE:nyx_hardened>)
  # C programs link these libraries: no C++ runtime may be needed.
  target_compile_options(${name} PRIVATE
    $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics -fno-plt>)
  # Messages name source files as they stand in the repository.
  target_compile_options(${name} PRIVATE "-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=")
  set_target_properties(${name} PROPERTIES
    LINKER_LANGUAGE C
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}
    C_VISIBILITY_PRESET hidden
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON
    LINK_DEPENDS "${map}")
  target_link_options(${name} PRIVATE "LINKER:--version-script=${map}" LINKER:--as-needed)
  # The C library's start files may be without branch-tracking marks, and then the linker drops ours. All that can be
  # jumped to in them are an _init and a _fini that do nothing for us: without these two the mark is true. The names
  # given are nobody's.
  target_link_options(${name} PRIVATE LINKER:-z,ibt,-z,shstk LINKER:-init=${name}_has_no_init,-fini=${name}_has_no_fini)
  if(NOT NYX_SANITIZE)  # a sanitizer's runtime is in the program, not in the library
    target_link_options(${name} PRIVATE LINKER:--no-undefined)
  endif()
endfunction()

function(nyx_add_platform_library name description)
  cmake_parse_arguments(PARSE_ARGV 2 arg "" "" "SOURCES;REQUIRES")
  add_library(${name} SHARED ${arg_SOURCES})
  add_library(${name}::${name} ALIAS ${name})
  target_include_directories(${name}
    PUBLIC $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/include> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>
    PRIVATE src)
  target_link_libraries(${name} PRIVATE $<BUILD_INTERFACE:nyx_warnings>)
  nyx_harden_library(${name} "${CMAKE_CURRENT_SOURCE_DIR}/${name}.map")

  set(cmake_dir "${CMAKE_INSTALL_LIBDIR}/cmake/${name}")
  install(TARGETS ${name} EXPORT ${name}Targets LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}")
  install(DIRECTORY include/${name} DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
  install(EXPORT ${name}Targets NAMESPACE ${name}:: DESTINATION "${cmake_dir}")

  set(package_name ${name})
  set(package_description "${description}")
  set(package_dependencies "")
  foreach(required IN LISTS arg_REQUIRES)
    target_link_libraries(${name} PUBLIC ${required}::${required})
    string(APPEND package_dependencies "find_dependency(${required})\n")
  endforeach()
  list(JOIN arg_REQUIRES " " package_requires)
  configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/platformConfig.cmake.in"
    "${CMAKE_CURRENT_BINARY_DIR}/${name}Config.cmake" INSTALL_DESTINATION "${cmake_dir}")
  write_basic_package_version_file("${CMAKE_CURRENT_BINARY_DIR}/${name}ConfigVersion.cmake"
    COMPATIBILITY SameMajorVersion)
  file(RELATIVE_PATH package_include "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/${CMAKE_INSTALL_INCLUDEDIR}")
  configure_file("${PROJECT_SOURCE_DIR}/cmake/platform.pc.in" "${CMAKE_CURRENT_BINARY_DIR}/${name}.pc" @ONLY)
  install(FILES "${CMAKE_CURRENT_BINARY_DIR}/${name}Config.cmake"
    "${CMAKE_CURRENT_BINARY_DIR}/${name}ConfigVersion.cmake" DESTINATION "${cmake_dir}")
  install(FILES "${CMAKE_CURRENT_BINARY_DIR}/${name}.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
endfunction()
