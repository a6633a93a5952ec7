# `cmake --install`. Everything installed finds the rest by relative paths, so that the prefix can be moved.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/zor_process)
set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(TARGETS zor_process zor_platform EXPORT zor_process
  LIBRARY COMPONENT runtime NAMELINK_COMPONENT development
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
set_target_properties(zor_process PROPERTIES EXPORT_NAME process INSTALL_RPATH $ORIGIN)
set_target_properties(zor_platform PROPERTIES EXPORT_NAME platform)
install(DIRECTORY include/ platform/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development
  FILES_MATCHING PATTERN *.h PATTERN *.hpp)

# Where Debian's Python 3 looks, whatever its minor version; elsewhere PYTHONPATH leads there.
install(DIRECTORY python/zor_process DESTINATION lib/python3/dist-packages COMPONENT python
  FILES_MATCHING PATTERN *.py PATTERN py.typed PATTERN __pycache__ EXCLUDE)

install(EXPORT zor_process NAMESPACE zor:: FILE zor_processTargets.cmake DESTINATION ${cmake_dir}
  COMPONENT development)
configure_package_config_file(cmake/zor_processConfig.cmake.in zor_processConfig.cmake
  INSTALL_DESTINATION ${cmake_dir} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(zor_processConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/zor_processConfig.cmake ${PROJECT_BINARY_DIR}/zor_processConfigVersion.cmake
  DESTINATION ${cmake_dir} COMPONENT development)

file(RELATIVE_PATH prefix_of_pkgconfig ${CMAKE_INSTALL_PREFIX}/${pkgconfig_dir} ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" prefix_of_pkgconfig ${prefix_of_pkgconfig})
foreach(lib zor_process zor_platform)
  configure_file(cmake/${lib}.pc.in ${lib}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${lib}.pc DESTINATION ${pkgconfig_dir} COMPONENT development)
endforeach()

if(ZOR_BUILD_TOOLS)
  file(RELATIVE_PATH lib_of_bin ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  set_target_properties(zorstat PROPERTIES INSTALL_RPATH $ORIGIN/${lib_of_bin})
  install(TARGETS zorstat RUNTIME COMPONENT tools)
  configure_file(docs/man/zorstat.1 zorstat.1 @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/zorstat.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
  install(DIRECTORY share/zorstat DESTINATION ${CMAKE_INSTALL_DATADIR} COMPONENT tools)
  configure_file(share/service/zorstat@.service.in zorstat@.service @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/zorstat@.service DESTINATION lib/systemd/system COMPONENT tools)
  install(FILES share/service/sysusers.conf DESTINATION lib/sysusers.d RENAME zorstat.conf COMPONENT tools)
  install(FILES share/service/logrotate share/service/net.toml
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/zorstat/examples COMPONENT tools)
  install(FILES tools/zorstat.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME zorstat
    COMPONENT tools)
  install(FILES share/zorstat/zorstat.rules.yml DESTINATION ${CMAKE_INSTALL_DATADIR}/zorstat COMPONENT tools)
endif()
