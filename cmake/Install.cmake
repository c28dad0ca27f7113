# What `cmake --install` puts where. Users get the library and the command;
# the library's helpers (`mux`, the encoder libraries, resources) go to its
# private folder lib/orvanta/, where it finds them relative to itself; hosts
# get the headers, a pkg-config file and a CMake package.
include(CMakePackageConfigHelpers)

install(TARGETS orvanta EXPORT OrvantaTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Runtime NAMELINK_COMPONENT Development)
install(TARGETS mux RUNTIME DESTINATION ${ORVANTA_INSTALL_HELPERDIR} COMPONENT Runtime)
get_property(ORVANTA_ENCODER_LIBRARIES GLOBAL PROPERTY ORVANTA_ENCODER_LIBRARIES)
install(TARGETS ${ORVANTA_ENCODER_LIBRARIES}
  LIBRARY DESTINATION ${ORVANTA_INSTALL_HELPERDIR} COMPONENT Runtime)
install(TARGETS orvanta-cli RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT Runtime)

set(ORVANTA_MANPAGE ${PROJECT_BINARY_DIR}/orvanta.1.gz)
add_custom_command(OUTPUT ${ORVANTA_MANPAGE}
  COMMAND gzip -9nc ${PROJECT_SOURCE_DIR}/tools/orvanta/orvanta.1 > ${ORVANTA_MANPAGE}
  DEPENDS ${PROJECT_SOURCE_DIR}/tools/orvanta/orvanta.1 VERBATIM)
add_custom_target(orvanta-manpage ALL DEPENDS ${ORVANTA_MANPAGE})
install(FILES ${ORVANTA_MANPAGE} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT Runtime)

install(DIRECTORY include/orvanta DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT Development)

# The pkg-config file finds its prefix from its own place, so that a prefix
# installed anywhere (or moved) still works.
file(RELATIVE_PATH ORVANTA_PC_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(cmake/orvanta.pc.in ${PROJECT_BINARY_DIR}/orvanta.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/orvanta.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT Development)

set(ORVANTA_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Orvanta)
install(EXPORT OrvantaTargets NAMESPACE Orvanta:: DESTINATION ${ORVANTA_CMAKE_DIR}
  COMPONENT Development)
configure_package_config_file(cmake/OrvantaConfig.cmake.in
  ${PROJECT_BINARY_DIR}/OrvantaConfig.cmake INSTALL_DESTINATION ${ORVANTA_CMAKE_DIR})
# 0.x releases may change the interface between minor versions.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/OrvantaConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/OrvantaConfig.cmake
  ${PROJECT_BINARY_DIR}/OrvantaConfigVersion.cmake
  DESTINATION ${ORVANTA_CMAKE_DIR} COMPONENT Development)
