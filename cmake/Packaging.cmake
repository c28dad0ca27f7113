# Debian packages through CPack: `orvanta` (the library, its private helpers
# and the command) and `orvanta-dev` (headers, pkg-config and CMake files).
# Configure with -DCMAKE_INSTALL_PREFIX=/usr so that the library lands in the
# multiarch folder; scripts/package.sh does this.
foreach(package orvanta orvanta-dev)
  set(doc ${CMAKE_INSTALL_DATADIR}/doc/${package})
  if(package STREQUAL "orvanta")
    set(component Runtime)
  else()
    set(component Development)
  endif()
  install(FILES packaging/copyright DESTINATION ${doc} COMPONENT ${component})
  install(FILES ${PROJECT_BINARY_DIR}/changelog.gz DESTINATION ${doc} COMPONENT ${component})
endforeach()
add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/changelog.gz
  COMMAND gzip -9nc ${PROJECT_SOURCE_DIR}/packaging/changelog > ${PROJECT_BINARY_DIR}/changelog.gz
  DEPENDS ${PROJECT_SOURCE_DIR}/packaging/changelog VERBATIM)
add_custom_target(orvanta-changelog ALL DEPENDS ${PROJECT_BINARY_DIR}/changelog.gz)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME orvanta)
set(CPACK_PACKAGE_VENDOR "Orvanta")
set(CPACK_PACKAGE_CONTACT "Orvanta developers <developers@orvanta.dev>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "screen, window and sound recording engine")
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL Runtime Development)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/lib)
# The library's shlibs entry and an ldconfig trigger, as Debian's own
# library packages have them (CPack's would call ldconfig from scripts).
configure_file(packaging/shlibs.in ${PROJECT_BINARY_DIR}/packaging/shlibs @ONLY)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
  ${PROJECT_BINARY_DIR}/packaging/shlibs ${PROJECT_SOURCE_DIR}/packaging/triggers)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME orvanta)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION video)
# The demo brings up its own display and sound server when there is none.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_RECOMMENDS "xvfb, pulseaudio | pipewire-pulse")
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
  "Orvanta records the whole display, a region or one window with the pointer\n\
and clicks in the picture, the system sound and the microphone, encoding while\n\
it records, and assembles the final file (MP4, MOV, MKV, FLV, AVI, M4A, AAC,\n\
MP3) with its mux program. This package holds the engine's library, its\n\
helpers and the orvanta command.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME orvanta-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "orvanta (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
  "Orvanta records the screen and sound for applications that embed it.\n\
This package holds what a host builds against: the headers, the pkg-config\n\
file and the CMake package (find_package(Orvanta) gives Orvanta::orvanta).")

include(CPack)
