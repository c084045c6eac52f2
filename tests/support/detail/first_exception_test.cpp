// SPDX-License-Identifier: BSD-3-Clause
#include "support/detail/first_exception.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace marlo::detail {
namespace {

TEST(FirstExceptionTest, NothingIsThrownWhereNothingWas) {
    FirstException failure;
    int runs = 0;
    failure.capture([&] { ++runs; });
    EXPECT_NO_THROW(failure.rethrow());
    EXPECT_EQ(runs, 1);
}

TEST(FirstExceptionTest, TheFirstIsKept) {
    FirstException failure;
    failure.capture([] { throw std::range_error("first"); });
    failure.capture([] { throw std::runtime_error("second"); });
    try {
        failure.rethrow();
        FAIL() << "nothing was thrown";
    } catch (const std::range_error& error) {
        EXPECT_STREQ(error.what(), "first");
    }
}

}  // namespace
}  // namespace marlo::detail
