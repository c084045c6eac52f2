// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/ray_geometry.h"

#include <gtest/gtest.h>

#include <Eigen/Geometry>
#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>
#include <stdexcept>

#include "apps/marlo/material.h"
#include "utilities/synthetic_images.h"

namespace marlo::app {
namespace {

using test::Random;
using test::refusal;

constexpr double kAngle = 0.002;  // radians: half a pixel of a panorama of 400 rows and more

Eigen::Vector3d direction(Random& random) {
    for (;;) {
        const Eigen::Vector3d inCube(random.uniform(-1, 1), random.uniform(-1, 1),
                                     random.uniform(-1, 1));
        if (inCube.norm() > 0.1 && inCube.norm() < 1.0) return inCube.normalized();
    }
}

// Rays of two cameras that see all around: the second's axes are turned, and it stands elsewhere.
class TwoCameras {
public:
    explicit TwoCameras(std::uint32_t seed, double apart = 1.0) : random_(seed) {
        turn = Eigen::AngleAxisd(random_.uniform(-3, 3), direction(random_));
        centre_ = apart * direction(random_);
    }

    void addPoints(int count) {
        for (int i = 0; i < count; ++i) {
            const Eigen::Vector3d point =
                static_cast<double>(random_.uniform(2, 12)) * direction(random_);
            first.push_back(point.normalized());
            second.push_back(turn * (point - centre_).normalized());
        }
    }
    void addWrong(int count) {
        for (int i = 0; i < count; ++i) {
            first.push_back(direction(random_));
            second.push_back(direction(random_));
        }
    }
    // Moves the second camera's rays by up to `most` radians.
    void disturb(double most) {
        for (Eigen::Vector3d& ray : second) {
            const Eigen::Vector3d across = ray.cross(direction(random_)).normalized();
            const double angle = most * static_cast<double>(random_.uniform(0, 1));
            ray = std::cos(angle) * ray + std::sin(angle) * across;
        }
    }
    void shuffle() {
        for (std::size_t i = first.size(); i > 1; --i) {
            const std::size_t other = random_.below(static_cast<std::uint32_t>(i));
            std::swap(first[i - 1], first[other]);
            std::swap(second[i - 1], second[other]);
        }
    }

    // [t]x R of x2 = R (x1 - c), so t = -R c, of length 1.
    [[nodiscard]] Eigen::Matrix3d essential() const {
        const Eigen::Vector3d t = -(turn * centre_).normalized();
        Eigen::Matrix3d cross;
        cross << 0, -t.z(), t.y(), t.z(), 0, -t.x(), -t.y(), t.x(), 0;
        return cross * turn;
    }

    Rays first;
    Rays second;
    Eigen::Matrix3d turn;

private:
    Random random_;
    Eigen::Vector3d centre_;
};

double offPlane(const Eigen::Vector3d& ray, const Eigen::Vector3d& normal) {
    return std::asin(std::min(1.0, std::abs(ray.dot(normal)) / normal.norm()));
}

// How far a pair of rays is from agreeing with E, in radians.
double essentialError(const Eigen::Matrix3d& essential, const Eigen::Vector3d& a,
                      const Eigen::Vector3d& b) {
    return std::max(offPlane(b, essential * a), offPlane(a, essential.transpose() * b));
}

double rotationError(const Eigen::Matrix3d& rotation, const Eigen::Vector3d& a,
                     const Eigen::Vector3d& b) {
    const Eigen::Vector3d turned = rotation * a;
    return std::atan2(turned.cross(b).norm(), turned.dot(b));
}

// Essential matrices have no sign.
double difference(const Eigen::Matrix3d& a, const Eigen::Matrix3d& b) {
    return std::min((a - b).norm(), (a + b).norm());
}

template <typename Error>
std::vector<Eigen::Index> within(double angle, const Eigen::Matrix3d& matrix,
                                 const TwoCameras& cameras, const Error& error) {
    std::vector<Eigen::Index> found;
    for (std::size_t i = 0; i < cameras.first.size(); ++i) {
        if (error(matrix, cameras.first[i], cameras.second[i]) <= angle) {
            found.push_back(static_cast<Eigen::Index>(i));
        }
    }
    return found;
}

std::vector<Eigen::Index> firstOnes(std::size_t count) {
    std::vector<Eigen::Index> all(count);
    std::iota(all.begin(), all.end(), Eigen::Index{0});
    return all;
}

bool sameBits(const RayModel& a, const RayModel& b) {
    return std::memcmp(a.matrix.data(), b.matrix.data(), 9 * sizeof(double)) == 0 &&
           a.inliers == b.inliers;
}

TEST(EssentialMatrixTest, OfExactRaysIsTheTrueOne) {
    for (std::uint32_t seed = 1; seed <= 20; ++seed) {
        TwoCameras cameras(seed);
        cameras.addPoints(60);
        const RayModel found = essentialMatrix(cameras.first, cameras.second, kAngle);
        EXPECT_LT(difference(found.matrix, cameras.essential()), 1e-9) << seed;
        EXPECT_EQ(found.inliers, firstOnes(60)) << seed;
    }
}

TEST(EssentialMatrixTest, MapsTheFirstCamerasRays) {
    TwoCameras cameras(1);
    cameras.addPoints(60);
    const RayModel found = essentialMatrix(cameras.first, cameras.second, kAngle);
    for (std::size_t i = 0; i < 60; ++i) {
        EXPECT_NEAR(cameras.second[i].dot(found.matrix * cameras.first[i]), 0.0, 1e-9);
    }
}

TEST(EssentialMatrixTest, EightPairsAreEnough) {
    TwoCameras cameras(3);
    cameras.addPoints(8);
    const RayModel found = essentialMatrix(cameras.first, cameras.second, kAngle);
    EXPECT_LT(difference(found.matrix, cameras.essential()), 1e-6);
    EXPECT_EQ(found.inliers, firstOnes(8));
}

TEST(EssentialMatrixTest, IsFoundAmongWrongPairs) {
    for (std::uint32_t seed = 1; seed <= 12; ++seed) {
        TwoCameras cameras(seed);
        cameras.addPoints(140);
        cameras.addWrong(60);
        cameras.shuffle();
        const RayModel found = essentialMatrix(cameras.first, cameras.second, kAngle);
        // What agrees with the true one agrees with what was found. A wrong pair that happens to
        // agree moves the matrix a little.
        const auto expected = within(0.5 * kAngle, cameras.essential(), cameras, essentialError);
        EXPECT_GE(expected.size(), 140U);
        EXPECT_TRUE(std::includes(found.inliers.begin(), found.inliers.end(), expected.begin(),
                                  expected.end()))
            << seed;
        EXPECT_LE(found.inliers.size(), 145U) << seed;
        EXPECT_LT(difference(found.matrix, cameras.essential()), 1e-3) << seed;
    }
}

TEST(EssentialMatrixTest, IsFoundWhereMostPairsAreWrong) {
    TwoCameras cameras(2);
    cameras.addPoints(80);
    cameras.addWrong(120);
    cameras.shuffle();
    const RayModel found = essentialMatrix(cameras.first, cameras.second, kAngle);
    EXPECT_LT(difference(found.matrix, cameras.essential()), 1e-3);
    EXPECT_GE(found.inliers.size(), 80U);
    EXPECT_LE(found.inliers.size(), 85U);
}

TEST(EssentialMatrixTest, IsFoundAmongManyWrongPairsThatAreTrustedLess) {
    for (std::uint32_t seed = 1; seed <= 4; ++seed) {
        TwoCameras cameras(seed);
        cameras.addPoints(30);
        cameras.addWrong(170);
        const RayModel found = essentialMatrix(cameras.first, cameras.second, kAngle);
        EXPECT_LT(difference(found.matrix, cameras.essential()), 1e-3) << seed;
        const std::vector<Eigen::Index> right = firstOnes(30);
        EXPECT_TRUE(
            std::includes(found.inliers.begin(), found.inliers.end(), right.begin(), right.end()))
            << seed;
    }
}

TEST(EssentialMatrixTest, IsFoundWhereTheMostTrustedPairsAreWrong) {
    TwoCameras cameras(5);
    cameras.addWrong(40);
    cameras.addPoints(160);
    const RayModel found = essentialMatrix(cameras.first, cameras.second, kAngle);
    EXPECT_LT(difference(found.matrix, cameras.essential()), 1e-3);
    EXPECT_GE(found.inliers.size(), 160U);
}

TEST(EssentialMatrixTest, InliersAreThosePairsThatAgreeWithIt) {
    for (std::uint32_t seed = 1; seed <= 12; ++seed) {
        TwoCameras cameras(seed);
        cameras.addPoints(120);
        cameras.disturb(1.5 * kAngle);
        cameras.addWrong(50);
        cameras.shuffle();
        const RayModel found = essentialMatrix(cameras.first, cameras.second, kAngle);
        EXPECT_EQ(found.inliers, within(kAngle, found.matrix, cameras, essentialError)) << seed;
        EXPECT_GT(found.inliers.size(), 90U) << seed;
    }
}

TEST(EssentialMatrixTest, ErrorsOfRaysAreEvenedOut) {
    double sum = 0.0;
    for (std::uint32_t seed = 1; seed <= 12; ++seed) {
        TwoCameras cameras(seed);
        cameras.addPoints(400);
        cameras.disturb(kAngle);
        const RayModel found = essentialMatrix(cameras.first, cameras.second, kAngle);
        EXPECT_GE(found.inliers.size(), 380U) << seed;
        sum += difference(found.matrix, cameras.essential());
    }
    EXPECT_LT(sum / 12.0, 0.6 * kAngle);
}

TEST(EssentialMatrixTest, HasTwoEqualSingularValues) {
    TwoCameras cameras(1);
    cameras.addPoints(50);
    cameras.disturb(0.05);
    const RayModel found = essentialMatrix(cameras.first, cameras.second, 0.05);
    const Eigen::Vector3d values = found.matrix.jacobiSvd().singularValues();
    EXPECT_NEAR(values(0), 1.0, 1e-12);
    EXPECT_NEAR(values(1), 1.0, 1e-12);
    EXPECT_NEAR(values(2), 0.0, 1e-12);
}

TEST(RotationTest, OfExactRaysIsTheTrueOne) {
    for (std::uint32_t seed = 1; seed <= 20; ++seed) {
        TwoCameras cameras(seed, 0.0);
        cameras.addPoints(40);
        const RayModel found = rotationBetween(cameras.first, cameras.second, kAngle);
        EXPECT_LT((found.matrix - cameras.turn).norm(), 1e-12) << seed;
        EXPECT_EQ(found.inliers, firstOnes(40)) << seed;
    }
}

TEST(RotationTest, TwoPairsAreEnough) {
    for (std::uint32_t seed = 1; seed <= 20; ++seed) {
        TwoCameras cameras(seed, 0.0);
        cameras.addPoints(2);
        const RayModel found = rotationBetween(cameras.first, cameras.second, kAngle);
        EXPECT_LT((found.matrix - cameras.turn).norm(), 1e-6) << seed;
        EXPECT_EQ(found.inliers, firstOnes(2)) << seed;
    }
}

TEST(RotationTest, IsFoundAmongWrongPairs) {
    for (const int wrong : {60, 300, 800}) {
        TwoCameras cameras(4, 0.0);
        cameras.addPoints(100);
        cameras.addWrong(wrong);
        cameras.shuffle();
        const RayModel found = rotationBetween(cameras.first, cameras.second, kAngle);
        EXPECT_LT((found.matrix - cameras.turn).norm(), 1e-4) << wrong;
        EXPECT_GE(found.inliers.size(), 100U) << wrong;
        EXPECT_LE(found.inliers.size(), 101U) << wrong;
    }
}

TEST(RotationTest, InliersAreThosePairsThatAgreeWithIt) {
    for (std::uint32_t seed = 1; seed <= 12; ++seed) {
        TwoCameras cameras(seed, 0.0);
        cameras.addPoints(150);
        cameras.disturb(2.0 * kAngle);
        cameras.shuffle();
        const RayModel found = rotationBetween(cameras.first, cameras.second, kAngle);
        // A chord is shorter than its arc, by less than a millionth.
        EXPECT_EQ(found.inliers, within(kAngle, found.matrix, cameras, rotationError)) << seed;
        EXPECT_GT(found.inliers.size(), 60U) << seed;
    }
}

TEST(RotationTest, ErrorsOfRaysAreEvenedOut) {
    for (std::uint32_t seed = 1; seed <= 12; ++seed) {
        TwoCameras cameras(seed, 0.0);
        cameras.addPoints(400);
        cameras.disturb(kAngle);
        const RayModel found = rotationBetween(cameras.first, cameras.second, 1.2 * kAngle);
        EXPECT_EQ(found.inliers.size(), 400U) << seed;
        EXPECT_LT((found.matrix - cameras.turn).norm(), 0.2 * kAngle) << seed;
    }
}

TEST(RotationTest, MirrorImagesHaveNone) {
    TwoCameras cameras(1, 0.0);
    cameras.addPoints(50);
    for (Eigen::Vector3d& ray : cameras.second) ray.x() = -ray.x();
    const RayModel found = rotationBetween(cameras.first, cameras.second, kAngle);
    EXPECT_NEAR(found.matrix.determinant(), 1.0, 1e-9);
    EXPECT_LT(found.inliers.size(), 10U);
}

TEST(RotationTest, CamerasApartHaveNone) {
    TwoCameras cameras(1);
    cameras.addPoints(200);
    EXPECT_LT(rotationBetween(cameras.first, cameras.second, kAngle).inliers.size(), 20U);
}

// Both.

TEST(RayModelTest, SamePairsGiveTheSameBits) {
    TwoCameras cameras(1);
    cameras.addPoints(70);
    cameras.disturb(kAngle);
    cameras.addWrong(50);
    cameras.shuffle();
    const RayModel essential = essentialMatrix(cameras.first, cameras.second, kAngle);
    const RayModel turned = rotationBetween(cameras.first, cameras.second, kAngle);
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(sameBits(essentialMatrix(cameras.first, cameras.second, kAngle), essential));
        EXPECT_TRUE(sameBits(rotationBetween(cameras.first, cameras.second, kAngle), turned));
    }
}

TEST(RayModelTest, TooFewPairsHaveNone) {
    TwoCameras cameras(1);
    for (int i = 0; i < 8; ++i) {
        const RayModel essential = essentialMatrix(cameras.first, cameras.second, kAngle);
        EXPECT_TRUE(essential.matrix.isZero(0.0)) << i;
        EXPECT_TRUE(essential.inliers.empty()) << i;
        if (i < 2) {
            const RayModel turned = rotationBetween(cameras.first, cameras.second, kAngle);
            EXPECT_TRUE(turned.matrix.isZero(0.0)) << i;
            EXPECT_TRUE(turned.inliers.empty()) << i;
        }
        cameras.addPoints(1);
    }
}

TEST(RayModelTest, BothCamerasNeedAsManyRays) {
    TwoCameras cameras(1);
    cameras.addPoints(20);
    cameras.second.pop_back();
    const std::string expected = "There must be as many rays of one camera as of the other";
    EXPECT_EQ(refusal<std::invalid_argument>(
                  [&] { essentialMatrix(cameras.first, cameras.second, kAngle); }),
              expected);
    EXPECT_EQ(refusal<std::invalid_argument>(
                  [&] { rotationBetween(cameras.first, cameras.second, kAngle); }),
              expected);
}

TEST(RayModelTest, RaysThatAreAllTheSameDoNoHarm) {
    const Rays rays(30, Eigen::Vector3d::UnitZ());
    EXPECT_TRUE(essentialMatrix(rays, rays, kAngle).matrix.allFinite());
    EXPECT_EQ(rotationBetween(rays, rays, kAngle).inliers.size(), 30U);
}

}  // namespace
}  // namespace marlo::app
