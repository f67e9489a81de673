# Compiles the SQLite amalgamation in CORVAN_SQLITE_AMALGAMATION into the static library corvan_sqlite,
# which becomes the target SQLite::SQLite3. docs/performance.md has the measurements behind the options.

set(sqlite_gnu_options)
if(NOT MSVC)
  set(sqlite_gnu_options -O3 SQLITE_USE_ALLOCA)
endif()
set(CORVAN_SQLITE_OPTIONS
    ${sqlite_gnu_options}
    SQLITE_DEFAULT_MEMSTATUS=0
    SQLITE_ENABLE_QPSG
    SQLITE_LIKE_DOESNT_MATCH_BLOBS
    SQLITE_OMIT_DECLTYPE
  CACHE STRING "Definitions and flags to compile SQLite with, besides those that the project needs")

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
# An amalgamation of SQLite3 Multiple Ciphers names its own version in sqlite3.h, too.
file(STRINGS "${sqlite_folder}/sqlite3.h" CORVAN_SQLITE_CIPHER
     REGEX "^#define SQLITE3MC_VERSION_STRING +\"")
string(REGEX REPLACE "^[^\"]*\"([^\"]*)\".*" "\\1" CORVAN_SQLITE_CIPHER "${CORVAN_SQLITE_CIPHER}")
message(STATUS "SQLite ${SQLite3_VERSION}, compiled from ${sqlite_folder}")

enable_language(C)
set(THREADS_PREFER_PTHREAD_FLAG ON)
find_package(Threads REQUIRED)

# Sets `result` to definitions for the system's functions that SQLite uses only if it is told that they
# exist. Without pread64 it seeks before each read; without usleep a busy timeout waits whole seconds.
include(CheckSymbolExists)
function(corvan_sqlite_functions result)
  set(CMAKE_REQUIRED_DEFINITIONS -D_GNU_SOURCE)
  set(definitions)
  foreach(function fdatasync gmtime_r isnan localtime_r nanosleep pread pread64 pwrite pwrite64 strchrnul
                   usleep utime)
    string(TOUPPER "HAVE_${function}" have)
    check_symbol_exists(${function} "math.h;string.h;time.h;unistd.h;utime.h" CORVAN_SQLITE_${have})
    if(CORVAN_SQLITE_${have})
      list(APPEND definitions ${have}=1)
    endif()
  endforeach()
  set(${result} ${definitions} PARENT_SCOPE)
endfunction()
corvan_sqlite_functions(sqlite_functions)

set(sqlite_cipher)
if(CORVAN_SQLITE_CIPHER)
  message(STATUS "SQLite can encrypt files: ${CORVAN_SQLITE_CIPHER}")
  set(sqlite_cipher
    # The cipher does not encrypt temporary files: those of sorts, of VACUUM and of statement journals.
    # They stay in memory unless a connection says `pragma temp_store=file`.
    SQLITE_TEMP_STORE=2
    # Lets `pragma memory_security=fill` overwrite all memory that SQLite frees. Until then it costs
    # 0.01 % of the instructions, afterwards 0.3 % to 0.7 %.
    SQLITE3MC_SECURE_MEMORY=1
    # Corvan::encryption uses AEGIS-256, with the processor's AES instructions where it finds them.
    # ChaCha20-Poly1305 and SQLCipher's format are kept to read the files of other programs.
    HAVE_CIPHER_AES_128_CBC=0
    HAVE_CIPHER_AES_256_CBC=0
    HAVE_CIPHER_RC4=0
    HAVE_CIPHER_ASCON128=0)
endif()

add_library(corvan_sqlite STATIC "${sqlite_folder}/sqlite3.c")
add_library(SQLite::SQLite3 ALIAS corvan_sqlite)
target_include_directories(corvan_sqlite SYSTEM INTERFACE "$<BUILD_INTERFACE:${sqlite_folder}>")
target_compile_definitions(corvan_sqlite PRIVATE
  SQLITE_THREADSAFE=1        # the store opens its file in serialised mode
  SQLITE_ENABLE_DBSTAT_VTAB  # the tool shows the sizes of tables
  SQLITE_ENABLE_FTS5         # for full-text search beside the store
  ${sqlite_functions}
  ${sqlite_cipher})
if(MSVC)
  target_compile_options(corvan_sqlite PRIVATE /w)  # SQLite's warnings are not this project's
else()
  target_compile_options(corvan_sqlite PRIVATE
    -O2  # in a debug build too: it follows, and so overrides, the flags of the build type
    -w   # SQLite's warnings are not this project's
    -fvisibility=hidden)
endif()
foreach(option IN LISTS CORVAN_SQLITE_OPTIONS)
  if(option MATCHES "^-")
    target_compile_options(corvan_sqlite PRIVATE "${option}")
  else()
    target_compile_definitions(corvan_sqlite PRIVATE "${option}")
  endif()
endforeach()
set(sqlite_libraries ${CMAKE_DL_LIBS})
if(NOT MSVC)
  list(APPEND sqlite_libraries m)  # FTS5 needs log()
endif()
target_link_libraries(corvan_sqlite PRIVATE Threads::Threads ${sqlite_libraries})
# The same for pkg-config.
list(TRANSFORM sqlite_libraries PREPEND "-l" OUTPUT_VARIABLE CORVAN_SQLITE_FLAGS)
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
