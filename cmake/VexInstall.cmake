# Puts library, headers, tool, CMake package and pkg-config file where users look for them.
include(CMakePackageConfigHelpers)

install(TARGETS vex EXPORT vexTargets
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
if(VEX_BUILD_TOOLS)
    install(TARGETS vex_tool DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

set(VEX_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/vex)
install(EXPORT vexTargets NAMESPACE vex:: DESTINATION ${VEX_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/vexConfig.cmake.in ${PROJECT_BINARY_DIR}/vexConfig.cmake
    INSTALL_DESTINATION ${VEX_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vexConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/vexConfig.cmake ${PROJECT_BINARY_DIR}/vexConfigVersion.cmake
    DESTINATION ${VEX_CMAKE_DIR})

configure_file(${PROJECT_SOURCE_DIR}/cmake/vex.pc.in ${PROJECT_BINARY_DIR}/vex.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vex.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
