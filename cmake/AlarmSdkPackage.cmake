# Debian packages, one per install component (cpack -G DEB in a build
# configured with -DCMAKE_INSTALL_PREFIX=/usr):
#   libalarmsdk1     runtime: the library and its platform libraries
#   libalarmsdk-dev  headers, link-time name, alarmsdk.pc, CMake package
#   alarmsdk-tools   the programs (nodeward-sim, ...)
# Dependencies on Debian's libraries come from dpkg-shlibdeps; a cross build
# makes packages for its own architecture the same way (dpkg-shlibdeps picks
# the libraries whose ELF class and machine match, the :arm64 ones for Arm).
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME alarmsdk)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "Alarm SDK developers")
set(CPACK_PACKAGE_CONTACT "Alarm SDK developers <alarmsdk@example.org>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Alarm SDK: raise and clear alarms towards the node's agent")
set(CPACK_STRIP_FILES ON)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev tools)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${ALARMSDK_DEB_ARCH})
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Our own libraries, needed by the programs, are in another of these packages:
# dpkg-shlibdeps finds them in the build tree and leaves them to the
# component dependencies below.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/src ${PROJECT_BINARY_DIR}/platform)
# Other packages built against the library depend on libalarmsdk1 of at least this version.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libalarmsdk${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
  "Services load it to raise and clear alarms; it delivers them to the node's\nagent over HTTP.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libalarmsdk-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEV_DEPENDS runtime)
set(CPACK_COMPONENT_DEV_DESCRIPTION
  "Headers, pkg-config file (alarmsdk), CMake package (find_package(AlarmSdk))\nand manual pages for building services.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME alarmsdk-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_COMPONENT_TOOLS_DEPENDS runtime)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
  "nodeward-sim, an agent stand-in for development and tests, alarm-send and\nalarmdef-check.")

# What Debian expects of every package (cmake/deb/): the copyright file and the
# changelog, compressed, in its doc folder; the runtime package also asks for
# ldconfig when installed or removed (triggers). The changelog's first entry
# is this version (scripts/package-check.sh checks it).
set(alarmsdk_changelog ${PROJECT_BINARY_DIR}/deb/changelog.gz)
file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/deb)
execute_process(COMMAND gzip -9n -c ${PROJECT_SOURCE_DIR}/cmake/deb/changelog OUTPUT_FILE ${alarmsdk_changelog})
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/deb/changelog)
foreach(component runtime dev tools)
  string(TOUPPER ${component} upper)
  install(FILES ${PROJECT_SOURCE_DIR}/cmake/deb/copyright ${alarmsdk_changelog}
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME} COMPONENT ${component})
endforeach()
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/deb/triggers)
set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/deb/FinishRuntimePackage.cmake)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_STRICT_PERMISSION ON)

include(CPack)
