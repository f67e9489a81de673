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
      "${PROJECT_SOURCE_DIR}/bench/support/module_sqlite.cpp"
      "${PROJECT_SOURCE_DIR}/tests/support/rows.cpp")
    target_link_libraries(${module} PRIVATE Corvan::${library}_static SQLite::SQLite3)
    target_link_options(${module} PRIVATE
      "LINKER:--version-script=${PROJECT_SOURCE_DIR}/bench/support/module.map")
    set_target_properties(${module} PROPERTIES PREFIX "" LIBRARY_OUTPUT_DIRECTORY "${CORVAN_MODULES}")
    corvan_target(${module})
    add_dependencies(corvan_store_modules ${module})
  endforeach()
endfunction()

# The same modules on the built SQLite. A project has one SQLite, so a second one makes them.
set(modules_with_built_sqlite "")
if(CORVAN_BENCH_AMALGAMATION)
  set(built "${PROJECT_BINARY_DIR}/bench/built_sqlite")
  set(modules_with_built_sqlite "${built}/bench/modules/")
  include(ExternalProject)
  ExternalProject_Add(corvan_modules_with_built_sqlite
    SOURCE_DIR "${PROJECT_SOURCE_DIR}"
    BINARY_DIR "${built}"
    CMAKE_ARGS
      -DCORVAN_SQLITE_AMALGAMATION=${CORVAN_BENCH_AMALGAMATION}
      -DCMAKE_BUILD_TYPE=${CMAKE_BUILD_TYPE}
      -DCMAKE_CXX_COMPILER=${CMAKE_CXX_COMPILER}
      -DCORVAN_BUILD_ADDONS=${CORVAN_BUILD_ADDONS}
      "-DCMAKE_CXX_FLAGS=${CMAKE_CXX_FLAGS}"
      -DCORVAN_WERROR=${CORVAN_WERROR}
      -DCORVAN_BUILD_BENCH=ON -DCORVAN_BUILD_TESTS=OFF -DCORVAN_BUILD_TOOLS=OFF
      -DCORVAN_BUILD_EXAMPLES=OFF -DCORVAN_INSTALL=OFF
    BUILD_COMMAND ${CMAKE_COMMAND} --build . --target corvan_store_modules
    BUILD_ALWAYS ON
    INSTALL_COMMAND "")
  add_dependencies(corvan_bench_support corvan_modules_with_built_sqlite)
endif()
target_compile_definitions(corvan_bench_support PRIVATE
  "CORVAN_MODULES=\"${CORVAN_MODULES}/\""
  "CORVAN_MODULES_WITH_BUILT_SQLITE=\"${modules_with_built_sqlite}\"")
add_dependencies(corvan_bench_support corvan_store_modules)
