# What `cmake --install` gives: both libraries, every header, the CMake package MrouteCairn and the
# pkg-config file MrouteCairn.pc. All of it finds its parts relative to itself, so an installed tree
# may be moved.
include(CMakePackageConfigHelpers)

install(TARGETS MrouteCairnPlatform MrouteCairnTypes EXPORT MrouteCairnTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
# The headers of the templates (XImpl.h) go along: they are what a table of a new value type needs.
install(DIRECTORY src/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/MrouteCairn)
install(EXPORT MrouteCairnTargets NAMESPACE MrouteCairn:: DESTINATION ${package_dir})
configure_package_config_file(cmake/MrouteCairnConfig.cmake.in MrouteCairnConfig.cmake
                              INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(MrouteCairnConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/MrouteCairnConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/MrouteCairnConfigVersion.cmake
        DESTINATION ${package_dir})

file(RELATIVE_PATH pc_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/MrouteCairn.pc.in MrouteCairn.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/MrouteCairn.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
