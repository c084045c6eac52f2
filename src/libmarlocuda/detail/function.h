// SPDX-License-Identifier: BSD-3-Clause
#pragma once

/// Functions of kernels. The CUDA compiler makes them for the GPU and the CPU; any other compiler
/// makes them for the CPU, where tests run the very same kernels.
#if defined(__CUDACC__)
#define MARLO_GPU_FUNCTION __host__ __device__
#else
#define MARLO_GPU_FUNCTION
#endif

/// Before loops over an array that is to stay in a GPU's registers: unrolled they name its elements
/// by constants.
#if defined(__CUDA_ARCH__)
#define MARLO_GPU_UNROLL _Pragma("unroll")
#else
#define MARLO_GPU_UNROLL
#endif
