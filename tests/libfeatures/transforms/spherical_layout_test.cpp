// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/transforms/spherical_layout.h"

#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>

#include "libfeatures/transforms/spherical_transform.h"

namespace marlo {
namespace {

TEST(SphericalLayoutTest, OfTwoMegapixels) {
    const SphericalLayout layout(2000, 1000);
    EXPECT_EQ(layout.width, 2000);
    EXPECT_EQ(layout.height, 1000);
    EXPECT_EQ(layout.margin, 25);
    EXPECT_EQ(layout.bandRows, 550);
    EXPECT_EQ(layout.firstPanoramaRow, 225);
    EXPECT_EQ(layout.rows, 1250);
    EXPECT_EQ(layout.cols, 2050);
    EXPECT_NEAR(layout.discRadius, 350.1408748, 1e-7);
    EXPECT_NEAR(layout.keptRadius, 318.3098862, 1e-7);
    EXPECT_EQ(layout.discCentreRow, 900);
    EXPECT_EQ(layout.northCentreCol, 350);
    EXPECT_EQ(layout.southCentreCol, 1700);
}

// 0.025 x 1023 = 25.575, 1023 / 2 = 511.5, 1023 / 4 - 26 = 229.75, 1.1 x 1023 / pi = 358.19.
TEST(SphericalLayoutTest, RoundsHalfAwayFromZero) {
    const SphericalLayout layout(2046, 1023);
    EXPECT_EQ(layout.margin, 26);
    EXPECT_EQ(layout.bandRows, 512 + 52);
    EXPECT_EQ(layout.firstPanoramaRow, 230);
    EXPECT_EQ(layout.discCentreRow, 564 + 358);
    EXPECT_EQ(layout.rows, 1280);  // 511.5 + 52 + 716.39
}

TEST(SphericalLayoutTest, RefusesOtherShapes) {
    EXPECT_THROW(SphericalLayout(1000, 1000), std::invalid_argument);
    EXPECT_THROW(SphericalLayout(2001, 1000), std::invalid_argument);
    EXPECT_THROW(SphericalLayout(-2, -1), std::invalid_argument);
    EXPECT_NO_THROW(SphericalLayout(0, 0));
    try {
        SphericalLayout(1000, 1000);
        FAIL() << "not refused";
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(), "A full panorama is twice as wide as high, not 1000 x 1000");
    }
}

TEST(SphericalLayoutTest, RefusesSizesThatCannotBeCounted) {
    EXPECT_NO_THROW(SphericalLayout(1 << 30, 1 << 29));
    EXPECT_THROW(SphericalLayout(2147483646, 1073741823), std::length_error);
}

TEST(SphericalLayoutTest, RowsNextToTheBandAreDividedHalfWay) {
    const SphericalLayout layout(2000, 1000);
    EXPECT_EQ(layout.inPanorama(350.0, 549.4).y(), 774.4);
    EXPECT_LT(layout.inPanorama(350.0, 549.6).y(), 275.0);  // in the north disc
}

TEST(SphericalLayoutTest, PlacesBelongToTheNearerDisc) {
    const SphericalLayout layout(2000, 1000);
    EXPECT_LT(layout.inPanorama(1024.0, 900.0).y(), 500.0);
    EXPECT_GT(layout.inPanorama(1026.0, 900.0).y(), 500.0);
}

TEST(SphericalLayoutTest, PlacesAreInThePanorama) {
    const SphericalLayout layout(10, 5);
    EXPECT_EQ(layout.inPanorama(-1e-20, 0.0).x(), 0.0);
    EXPECT_EQ(SphericalLayout(2000, 1000).inPanorama(100.0, -1000.0).y(), 0.0);
}

// The way back leaves out the rounding of the margin and of the centres.
TEST(SphericalLayoutTest, TheWayBackIsOffByNoMoreThanItSays) {
    for (const int height : {1000, 1024, 1101, 1536, 2298, 4096}) {
        const int width = 2 * height;
        const SphericalLayout layout(width, height);
        const double radius = 1.1 * height / 3.141592653589793;
        const double band = 0.025 * height;
        EXPECT_LE(std::abs(band - layout.margin), 1.1);
        EXPECT_LE(std::abs(0.25 * height - band - layout.firstPanoramaRow), 1.1);
        EXPECT_LE(std::abs(radius - layout.northCentreCol), 2.1);
        EXPECT_LE(std::abs(width + 2.0 * band - radius - layout.southCentreCol), 2.1);
        EXPECT_LE(std::abs(0.55 * height + radius - layout.discCentreRow), 2.1);
    }
}

TEST(SphericalLayoutTest, SaysWhatEveryPixelShows) {
    for (const int height : {7, 64, 125, 201}) {
        const int width = 2 * height;
        const SphericalLayout layout(width, height);
        FloatImage panorama(height, width);
        for (Eigen::Index i = 0; i < panorama.size(); ++i) {
            panorama.data()[i] = static_cast<float>(i + 1);
        }
        SphericalTransform transform;
        const FloatImage& working = transform.transformImage(panorama);
        for (int y = 0; y < working.rows(); ++y) {
            for (int x = 0; x < working.cols(); ++x) {
                if (working(y, x) == 0.0F) continue;  // outside of the discs
                // The last row may show what lies a row below.
                if (y == working.rows() - 1) continue;
                const Eigen::Vector2d place = layout.inPanorama(x, y);
                const auto col = static_cast<int>(std::lround(place.x())) % width;
                const auto row = std::min(static_cast<int>(std::lround(place.y())), height - 1);
                ASSERT_EQ(working(y, x), panorama(row, col)) << height << ": " << x << ' ' << y;
            }
        }
    }
}

TEST(SphericalLayoutTest, PlacesBeyondTheSeamWrap) {
    const SphericalLayout layout(2000, 1000);
    EXPECT_EQ(layout.inPanorama(25.0, 25.0), Eigen::Vector2d(0.0, 250.0));
    EXPECT_EQ(layout.inPanorama(24.0, 25.0), Eigen::Vector2d(1999.0, 250.0));
    EXPECT_EQ(layout.inPanorama(2026.0, 25.0), Eigen::Vector2d(1.0, 250.0));
}

TEST(SphericalLayoutTest, ThePolesAreTheCentresOfTheDiscs) {
    const SphericalLayout layout(2000, 1000);
    EXPECT_EQ(layout.inPanorama(350.0, 900.0).y(), 0.0);
    EXPECT_EQ(layout.inPanorama(1700.0, 900.0).y(), 1000.0);
}

}  // namespace
}  // namespace marlo
