// SPDX-License-Identifier: BSD-3-Clause
#include "support/cameras/detail/brown_conrady.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "references/camera_reference.h"
#include "utilities/camera_checks.h"

namespace marlo::detail {
namespace {

using test::randomBetween;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// Distortion alone; focal lengths of 1.
BrownConradyParameters radial(double k1, double k2, double k3) {
    BrownConradyParameters p;
    p.fx = 1.0;
    p.fy = 1.0;
    p.k1 = k1;
    p.k2 = k2;
    p.k3 = k3;
    return p;
}

BrownConradyParameters withDecentring(BrownConradyParameters p, double p1, double p2) {
    p.p1 = p1;
    p.p2 = p2;
    return p;
}

BrownConradyParameters randomDistortion(std::mt19937& generator, double decentring) {
    const auto k1 = randomBetween(generator, -0.5, 0.5);
    const auto k2 = randomBetween(generator, -0.3, 0.3);
    const auto k3 = randomBetween(generator, -0.1, 0.1);
    const auto p1 = randomBetween(generator, -decentring, decentring);
    return withDecentring(radial(k1, k2, k3), p1,
                          randomBetween(generator, -decentring, decentring));
}

// undistort(), with what it needs of the parameters found once.
class Undistort {
public:
    explicit Undistort(const BrownConradyParameters& p)
        : p_(p), fold_(foldRadius(p)), largest_(largestDistortedRadius(p, fold_)) {}

    bool operator()(double& x, double& y) const { return undistort(p_, fold_, largest_, x, y); }

private:
    BrownConradyParameters p_;
    double fold_;
    double largest_;
};

bool undistorted(const BrownConradyParameters& p, double& x, double& y) {
    return Undistort(p)(x, y);
}

TEST(DistortTest, GivesTheStatedValueAndDerivative) {
    // x = 2, y = 1, r^2 = 5: L = 1 + 5 - 25 + 12.5 = -6.5; dL / d(r^2) = 1 - 10 + 7.5 = -1.5
    const BrownConradyParameters p = withDecentring(radial(1.0, -1.0, 0.1), 0.5, 0.25);
    const DistortedPoint d = distort(p, 2.0, 1.0);
    EXPECT_DOUBLE_EQ(d.x, 2.0 * -6.5 + 2.0 * 0.5 * 2.0 + 0.25 * (5.0 + 8.0));
    EXPECT_DOUBLE_EQ(d.y, -6.5 + 0.5 * (5.0 + 2.0) + 2.0 * 0.25 * 2.0);
    EXPECT_DOUBLE_EQ(d.dxdx, -6.5 + 2.0 * (-1.5 * 4.0) + 2.0 * 0.5 + 0.25 * 12.0);
    EXPECT_DOUBLE_EQ(d.dxdy, -1.5 * 4.0 + 2.0 * 0.5 * 2.0 + 2.0 * 0.25);
    EXPECT_DOUBLE_EQ(d.dydy, -6.5 - 1.5 * 2.0 + 6.0 * 0.5 + 2.0 * 0.25 * 2.0);
}

TEST(FoldRadiusTest, NoDistortionFoldsNowhere) {
    EXPECT_EQ(foldRadius(radial(0.0, 0.0, 0.0)), kInfinity);
    EXPECT_EQ(foldRadius(radial(0.2, 0.1, 0.05)), kInfinity);
}

// 1 + 3 k1 s + 5 k2 s^2 + 7 k3 s^3 with s the square of the radius, factored by hand.
TEST(FoldRadiusTest, IsTheFirstZeroOfTheDerivativeAtEveryOrder) {
    EXPECT_DOUBLE_EQ(foldRadius(radial(-1.0 / 3.0, 0.0, 0.0)), 1.0);
    EXPECT_DOUBLE_EQ(foldRadius(radial(0.0, -1.0 / 20.0, 0.0)), std::sqrt(2.0));        // s^2 = 4
    EXPECT_DOUBLE_EQ(foldRadius(radial(0.0, 0.0, -1.0 / 56.0)), std::sqrt(2.0));        // s^3 = 8
    EXPECT_DOUBLE_EQ(foldRadius(radial(-1.0 / 2.0, 1.0 / 10.0, 0.0)), 1.0);             // s = 1, 2
    EXPECT_DOUBLE_EQ(foldRadius(radial(1.0 / 6.0, -1.0 / 10.0, 0.0)), std::sqrt(2.0));  // 2, -1
    // (1 - s)(1 - s / 2)(1 - s / 4) = 1 - 7/4 s + 7/8 s^2 - 1/8 s^3
    EXPECT_DOUBLE_EQ(foldRadius(radial(-7.0 / 12.0, 7.0 / 40.0, -1.0 / 56.0)), 1.0);
    // (1 - s / 4)(1 + s^2) = 1 - 1/4 s + s^2 - 1/4 s^3
    EXPECT_DOUBLE_EQ(foldRadius(radial(-1.0 / 12.0, 1.0 / 5.0, -1.0 / 28.0)), 2.0);
}

// 1 - 6 r |p| is the least slope; the disc keeps a little away from its zero.
TEST(FoldRadiusTest, DecentringAloneFoldsToo) {
    EXPECT_DOUBLE_EQ(foldRadius(withDecentring(radial(0.0, 0.0, 0.0), 0.0, -0.1)), 1.0 / 0.64);
    EXPECT_DOUBLE_EQ(foldRadius(withDecentring(radial(0.0, 0.0, 0.0), 0.03, 0.04)), 1.0 / 0.32);
}

TEST(FoldRadiusTest, AgreesWithASlowSearch) {
    constexpr double kStep = 0.01;
    constexpr double kEnd = 1.5;
    std::mt19937 generator(2);
    int folds = 0;
    for (int i = 0; i < 60; ++i) {
        BrownConradyParameters p = randomDistortion(generator, i % 2 == 0 ? 0.0 : 0.2);
        const double fold = foldRadius(p);
        const double slow = reference::slowFoldRadius(p, kStep, kEnd);
        if (slow < kEnd) ++folds;
        EXPECT_LT(std::min(fold, kEnd), slow + 0.1 * kStep) << i;
        // The disc keeps the distance that it would keep from a decentring stronger by 1/15.
        p.p1 *= 16.0 / 15.0;
        p.p2 *= 16.0 / 15.0;
        const double slowest = reference::slowFoldRadius(p, kStep, kEnd);
        EXPECT_GT(fold, std::min(slowest, kEnd) - 1.1 * kStep) << i;
    }
    EXPECT_GT(folds, 25);
}

TEST(UndistortTest, FindsEveryPointOfTheDisc) {
    std::mt19937 generator(3);
    for (int i = 0; i < 200; ++i) {
        const BrownConradyParameters p = randomDistortion(generator, i % 2 == 0 ? 0.0 : 0.05);
        const double end = std::min(foldRadius(p), 2.0);
        const Undistort undistortPoint(p);
        for (int k = 0; k < 50; ++k) {
            const double r = end * randomBetween(generator, 0.0, 0.999);
            const double angle = randomBetween(generator, 0.0, 6.283185307179586);
            const DistortedPoint d = distort(p, r * std::cos(angle), r * std::sin(angle));
            double x = d.x;
            double y = d.y;
            ASSERT_TRUE(undistortPoint(x, y)) << i << ", radius " << r << " of " << end;
            const DistortedPoint back = distort(p, x, y);
            EXPECT_NEAR(back.x, d.x, 1e-12 * (1.0 + std::fabs(d.x)));
            EXPECT_NEAR(back.y, d.y, 1e-12 * (1.0 + std::fabs(d.y)));
            if (r < 0.95 * end) {
                EXPECT_NEAR(x, r * std::cos(angle), 1e-12);
                EXPECT_NEAR(y, r * std::sin(angle), 1e-12);
            }
        }
    }
}

// What lies beyond the fold is distorted to places that the disc is distorted to as well, or that
// nothing within it is.
TEST(UndistortTest, NeverGivesAPointBeyondTheFold) {
    std::mt19937 generator(4);
    int inside = 0;
    int nowhere = 0;
    for (int i = 0; i < 200; ++i) {
        BrownConradyParameters p = randomDistortion(generator, i % 2 == 0 ? 0.0 : 0.05);
        p.k1 = -std::fabs(p.k1);
        const double fold = foldRadius(p);
        if (fold > 3.0) continue;
        const Undistort undistortPoint(p);
        for (int k = 0; k < 50; ++k) {
            const double r = fold * randomBetween(generator, 1.001, 2.0);
            const double angle = randomBetween(generator, 0.0, 6.283185307179586);
            const DistortedPoint d = distort(p, r * std::cos(angle), r * std::sin(angle));
            double x = d.x;
            double y = d.y;
            if (undistortPoint(x, y)) {
                EXPECT_LT(std::hypot(x, y), fold);
                const DistortedPoint back = distort(p, x, y);
                EXPECT_NEAR(std::hypot(back.x - d.x, back.y - d.y), 0.0,
                            1e-12 * (1.0 + std::hypot(d.x, d.y)));
                ++inside;
            } else {
                ++nowhere;
            }
        }
    }
    EXPECT_GT(inside, 1000);
    EXPECT_GT(nowhere, 1000);
}

TEST(UndistortTest, FindsPointsUpToTheFoldAndNoneBeyondItsImage) {
    // r - r^3 / 3 folds at 1, distorted to 2 / 3.
    const BrownConradyParameters p = radial(-1.0 / 3.0, 0.0, 0.0);
    for (const double below : {1e-3, 1e-6, 1e-9, 1e-12, 1e-15}) {
        double x = 2.0 / 3.0 - below;
        double y = 0.0;
        ASSERT_TRUE(undistorted(p, x, y)) << below;
        // What is missing to the fold is the square root of what is missing to its image.
        EXPECT_NEAR(x, 1.0 - std::sqrt(below), below + 2e-7);
        EXPECT_EQ(y, 0.0);
    }
    for (const double above : {1e-12, 1e-3, 1.0, 1e10, 1e300}) {
        double x = 0.0;
        double y = 2.0 / 3.0 + above;
        EXPECT_FALSE(undistorted(p, x, y)) << above;
    }
}

TEST(UndistortTest, RefusesWhatIsNotFinite) {
    for (const BrownConradyParameters& p :
         {radial(0.0, 0.0, 0.0), radial(-0.3, 0.0, 0.0), radial(0.3, 0.1, 0.1)}) {
        for (const double bad : {kNaN, kInfinity, -kInfinity}) {
            double x = bad;
            double y = 0.0;
            EXPECT_FALSE(undistorted(p, x, y));
            x = 0.0;
            y = bad;
            EXPECT_FALSE(undistorted(p, x, y));
        }
    }
}

TEST(UndistortTest, GoesFarOutWhereNothingFolds) {
    for (const double wanted : {1e2, 1e5, 1e10, 1e30}) {
        double x = wanted;
        double y = -wanted;
        ASSERT_TRUE(undistorted(radial(0.3, 0.1, 0.05), x, y)) << wanted;
        const DistortedPoint back = distort(radial(0.3, 0.1, 0.05), x, y);
        EXPECT_NEAR(back.x, wanted, 1e-13 * wanted);
        EXPECT_NEAR(back.y, -wanted, 1e-13 * wanted);
    }
}

TEST(UndistortTest, LeavesPointsAloneWithoutDistortion) {
    double x = 0.123;
    double y = -4.56;
    ASSERT_TRUE(undistorted(radial(0.0, 0.0, 0.0), x, y));
    EXPECT_EQ(x, 0.123);
    EXPECT_EQ(y, -4.56);
}

// A slope that falls to 0.44 and rises again: Newton's method alone would leap to and fro.
TEST(UndistortTest, CopesWithAPlateau) {
    const BrownConradyParameters p = radial(-0.5, 0.25, 0.0);
    for (double r = 0.0; r < 5.0; r += 0.01) {
        double x = distort(p, r, 0.0).x;
        double y = 0.0;
        ASSERT_TRUE(undistorted(p, x, y)) << r;
        EXPECT_NEAR(x, r, 1e-12) << r;
    }
}

// Harmless values may be distorted beyond what can be computed with; no result is the answer then.
TEST(UndistortTest, ComesToAnEndWithExtremeParameters) {
    for (const double k : {1e300, -1e300, 1e-300, -1e-300, 1e150, -1e150}) {
        for (const BrownConradyParameters& p :
             {radial(k, 0.0, 0.0), radial(0.1, k, 0.0), radial(0.1, -k, k),
              withDecentring(radial(0.0, 0.0, k), k, 0.1)}) {
            double x = 0.1;
            double y = 0.2;
            if (undistorted(p, x, y)) {
                EXPECT_TRUE(std::isfinite(x) && std::isfinite(y));
                EXPECT_LT(std::hypot(x, y), foldRadius(p));
            }
        }
    }
}

}  // namespace
}  // namespace marlo::detail
