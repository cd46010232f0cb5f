# The package velomond-tools: command, exporter, completion, dashboards. Everything without a component belongs to the
# daemon's package, which is the same with and without this one.

velomond_gzipped(packaging/tools/velomondctl.1 velomondctl.1.gz)
velomond_gzipped(packaging/tools/velomond-exporter.8 velomond-exporter.8.gz)

set(tools_doc share/doc/velomond-tools)
install(TARGETS velomondctl velomond-exporter RUNTIME DESTINATION bin COMPONENT tools)
install(FILES packaging/tools/velomond-exporter.service DESTINATION lib/systemd/system COMPONENT tools)
install(FILES ${package_built}/velomondctl.1.gz DESTINATION share/man/man1 COMPONENT tools)
install(FILES ${package_built}/velomond-exporter.8.gz DESTINATION share/man/man8 COMPONENT tools)
install(FILES packaging/tools/completion/velomondctl.bash DESTINATION share/bash-completion/completions
    RENAME velomondctl COMPONENT tools)
install(FILES packaging/tools/completion/_velomondctl DESTINATION share/zsh/vendor-completions COMPONENT tools)
install(DIRECTORY dashboards DESTINATION share/velomond COMPONENT tools)
install(FILES ${package_built}/changelog.gz packaging/debian/copyright DESTINATION ${tools_doc} COMPONENT tools)
install(FILES docs/openapi.yaml docs/query-api.md docs/fleet.md DESTINATION ${tools_doc} COMPONENT tools)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_COMPONENTS_ALL Unspecified tools)
set(CPACK_DEBIAN_UNSPECIFIED_PACKAGE_NAME ${CPACK_PACKAGE_NAME})
set(CPACK_DEBIAN_UNSPECIFIED_DESCRIPTION
    "${CPACK_PACKAGE_DESCRIPTION_SUMMARY}\n${CPACK_DEBIAN_PACKAGE_DESCRIPTION}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # CPack would prepend it to each package's own
set(CPACK_DEBIAN_UNSPECIFIED_PACKAGE_CONTROL_EXTRA ${CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA})
set(CPACK_DEBIAN_UNSPECIFIED_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME velomond-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_TOOLS_PACKAGE_RECOMMENDS gnuplot-nox)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS "velomond, prometheus")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION
"command and Prometheus exporter for the recorder's system monitor
velomondctl shows what the monitor VeloMond of a recorder appliance knows: a
status, figures as tables, JSON and CSV, a live view, reports with pictures,
and a check for monitoring systems. velomond-exporter serves the same figures
to Prometheus; a dashboard and rules for alerts come with it.")
set(CPACK_DEBIAN_TOOLS_PACKAGE_CONTROL_EXTRA
    ${CMAKE_SOURCE_DIR}/packaging/tools/postinst
    ${CMAKE_SOURCE_DIR}/packaging/tools/prerm
    ${CMAKE_SOURCE_DIR}/packaging/tools/postrm)
set(CPACK_DEBIAN_TOOLS_PACKAGE_CONTROL_STRICT_PERMISSION ON)
