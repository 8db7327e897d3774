# What `cmake --install` lays down for programs that use the library: both libraries, the headers,
# wqevents.pc and the CMake package wqevents. The tree may be moved as a whole afterwards.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/wqevents)

install(TARGETS wqevents wqevents_static EXPORT wqevents-targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        FILES_MATCHING PATTERN "*.h")

install(EXPORT wqevents-targets NAMESPACE wqevents:: DESTINATION ${package_dir})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/wqevents-config.cmake.in
                              ${PROJECT_BINARY_DIR}/wqevents-config.cmake
                              INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/wqevents-config-version.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/wqevents-config.cmake
              ${PROJECT_BINARY_DIR}/wqevents-config-version.cmake
        DESTINATION ${package_dir})

# The pkg-config file finds the prefix from where it lies.
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX
           BASE_DIRECTORY ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig
           OUTPUT_VARIABLE prefix_from_pcfile)
configure_file(${PROJECT_SOURCE_DIR}/cmake/wqevents.pc.in ${PROJECT_BINARY_DIR}/wqevents.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/wqevents.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
