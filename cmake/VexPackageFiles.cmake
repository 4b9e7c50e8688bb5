# Run by cpack between installing and packing: adds what Debian wants of each package, and compresses its manuals.
set(names ${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME} ${CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME} ${CPACK_DEBIAN_TOOLS_PACKAGE_NAME})
foreach(component name IN ZIP_LISTS CPACK_COMPONENTS_ALL names)
    set(share ${CPACK_TEMPORARY_DIRECTORY}/${component}/usr/share)
    file(COPY ${CMAKE_CURRENT_LIST_DIR}/debian/copyright DESTINATION ${share}/doc/${name})
    configure_file(${CMAKE_CURRENT_LIST_DIR}/debian/changelog.in ${share}/doc/${name}/changelog @ONLY)
    file(GLOB_RECURSE pages ${share}/man/*)
    execute_process(COMMAND gzip -9nf ${share}/doc/${name}/changelog ${pages} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
