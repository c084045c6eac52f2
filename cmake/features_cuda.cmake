# SPDX-License-Identifier: BSD-3-Clause
# Sets FEATURES_CUDA: whether the GPU library is built with CUDA.
set(default OFF)
if(PROJECT_IS_TOP_LEVEL)
  set(default AUTO)
endif()
set(FEATURES_WITH_CUDA ${default} CACHE STRING
    "Build the GPU library with CUDA: AUTO (where a toolkit is found), ON or OFF")
set_property(CACHE FEATURES_WITH_CUDA PROPERTY STRINGS AUTO ON OFF)
set(FEATURES_CUDA OFF)
string(TOUPPER "${FEATURES_WITH_CUDA}" wanted)
if(wanted STREQUAL "OFF")
  message(STATUS "GPU library without CUDA: FEATURES_WITH_CUDA is OFF")
  return()
elseif(NOT wanted MATCHES "^(AUTO|ON)$")
  message(FATAL_ERROR "FEATURES_WITH_CUDA is '${FEATURES_WITH_CUDA}'; it must be AUTO, ON or OFF")
endif()

# The compiler that the user or an embedding project has chosen, or the first one.
find_program(FEATURES_NVCC nvcc
    HINTS $ENV{CUDA_PATH}/bin $ENV{CUDA_HOME}/bin PATHS /usr/local/cuda/bin)
mark_as_advanced(FEATURES_NVCC)
if(CMAKE_CUDA_COMPILER)
  set(nvcc ${CMAKE_CUDA_COMPILER})
elseif(DEFINED ENV{CUDACXX})
  set(nvcc $ENV{CUDACXX})
else()
  set(nvcc ${FEATURES_NVCC})
endif()
if(NOT CMAKE_CUDA_HOST_COMPILER)
  set(CMAKE_CUDA_HOST_COMPILER ${CMAKE_CXX_COMPILER})
endif()
set(objection)
if(NOT nvcc)
  set(objection "no nvcc was found")
else()
  execute_process(COMMAND ${nvcc} --version OUTPUT_VARIABLE version ERROR_QUIET)
  if(NOT version MATCHES "release ([0-9]+\\.[0-9]+)")
    set(objection "${nvcc} does not say its version")
  elseif(CMAKE_MATCH_1 VERSION_LESS 12.0)
    set(objection "CUDA 12 or newer is needed, and ${nvcc} is of CUDA ${CMAKE_MATCH_1}")
  else()
    # Each version knows some versions of some compilers, and installations may be incomplete.
    set(trial ${CMAKE_BINARY_DIR}/CMakeFiles/features_cuda_trial)
    file(WRITE ${trial}.cu "__global__ void kernel() {}\nint main() { kernel<<<1, 1>>>(); }\n")
    execute_process(
        COMMAND ${nvcc} -ccbin ${CMAKE_CUDA_HOST_COMPILER} -std=c++20 -cudart=static
            -o ${trial} ${trial}.cu
        RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT status EQUAL 0)
      string(REGEX MATCH "[^\n]*" first_line "${output}")
      set(objection "${nvcc} with ${CMAKE_CUDA_HOST_COMPILER} cannot build a program: ${first_line}")
    endif()
  endif()
endif()
if(objection)
  if(wanted STREQUAL "AUTO")
    message(STATUS "GPU library without CUDA: ${objection}")
    return()
  endif()
  message(FATAL_ERROR "FEATURES_WITH_CUDA is ON, but ${objection}. Install a CUDA toolkit of version "
                      "12 or newer, set CMAKE_CUDA_COMPILER, or configure with "
                      "-DFEATURES_WITH_CUDA=OFF.")
endif()

# Machine code from Turing to Hopper, and an intermediate form that drivers compile for what is
# newer.
if(NOT DEFINED CMAKE_CUDA_ARCHITECTURES)
  set(CMAKE_CUDA_ARCHITECTURES 75-real 80-real 86-real 89-real 90)
endif()
if(NOT CMAKE_CUDA_COMPILER)
  set(CMAKE_CUDA_COMPILER ${nvcc})
endif()
enable_language(CUDA)
find_package(CUDAToolkit REQUIRED)
set(FEATURES_CUDA ON)
message(STATUS "GPU library with CUDA ${CMAKE_CUDA_COMPILER_VERSION}")

# features_cuda_compile_settings(<target>): those of features_compile_settings() for CUDA sources.
# No contraction here either: results are to be the bits of the CPU. CMake 3.25 does not know that
# the compiler has C++20.
function(features_cuda_compile_settings target)
  target_compile_options(${target} PRIVATE
      $<$<COMPILE_LANGUAGE:CUDA>:-std=c++20;-fmad=false>
      $<$<COMPILE_LANGUAGE:CUDA>:-Xcompiler=-Wall,-Wextra,-Wconversion,-Wshadow,-ffp-contract=off>
      $<$<AND:$<COMPILE_LANGUAGE:CUDA>,$<BOOL:${FEATURES_WARNINGS_AS_ERRORS}>>:--Werror=all-warnings;-Xcompiler=-Werror>)
  set_target_properties(${target} PROPERTIES CUDA_VISIBILITY_PRESET hidden)
endfunction()
