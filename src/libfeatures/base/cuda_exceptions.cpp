// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/base/cuda_exceptions.h"

namespace marlo::cuda {

CudaException::CudaException(const std::string& message) : std::runtime_error(message) {}

CudaException::~CudaException() = default;

CudaNoResourcesException::CudaNoResourcesException(const std::string& message)
    : std::runtime_error(message) {}

CudaNoResourcesException::~CudaNoResourcesException() = default;

}  // namespace marlo::cuda
