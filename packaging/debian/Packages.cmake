# Two Debian packages, made by `cpack -G DEB` (scripts/package): the same build gives the same bytes where
# SOURCE_DATE_EPOCH is set.
set(CPACK_PACKAGE_NAME kemvi)
set(CPACK_PACKAGE_CONTACT "The Kemvi developers <developers@kemvi.invalid>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL kemvi dev)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ
                                                WORLD_EXECUTE)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)

set(CPACK_DEBIAN_KEMVI_PACKAGE_NAME kemvi)
set(CPACK_DEBIAN_KEMVI_PACKAGE_SECTION utils)
# fuse3: fusermount3, by which a user mounts. nodejs: what helpers are run with.
set(CPACK_DEBIAN_KEMVI_PACKAGE_DEPENDS "fuse3 (>= 3.14), nodejs (>= 18)")
set(CPACK_COMPONENT_KEMVI_DESCRIPTION
    "mounts a directory tree that a program of yours serves
Kemvi turns what the kernel asks of a file system into one JSON line per
request to a program, the helper, and its answers into an ordinary mounted
volume. Helpers for a folder, memory and git repositories are included.")
set(CPACK_DEBIAN_KEMVI_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/postinst ${CMAKE_CURRENT_LIST_DIR}/postrm)

set(CPACK_DEBIAN_DEV_PACKAGE_NAME kemvi-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_DEV_PACKAGE_SHLIBDEPS OFF)
# libsimdjson-dev: what the kit's library is linked with.
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "kemvi (= ${PROJECT_VERSION}), libsimdjson-dev")
set(CPACK_DEBIAN_DEV_PACKAGE_SUGGESTS "cmake, g++, python3 (>= 3.11)")
set(CPACK_DEBIAN_DEV_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/dev/prerm)
set(CPACK_COMPONENT_DEV_DESCRIPTION
    "kits and examples for writing helpers for Kemvi
Headers and library of the kit for C++, the kit for Python, and examples in
C++, Python and JavaScript. The kit for node is part of the package kemvi.")

# What every package has to tell: its licence and what changed.
string(TIMESTAMP _date "%a, %d %b %Y %H:%M:%S +0000" UTC)
foreach(package kemvi kemvi-dev)
  set(folder ${CMAKE_CURRENT_BINARY_DIR}/${package})
  configure_file(${CMAKE_CURRENT_LIST_DIR}/changelog.in ${folder}/changelog @ONLY)
  execute_process(COMMAND ${GZIP} -9nf ${folder}/changelog COMMAND_ERROR_IS_FATAL ANY)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/copyright ${folder}/copyright COPYONLY)
endforeach()
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/kemvi/changelog.gz ${CMAKE_CURRENT_BINARY_DIR}/kemvi/copyright
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/kemvi COMPONENT kemvi)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/kemvi-dev/changelog.gz ${CMAKE_CURRENT_BINARY_DIR}/kemvi-dev/copyright
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/kemvi-dev COMPONENT dev)
include(CPack)
