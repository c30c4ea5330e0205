# An install prefix serves find_package(QorEvpn) with the targets QorEvpn::platform and QorEvpn::qorevpn.

include(CMakePackageConfigHelpers)

set(configDir ${CMAKE_INSTALL_LIBDIR}/cmake/QorEvpn)
set(headerDir ${CMAKE_INSTALL_INCLUDEDIR}/qorevpn)

install(TARGETS qorevpn-platform qorevpn EXPORT QorEvpnTargets
  LIBRARY COMPONENT libraries NAMELINK_COMPONENT development
  INCLUDES DESTINATION ${headerDir})
if(QOREVPN_AGENT)
  install(TARGETS qorevpn-agent COMPONENT program)
  install(FILES ${agentData} DESTINATION share/qorevpn COMPONENT program)
endif()

# The two include roots of the source tree become one; includes are written the same for both.
install(DIRECTORY platform/ DESTINATION ${headerDir} COMPONENT development FILES_MATCHING PATTERN *.h)
install(DIRECTORY VxlanController DESTINATION ${headerDir} COMPONENT development FILES_MATCHING PATTERN *.h)

install(EXPORT QorEvpnTargets NAMESPACE QorEvpn:: DESTINATION ${configDir} COMPONENT development)
configure_package_config_file(cmake/QorEvpnConfig.cmake.in QorEvpnConfig.cmake INSTALL_DESTINATION ${configDir})
write_basic_package_version_file(QorEvpnConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/QorEvpnConfig.cmake
  ${PROJECT_BINARY_DIR}/QorEvpnConfigVersion.cmake
  DESTINATION ${configDir} COMPONENT development)
include(cmake/Package.cmake)
