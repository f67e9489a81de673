# Compile options of every target in the project.
function(corvan_target target)
  target_compile_features(${target} PUBLIC cxx_std_17)
  set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF POSITION_INDEPENDENT_CODE ON)
  if(MSVC)
    corvan_msvc_options(${target})
    return()
  endif()
  # Support stores above 2 GiB and times after 2038 on 32-bit systems.
  target_compile_definitions(${target} PRIVATE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast
    -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-align -Wformat=2
    "-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/="
    $<$<BOOL:${CORVAN_WERROR}>:-Werror>)
  if(CORVAN_SANITIZE)
    target_compile_options(${target} PRIVATE
      -fsanitize=${CORVAN_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(${target} PUBLIC -fsanitize=${CORVAN_SANITIZE})
  endif()
endfunction()

# Nobody has tried these options. The folder windows/msvc has the POSIX headers that the store includes.
function(corvan_msvc_options target)
  target_compile_options(${target} PRIVATE
    /W4 /permissive- /utf-8 /EHsc /bigobj /Zc:__cplusplus $<$<BOOL:${CORVAN_WERROR}>:/WX>)
  # Without warnings about functions of the C library and of POSIX, such as getenv and unlink.
  target_compile_definitions(${target} PRIVATE NOMINMAX _CRT_SECURE_NO_WARNINGS _CRT_NONSTDC_NO_WARNINGS)
  target_include_directories(${target} SYSTEM PRIVATE "${PROJECT_SOURCE_DIR}/cmake/windows/msvc")
endfunction()
