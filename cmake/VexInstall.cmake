# Puts everything where its users look for it, in three components: "runtime" is what a program needs that is linked
# with the shared library, "development" what it takes to write one, "tools" the commands.
include(CMakePackageConfigHelpers)

install(TARGETS vex EXPORT vexTargets
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
    FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)

set(VEX_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/vex)
install(EXPORT vexTargets NAMESPACE vex:: DESTINATION ${VEX_CMAKE_DIR} COMPONENT development)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/vexConfig.cmake.in ${PROJECT_BINARY_DIR}/vexConfig.cmake
    INSTALL_DESTINATION ${VEX_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vexConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/vexConfig.cmake ${PROJECT_BINARY_DIR}/vexConfigVersion.cmake
    DESTINATION ${VEX_CMAKE_DIR} COMPONENT development)

configure_file(${PROJECT_SOURCE_DIR}/cmake/vex.pc.in ${PROJECT_BINARY_DIR}/vex.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vex.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

install(FILES README.md CHANGELOG.md CONTRIBUTING.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development)
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development FILES_MATCHING PATTERN "*.md")
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development)
