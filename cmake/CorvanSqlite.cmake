# Compiles the SQLite amalgamation in CORVAN_SQLITE_AMALGAMATION into the static library corvan_sqlite,
# which becomes the target SQLite::SQLite3. docs/performance.md has the measurements behind the options.

set(sqlite_folder "${CORVAN_SQLITE_AMALGAMATION}")
foreach(file sqlite3.c sqlite3.h)
  if(NOT EXISTS "${sqlite_folder}/${file}")
    message(FATAL_ERROR "CORVAN_SQLITE_AMALGAMATION: ${sqlite_folder} has no ${file}; "
                        "bash scripts/sqlite.sh makes a folder with both files")
  endif()
endforeach()
if(TARGET SQLite::SQLite3)
  message(FATAL_ERROR "CORVAN_SQLITE_AMALGAMATION: the enclosing project already defines the target "
                      "SQLite::SQLite3; leave the option empty to use that target")
endif()

set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${sqlite_folder}/sqlite3.h")
file(STRINGS "${sqlite_folder}/sqlite3.h" SQLite3_VERSION
     REGEX "^#define SQLITE_VERSION +\"[0-9.]+\"")
string(REGEX REPLACE "^[^\"]*\"([0-9.]+)\".*" "\\1" SQLite3_VERSION "${SQLite3_VERSION}")
if(NOT SQLite3_VERSION)
  message(FATAL_ERROR "CORVAN_SQLITE_AMALGAMATION: ${sqlite_folder}/sqlite3.h does not define "
                      "SQLITE_VERSION")
elseif(SQLite3_VERSION VERSION_LESS CORVAN_SQLITE_MINIMUM)
  message(FATAL_ERROR "CORVAN_SQLITE_AMALGAMATION: ${sqlite_folder} has SQLite ${SQLite3_VERSION}, and "
                      "the store needs ${CORVAN_SQLITE_MINIMUM} or later")
endif()
message(STATUS "SQLite ${SQLite3_VERSION}, compiled from ${sqlite_folder}")

enable_language(C)
set(THREADS_PREFER_PTHREAD_FLAG ON)
find_package(Threads REQUIRED)

add_library(corvan_sqlite STATIC "${sqlite_folder}/sqlite3.c")
add_library(SQLite::SQLite3 ALIAS corvan_sqlite)
target_include_directories(corvan_sqlite SYSTEM INTERFACE "$<BUILD_INTERFACE:${sqlite_folder}>")
target_compile_definitions(corvan_sqlite PRIVATE
  # What the store and the tool rely on.
  SQLITE_THREADSAFE=1
  SQLITE_SECURE_DELETE
  SQLITE_ENABLE_DBSTAT_VTAB
  # What saves instructions.
  SQLITE_DEFAULT_MEMSTATUS=0
  SQLITE_LIKE_DOESNT_MATCH_BLOBS
  SQLITE_OMIT_DEPRECATED
  SQLITE_OMIT_SHARED_CACHE
  SQLITE_USE_ALLOCA)
target_compile_options(corvan_sqlite PRIVATE
  -O2  # in a debug build too: after the flags of the build type, so that it takes precedence
  -w   # SQLite's warnings are not this project's
  -fvisibility=hidden)
target_link_libraries(corvan_sqlite PRIVATE Threads::Threads ${CMAKE_DL_LIBS})
# The same for pkg-config.
list(TRANSFORM CMAKE_DL_LIBS PREPEND "-l" OUTPUT_VARIABLE CORVAN_SQLITE_FLAGS)
list(PREPEND CORVAN_SQLITE_FLAGS ${CMAKE_THREAD_LIBS_INIT})
list(JOIN CORVAN_SQLITE_FLAGS " " CORVAN_SQLITE_FLAGS)
set_target_properties(corvan_sqlite PROPERTIES
  EXPORT_NAME sqlite
  POSITION_INDEPENDENT_CODE ON
  UNITY_BUILD OFF)
if(CORVAN_INSTALL AND NOT CORVAN_LIBRARY STREQUAL "shared")
  install(TARGETS corvan_sqlite EXPORT CorvanStatic
    ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT dev)
endif()
