# What `cmake --install` puts where (GNUInstallDirs), and in which component:
#   runtime  lib/<arch>/libalarmsdk.so.1 and the platform libraries libalarmsdk-<name>.so.1
#   dev      lib/<arch>/libalarmsdk.so, include/alarmsdk/*.h, lib/<arch>/pkgconfig/alarmsdk.pc,
#            lib/<arch>/cmake/AlarmSdk/ (find_package(AlarmSdk) gives AlarmSdk::alarmsdk)
#   tools    bin/<every program of tools/>
# Nothing refers to the build tree; the libraries and programs find each other
# relative to their own location, so the tree works under any prefix.
include(CMakePackageConfigHelpers)

set(ALARMSDK_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/alarmsdk)
set(ALARMSDK_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/AlarmSdk)

# Installing over an earlier install leaves one consistent set of files: our
# own folders are emptied first, and library files of another version of the
# same SONAME are removed (a stale per-configuration targets file or a header
# the new version dropped would otherwise survive).
install(CODE "
  file(GLOB stale \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/libalarmsdk*.so.${PROJECT_VERSION_MAJOR}.*\")
  list(FILTER stale EXCLUDE REGEX \"[.]so[.]${PROJECT_VERSION}$\")
  if(stale)
    message(STATUS \"Removing other versions: \${stale}\")
    file(REMOVE \${stale})
  endif()" COMPONENT runtime)
install(CODE "
  foreach(dir ${ALARMSDK_INSTALL_INCLUDEDIR} ${ALARMSDK_INSTALL_CMAKEDIR})
    file(REMOVE_RECURSE \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/\${dir}\")
  endforeach()" COMPONENT dev)

# Services include "AlarmSdk.h" or <alarmsdk/AlarmSdk.h>: both directories are searched.
target_include_directories(alarmsdk INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
install(TARGETS alarmsdk EXPORT AlarmSdkTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
  FILE_SET HEADERS DESTINATION ${ALARMSDK_INSTALL_INCLUDEDIR} COMPONENT dev)
# Services never link the platform libraries themselves: no link-time names.
install(TARGETS ${ALARMSDK_PLATFORM_LIBRARIES}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_SKIP)

file(RELATIVE_PATH alarmsdk_bin_to_lib ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set_target_properties(${ALARMSDK_PROGRAMS} PROPERTIES INSTALL_RPATH "$ORIGIN/${alarmsdk_bin_to_lib}")
install(TARGETS ${ALARMSDK_PROGRAMS} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
# Bash completes each program's options from its --help (bash-completion's _longopt).
foreach(program IN LISTS ALARMSDK_PROGRAMS)
  file(CONFIGURE OUTPUT completions/${program} CONTENT "complete -F _longopt ${program}\n")
  install(FILES ${PROJECT_BINARY_DIR}/completions/${program}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)
endforeach()

install(EXPORT AlarmSdkTargets NAMESPACE AlarmSdk:: DESTINATION ${ALARMSDK_INSTALL_CMAKEDIR} COMPONENT dev)
configure_package_config_file(cmake/AlarmSdkConfig.cmake.in ${PROJECT_BINARY_DIR}/AlarmSdkConfig.cmake
  INSTALL_DESTINATION ${ALARMSDK_INSTALL_CMAKEDIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/AlarmSdkConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/AlarmSdkConfig.cmake ${PROJECT_BINARY_DIR}/AlarmSdkConfigVersion.cmake
  DESTINATION ${ALARMSDK_INSTALL_CMAKEDIR} COMPONENT dev)

# alarmsdk.pc gets its prefix when it is installed, from that install
# (cmake --install --prefix, or /usr inside a package).
foreach(dir LIBDIR INCLUDEDIR)
  set(path ${CMAKE_INSTALL_${dir}})
  if(NOT IS_ABSOLUTE "${path}")
    set(path "\${prefix}/${path}")
  endif()
  set(ALARMSDK_PC_${dir} "${path}")
endforeach()
set(ALARMSDK_PC_PREFIX "@ALARMSDK_PC_PREFIX@")
configure_file(cmake/alarmsdk.pc.in ${PROJECT_BINARY_DIR}/alarmsdk.pc.in @ONLY)
install(CODE "
  set(ALARMSDK_PC_PREFIX \"\${CMAKE_INSTALL_PREFIX}\")
  configure_file(\"${PROJECT_BINARY_DIR}/alarmsdk.pc.in\" \"${PROJECT_BINARY_DIR}/alarmsdk.pc\" @ONLY)"
  COMPONENT dev)
install(FILES ${PROJECT_BINARY_DIR}/alarmsdk.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
