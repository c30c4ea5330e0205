# An install prefix serves find_package(QorEvpn) with the targets QorEvpn::platform and QorEvpn::qorevpn.

include(CMakePackageConfigHelpers)

set(configDir ${CMAKE_INSTALL_LIBDIR}/cmake/QorEvpn)
set(headerDir ${CMAKE_INSTALL_INCLUDEDIR}/qorevpn)

foreach(target IN ITEMS qorevpn-platform qorevpn)
  if(TARGET ${target})
    install(TARGETS ${target} EXPORT QorEvpnTargets
      LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
      INCLUDES DESTINATION ${headerDir})
  endif()
endforeach()
if(NOT TARGET qorevpn-platform)
  return()
endif()
if(TARGET qorevpn-agent)
  install(TARGETS qorevpn-agent)
endif()

# Both folders share one include root, as their sources write their includes.
install(DIRECTORY platform/ DESTINATION ${headerDir} FILES_MATCHING PATTERN *.h)
install(DIRECTORY VxlanController DESTINATION ${headerDir} FILES_MATCHING PATTERN *.h)

install(EXPORT QorEvpnTargets NAMESPACE QorEvpn:: DESTINATION ${configDir})
configure_package_config_file(cmake/QorEvpnConfig.cmake.in QorEvpnConfig.cmake INSTALL_DESTINATION ${configDir})
write_basic_package_version_file(QorEvpnConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/QorEvpnConfig.cmake
  ${PROJECT_BINARY_DIR}/QorEvpnConfigVersion.cmake
  DESTINATION ${configDir})
