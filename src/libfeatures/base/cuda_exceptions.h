// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <stdexcept>
#include <string>

#include "libfeatures/features_export.h"

namespace marlo::cuda {

/// GPU processing failed. FeaturesController answers it by falling back to the CPU with a warning.
class FEATURES_EXPORT CudaException : public std::runtime_error {
public:
    explicit CudaException(const std::string& message = "Cuda processing error.");
    CudaException(const CudaException&) = default;
    CudaException& operator=(const CudaException&) = default;
    ~CudaException() override;
};

/// The GPU has not enough memory (or other resources) for the task. FeaturesController answers it
/// by falling back to the CPU. Not a CudaException.
class FEATURES_EXPORT CudaNoResourcesException : public std::runtime_error {
public:
    explicit CudaNoResourcesException(
        const std::string& message = "Not enough resources for the detector.");
    CudaNoResourcesException(const CudaNoResourcesException&) = default;
    CudaNoResourcesException& operator=(const CudaNoResourcesException&) = default;
    ~CudaNoResourcesException() override;
};

}  // namespace marlo::cuda
