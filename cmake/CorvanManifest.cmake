# corvan_utf8_code_page(PROGRAM): on Windows, gives the program a manifest that declares UTF-8 as its code
# page. Without it, the store cannot delete a damaged file whose path has other characters than those of
# the system's code page.
function(corvan_utf8_code_page program)
  if(NOT WIN32)
    return()
  endif()
  set(folder "${CMAKE_CURRENT_FUNCTION_LIST_DIR}/windows")
  if(MSVC)
    target_sources(${program} PRIVATE "${folder}/utf8.manifest")
  else()
    set_source_files_properties("${folder}/utf8.rc" PROPERTIES
      OBJECT_DEPENDS "${folder}/utf8.manifest" INCLUDE_DIRECTORIES "${folder}")
    target_sources(${program} PRIVATE "${folder}/utf8.rc")
  endif()
endfunction()
