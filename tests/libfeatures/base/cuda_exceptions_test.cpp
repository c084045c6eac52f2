// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/base/cuda_exceptions.h"

#include <gtest/gtest.h>

#include <type_traits>

namespace marlo::cuda {
namespace {

TEST(CudaExceptionTest, CarriesItsMessage) {
    EXPECT_STREQ(CudaException().what(), "Cuda processing error.");
    EXPECT_STREQ(CudaException("another").what(), "another");
}

TEST(CudaNoResourcesExceptionTest, CarriesItsMessage) {
    EXPECT_STREQ(CudaNoResourcesException().what(), "Not enough resources for the detector.");
    EXPECT_STREQ(CudaNoResourcesException("another").what(), "another");
}

TEST(CudaExceptionTest, AreBothRuntimeErrorsAndNeitherIsTheOther) {
    EXPECT_TRUE((std::is_base_of_v<std::runtime_error, CudaException>));
    EXPECT_TRUE((std::is_base_of_v<std::runtime_error, CudaNoResourcesException>));
    EXPECT_FALSE((std::is_base_of_v<CudaException, CudaNoResourcesException>));
    EXPECT_FALSE((std::is_base_of_v<CudaNoResourcesException, CudaException>));
}

}  // namespace
}  // namespace marlo::cuda
