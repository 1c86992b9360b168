# The Debian packages. Each is a component of what is installed, and has the component's name.
set(CPACK_GENERATOR DEB)
set(CPACK_COMPONENTS_ALL boardreport dumpstate-service)
if(READER_ONLY)
    set(CPACK_COMPONENTS_ALL boardreport)
endif()
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_PACKAGE_CONTACT "The dumpstate maintainers <maintainers@dumpstate.invalid>" CACHE STRING
    "Whom a package names as its maintainer")
set(CPACK_STRIP_FILES ON)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_COMPONENT_BOARDREPORT_DESCRIPTION
    "ask for a wearable's board report, and read finished ones
Tells on one screen what is wrong with a report of a wearable's hardware and
firmware state, compares reports, makes a page of them for a browser, and
records for machines. None of that needs the service or a network.
.
Where the service is installed too, it asks for a report, shows it as it
comes, and switches verbose logging.")
set(CPACK_DEBIAN_BOARDREPORT_PACKAGE_NAME boardreport)
set(CPACK_DEBIAN_BOARDREPORT_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_BOARDREPORT_PACKAGE_SUGGESTS "bash-completion, dumpstate-service")

set(CPACK_COMPONENT_DUMPSTATE-SERVICE_DESCRIPTION
    "board reports of a wearable, on demand
The vendor service that a bug-report tool calls over the system bus. It writes
the board's hardware and firmware state as plain text, section by section, and
a bundle of vendor logs.
.
On a host that is no wearable it reports on what it finds there. The bus
starts it at the first call, and lets root and one group call it.")
set(CPACK_DEBIAN_DUMPSTATE-SERVICE_PACKAGE_NAME dumpstate-service)
set(CPACK_DEBIAN_DUMPSTATE-SERVICE_PACKAGE_SECTION admin)
# dbus has dbus-send, too.
set(CPACK_DEBIAN_DUMPSTATE-SERVICE_PACKAGE_DEPENDS "dbus, \
systemd | systemd-standalone-sysusers | systemd-sysusers, \
systemd | systemd-standalone-tmpfiles | systemd-tmpfiles")
set(CPACK_DEBIAN_DUMPSTATE-SERVICE_PACKAGE_RECOMMENDS boardreport)
foreach(script postinst prerm postrm)
    file(READ ${CMAKE_CURRENT_LIST_DIR}/end_service END_SERVICE)
    configure_file(${CMAKE_CURRENT_LIST_DIR}/${script}.in packaging/${script} @ONLY
        FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
    list(APPEND CPACK_DEBIAN_DUMPSTATE-SERVICE_PACKAGE_CONTROL_EXTRA ${CMAKE_BINARY_DIR}/packaging/${script})
endforeach()

set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/add_documents.cmake)
set(CPACK_CHANGELOG ${CMAKE_SOURCE_DIR}/CHANGELOG.md)
include(CPack)
