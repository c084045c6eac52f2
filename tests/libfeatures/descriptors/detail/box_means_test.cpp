// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/descriptors/detail/box_means.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "utilities/synthetic_images.h"

namespace marlo::detail {
namespace {

using Eigen::Index;

ByteImage noise(Index rows, Index cols, std::uint32_t seed) {
    test::Random random(seed);
    ByteImage image(rows, cols);
    for (Index i = 0; i < image.size(); ++i) {
        image.data()[i] = static_cast<unsigned char>(random.below(256));
    }
    return image;
}

int meanOf(const ByteImage& image, Index row, Index col) {
    int sum = 0;
    for (Index r = row - 3; r <= row + 4; ++r) {
        for (Index c = col - 3; c <= col + 4; ++c) {
            sum += image(std::clamp<Index>(r, 0, image.rows() - 1),
                         std::clamp<Index>(c, 0, image.cols() - 1));
        }
    }
    return sum / 64;
}

void expectMeans(const ByteImage& image, BoxRange rows, BoxRange cols, const BoxMeans& means) {
    for (Index r = rows.first; r <= rows.last; ++r) {
        for (Index c = cols.first; c <= cols.last; ++c) {
            ASSERT_EQ(*means.at(r, c), meanOf(image, r, c)) << "row " << r << ", column " << c;
        }
    }
}

TEST(BoxMeansTest, BoxHasThreePixelsBeforeAndFourBehind) {
    ByteImage image = ByteImage::Zero(20, 20);
    image(10, 10) = 255;  // 255 / 64 is 3
    BoxMeans means(image, 20);
    means.compute({0, 19}, {0, 19});
    for (Index r = 0; r < 20; ++r) {
        for (Index c = 0; c < 20; ++c) {
            const bool inBox = r >= 6 && r <= 13 && c >= 6 && c <= 13;
            EXPECT_EQ(*means.at(r, c), inBox ? 3 : 0) << r << " " << c;
        }
    }
}

TEST(BoxMeansTest, MeansAreRoundedDown) {
    ByteImage image = ByteImage::Constant(8, 8, 7);
    image(0, 0) = 6;
    BoxMeans means(image, 1);
    means.compute({3, 3}, {3, 3});
    EXPECT_EQ(*means.at(3, 3), 6);
}

TEST(BoxMeansTest, BrightestImageHasTheBrightestMeans) {
    const ByteImage image = ByteImage::Constant(9, 9, 255);
    BoxMeans means(image, 16);
    means.compute(differentBoxes(9), differentBoxes(9));
    EXPECT_EQ(*means.at(-4, 11), 255);
    EXPECT_EQ(*means.at(4, 4), 255);
}

TEST(BoxMeansTest, BeyondTheBordersThePixelsAtThemGoOn) {
    const std::vector<std::pair<Index, Index>> sizes{{1, 1}, {1, 9}, {9, 1},  {2, 3},
                                                     {7, 8}, {8, 7}, {17, 40}};
    for (const auto& [rows, cols] : sizes) {
        const ByteImage image = noise(rows, cols, 1);
        BoxMeans means(image, 90);
        means.compute({-25, rows + 24}, {-24, cols + 25});
        expectMeans(image, {-25, rows + 24}, {-24, cols + 25}, means);
    }
}

TEST(BoxMeansTest, DifferentBoxesAreAllThatDiffer) {
    const ByteImage image = noise(6, 5, 2);
    const BoxRange rows = differentBoxes(6);
    const BoxRange cols = differentBoxes(5);
    for (Index d = -4; d < 10; ++d) {
        EXPECT_EQ(meanOf(image, rows.first, d), meanOf(image, rows.first - 1, d));
        EXPECT_EQ(meanOf(image, rows.last, d), meanOf(image, rows.last + 1, d));
        EXPECT_EQ(meanOf(image, d, cols.first), meanOf(image, d, cols.first - 1));
        EXPECT_EQ(meanOf(image, d, cols.last), meanOf(image, d, cols.last + 1));
    }
}

TEST(BoxMeansTest, OnePositionAtEachEndIsEnough) {
    const ByteImage image = noise(6, 5, 2);
    BoxMeans means(image, 1);
    for (const Index row : {differentBoxes(6).first, differentBoxes(6).last}) {
        for (const Index col : {differentBoxes(5).first, differentBoxes(5).last}) {
            means.compute({row, row}, {col, col});
            EXPECT_EQ(*means.at(row, col), meanOf(image, row, col));
        }
    }
}

TEST(BoxMeansTest, EachPartReplacesTheOneBefore) {
    const ByteImage image = noise(70, 90, 3);
    BoxMeans means(image, 64);
    const std::ptrdiff_t stride = means.stride();
    // Widths around those of vectors; the wide ones leave sums behind the narrow ones.
    for (const Index count : {64, 1, 15, 16, 17, 33, 49}) {
        const BoxRange rows{70 - count - count / 2, 70 - 1 - count / 2};
        const BoxRange cols{count / 3, count / 3 + count - 1};
        means.compute(rows, cols);
        EXPECT_EQ(means.stride(), stride);
        expectMeans(image, rows, cols, means);
    }
}

}  // namespace
}  // namespace marlo::detail
