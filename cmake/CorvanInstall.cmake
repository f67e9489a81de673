# Installs the headers, the CMake package and the pkg-config files.

include(CMakePackageConfigHelpers)

foreach(folder base db)
  install(DIRECTORY "${PROJECT_SOURCE_DIR}/${folder}" DESTINATION "${CORVAN_INCLUDEDIR}"
          COMPONENT dev FILES_MATCHING PATTERN "*.h")
endforeach()
set(addon_headers)
if(TARGET corvan_db_cached)
  list(APPEND addon_headers statement_cache/statement_cache.h)
endif()
if(TARGET corvan_encryption)
  list(APPEND addon_headers encryption/store_keys.h encryption/store_encryption.h)
endif()
if(TARGET corvan_search)
  list(APPEND addon_headers search/message_search.h)
endif()
foreach(header IN LISTS addon_headers)
  cmake_path(GET header PARENT_PATH folder)
  install(FILES "${PROJECT_SOURCE_DIR}/addons/${header}"
          DESTINATION "${CORVAN_INCLUDEDIR}/addons/${folder}" COMPONENT dev)
endforeach()
install(DIRECTORY "${PROJECT_BINARY_DIR}/include/corvan" DESTINATION "${CORVAN_INCLUDEDIR}"
        COMPONENT dev)

set(sets)
if(NOT CORVAN_LIBRARY STREQUAL "shared")
  list(APPEND sets CorvanStatic)
endif()
if(NOT CORVAN_LIBRARY STREQUAL "static")
  list(APPEND sets CorvanShared)
endif()
foreach(set IN LISTS sets)
  install(EXPORT ${set} NAMESPACE Corvan:: DESTINATION "${CORVAN_CMAKEDIR}"
          FILE ${set}Targets.cmake COMPONENT dev)
endforeach()

if(CORVAN_SQLITE_AMALGAMATION)
  set(CORVAN_FIND_SQLITE "find_dependency(Threads)  # for Corvan::sqlite")
elseif(TARGET corvan_db_cached)
  set(CORVAN_FIND_SQLITE "find_dependency(SQLite3 ${CORVAN_CACHED_SQLITE_MINIMUM})")
else()
  set(CORVAN_FIND_SQLITE "find_dependency(SQLite3 ${CORVAN_SQLITE_MINIMUM})")
endif()
set(CORVAN_FIND_UTF8PROC "")
if(TARGET corvan_search)
  set(CORVAN_FIND_UTF8PROC "# Only programs with Corvan::search need it.
    find_package(PkgConfig QUIET)
    if(PkgConfig_FOUND AND NOT TARGET PkgConfig::UTF8PROC)
      pkg_check_modules(UTF8PROC QUIET IMPORTED_TARGET libutf8proc)
    endif()")
endif()
configure_package_config_file("${CMAKE_CURRENT_LIST_DIR}/CorvanConfig.cmake.in"
  "${PROJECT_BINARY_DIR}/CorvanConfig.cmake"
  INSTALL_DESTINATION "${CORVAN_CMAKEDIR}" NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/CorvanConfigVersion.cmake"
  COMPATIBILITY SameMinorVersion)
install(FILES "${PROJECT_BINARY_DIR}/CorvanConfig.cmake"
              "${PROJECT_BINARY_DIR}/CorvanConfigVersion.cmake"
        DESTINATION "${CORVAN_CMAKEDIR}" COMPONENT dev)

if(WIN32)
  install(FILES "${CMAKE_CURRENT_LIST_DIR}/CorvanManifest.cmake" DESTINATION "${CORVAN_CMAKEDIR}" COMPONENT dev)
  install(FILES "${CMAKE_CURRENT_LIST_DIR}/windows/utf8.manifest" "${CMAKE_CURRENT_LIST_DIR}/windows/utf8.rc"
          DESTINATION "${CORVAN_CMAKEDIR}/windows" COMPONENT dev)
endif()

# The prefix is relative to the .pc file, so that an installation can be moved.
set(pkgconfigdir "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}" OR IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
  set(prefix "${CMAKE_INSTALL_PREFIX}")
  set(libdir "${CMAKE_INSTALL_FULL_LIBDIR}")
  set(includedir "${CMAKE_INSTALL_FULL_INCLUDEDIR}/corvan")
else()
  file(RELATIVE_PATH up "/${pkgconfigdir}" "/")
  string(REGEX REPLACE "/$" "" up "${up}")
  set(prefix "\${pcfiledir}/${up}")
  set(libdir "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
  set(includedir "\${prefix}/${CORVAN_INCLUDEDIR}")
endif()
# corvan_pkgconfig(FILE NAME LIBS MINIMUM [PACKAGE...]): MINIMUM is the oldest SQLite. With only the static
# library, every program links SQLite and the further packages; with only the shared one, none does.
function(corvan_pkgconfig file name libs minimum)
  set(installed_sqlite "sqlite3 >= ${minimum}")
  set(own_sqlite "-lcorvan_sqlite ${CORVAN_SQLITE_FLAGS}")
  set(sqlite_libs "")
  set(private_libs "")
  set(required ${ARGN})
  if(NOT CORVAN_SQLITE_AMALGAMATION)
    list(APPEND required "${installed_sqlite}")
  elseif(CORVAN_LIBRARY STREQUAL "static")
    set(sqlite_libs " ${own_sqlite}")
  elseif(CORVAN_LIBRARY STREQUAL "both")
    set(private_libs "Libs.private: ${own_sqlite}")
  endif()
  list(JOIN required ", " required)
  if(NOT required OR CORVAN_LIBRARY STREQUAL "shared")
    set(required "")
  elseif(CORVAN_LIBRARY STREQUAL "static")
    string(PREPEND required "Requires: ")
  else()
    string(PREPEND required "Requires.private: ")
  endif()
  configure_file("${PROJECT_SOURCE_DIR}/cmake/corvan.pc.in" "${PROJECT_BINARY_DIR}/${file}" @ONLY)
  install(FILES "${PROJECT_BINARY_DIR}/${file}" DESTINATION "${pkgconfigdir}" COMPONENT dev)
endfunction()
corvan_pkgconfig(corvan.pc "Corvan store" "-lcorvan_db -lcorvan_base" ${CORVAN_SQLITE_MINIMUM})
corvan_pkgconfig(corvan-own-base.pc "Corvan store, for hosts with a base of their own" "-lcorvan_db"
                 ${CORVAN_SQLITE_MINIMUM})
if(TARGET corvan_db_cached)
  set(cached "Corvan store that keeps prepared statements")
  corvan_pkgconfig(corvan-cached.pc "${cached}" "-lcorvan_db_cached -lcorvan_base"
                   ${CORVAN_CACHED_SQLITE_MINIMUM})
  corvan_pkgconfig(corvan-cached-own-base.pc "${cached}, for hosts with a base of their own"
                   "-lcorvan_db_cached" ${CORVAN_CACHED_SQLITE_MINIMUM})
endif()
if(TARGET corvan_encryption)
  corvan_pkgconfig(corvan-encryption.pc "Encryption at rest for the Corvan store" "-lcorvan_encryption"
                   ${CORVAN_SQLITE_MINIMUM})
endif()
if(TARGET corvan_search)
  corvan_pkgconfig(corvan-search.pc "Full-text search for the Corvan store" "-lcorvan_search"
                   ${CORVAN_SEARCH_SQLITE_MINIMUM} libutf8proc)
endif()
