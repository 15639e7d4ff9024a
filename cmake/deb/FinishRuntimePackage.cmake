# Run by CPack once the packages are made (CPACK_POST_BUILD_SCRIPTS), on the
# runtime package: CPack writes postinst and postrm calling ldconfig into any
# package with libraries under /usr/lib, where Debian uses the ldconfig trigger
# instead (cmake/deb/triggers), so they go; and dpkg-gensymbols adds the
# symbols file, which lets packages built against the library depend on the
# version that brought the symbols they use.
foreach(deb IN LISTS CPACK_PACKAGE_FILES)
  if(NOT deb MATCHES "/libalarmsdk[0-9]+_([^_/]*)_[^/]*[.]deb$")
    continue()
  endif()
  set(version ${CMAKE_MATCH_1})
  set(tree ${deb}.tree)
  file(REMOVE_RECURSE ${tree})
  execute_process(COMMAND dpkg-deb -R ${deb} ${tree} COMMAND_ERROR_IS_FATAL ANY)
  file(REMOVE ${tree}/DEBIAN/postinst ${tree}/DEBIAN/postrm)
  execute_process(COMMAND dpkg-deb -f ${deb} Package OUTPUT_VARIABLE package OUTPUT_STRIP_TRAILING_WHITESPACE)
  file(GLOB_RECURSE libraries ${tree}/usr/lib/*.so.*.*)
  set(args "")
  foreach(library IN LISTS libraries)
    list(APPEND args -e${library})
  endforeach()
  execute_process(COMMAND dpkg-gensymbols -q -p${package} -v${version} -P${tree} -O${tree}/DEBIAN/symbols ${args}
    WORKING_DIRECTORY ${tree} COMMAND_ERROR_IS_FATAL ANY)
  # Which package builds against the libraries (dpkg-shlibdeps uses it for the version).
  file(READ ${tree}/DEBIAN/symbols symbols)
  string(REGEX REPLACE "(#MINVER#)\n" "\\1\n* Build-Depends-Package: libalarmsdk-dev\n" symbols "${symbols}")
  file(WRITE ${tree}/DEBIAN/symbols "${symbols}")
  execute_process(COMMAND dpkg-deb --root-owner-group -b ${tree} ${deb} OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  file(REMOVE_RECURSE ${tree})
endforeach()
