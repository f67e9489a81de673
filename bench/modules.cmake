# Modules with the store, which support/store_module.h loads, in the folder CORVAN_MODULES.

set(CORVAN_MODULES "${PROJECT_BINARY_DIR}/bench/modules")
add_custom_target(corvan_store_modules)

# corvan_store_module(NAME SOURCE...): a module NAME_db for Corvan::db, NAME_db_cached for Corvan::db_cached.
function(corvan_store_module name)
  foreach(library IN ITEMS db db_cached)
    if(NOT TARGET Corvan::${library}_static)
      continue()
    endif()
    set(module ${name}_${library})
    add_library(${module} MODULE ${ARGN}
      "${PROJECT_SOURCE_DIR}/bench/support/linked_sqlite.cpp"
      "${PROJECT_SOURCE_DIR}/bench/support/module_sqlite.cpp")
    target_link_libraries(${module} PRIVATE Corvan::${library}_static SQLite::SQLite3)
    target_link_options(${module} PRIVATE
      "LINKER:--version-script=${PROJECT_SOURCE_DIR}/bench/support/module.map")
    set_target_properties(${module} PROPERTIES PREFIX "" LIBRARY_OUTPUT_DIRECTORY "${CORVAN_MODULES}")
    corvan_target(${module})
    add_dependencies(corvan_store_modules ${module})
  endforeach()
endfunction()

# corvan_modules_elsewhere(NAME TARGET ARGUMENT...): builds the modules of TARGET on another SQLite, which
# the arguments for CMake name. A project has one SQLite, so a second one makes them. Sets
# modules_with_NAME to their folder.
include(ExternalProject)
function(corvan_modules_elsewhere name target)
  set(folder "${PROJECT_BINARY_DIR}/bench/${name}")
  ExternalProject_Add(corvan_modules_with_${name}
    SOURCE_DIR "${PROJECT_SOURCE_DIR}"
    BINARY_DIR "${folder}"
    CMAKE_ARGS
      ${ARGN}
      -DCMAKE_BUILD_TYPE=${CMAKE_BUILD_TYPE}
      -DCMAKE_CXX_COMPILER=${CMAKE_CXX_COMPILER}
      -DCORVAN_BUILD_ADDONS=${CORVAN_BUILD_ADDONS}
      "-DCMAKE_CXX_FLAGS=${CMAKE_CXX_FLAGS}"
      -DCORVAN_WERROR=${CORVAN_WERROR}
      -DCORVAN_BUILD_BENCH=ON -DCORVAN_BUILD_TESTS=OFF -DCORVAN_BUILD_TOOLS=OFF
      -DCORVAN_BUILD_EXAMPLES=OFF -DCORVAN_INSTALL=OFF
    BUILD_COMMAND ${CMAKE_COMMAND} --build . --target ${target}
    BUILD_ALWAYS ON
    INSTALL_COMMAND "")
  add_dependencies(corvan_bench_support corvan_modules_with_${name})
  set(modules_with_${name} "${folder}/bench/modules/" PARENT_SCOPE)
endfunction()

add_custom_target(corvan_encryption_modules)
set(modules_with_built_sqlite "")
if(CORVAN_BENCH_AMALGAMATION)
  corvan_modules_elsewhere(built_sqlite corvan_store_modules
    -DCORVAN_SQLITE_AMALGAMATION=${CORVAN_BENCH_AMALGAMATION})
endif()
set(modules_with_cipher "")
set(modules_with_sqlcipher "")
if(CORVAN_BENCH_CIPHER)
  corvan_modules_elsewhere(cipher corvan_encryption_modules
    -DCORVAN_SQLITE_AMALGAMATION=${CORVAN_BENCH_CIPHER})
  find_path(CORVAN_SQLCIPHER_INCLUDE sqlcipher/sqlite3.h)
  find_library(CORVAN_SQLCIPHER sqlcipher)
  if(CORVAN_SQLCIPHER_INCLUDE AND CORVAN_SQLCIPHER)
    corvan_modules_elsewhere(sqlcipher corvan_encryption_modules
      -DSQLite3_INCLUDE_DIR=${CORVAN_SQLCIPHER_INCLUDE}/sqlcipher
      -DSQLite3_LIBRARY=${CORVAN_SQLCIPHER})
  else()
    message(STATUS "encryption_bench: SQLCipher is skipped, because it is not installed")
  endif()
endif()
target_compile_definitions(corvan_bench_support PRIVATE
  "CORVAN_MODULES=\"${CORVAN_MODULES}/\""
  "CORVAN_MODULES_WITH_BUILT_SQLITE=\"${modules_with_built_sqlite}\""
  "CORVAN_MODULES_WITH_CIPHER=\"${modules_with_cipher}\""
  "CORVAN_MODULES_WITH_SQLCIPHER=\"${modules_with_sqlcipher}\"")
add_dependencies(corvan_bench_support corvan_store_modules)
