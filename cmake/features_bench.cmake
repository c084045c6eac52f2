# SPDX-License-Identifier: BSD-3-Clause
# features_add_bench(<path>_bench.cpp [SOURCES ...] [LIBRARIES ...])
#
# One program named after the path. It links the library's objects, so it can reach private code. A
# program of kernels with Google Benchmark takes its main function from features_bench_kernel_main.
function(features_add_bench source)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LIBRARIES")
  string(REGEX REPLACE "\\.cpp$" "" target ${source})
  string(REPLACE "/" "." target ${target})
  add_executable(${target} ${source} ${arg_SOURCES})
  target_link_libraries(${target} PRIVATE
      features_objects marlocuda features_bench_utilities ${arg_LIBRARIES})
  features_compile_settings(${target})
endfunction()
