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

# The manual of section 3, and for each function in a synopsis a link to its page, so that "man SHA256FromFile_r" works.
set(pages libvex vex_alloc vex_collections vex_crypt vex_dir vex_digest vex_encoding vex_file vex_frame vex_hash_tree
    vex_http vex_id_file vex_ini vex_io vex_json vex_log vex_merge_sort vex_net vex_options vex_password
    vex_preallocator vex_process vex_random vex_serialize vex_sqlite vex_text vex_values)
list(TRANSFORM pages PREPEND man/)
list(TRANSFORM pages APPEND .3)
install(FILES ${pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man3 COMPONENT development)
file(REMOVE_RECURSE ${PROJECT_BINARY_DIR}/man3)
file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/man3)
foreach(page ${pages})
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${page})
    cmake_path(GET page FILENAME name)
    file(READ ${page} text)
    # a prototype: .Ft and the type, then .Fn or .Fo and the name
    string(REGEX MATCHALL "\n\\.Ft [^\n]*\n\\.F[no] [A-Za-z_0-9]+" functions "${text}")
    foreach(function ${functions})
        string(REGEX REPLACE ".* " "" function "${function}")
        file(CREATE_LINK ${name} ${PROJECT_BINARY_DIR}/man3/${function}.3 SYMBOLIC)
    endforeach()
endforeach()
install(DIRECTORY ${PROJECT_BINARY_DIR}/man3 DESTINATION ${CMAKE_INSTALL_MANDIR} COMPONENT development)

install(FILES README.md CHANGELOG.md CONTRIBUTING.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development)
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development FILES_MATCHING PATTERN "*.md")
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development)
