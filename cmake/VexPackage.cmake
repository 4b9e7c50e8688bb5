# Debian packages by cpack, one from each install component. The build must be configured for the prefix /usr
# (presets "package" and "shared"): that decides about libdir. scripts/package does all of it.
set(CPACK_GENERATOR DEB)
set(CPACK_COMPONENTS_ALL runtime development tools)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_PACKAGE_NAME libvex)
set(CPACK_PACKAGE_VENDOR libvex)
set(CPACK_PACKAGE_CONTACT "libvex developers <libvex@localhost>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
# each package's description begins with a summary of its own
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})

set(about "Log, configuration, options, indexes, sorting, digests and identifiers,
encrypted and compressed streams, durable files, networking and service
clients: what the daemons and tools of a deduplicating backup-storage system
have in common.")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libvex${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "foundation library of a backup-storage system\n${about}
.\nThis package holds the shared library.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libvex-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
# headers name OpenSSL's types, and the pkg-config file names zlib's
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libssl-dev (>= 3), zlib1g-dev")
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "foundation library of a backup-storage system - development files\n${about}
.\nThis package holds headers, manual pages, documents, examples, and what CMake\nand pkg-config need.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME vex-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_COMPONENT_TOOLS_DEPENDS runtime)
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "foundation library of a backup-storage system - commands\n${about}
.\nThis package holds the commands on the library, with their manuals and\ncompletions.")

set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/VexPackageFiles.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/VexPackageControl.cmake)
set(CPACK_VERBATIM_VARIABLES ON)
include(CPack)
