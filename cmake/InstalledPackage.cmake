# What other projects find the installed library by: the CMake package frontpanelhw, and frontpanelhw.pc for pkg-config.
# Both know the other installed files by their places relative to each other only.
include(CMakePackageConfigHelpers)

set(package_directory ${CMAKE_INSTALL_LIBDIR}/cmake/frontpanelhw)
set(package_files ${PROJECT_BINARY_DIR}/package)
configure_package_config_file(cmake/packages/frontpanelhw-config.cmake.in ${package_files}/frontpanelhw-config.cmake
    INSTALL_DESTINATION ${package_directory} NO_SET_AND_CHECK_MACRO NO_CHECK_REQUIRED_COMPONENTS_MACRO)
write_basic_package_version_file(${package_files}/frontpanelhw-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${package_files}/frontpanelhw-config.cmake ${package_files}/frontpanelhw-config-version.cmake
    DESTINATION ${package_directory} COMPONENT ${FRONTPANELHW_DEVELOPMENT_COMPONENT})
install(EXPORT frontpanelhw-targets NAMESPACE frontpanelhw::
    DESTINATION ${package_directory} COMPONENT ${FRONTPANELHW_DEVELOPMENT_COMPONENT})

set(pc_directory ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH pc_to_prefix ${pc_directory} ${CMAKE_INSTALL_PREFIX})
file(RELATIVE_PATH prefix_to_lib ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_LIBDIR})
file(RELATIVE_PATH prefix_to_include ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
cmake_path(NORMAL_PATH pc_to_prefix)
configure_file(cmake/packages/frontpanelhw.pc.in ${package_files}/frontpanelhw.pc @ONLY)
install(FILES ${package_files}/frontpanelhw.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT ${FRONTPANELHW_DEVELOPMENT_COMPONENT})
