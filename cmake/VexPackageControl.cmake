# Run by cpack behind packing: it has the library's package call ldconfig from maintainer scripts, where Debian has a
# trigger, which runs once for all packages of an installation.
foreach(package IN LISTS CPACK_PACKAGE_FILES)
    set(tree ${CPACK_TEMPORARY_DIRECTORY}/control)
    file(REMOVE_RECURSE ${tree})
    execute_process(COMMAND dpkg-deb --raw-extract ${package} ${tree} COMMAND_ERROR_IS_FATAL ANY)
    if(EXISTS ${tree}/DEBIAN/shlibs)
        file(REMOVE ${tree}/DEBIAN/postinst ${tree}/DEBIAN/postrm)
        file(WRITE ${tree}/DEBIAN/triggers "activate-noawait ldconfig\n")
        execute_process(COMMAND dpkg-deb --root-owner-group --build ${tree} ${package}
            OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
    endif()
endforeach()
