# Adds to the staged files of each package what only Debian wants: copyright, changelogs, compressed man pages.
function(compress file)
  execute_process(COMMAND gzip -9n ${file} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

# What has its place outside the prefix.
set(service ${CMAKE_CURRENT_LIST_DIR}/../../share/service)
configure_file(${service}/logrotate ${CPACK_TEMPORARY_DIRECTORY}/tools/etc/logrotate.d/zorstat COPYONLY)
configure_file(${service}/net.toml ${CPACK_TEMPORARY_DIRECTORY}/tools/etc/zorstat/net.toml COPYONLY)

string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
foreach(component ${CPACK_COMPONENTS_ALL})
  string(TOUPPER ${component} upper)
  set(share ${CPACK_TEMPORARY_DIRECTORY}/${component}${CPACK_PACKAGING_INSTALL_PREFIX}/share)
  set(doc ${share}/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  configure_file(${CMAKE_CURRENT_LIST_DIR}/copyright ${doc}/copyright COPYONLY)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/../../CHANGELOG.md ${doc}/changelog COPYONLY)
  file(WRITE ${doc}/changelog.Debian
    "${CPACK_DEBIAN_PACKAGE_SOURCE} (${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}) unstable; "
    "urgency=medium\n\n"
    "  * Version ${CPACK_PACKAGE_VERSION}; changelog.gz says what is new.\n\n"
    " -- ${CPACK_PACKAGE_CONTACT}  ${date}\n")
  compress(${doc}/changelog)
  compress(${doc}/changelog.Debian)
  file(GLOB pages ${share}/man/man*/*.[1-9])
  foreach(page ${pages})
    compress(${page})
  endforeach()
endforeach()
