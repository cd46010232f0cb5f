# The files installed with the daemon, and the Debian package of it all: cpack --config BUILD/CPackConfig.cmake

set(VELOMOND_MAINTAINER "VeloMond developers <developers@velomond.example>" CACHE STRING "Maintainer of the package")

set(package_doc share/doc/velomond)
set(package_built ${CMAKE_BINARY_DIR}/package)

# velomond_gzipped(SOURCE NAME): a compressed copy in the build folder; the same
# source gives the same bytes.
find_program(VELOMOND_GZIP gzip REQUIRED)
function(velomond_gzipped source name)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/${source})
    file(MAKE_DIRECTORY ${package_built})
    execute_process(COMMAND ${VELOMOND_GZIP} -9nc ${CMAKE_SOURCE_DIR}/${source}
        OUTPUT_FILE ${package_built}/${name} COMMAND_ERROR_IS_FATAL ANY)
endfunction()
velomond_gzipped(packaging/man/velomond.8 velomond.8.gz)
velomond_gzipped(packaging/debian/changelog changelog.gz)
file(CREATE_LINK velomond.8.gz ${package_built}/VeloMond.8.gz SYMBOLIC)

install(DIRECTORY packaging/systemd/ DESTINATION lib/systemd/system)
install(FILES packaging/tmpfiles/velomond.conf DESTINATION lib/tmpfiles.d)
install(FILES ${package_built}/velomond.8.gz ${package_built}/VeloMond.8.gz DESTINATION share/man/man8)
install(FILES ${package_built}/changelog.gz packaging/debian/copyright DESTINATION ${package_doc})
install(DIRECTORY packaging/examples/ DESTINATION ${package_doc}/examples)
install(DIRECTORY packaging/standins DESTINATION share/velomond USE_SOURCE_PERMISSIONS)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME velomond)
set(CPACK_PACKAGE_VENDOR "VeloMond developers")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${VELOMOND_MAINTAINER})
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# By its symbols any libcurl would do, but an option that is set exists only since 7.85. The name of the package follows
# the TLS library of the build.
find_library(VELOMOND_CURL curl REQUIRED)
file(REAL_PATH ${VELOMOND_CURL} package_curl)
if(package_curl MATCHES "gnutls|nss")
    set(package_curl libcurl3-${CMAKE_MATCH_0})
else()
    set(package_curl libcurl4)
endif()
set(CPACK_DEBIAN_PACKAGE_DEPENDS "${package_curl} (>= 7.85)")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS smartmontools)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "system monitor of a network video recorder")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"VeloMond watches a recorder appliance: CPU, memory, network and disk use of
the machine and of the recorder's services, free space of the surveillance
volumes, SMART of the disks, fans, recording state and camera connections. It
answers queries as JSON on a loopback port and reports changes to the
appliance's other services.

This build reads its figures from a stock Linux machine. Stand-ins for the
appliance's own tools lie in /usr/share/velomond/standins.")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    ${CMAKE_SOURCE_DIR}/packaging/debian/postinst
    ${CMAKE_SOURCE_DIR}/packaging/debian/prerm
    ${CMAKE_SOURCE_DIR}/packaging/debian/postrm)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
if(VELOMOND_CLIENTS)
    include(cmake/package_tools.cmake)
endif()
include(CPack)
