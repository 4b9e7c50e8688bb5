# Run by cpack behind packing. Of the library's package it tells what programs linked with it depend on (cpack can, but
# then looks into every file of every package), and has ldconfig run by Debian's trigger, once for all packages of an
# installation, where cpack calls it from maintainer scripts.
foreach(package IN LISTS CPACK_PACKAGE_FILES)
    if(package MATCHES "/${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME}_")
        set(tree ${CPACK_TEMPORARY_DIRECTORY}/control)
        string(REGEX MATCH "^[0-9]+" major ${CPACK_PACKAGE_VERSION})
        execute_process(COMMAND dpkg-deb --raw-extract ${package} ${tree} COMMAND_ERROR_IS_FATAL ANY)
        file(REMOVE ${tree}/DEBIAN/postinst ${tree}/DEBIAN/postrm)
        file(WRITE ${tree}/DEBIAN/shlibs
            "libvex ${major} ${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME} (>= ${CPACK_PACKAGE_VERSION})\n")
        file(WRITE ${tree}/DEBIAN/triggers "activate-noawait ldconfig\n")
        execute_process(COMMAND dpkg-deb --root-owner-group --build ${tree} ${package}
            OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
    endif()
endforeach()
