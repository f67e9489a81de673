# Debian packages: cpack -G DEB in a build folder whose prefix is /usr (preset "package").

set(CPACK_PACKAGE_NAME corvan)
set(CPACK_PACKAGE_VENDOR "Corvan store developers")
set(CORVAN_MAINTAINER "Corvan store developers" CACHE STRING "Maintainer of the packages: name <address>")
set(CPACK_PACKAGE_CONTACT "${CORVAN_MAINTAINER}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has its own
set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(soversion "${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}")

# corvan_package(COMPONENT NAME SECTION SUMMARY CONTENT): defines a package; its description ends with
# CONTENT.
function(corvan_package component name section summary content)
  string(TOUPPER "${component}" upper)
  set(CPACK_COMPONENTS_ALL ${CPACK_COMPONENTS_ALL} ${component} PARENT_SCOPE)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME "${name}" PARENT_SCOPE)
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION "${section}" PARENT_SCOPE)
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${PROJECT_DESCRIPTION}: ${summary}
Corvan keeps the messages, conversations, counters and synchronisation
times of the signed-in user of an instant-messaging client in one SQLite
file.
.
${content}" PARENT_SCOPE)
endfunction()

corvan_package(dev libcorvan-dev libdevel "development files"
"This package holds the headers, the libraries to link with, the CMake
package and the pkg-config files.")
set(CPACK_DEBIAN_DEV_PACKAGE_SHLIBDEPS OFF)
set(dev_depends)
if(NOT CORVAN_SQLITE_AMALGAMATION)
  set(minimum ${CORVAN_SQLITE_MINIMUM})
  if(TARGET corvan_db_cached)
    set(minimum ${CORVAN_CACHED_SQLITE_MINIMUM})
  endif()
  list(APPEND dev_depends "libsqlite3-dev (>= ${minimum})")
endif()
if(TARGET corvan_search)
  list(APPEND dev_depends libutf8proc-dev)
endif()
list(JOIN dev_depends ", " CPACK_DEBIAN_DEV_PACKAGE_DEPENDS)

if(NOT CORVAN_LIBRARY STREQUAL "static")
  corvan_package(runtime "libcorvan${soversion}" libs "shared libraries"
"This package holds the libraries that programs load.")
  set(CPACK_COMPONENT_DEV_DEPENDS runtime)
endif()

# Not with shared libraries alone: dpkg-shlibdeps does not find libraries from the other packages.
if(CORVAN_BUILD_TOOLS AND NOT CORVAN_LIBRARY STREQUAL "shared")
  corvan_package(tools corvan-tools utils "command-line tool"
"This package holds the tool that imports conversation logs into a store
and looks into stores.")
endif()

include(CPack)
