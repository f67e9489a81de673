# Generates a C++ file that defines `variable` as the style sheet `css`, without comments and layout. The
# file includes `header`, which declares the variable. Nothing runs during the build: if the style sheet
# has changed, CMake generates the file again before anything is compiled.
#
# A blank line in the style sheet becomes a line end; all other line ends are removed.
function(corvan_embed_css css header variable output)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${css}")
  file(READ "${css}" CSS)
  string(REGEX REPLACE "/\\*[^*]*\\*+([^/*][^*]*\\*+)*/\n" "" CSS "${CSS}")
  string(REGEX REPLACE "\n\n+" "\t" CSS "${CSS}")
  string(REGEX REPLACE "\n *" " " CSS "${CSS}")
  string(REGEX REPLACE " *([{},;]) *" "\\1" CSS "${CSS}")
  string(REGEX REPLACE ": " ":" CSS "${CSS}")
  string(REPLACE ";}" "}" CSS "${CSS}")
  string(REPLACE "@media (" "@media(" CSS "${CSS}")
  string(REPLACE "\t" "\n" CSS "${CSS}")
  string(STRIP "${CSS}" CSS)
  set(HEADER "${header}")
  set(VARIABLE "${variable}")
  configure_file("${PROJECT_SOURCE_DIR}/cmake/embedded_css.cpp.in" "${output}" @ONLY)
endfunction()
