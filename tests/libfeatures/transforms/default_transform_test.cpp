// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/transforms/default_transform.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace marlo {
namespace {

using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;

TEST(DefaultTransformTest, ReturnsTheImageItself) {
    DefaultTransform transform;
    const ByteImage bytes = ByteImage::Zero(2, 3);
    const FloatImage floats = FloatImage::Zero(2, 3);
    EXPECT_EQ(&transform.transformImage(bytes), &bytes);
    EXPECT_EQ(&transform.transformImage(floats), &floats);
}

TEST(DefaultTransformTest, CopiesTheKeypointsToBothLists) {
    DefaultTransform transform;
    const std::vector<Keypoint> transformed{Keypoint(1.0F, 2.0F, 3.0F, 4.0F, 5.0F, 1, 2),
                                            Keypoint(6.0F, 7.0F)};
    std::vector<Keypoint> forDescriptors(9);
    std::vector<Keypoint> output(9);
    transform.transformKeypointsBack(transformed, forDescriptors, output, 0, -1);
    for (const auto& list : {forDescriptors, output}) {
        EXPECT_THAT(list, ElementsAre(Field(&Keypoint::x, 1.0F), Field(&Keypoint::x, 6.0F)));
        EXPECT_EQ(list[0].y, 2.0F);
        EXPECT_EQ(list[0].scale, 3.0F);
        EXPECT_EQ(list[0].angle, 4.0F);
        EXPECT_EQ(list[0].response, 5.0F);
        EXPECT_EQ(list[0].octave, 1);
        EXPECT_EQ(list[0].layer, 2);
    }
}

TEST(DefaultTransformTest, NoKeypointsEmptyBothLists) {
    DefaultTransform transform;
    std::vector<Keypoint> forDescriptors(9);
    std::vector<Keypoint> output(9);
    transform.transformKeypointsBack({}, forDescriptors, output, 10, 10);
    EXPECT_THAT(forDescriptors, IsEmpty());
    EXPECT_THAT(output, IsEmpty());
}

}  // namespace
}  // namespace marlo
