# What Debian asks of a package beside what is installed: compressed pages and changelogs, and the
# terms of what is compiled in. Run for the staged components before they are packed.

# The headings of CHANGELOG.md are "## VERSION (YYYY-MM-DD)".
file(READ ${CPACK_CHANGELOG} changes)
if(NOT changes MATCHES "\n## ([^ \n]+) \\(([0-9]+-[0-9]+-[0-9]+)\\)\n\n([^#]*)"
        OR NOT CMAKE_MATCH_1 STREQUAL CPACK_PACKAGE_VERSION)
    message(FATAL_ERROR "CHANGELOG.md doesn't begin with \"## ${CPACK_PACKAGE_VERSION} (YYYY-MM-DD)\"")
endif()
set(released ${CMAKE_MATCH_2})
string(STRIP "${CMAKE_MATCH_3}" changes)
string(REGEX REPLACE "(^|\n)([*] |  )" "\\1  \\2" changes "${changes}")
execute_process(COMMAND date -u -R -d ${released} OUTPUT_VARIABLE released OUTPUT_STRIP_TRAILING_WHITESPACE
    COMMAND_ERROR_IS_FATAL ANY)
set(headers_boardreport libjs-dygraphs libcli11-dev libdtl-dev nlohmann-json3-dev)
set(headers_dumpstate-service libflatbuffers-dev)

foreach(component ${CPACK_COMPONENTS_ALL})
    set(share ${CPACK_TEMPORARY_DIRECTORY}/${component}/usr/share)
    set(documents ${share}/doc/${component})
    file(WRITE ${documents}/changelog.Debian
        "${component} (${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}) stable; urgency=medium\n\n"
        "${changes}\n\n -- ${CPACK_PACKAGE_CONTACT}  ${released}\n")
    file(COPY_FILE ${CPACK_CHANGELOG} ${documents}/changelog)
    file(WRITE ${documents}/copyright
        "Copyright: 2026 the dumpstate maintainers; all rights reserved.\n\n"
        "Parts of these Debian packages are compiled in, under the terms that follow.\n")
    foreach(package ${headers_${component}})
        file(READ /usr/share/doc/${package}/copyright terms)
        file(APPEND ${documents}/copyright "\n==== ${package} ====\n\n${terms}")
    endforeach()
    # A first version closes no bug of Debian's; none is kept there.
    file(WRITE ${share}/lintian/overrides/${component} "${component}: initial-upload-closes-no-bugs\n")
    file(GLOB compressed ${documents}/changelog* ${share}/man/man*/*)
    execute_process(COMMAND gzip -9n ${compressed} COMMAND_ERROR_IS_FATAL ANY)
    file(GLOB added ${documents}/* ${share}/man/man*/* ${share}/lintian/overrides/*)
    file(CHMOD ${added} PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
endforeach()
