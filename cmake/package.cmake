# Debian packages of what is installed, made by script/package.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VENDOR ${PROJECT_NAME})
set(CPACK_PACKAGE_CONTACT "zor_process maintainers <maintainers@users.noreply.c-seed-a6cc288e.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_COMPONENTS_ALL runtime development tools python)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE zor-process)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY >=)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(same_version "libzor-process${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libzor-process${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
# A trigger runs ldconfig. Scripts that do not exist keep CPack from generating ones that run it again.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/debian/triggers postinst postrm)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "statistics of periodically collected counters - library
A collector hands over its tables poll by poll; for every instance the
library keeps a summary, a distribution, nine percentiles and a learnt
baseline, and renders them as record lines at the end of each interval.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libzor-process-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS ${same_version})
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "statistics of periodically collected counters - development files
Headers of the library, and what CMake and pkg-config need to find it.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME zorstat)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS ${same_version})
set(CPACK_DEBIAN_TOOLS_PACKAGE_RECOMMENDS libjs-chart.js) # for pages
set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS logrotate)
foreach(file conffiles postinst prerm)
  list(APPEND CPACK_DEBIAN_TOOLS_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/debian/tools/${file})
endforeach()
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "statistics of periodically collected counters - command-line program
zorstat keeps summaries, distributions, percentiles and baselines of the
counters of recorded polls or of the running Linux kernel.")

set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-zor-process)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_DEBIAN_PYTHON_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS
  "python3 (>= 3.11), libzor-process${PROJECT_VERSION_MAJOR} (>= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA
  ${PROJECT_SOURCE_DIR}/cmake/debian/python/postinst ${PROJECT_SOURCE_DIR}/cmake/debian/python/prerm)
set(CPACK_DEBIAN_PYTHON_DESCRIPTION "statistics of periodically collected counters - Python 3 package
zor_process is the library for collectors in Python: data groups and polls,
record lines, and statistics as plain data. It needs no compiler.")

set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/debian/stage.cmake)
include(CPack)
