# The Debian packages "tarvolin", "tarvolin-fetch", "tarvolin-tools" and "tarvolin-doc": ./dev package makes and tries them.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tarvolin)
set(CPACK_PACKAGE_CONTACT "tarvolin maintainers <tarvolin@localhost>" CACHE STRING "Maintainer of the packages")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/debian-files.cmake)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_UPDATER_PACKAGE_NAME tarvolin)
set(CPACK_DEBIAN_UPDATER_PACKAGE_SECTION admin)
# Without "mount" and "ubinfo", /data would pass for released, and be erased under those who use it.
set(CPACK_DEBIAN_UPDATER_PACKAGE_DEPENDS "mount, mtd-utils, psmisc")
set(CPACK_DEBIAN_UPDATER_PACKAGE_RECOMMENDS "ca-certificates, tarvolin-doc")
set(CPACK_DEBIAN_UPDATER_PACKAGE_SUGGESTS "tarvolin-fetch, tarvolin-tools")
set(CPACK_COMPONENT_UPDATER_DESCRIPTION "firmware updater for cellular modules on raw NAND flash
Started with the URL of a firmware package, tarvolin downloads it over HTTP or
HTTPS, checks it, and either installs its images or leaves them, verified, in a
store on flash. The package is never held whole, neither in memory nor in a
file. From the store, tarv-restore puts them into their partitions at the next
start.
.
These programs overwrite the firmware of the machine that they are started on.")

set(CPACK_DEBIAN_FETCH_PACKAGE_NAME tarvolin-fetch)
set(CPACK_DEBIAN_FETCH_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_FETCH_PACKAGE_DEPENDS tarvolin)
set(CPACK_DEBIAN_FETCH_PACKAGE_RECOMMENDS "ca-certificates, tarvolin-doc")
set(CPACK_DEBIAN_FETCH_PACKAGE_SUGGESTS minisign)
set(CPACK_DEBIAN_FETCH_PACKAGE_ENHANCES tarvolin)
set(CPACK_COMPONENT_FETCH_DESCRIPTION "signed firmware packages over networks that break, for tarvolin
tarv-fetch brings a firmware package over HTTP or HTTPS, goes on where a broken
connection ended, proves every byte by the signature of who made the package,
and feeds the updater, which it starts itself.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME tarvolin-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_RECOMMENDS "bash-completion, tarvolin-doc")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS "tarvolin, mtd-utils")
set(CPACK_DEBIAN_TOOLS_PACKAGE_ENHANCES tarvolin)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "tools for tarvolin's firmware packages, runs and stores
tarv-pkg makes, shows, checks and compares firmware packages. tarv-watch
follows a run of the updater. tarv-store looks at a store, on flash or in
dumps of it, proves its checksums, and takes images out of it; it never
writes to flash.")

# A package of its own: people who make firmware packages read it without a program that overwrites firmware.
set(CPACK_DEBIAN_PAGES_PACKAGE_NAME tarvolin-doc)
set(CPACK_DEBIAN_PAGES_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_PAGES_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_PAGES_PACKAGE_SHLIBDEPS OFF)
set(CPACK_COMPONENT_PAGES_DESCRIPTION "documentation of the firmware updater tarvolin
How packages, the store on flash and the files of a run look, byte by byte; how
a module, a server and a fleet are set up; what each failure means.")

include(CPack)
cpack_add_component(updater GROUP updater)
cpack_add_component(restore GROUP updater)
cpack_add_component(doc GROUP updater)
cpack_add_component(pages GROUP pages)
cpack_add_component(fetch GROUP fetch)
cpack_add_component(watch GROUP tools)
cpack_add_component(tools GROUP tools)
