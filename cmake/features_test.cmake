# SPDX-License-Identifier: BSD-3-Clause
# features_test_compile_settings(<target>)
#
# What is tested is the optimised library: optimising the tests, too, costs minutes and shows nothing.
function(features_test_compile_settings target)
  features_compile_settings(${target})
  target_compile_options(${target} PRIVATE $<$<CONFIG:Release>:-O1>)
endfunction()

# features_add_test(<path>_test.cpp [SINGLE_THREADED] [LABEL unit|end_to_end] [LIBRARIES ...])
#
# One program and one CTest test named after the path. It links the library's objects, so it can
# reach private code, and the scriptable GPU library in place of the real one.
#
# SINGLE_THREADED: neither the test nor what it calls starts threads or is written to be called from
# several; the thread sanitizer has nothing to find there.
function(features_add_test source)
  cmake_parse_arguments(PARSE_ARGV 1 arg "SINGLE_THREADED" "LABEL" "LIBRARIES")
  if(NOT FEATURES_BUILD_UNIT_TESTS AND NOT arg_LABEL STREQUAL "tools")
    return()
  endif()
  if(arg_SINGLE_THREADED AND FEATURES_SANITIZERS MATCHES thread)
    return()
  endif()
  string(REGEX REPLACE "_test\\.cpp$" "" name ${source})
  string(REPLACE "/" "." target ${name})
  add_executable(${target} ${source})
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  target_link_libraries(${target} PRIVATE
      features_objects marlocuda_stand_in features_test_utilities GTest::gmock_main ${arg_LIBRARIES})
  features_test_compile_settings(${target})
  if(FEATURES_LLD)
    target_link_options(${target} PRIVATE -fuse-ld=lld)
  endif()
  target_precompile_headers(${target} REUSE_FROM features_test_utilities)
  add_test(NAME ${name} COMMAND ${target})
  if(NOT arg_LABEL)
    set(arg_LABEL unit)
  endif()
  features_test_properties(${name} ${arg_LABEL})
endfunction()

# features_test_properties(<test> <label>): label, time limit and sanitizer settings.
function(features_test_properties test label)
  # The size tests ask for more memory than there is; the sanitizers must say so, not stop.
  # Reports from code that was not built here (Qt, the C++ runtime) say nothing about this code.
  set(environment
      "ASAN_OPTIONS=allocator_may_return_null=1:detect_stack_use_after_return=1"
      "UBSAN_OPTIONS=print_stacktrace=1"
      "TSAN_OPTIONS=allocator_may_return_null=1:ignore_noninstrumented_modules=1")
  if(FEATURES_ARCHER)
    list(APPEND environment "OMP_TOOL_LIBRARIES=${FEATURES_ARCHER}")
  endif()
  set_tests_properties(${test} PROPERTIES
      LABELS ${label} TIMEOUT 300 ENVIRONMENT "${environment}")
endfunction()
