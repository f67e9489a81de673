# Functions that define the libraries and their installation.

include(GNUInstallDirs)
include(CheckLinkerFlag)

set(CORVAN_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}/corvan")
set(CORVAN_CMAKEDIR "${CMAKE_INSTALL_LIBDIR}/cmake/Corvan")

# Defines a flavour (static or shared) of a library as Corvan::<export_name>, here and in the package.
function(corvan_flavour target export_name set)
  add_library(Corvan::${export_name} ALIAS ${target})
  set_target_properties(${target} PROPERTIES EXPORT_NAME ${export_name})
  target_include_directories(${target} PUBLIC
    "$<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>"
    "$<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/include>"
    "$<INSTALL_INTERFACE:${CORVAN_INCLUDEDIR}>")
  corvan_target(${target})
  if(CORVAN_INSTALL)
    install(TARGETS ${target} EXPORT ${set}
      ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT dev
      LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT runtime NAMELINK_COMPONENT dev)
  endif()
endfunction()

# corvan_library(NAME SOURCE...)
#
# Defines the static library corvan_NAME as Corvan::NAME_static. If CORVAN_LIBRARY includes shared
# libraries, also defines corvan_NAME_shared from the same objects, as Corvan::NAME_shared; it exports the
# symbols in exports.map.in beside the sources. Corvan::NAME is the shared library if only that is wanted,
# otherwise the static one.
function(corvan_library name)
  add_library(corvan_${name} STATIC ${ARGN})
  corvan_flavour(corvan_${name} ${name}_static CorvanStatic)
  if(CORVAN_LIBRARY STREQUAL "static")
    add_library(Corvan::${name} ALIAS corvan_${name})
    return()
  endif()

  set(exports "${CMAKE_CURRENT_BINARY_DIR}/exports.map")
  configure_file(exports.map.in "${exports}" @ONLY)
  check_linker_flag(CXX "LINKER:--version-script=${exports}" CORVAN_HAS_VERSION_SCRIPTS)
  if(NOT CORVAN_HAS_VERSION_SCRIPTS)
    message(FATAL_ERROR "CORVAN_LIBRARY: a shared library needs a linker with version scripts; "
                        "set it to static")
  endif()
  set(shared corvan_${name}_shared)
  add_library(${shared} SHARED $<TARGET_OBJECTS:corvan_${name}>)
  corvan_flavour(${shared} ${name}_shared CorvanShared)
  set_target_properties(${shared} PROPERTIES
    OUTPUT_NAME corvan_${name}
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}
    LINKER_LANGUAGE CXX
    LINK_DEPENDS "${exports}")
  target_link_options(${shared} PRIVATE "LINKER:--version-script=${exports}")
  if(CORVAN_LIBRARY STREQUAL "both")
    add_library(Corvan::${name} ALIAS corvan_${name})
  else()
    add_library(Corvan::${name} ALIAS ${shared})
  endif()
endfunction()
