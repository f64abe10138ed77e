# What `cmake --install` puts where, and the packages that `./dev package` makes of it.
include(CMakePackageConfigHelpers)

set(nyx_include "${CMAKE_INSTALL_INCLUDEDIR}/nyx")
set(nyx_cmake "${CMAKE_INSTALL_LIBDIR}/cmake/nyx")

install(TARGETS nyx EXPORT nyxTargets LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}")
install(DIRECTORY "${PROJECT_SOURCE_DIR}/manageability/yang/framework/include/" DESTINATION "${nyx_include}")
install(FILES manageability/yang/framework/gen/nyx.proto DESTINATION "${nyx_include}")
install(EXPORT nyxTargets NAMESPACE nyx:: DESTINATION "${nyx_cmake}")

install(FILES README.md CHANGELOG.md DESTINATION "${CMAKE_INSTALL_DOCDIR}")
install(DIRECTORY docs DESTINATION "${CMAKE_INSTALL_DOCDIR}" FILES_MATCHING PATTERN "*.md")

configure_package_config_file(cmake/nyxConfig.cmake.in "${PROJECT_BINARY_DIR}/nyxConfig.cmake"
  INSTALL_DESTINATION "${nyx_cmake}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/nyxConfigVersion.cmake" COMPATIBILITY SameMajorVersion)
file(RELATIVE_PATH nyx_pc_to_include "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/${nyx_include}")
configure_file(cmake/nyx.pc.in "${PROJECT_BINARY_DIR}/nyx.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/nyxConfig.cmake" "${PROJECT_BINARY_DIR}/nyxConfigVersion.cmake"
  DESTINATION "${nyx_cmake}")
install(FILES "${PROJECT_BINARY_DIR}/nyx.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")

set(CPACK_GENERATOR TGZ DEB)
set(CPACK_PACKAGE_NAME libnyx)
set(CPACK_PACKAGE_CONTACT "The libnyx developers")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
include(CPack)
