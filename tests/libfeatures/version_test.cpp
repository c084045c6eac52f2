// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/version.h"

#include <gtest/gtest.h>

#include <string>

namespace marlo {
namespace {

TEST(VersionTest, LibraryAndHeadersAgree) {
    EXPECT_STREQ(libraryVersion(), FEATURES_VERSION);
    EXPECT_EQ(std::string(FEATURES_VERSION), std::to_string(FEATURES_VERSION_MAJOR) + "." +
                                                 std::to_string(FEATURES_VERSION_MINOR) + "." +
                                                 std::to_string(FEATURES_VERSION_PATCH));
}

}  // namespace
}  // namespace marlo
