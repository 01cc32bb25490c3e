# The Debian packages, one of each component that has files. `make packages` builds them.
set(CPACK_GENERATOR DEB)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_PACKAGE_NAME orlan-epm)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own, and CMake would put this one in front
set(CPACK_PACKAGE_CONTACT "orlan_epm maintainers <orlan-epm@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE orlan-epm)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# Dependencies on system libraries follow from the files. This project's libraries belong to no package yet when that
# runs.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})

set(documents ${CMAKE_CURRENT_BINARY_DIR}/debian)
add_custom_command(
    OUTPUT ${documents}/changelog.gz
    COMMAND ${CMAKE_COMMAND} -E make_directory ${documents}
    COMMAND gzip -9nc ${CMAKE_CURRENT_SOURCE_DIR}/debian/changelog > ${documents}/changelog.gz
    DEPENDS debian/changelog
    VERBATIM)
add_custom_target(debian_documents ALL DEPENDS ${documents}/changelog.gz)

# Debian wants compressed manual pages. This folder is processed last, so they exist by now.
if(TARGET orlan-epm)
    install(CODE "file(GLOB pages \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_MANDIR}/man*/*[0-9]\")
foreach(page IN LISTS pages)
    execute_process(COMMAND gzip -9nf \${page} COMMAND_ERROR_IS_FATAL ANY)
endforeach()" COMPONENT tool)
endif()

get_cmake_property(components COMPONENTS)

# debian_package(component package section summary description [DEPENDS relation...] [CONTROL file...])
function(debian_package component package section summary description)
    if(NOT component IN_LIST components)
        return()
    endif()
    cmake_parse_arguments(PARSE_ARGV 5 arg "" "" "DEPENDS;CONTROL")
    list(JOIN arg_DEPENDS ", " depends)
    install(FILES debian/copyright ${documents}/changelog.gz
        DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package} COMPONENT ${component})

    string(TOUPPER ${component} upper)
    set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${package} PARENT_SCOPE)
    set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section} PARENT_SCOPE)
    set(CPACK_DEBIAN_${upper}_DESCRIPTION "${summary}\n${description}" PARENT_SCOPE)
    set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${depends}" PARENT_SCOPE)
    set(CPACK_DEBIAN_${upper}_PACKAGE_CONTROL_EXTRA "${arg_CONTROL}" PARENT_SCOPE)
    set(CPACK_COMPONENTS_ALL ${CPACK_COMPONENTS_ALL} ${component} PARENT_SCOPE)
endfunction()

set(same "(= ${PROJECT_VERSION})")
set(family "The records of client policy: access-control lists, VLANs, security
groups, interface templates, change-of-authorization requests and more,
with the operations to build, send, receive and show them.
")

debian_package(library liborlan-epm${PROJECT_VERSION_MAJOR} libs
    "typed records of the client-policy control plane"
    "${family}
This package holds the library. It needs a type runtime: the stand-in of
orlan-epm-platform, or a site's own in a package that provides
orlan-epm-runtime."
    DEPENDS "orlan-epm-platform | orlan-epm-runtime"
    CONTROL ${CMAKE_CURRENT_SOURCE_DIR}/debian/symbols ${CMAKE_CURRENT_SOURCE_DIR}/debian/triggers)
debian_package(dev liborlan-epm-dev libdevel
    "typed records of the client-policy control plane (development)"
    "${family}
This package holds the headers, and what CMake and pkg-config need to find
the library."
    DEPENDS "liborlan-epm${PROJECT_VERSION_MAJOR} ${same}")
debian_package(platform orlan-epm-platform libs
    "stand-in runtime for the library orlan_epm"
    "A small type runtime with store support, trace facility and sibling
Bundles, on which the library orlan_epm runs where there is no other."
    CONTROL ${CMAKE_CURRENT_SOURCE_DIR}/debian/triggers)
debian_package(platform-dev orlan-epm-platform-dev libdevel
    "stand-in runtime for the library orlan_epm (development)"
    "Headers of the stand-in runtime: Domains, values of foreign types, traces,
XML documents."
    DEPENDS "orlan-epm-platform ${same}" "liborlan-epm-dev ${same}")
debian_package(tool orlan-epm utils
    "look into messages, types and traces of the library orlan_epm"
    "${family}
This package holds the program orlan-epm, which decodes, encodes and
annotates messages, and tells what a library file says about its types and
traces. It brings a stand-in runtime for itself alone, beside any other."
    DEPENDS "liborlan-epm${PROJECT_VERSION_MAJOR} ${same}")
debian_package(wireshark orlan-epm-wireshark net
    "messages of the library orlan_epm in Wireshark and tshark"
    "${family}
This package holds a dissector that shows their fields in captures, and an
example of a capture."
    DEPENDS "wireshark (>= 4.0) | tshark (>= 4.0)")
debian_package(doc orlan-epm-doc doc
    "typed records of the client-policy control plane (documentation)"
    "${family}
This package holds the reference and all pages, as HTML.")
debian_package(python python3-orlan-epm python
    "typed records of the client-policy control plane (Python 3)"
    "${family}
This package holds the module orlan_epm for Python 3."
    DEPENDS python3 "liborlan-epm${PROJECT_VERSION_MAJOR} ${same}" "orlan-epm-platform ${same}"
    CONTROL ${CMAKE_CURRENT_SOURCE_DIR}/debian/python/postinst ${CMAKE_CURRENT_SOURCE_DIR}/debian/python/prerm)

# These are the same on every machine.
foreach(component DOC PYTHON)
    set(CPACK_DEBIAN_${component}_PACKAGE_ARCHITECTURE all)
    set(CPACK_DEBIAN_${component}_PACKAGE_SHLIBDEPS OFF)
endforeach()

debian_package(durable liborlan-epm-durable${PROJECT_VERSION_MAJOR} libs
    "records of the client-policy control plane that live in a file"
    "${family}
This package holds a library that keeps records in a file, with
transactions that survive the process."
    DEPENDS "liborlan-epm${PROJECT_VERSION_MAJOR} ${same}" "orlan-epm-platform ${same}" "libpmemobj1"
    CONTROL ${CMAKE_CURRENT_SOURCE_DIR}/debian/triggers)
debian_package(durable-dev liborlan-epm-durable-dev libdevel
    "records of the client-policy control plane that live in a file (development)"
    "Header of the library that keeps records in a file, and what CMake and
pkg-config need to find it."
    DEPENDS "liborlan-epm-durable${PROJECT_VERSION_MAJOR} ${same}" "orlan-epm-platform-dev ${same}")
debian_package(durable-tool orlan-epm-store utils
    "look into files with records of the library orlan_epm"
    "${family}
This package holds the sub-command store of the program orlan-epm, which
shows what is in a file of the library orlan_epm_durable."
    DEPENDS "orlan-epm ${same}" "liborlan-epm-durable${PROJECT_VERSION_MAJOR} ${same}")
debian_package(bus orlan-epm-bus net
    "client policy for many devices over NATS JetStream"
    "${family}
This package holds the program policy_bus, which publishes a policy once for
each variant that devices speak, and applies it on each device exactly once.
The servers are those of nats-server."
    DEPENDS "liborlan-epm${PROJECT_VERSION_MAJOR} ${same}" "orlan-epm-platform ${same}")
set(CPACK_DEBIAN_BUS_PACKAGE_RECOMMENDS nats-server)

# One runtime at a time: a package with another runtime provides the same name and replaces this one.
set(CPACK_DEBIAN_PLATFORM_PACKAGE_PROVIDES orlan-epm-runtime)
set(CPACK_DEBIAN_PLATFORM_PACKAGE_CONFLICTS orlan-epm-runtime)
set(CPACK_DEBIAN_PLATFORM_PACKAGE_REPLACES orlan-epm-runtime)

include(CPack)
