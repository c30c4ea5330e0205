# What a distribution needs beside the binaries: manual pages, completion, units, directories; and Debian packages:
# `cpack -G DEB` in a build tree makes libqorevpn1, libqorevpn-dev and qorevpn.

if(QOREVPN_AGENT)
  # Written by the program itself, from the descriptions of its command line.
  set(manualDir ${PROJECT_BINARY_DIR}/share)
  set(program ${PROJECT_BINARY_DIR}/${CMAKE_INSTALL_BINDIR}/qorevpn)
  add_custom_command(TARGET qorevpn-agent POST_BUILD
    COMMAND ${PROJECT_SOURCE_DIR}/cmake/write-manual ${program} ${manualDir}
    COMMENT "Writing manual pages and completion" VERBATIM)
  install(DIRECTORY ${manualDir}/man/man1 DESTINATION ${CMAKE_INSTALL_MANDIR} COMPONENT program)
  install(FILES ${manualDir}/completion/qorevpn
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT program)
  file(GLOB units CONFIGURE_DEPENDS share/systemd/*.service)
  install(FILES ${units} DESTINATION lib/systemd/system COMPONENT program)
  install(FILES share/sysusers.d/qorevpn.conf DESTINATION lib/sysusers.d COMPONENT program)
  install(FILES share/tmpfiles.d/qorevpn.conf DESTINATION lib/tmpfiles.d COMPONENT program)
  install(FILES share/grafana/qorevpn.json DESTINATION ${CMAKE_INSTALL_DATADIR}/qorevpn/grafana COMPONENT program)
  # The example of a site's configuration; nobody's own file in /etc is ever replaced.
  install(FILES share/conf/main.conf DESTINATION ${CMAKE_INSTALL_DATADIR}/qorevpn COMPONENT program)
endif()

set(CPACK_PACKAGE_VENDOR "The qorevpn developers")
set(CPACK_PACKAGE_CONTACT "The qorevpn developers <qorevpn@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL libraries development program)
set(CPACK_COMPONENT_PROGRAM_DEPENDS libraries)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS libraries)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/${CMAKE_INSTALL_LIBDIR})
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_LIBRARIES_PACKAGE_NAME libqorevpn${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_LIBRARIES_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARIES_DESCRIPTION "module that joins a VXLAN controller with BGP EVPN, and its platform")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libqorevpn-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "headers to embed the module or to read its shared tables")
set(CPACK_DEBIAN_PROGRAM_PACKAGE_NAME qorevpn)
set(CPACK_DEBIAN_PROGRAM_DESCRIPTION "agent that joins a VXLAN controller with BGP EVPN")
set(CPACK_DEBIAN_PROGRAM_PACKAGE_CONTROL_EXTRA
  ${PROJECT_SOURCE_DIR}/share/debian/postinst
  ${PROJECT_SOURCE_DIR}/share/debian/prerm
  ${PROJECT_SOURCE_DIR}/share/debian/postrm)
include(CPack)
