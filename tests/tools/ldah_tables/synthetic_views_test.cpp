// SPDX-License-Identifier: BSD-3-Clause
#include "ldah_tables/synthetic_views.h"

#include <gtest/gtest.h>

#include <Eigen/Eigenvalues>
#include <cmath>
#include <cstdint>

namespace marlo::tools {
namespace {

FloatImage spotAt(float x, float y) {
    FloatImage image(200, 300);
    for (Eigen::Index row = 0; row < image.rows(); ++row) {
        for (Eigen::Index col = 0; col < image.cols(); ++col) {
            const float u = (static_cast<float>(col) - x) / 6.0F;
            const float v = (static_cast<float>(row) - y) / 6.0F;
            image(row, col) = 0.8F * std::exp(-0.5F * (u * u + v * v));
        }
    }
    return image;
}

TEST(SyntheticViewTest, ShowsThePhotographWhereItsHomographySays) {
    for (std::uint64_t seed = 1; seed <= 5; ++seed) {
        const SyntheticView view = syntheticView(spotAt(160.0F, 90.0F), seed);
        ASSERT_EQ(view.image.rows(), 200);
        ASSERT_EQ(view.image.cols(), 300);
        double sum = 0.0;
        Eigen::Vector2d centre = Eigen::Vector2d::Zero();
        for (Eigen::Index row = 0; row < 200; ++row) {
            for (Eigen::Index col = 0; col < 300; ++col) {
                const double weight =
                    view.image(row, col) > 0.2F ? static_cast<double>(view.image(row, col)) : 0.0;
                sum += weight;
                centre +=
                    weight * Eigen::Vector2d(static_cast<double>(col), static_cast<double>(row));
            }
        }
        const Eigen::Vector3d expected = view.homography * Eigen::Vector3d(160.0, 90.0, 1.0);
        EXPECT_NEAR(centre.x() / sum, expected.x() / expected.z(), 0.5) << "seed " << seed;
        EXPECT_NEAR(centre.y() / sum, expected.y() / expected.z(), 0.5) << "seed " << seed;
    }
}

TEST(SyntheticViewTest, IsTheSameForTheSameSeedAndAnotherForAnother) {
    const FloatImage photograph = spotAt(160.0F, 90.0F);
    EXPECT_EQ(syntheticView(photograph, 3).image, syntheticView(photograph, 3).image);
    EXPECT_NE(syntheticView(photograph, 3).image, syntheticView(photograph, 4).image);
}

// Squares of light and dark, `side` pixels each.
FloatImage squares(int side) {
    FloatImage image(200, 300);
    for (Eigen::Index row = 0; row < image.rows(); ++row) {
        for (Eigen::Index col = 0; col < image.cols(); ++col) {
            image(row, col) = (row / side + col / side) % 2 == 0 ? 0.1F : 0.9F;
        }
    }
    return image;
}

// The deviation of the values in the middle of the view, as a share of their mean.
float contrastInTheMiddle(const FloatImage& image) {
    const Eigen::ArrayXXf middle = image.block(80, 130, 40, 40).array();
    return std::sqrt((middle - middle.mean()).square().mean()) / middle.mean();
}

// How much smaller than the photograph the view is at its middle, where it is smallest.
double smallestScale(const SyntheticView& view) {
    const Eigen::Matrix2d map = view.homography.topLeftCorner<2, 2>();
    return std::sqrt(Eigen::SelfAdjointEigenSolver<Eigen::Matrix2d>(map.transpose() * map)
                         .eigenvalues()
                         .minCoeff());
}

TEST(SyntheticViewTest, ShowsNothingOfWhatIsTooFineForItsSize) {
    int smallViews = 0;
    for (std::uint64_t seed = 1; seed <= 40; ++seed) {
        const SyntheticView view = syntheticView(squares(1), seed);
        if (smallestScale(view) > 0.6) continue;
        ++smallViews;
        EXPECT_LT(contrastInTheMiddle(view.image), 0.1F) << "seed " << seed;
    }
    EXPECT_GE(smallViews, 5);
}

TEST(SyntheticViewTest, KeepsWhatIsCoarse) {
    for (std::uint64_t seed = 1; seed <= 10; ++seed) {
        EXPECT_GT(contrastInTheMiddle(syntheticView(squares(16), seed).image), 0.4F)
            << "seed " << seed;
    }
}

}  // namespace
}  // namespace marlo::tools
