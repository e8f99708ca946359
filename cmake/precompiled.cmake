# Headers that most units of a kind include, compiled once for all of them. A unit still includes
# what it uses: the linter sees it without these.

# kvo_precompiled_headers(NAME HEADER... LIBS LIBRARY...): the headers as the target NAME. The
# libraries are those whose compiler options the units have too.
function(kvo_precompiled_headers name)
  cmake_parse_arguments(PARSE_ARGV 1 HEADERS "" "" "LIBS")
  set(source ${PROJECT_BINARY_DIR}/generated/${name}.cpp)
  file(CONFIGURE OUTPUT ${source} CONTENT "")
  add_library(${name} OBJECT ${source})
  target_link_libraries(${name} PRIVATE ${HEADERS_LIBS})
  target_precompile_headers(${name} PRIVATE ${HEADERS_UNPARSED_ARGUMENTS})
endfunction()

# kvo_use_headers(NAME TARGET...): has the targets' units compiled with the headers NAME.
function(kvo_use_headers name)
  foreach(target ${ARGN})
    target_precompile_headers(${target} REUSE_FROM ${name})
  endforeach()
endfunction()

set(standard_headers
  <algorithm> <array> <cmath> <cstdint> <cstdlib> <cstring> <filesystem> <functional> <memory>
  <optional> <span> <string> <string_view> <utility> <vector>)
kvo_precompiled_headers(kvo_window_headers ${standard_headers} <gtk/gtk.h>
  LIBS kvo_options kvo_util PkgConfig::GTK)
kvo_precompiled_headers(kvo_engine_headers ${standard_headers} <Eigen/Core> <Eigen/LU>
  LIBS kvo_options kvo_util Eigen3::Eigen OpenMP::OpenMP_CXX)
