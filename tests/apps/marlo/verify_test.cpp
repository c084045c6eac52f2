// SPDX-License-Identifier: BSD-3-Clause
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Eigen/Geometry>
#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <sstream>
#include <string>
#include <vector>

#include "apps/marlo/material.h"
#include "apps/marlo/scratch.h"
#include "marlo/match.h"
#include "utilities/synthetic_images.h"

namespace marlo::app {
namespace {

using test::matchList;
using test::pairsOf;
using test::Random;
using test::refusal;
using test::ScratchFolder;

constexpr int kDegenerate = 1;
constexpr int kCalibrated = 2;
constexpr int kUncalibrated = 3;
constexpr int kPlanarOrPanoramic = 6;

constexpr double kWidth = 1000.0;
constexpr double kHeight = 800.0;

// Two photographs with their true geometry. Match i is of keypoint i and keypoint i + 1: indices
// of the two photographs differ.
struct TwoViews {
    std::vector<Keypoint> first;
    std::vector<Keypoint> second{Keypoint(-1.0F, -1.0F)};
    std::vector<std::array<std::uint32_t, 2>> pairs;

    void add(const Eigen::Vector2d& a, const Eigen::Vector2d& b) {
        const auto index = static_cast<std::uint32_t>(first.size());
        pairs.push_back({index, index + 1});
        first.emplace_back(static_cast<float>(a.x()), static_cast<float>(a.y()));
        second.emplace_back(static_cast<float>(b.x()), static_cast<float>(b.y()));
    }
    [[nodiscard]] MatchList matches() const { return matchList(pairs); }
    [[nodiscard]] VerifiedPair verified(const VerifyOptions& options = {}) const {
        return verifyPair(first, second, matches(), options);
    }
};

Eigen::Vector3d homogeneous(const Keypoint& keypoint) {
    return {keypoint.x, keypoint.y, 1.0};
}

// How far the second keypoint of a match lies from the line that F gives for the first.
double offLine(const Eigen::Matrix3d& fundamental, const Keypoint& a, const Keypoint& b) {
    const Eigen::Vector3d line = fundamental * homogeneous(a);
    return std::abs(homogeneous(b).dot(line)) / line.head<2>().norm();
}

double offPlace(const Eigen::Matrix3d& homography, const Keypoint& a, const Keypoint& b) {
    return ((homography * homogeneous(a)).hnormalized() - homogeneous(b).hnormalized()).norm();
}

// A camera at the origin and one to its right that looks inwards.
class Scene {
public:
    explicit Scene(const Eigen::Vector3d& centre = {1.0, 0.2, 0.1}) {
        camera_ << 900, 0, kWidth / 2, 0, 900, kHeight / 2, 0, 0, 1;
        rotation_ = Eigen::AngleAxisd(0.15, Eigen::Vector3d(0.1, -1, 0.05).normalized());
        centre_ = centre;
    }

    [[nodiscard]] Eigen::Vector2d inFirst(const Eigen::Vector3d& point) const {
        return (camera_ * point).hnormalized();
    }
    [[nodiscard]] Eigen::Vector2d inSecond(const Eigen::Vector3d& point) const {
        return (camera_ * (rotation_ * (point - centre_))).hnormalized();
    }

    // Matches of `count` points; depths are from 5 to 12, or of the plane z = 8 - x / 4.
    void addPoints(TwoViews& views, int count, bool inPlane) {
        for (int i = 0; i < count; ++i) {
            Eigen::Vector3d point(random_.uniform(-2, 2), random_.uniform(-2, 2), 0);
            point.z() = inPlane ? 8 - point.x() / 4 : random_.uniform(5, 12);
            views.add(inFirst(point), inSecond(point));
        }
    }
    // Matches of different points.
    void addWrong(TwoViews& views, int count) {
        for (int i = 0; i < count; ++i) {
            views.add({random_.uniform(0, kWidth), random_.uniform(0, kHeight)},
                      {random_.uniform(0, kWidth), random_.uniform(0, kHeight)});
        }
    }
    // Matches whose second keypoint lies 40 pixels and more off the line of the first.
    void addOffTheLine(TwoViews& views, int count) {
        const Eigen::Matrix3d fundamental = trueFundamental();
        for (int i = 0; i < count;) {
            TwoViews one;
            addWrong(one, 1);
            if (offLine(fundamental, one.first[0], one.second[1]) < 40.0) continue;
            views.add({one.first[0].x, one.first[0].y}, {one.second[1].x, one.second[1].y});
            ++i;
        }
    }

private:
    // K^-T [t]x R K^-1 of x2 = R (x1 - c), so t = -R c.
    [[nodiscard]] Eigen::Matrix3d trueFundamental() const {
        const Eigen::Vector3d t = -(rotation_ * centre_);
        Eigen::Matrix3d cross;
        cross << 0, -t.z(), t.y(), t.z(), 0, -t.x(), -t.y(), t.x(), 0;
        const Eigen::Matrix3d inverse = camera_.inverse();
        return inverse.transpose() * cross * rotation_ * inverse;
    }

    Eigen::Matrix3d camera_;
    Eigen::Matrix3d rotation_;
    Eigen::Vector3d centre_;
    Random random_{7};
};

// Indices of the matches among the first `count`, and of all others.
std::pair<std::size_t, std::size_t> trueAndWrong(const VerifiedPair& verified, std::size_t count) {
    std::pair<std::size_t, std::size_t> found;
    for (const auto& pair : pairsOf(verified.inliers)) {
        ++(pair[0] < count ? found.first : found.second);
    }
    return found;
}

TEST(VerifyPairTest, KeepsTheMatchesOfOneScene) {
    TwoViews views;
    Scene scene;
    scene.addPoints(views, 150, false);
    scene.addOffTheLine(views, 60);
    const VerifiedPair verified = views.verified();
    EXPECT_EQ(verified.config, kUncalibrated);
    EXPECT_EQ(pairsOf(verified.inliers),
              (std::vector(views.pairs.begin(), views.pairs.begin() + 150)));
}

TEST(VerifyPairTest, FundamentalMatrixMapsTheFirstPhotographsPixelsToLinesOfTheSecond) {
    TwoViews views;
    Scene scene;
    scene.addPoints(views, 150, false);
    scene.addOffTheLine(views, 60);
    const VerifiedPair verified = views.verified();
    for (std::size_t i = 0; i < 150; ++i) {
        EXPECT_LT(offLine(verified.fundamental, views.first[i], views.second[i + 1]), 0.2) << i;
    }
    for (std::size_t i = 150; i < 210; ++i) {
        EXPECT_GT(offLine(verified.fundamental, views.first[i], views.second[i + 1]), 2.0) << i;
    }
}

TEST(VerifyPairTest, InliersKeepTheOrderOfTheMatches) {
    TwoViews views;
    Scene scene;
    for (int i = 0; i < 40; ++i) {
        scene.addPoints(views, 2, false);
        scene.addOffTheLine(views, 1);
    }
    std::vector<std::array<std::uint32_t, 2>> expected;
    for (std::size_t i = 0; i < views.pairs.size(); ++i) {
        if (i % 3 != 2) expected.push_back(views.pairs[i]);
    }
    EXPECT_EQ(pairsOf(views.verified().inliers), expected);
}

TEST(VerifyPairTest, PlanesAreTold) {
    TwoViews views;
    Scene scene;
    scene.addPoints(views, 150, true);
    scene.addWrong(views, 50);
    const VerifiedPair verified = views.verified();
    EXPECT_EQ(verified.config, kPlanarOrPanoramic);
    for (std::size_t i = 0; i < 150; ++i) {
        EXPECT_LT(offPlace(verified.homography, views.first[i], views.second[i + 1]), 0.2) << i;
    }
    // A plane leaves the lines of the second photograph free to meet a few wrong matches.
    const auto [right, wrong] = trueAndWrong(verified, 150);
    EXPECT_EQ(right, 150U);
    EXPECT_LE(wrong, 8U);
}

TEST(VerifyPairTest, TurnedCameraSeesAPanorama) {
    TwoViews views;
    Scene scene({0.0, 0.0, 0.0});
    scene.addPoints(views, 150, false);
    scene.addWrong(views, 50);
    const VerifiedPair verified = views.verified();
    EXPECT_EQ(verified.config, kPlanarOrPanoramic);
    EXPECT_EQ(trueAndWrong(verified, 150).first, 150U);
    for (std::size_t i = 0; i < 150; ++i) {
        EXPECT_LT(offPlace(verified.homography, views.first[i], views.second[i + 1]), 0.2) << i;
    }
}

TEST(VerifyPairTest, ErrorIsTheDistanceThatAnInlierMayHave) {
    TwoViews views;
    Scene scene;
    scene.addPoints(views, 150, false);
    Scene moved;
    moved.addPoints(views, 30, false);
    // Epipolar lines of this pair are nearly rows.
    for (std::size_t i = 150; i < 180; ++i) views.second[i + 1].y += 6.0F;
    EXPECT_EQ(views.verified().inliers.rows(), 150);
    VerifyOptions generous;
    generous.error = 20.0;
    EXPECT_EQ(views.verified(generous).inliers.rows(), 180);
}

void expectNothing(const VerifiedPair& verified) {
    EXPECT_EQ(verified.config, kDegenerate);
    EXPECT_EQ(verified.inliers.rows(), 0);
    EXPECT_TRUE(verified.fundamental.isZero(0.0));
    EXPECT_TRUE(verified.homography.isZero(0.0));
}

TEST(VerifyPairTest, FewerMatchesThanTheLeastAreNone) {
    TwoViews views;
    Scene().addPoints(views, 14, false);
    expectNothing(views.verified());
    expectNothing(TwoViews().verified());
}

TEST(VerifyPairTest, AsManyAsTheLeastAreEnough) {
    TwoViews views;
    Scene().addPoints(views, 15, false);
    EXPECT_EQ(views.verified().inliers.rows(), 15);
}

TEST(VerifyPairTest, LeastIsThatOfTheOptions) {
    TwoViews views;
    Scene().addPoints(views, 40, false);
    VerifyOptions options;
    options.leastInliers = 41;
    expectNothing(views.verified(options));
    options.leastInliers = 40;
    EXPECT_EQ(views.verified(options).inliers.rows(), 40);
}

TEST(VerifyPairTest, InliersThatAreATooSmallShareAreNone) {
    TwoViews views;
    Scene scene;
    scene.addPoints(views, 60, false);
    scene.addOffTheLine(views, 40);
    VerifyOptions options;
    options.leastShare = 0.6;
    EXPECT_EQ(views.verified(options).inliers.rows(), 60);
    options.leastShare = 0.61;
    expectNothing(views.verified(options));
}

TEST(VerifyPairTest, MatchesThatDoNotAgreeAreNone) {
    TwoViews views;
    Scene().addWrong(views, 40);
    expectNothing(views.verified());
}

TEST(VerifyPairTest, FewRightMatchesAmongManyWrongOnesAreNone) {
    TwoViews views;
    Scene scene;
    scene.addPoints(views, 10, true);
    scene.addWrong(views, 10);
    VerifyOptions options;
    options.leastInliers = 18;
    expectNothing(views.verified(options));
}

TEST(VerifyPairTest, MatchesOfOnePlaceAreNone) {
    TwoViews views;
    for (int i = 0; i < 30; ++i) views.add({10, 20}, {30, 40});
    const VerifiedPair verified = views.verified();
    // Whatever is kept, it is nothing that pretends to know the cameras.
    EXPECT_NE(verified.config, kUncalibrated);
}

TEST(VerifyPairTest, NoMatchesAreNoneHoweverFewAreAskedFor) {
    VerifyOptions options;
    options.leastInliers = 0;
    expectNothing(TwoViews().verified(options));
}

TEST(VerifyPairTest, MatchesOfKeypointsThatAreNotThereAreReported) {
    TwoViews views;
    Scene().addPoints(views, 20, false);
    const std::string expected =
        "there are matches of keypoints that are not there; match again (marlo match --force)";
    const MatchList whole = views.matches();
    MatchList wrong = whole;
    wrong(7, 0) = 20;
    EXPECT_EQ(
        refusal<std::runtime_error>([&] { verifyPair(views.first, views.second, wrong, {}); }),
        expected);
    wrong = whole;
    wrong(7, 1) = 21;
    EXPECT_EQ(
        refusal<std::runtime_error>([&] { verifyPair(views.first, views.second, wrong, {}); }),
        expected);
    wrong(7, 1) = 0xFFFFFFFFU;
    EXPECT_EQ(
        refusal<std::runtime_error>([&] { verifyPair(views.first, views.second, wrong, {}); }),
        expected);
}

TEST(VerifyPairTest, SameMatchesGiveTheSameGeometry) {
    TwoViews views;
    Scene scene;
    scene.addPoints(views, 100, false);
    scene.addWrong(views, 100);
    const VerifiedPair once = views.verified();
    for (int i = 0; i < 3; ++i) {
        const VerifiedPair again = views.verified();
        EXPECT_EQ(again.config, once.config);
        EXPECT_EQ(again.inliers, once.inliers);
        EXPECT_EQ(again.fundamental, once.fundamental);
        EXPECT_EQ(again.homography, once.homography);
    }
}

// Two full panoramas with their true geometry. Match i is of keypoint i and keypoint i + 1.
class TwoPanoramas {
public:
    explicit TwoPanoramas(const Eigen::Vector3d& centre = {1.0, 0.2, -0.4}) : centre_(centre) {
        turn_ = Eigen::AngleAxisd(1.3, Eigen::Vector3d(0.3, -1, 0.5).normalized());
    }

    // Matches of points all around, 3 to 12 away.
    void addPoints(int count) {
        for (int i = 0; i < count; ++i) {
            const Eigen::Vector3d point = anyDirection() * random_.uniform(3, 12);
            add(point, turn_ * (point - centre_), 1.0F);
        }
    }
    // Matches of different points.
    void addWrong(int count) {
        for (int i = 0; i < count; ++i) add(anyDirection(), anyDirection(), 0.5F);
    }
    // Matches whose second ray is far from the plane of the first.
    void addOffThePlane(int count) {
        const Eigen::Matrix3d essential = trueEssential();
        for (int i = 0; i < count;) {
            const Eigen::Vector3d a = anyDirection();
            const Eigen::Vector3d b = anyDirection();
            if (std::abs(b.dot(essential * a)) < 0.2) continue;
            add(a, b, 0.5F);
            ++i;
        }
    }

    [[nodiscard]] Eigen::Matrix3d trueEssential() const {
        const Eigen::Vector3d t = -(turn_ * centre_).normalized();
        Eigen::Matrix3d cross;
        cross << 0, -t.z(), t.y(), t.z(), 0, -t.x(), -t.y(), t.x(), 0;
        return cross * turn_;
    }
    [[nodiscard]] PairMatches matches() const { return {matchList(pairs), scores}; }
    [[nodiscard]] VerifiedPair verified(const VerifyOptions& options = {}) const {
        return verifyPanoramas(first, firstCamera, second, secondCamera, matches(), options);
    }

    Camera firstCamera{1000, 500, 0.0, false, ""};
    Camera secondCamera{400, 200, 0.0, false, ""};
    std::vector<Keypoint> first;
    std::vector<Keypoint> second{Keypoint(7.0F, 9.0F)};
    std::vector<std::array<std::uint32_t, 2>> pairs;
    std::vector<float> scores;

private:
    Eigen::Vector3d anyDirection() {
        for (;;) {
            const Eigen::Vector3d inCube(random_.uniform(-1, 1), random_.uniform(-1, 1),
                                         random_.uniform(-1, 1));
            if (inCube.norm() > 0.1 && inCube.norm() < 1.0) return inCube.normalized();
        }
    }
    void add(const Eigen::Vector3d& a, const Eigen::Vector3d& b, float score) {
        const auto index = static_cast<std::uint32_t>(first.size());
        pairs.push_back({index, index + 1});
        scores.push_back(score);
        first.push_back(seen(a, firstCamera));
        second.push_back(seen(b, secondCamera));
    }
    // Longitude from left to right, latitude from top to bottom; straight ahead is in the middle.
    static Keypoint seen(const Eigen::Vector3d& direction, const Camera& camera) {
        constexpr double kPi = std::numbers::pi;
        const double longitude = std::atan2(direction.x(), direction.z());
        const double latitude = std::asin(direction.y() / direction.norm());
        return {static_cast<float>((longitude / kPi + 1.0) / 2.0 * camera.width),
                static_cast<float>((latitude / kPi + 0.5) * camera.height)};
    }

    Eigen::Matrix3d turn_;
    Eigen::Vector3d centre_;
    Random random_{11};
};

std::vector<std::array<std::uint32_t, 2>> firstOnes(const TwoPanoramas& views, std::size_t count) {
    return {views.pairs.begin(), views.pairs.begin() + static_cast<std::ptrdiff_t>(count)};
}

TEST(VerifyPanoramasTest, RightMatchesAreKeptAndWrongOnesAreNot) {
    TwoPanoramas views;
    views.addPoints(120);
    views.addOffThePlane(60);
    const VerifiedPair verified = views.verified();
    EXPECT_EQ(verified.config, kCalibrated);
    EXPECT_EQ(pairsOf(verified.inliers), firstOnes(views, 120));
    EXPECT_TRUE(verified.fundamental.isZero(0.0));
    EXPECT_TRUE(verified.homography.isZero(0.0));
    const Eigen::Matrix3d expected = views.trueEssential();
    EXPECT_LT(
        std::min((verified.essential - expected).norm(), (verified.essential + expected).norm()),
        1e-5);
}

TEST(VerifyPanoramasTest, InliersKeepTheOrderOfTheMatchesWhateverTheirScores) {
    TwoPanoramas views;
    std::vector<std::array<std::uint32_t, 2>> expected;
    for (int i = 0; i < 40; ++i) {
        views.addPoints(2);
        views.addOffThePlane(1);
        views.scores[views.scores.size() - 2] = 1.0F + static_cast<float>(i * 7 % 40);
        expected.push_back(views.pairs[views.pairs.size() - 3]);
        expected.push_back(views.pairs[views.pairs.size() - 2]);
    }
    EXPECT_EQ(pairsOf(views.verified().inliers), expected);
}

TEST(VerifyPanoramasTest, BestMatchesAreTriedFirst) {
    // Blind samples of eight would have to be drawn millions of times.
    TwoPanoramas views;
    views.addOffThePlane(85);
    views.addPoints(30);
    views.addOffThePlane(85);
    const VerifiedPair verified = views.verified();
    EXPECT_EQ(verified.config, kCalibrated);
    EXPECT_EQ(verified.inliers.rows(), 30);
}

TEST(VerifyPanoramasTest, PanoramasFromOnePlaceAreTold) {
    TwoPanoramas views({0.0, 0.0, 0.0});
    views.addPoints(120);
    views.addWrong(60);
    const VerifiedPair verified = views.verified();
    EXPECT_EQ(verified.config, kPlanarOrPanoramic);
    // The planes of the essential matrix, which are arbitrary then, meet a few wrong matches, too.
    EXPECT_EQ(pairsOf(verified.inliers), firstOnes(views, 120));
}

TEST(VerifyPanoramasTest, RotationNeedsFewerMatchesThanAnEssentialMatrix) {
    TwoPanoramas views({0.0, 0.0, 0.0});
    views.addPoints(7);
    VerifyOptions options;
    options.leastInliers = 7;
    const VerifiedPair verified = views.verified(options);
    EXPECT_EQ(verified.config, kPlanarOrPanoramic);
    EXPECT_EQ(verified.inliers.rows(), 7);
    EXPECT_TRUE(verified.essential.isZero(0.0));
}

TEST(VerifyPanoramasTest, ErrorIsInPixelsOfTheSmallerPanorama) {
    TwoPanoramas views({0.0, 0.0, 0.0});
    views.addPoints(120);
    for (std::size_t i = 90; i < 120; ++i) {
        Keypoint& keypoint = views.second[i + 1];
        const float latitude = std::numbers::pi_v<float> * (keypoint.y / 200.0F - 0.5F);
        if (i % 2 == 0) {
            keypoint.y += latitude < 0.0F ? 2.5F : -2.5F;
        } else {
            keypoint.x += 2.5F / std::cos(latitude);
        }
    }
    const auto agreeing = [&](double error) {
        VerifyOptions options;
        options.error = error;
        return views.verified(options).inliers.rows();
    };
    EXPECT_EQ(agreeing(3.0), 120);
    EXPECT_LT(agreeing(1.0), 115);
    std::swap(views.first, views.second);
    std::swap(views.firstCamera, views.secondCamera);
    for (auto& [first, second] : views.pairs) std::swap(first, second);
    EXPECT_EQ(agreeing(3.0), 120);
    EXPECT_LT(agreeing(1.0), 115);
}

void expectNothingOfPanoramas(const VerifiedPair& verified) {
    expectNothing(verified);
    EXPECT_TRUE(verified.essential.isZero(0.0));
}

TEST(VerifyPanoramasTest, MatchesThatDoNotAgreeAreNone) {
    TwoPanoramas views;
    views.addWrong(200);
    expectNothingOfPanoramas(views.verified());
}

TEST(VerifyPanoramasTest, FewerMatchesThanTheLeastAreNone) {
    TwoPanoramas views;
    expectNothingOfPanoramas(views.verified());
    views.addPoints(14);
    expectNothingOfPanoramas(views.verified());
    views.addPoints(1);
    EXPECT_EQ(views.verified().inliers.rows(), 15);
}

TEST(VerifyPanoramasTest, InliersThatAreTooFewOrATooSmallShareAreNone) {
    TwoPanoramas views;
    views.addPoints(60);
    views.addOffThePlane(40);
    VerifyOptions options;
    options.leastShare = 0.6;
    options.leastInliers = 60;
    EXPECT_EQ(views.verified(options).inliers.rows(), 60);
    options.leastShare = 0.61;
    expectNothingOfPanoramas(views.verified(options));
    options.leastShare = 0.6;
    options.leastInliers = 61;
    expectNothingOfPanoramas(views.verified(options));
}

TEST(VerifyPanoramasTest, MatchesOfKeypointsThatAreNotThereAreReported) {
    TwoPanoramas views;
    views.addPoints(20);
    views.pairs[7][1] = 21;
    EXPECT_EQ(refusal<std::runtime_error>([&] { static_cast<void>(views.verified()); }),
              "there are matches of keypoints that are not there; match again (marlo match "
              "--force)");
    views.pairs[7] = {20, 0};
    EXPECT_EQ(refusal<std::runtime_error>([&] { static_cast<void>(views.verified()); }),
              "there are matches of keypoints that are not there; match again (marlo match "
              "--force)");
}

TEST(VerifyPanoramasTest, SameMatchesGiveTheSameGeometry) {
    TwoPanoramas views;
    views.addPoints(70);
    views.addWrong(60);
    const VerifiedPair once = views.verified();
    const VerifiedPair again = views.verified();
    EXPECT_EQ(again.config, once.config);
    EXPECT_EQ(again.inliers, once.inliers);
    EXPECT_EQ(again.essential, once.essential);
}

class VerifyTest : public testing::Test {
protected:
    void add(Project& to, const std::string& name, const std::vector<Keypoint>& keypoints,
             const Camera& camera = {1000, 800, 900.0, false, ""}) {
        Features features;
        features.keypoints = keypoints;
        allocateDescriptors(features.rows, static_cast<int>(keypoints.size()), false);
        to.putFeatures(to.addPhotographs({name}).front(), camera, features, DescMat());
    }

    // Photographs 1 and 2 of a scene, and 3 that matches neither.
    void addAll(Project& to) {
        Scene scene;
        scene.addPoints(views, 100, false);
        scene.addOffTheLine(views, 40);
        add(to, "z.jpg", views.first);
        add(to, "y.jpg", views.second);
        add(to, "x.jpg", views.first);
        to.putMatches(1, 2, {views.matches(), std::vector<float>(140, 1.0F)}, "m");
        to.putMatches(1, 3, {matchList({{0, 1}, {1, 0}}), {1.0F, 1.0F}}, "m");
        to.putMatches(2, 3, {matchList({}), {}}, "m");
    }

    Outcome run(Project& in) {
        Progress progress(said, Progress::Form::lines);
        return verify(options, in, progress);
    }

    ScratchFolder folder;
    Project project{folder / "project", Project::Access::write};
    VerifyOptions options;
    std::ostringstream said;
    TwoViews views;
};

TEST_F(VerifyTest, GivesEveryMatchedPairItsGeometry) {
    addAll(project);
    const Outcome outcome = run(project);
    EXPECT_EQ(outcome.done, 3U);
    EXPECT_EQ(outcome.skipped, 0U);
    EXPECT_EQ(outcome.failed, 0U);
    EXPECT_FALSE(outcome.interrupted);
    EXPECT_EQ(project.geometry(1, 2)->config, kUncalibrated);
    EXPECT_EQ(project.geometry(1, 2)->inliers.rows(), 100);
    EXPECT_EQ(project.geometry(1, 3)->config, kDegenerate);
    EXPECT_EQ(project.geometry(2, 3)->config, kDegenerate);
    EXPECT_EQ(project.pairs()[1].inliers, 0);
    EXPECT_THAT(said.str(), testing::StartsWith("verify: 3 of 3 pairs, "));
}

TEST_F(VerifyTest, StoresWhatVerifyPairFinds) {
    addAll(project);
    run(project);
    const VerifiedPair expected = views.verified();
    const VerifiedPair stored = *project.geometry(1, 2);
    EXPECT_EQ(stored.inliers, expected.inliers);
    // Moving it to COLMAP's pixels and back rounds.
    EXPECT_TRUE(stored.fundamental.isApprox(expected.fundamental, 1e-9));
    EXPECT_TRUE(stored.homography.isApprox(expected.homography, 1e-9));
}

TEST_F(VerifyTest, WithoutMatchedPairsThereIsNothingToDo) {
    EXPECT_EQ(run(project).done, 0U);
    add(project, "a.jpg", {Keypoint(1, 2)});
    EXPECT_EQ(run(project).done, 0U);
}

TEST_F(VerifyTest, PairsThatAreDoneAreSkipped) {
    addAll(project);
    run(project);
    project.putMatches(1, 3, {matchList({{0, 0}}), {1.0F}}, "m");
    const Outcome outcome = run(project);
    EXPECT_EQ(outcome.skipped, 2U);
    EXPECT_EQ(outcome.done, 1U);
}

TEST_F(VerifyTest, OtherParametersOrForceDoThemAgain) {
    addAll(project);
    run(project);
    options.threads = 3;
    EXPECT_EQ(run(project).done, 0U);
    options.error = 3.0;
    EXPECT_EQ(run(project).done, 3U);
    options.leastInliers = 101;
    EXPECT_EQ(run(project).done, 3U);
    EXPECT_EQ(project.geometry(1, 2)->inliers.rows(), 0);
    EXPECT_EQ(run(project).done, 0U);
    options.force = true;
    EXPECT_EQ(run(project).done, 3U);
}

TEST_F(VerifyTest, NumberOfThreadsChangesNothing) {
    addAll(project);
    options.threads = 1;
    run(project);
    const VerifiedPair one = *project.geometry(1, 2);
    options.threads = 4;
    options.force = true;
    run(project);
    const VerifiedPair four = *project.geometry(1, 2);
    EXPECT_EQ(four.inliers, one.inliers);
    EXPECT_EQ(four.fundamental, one.fundamental);
    EXPECT_EQ(four.homography, one.homography);
}

TEST_F(VerifyTest, PanoramasAreComparedByTheirRays) {
    TwoPanoramas panoramas;
    panoramas.addPoints(80);
    panoramas.addOffThePlane(30);
    add(project, "a.jpg", panoramas.first, panoramas.firstCamera);
    add(project, "b.jpg", panoramas.second, panoramas.secondCamera);
    project.putMatches(1, 2, panoramas.matches(), "m");
    EXPECT_EQ(run(project).done, 1U);
    const VerifiedPair expected = panoramas.verified();
    const VerifiedPair stored = *project.geometry(1, 2);
    EXPECT_EQ(stored.config, kCalibrated);
    EXPECT_EQ(stored.inliers, expected.inliers);
    EXPECT_EQ(stored.inliers.rows(), 80);
    EXPECT_EQ(stored.essential, expected.essential);
    EXPECT_EQ(project.pairs()[0].inliers, 80);
}

TEST_F(VerifyTest, APanoramaAndAnOrdinaryPhotographCannotBeCompared) {
    addAll(project);
    add(project, "w.jpg", views.second, Camera{1000, 500, 0.0, false, ""});
    project.putMatches(1, 4, {views.matches(), std::vector<float>(140, 1.0F)}, "m");
    const Outcome outcome = run(project);
    EXPECT_EQ(outcome.done, 3U);
    EXPECT_EQ(outcome.failed, 1U);
    EXPECT_FALSE(project.geometry(1, 4));
    EXPECT_THAT(said.str(),
                testing::HasSubstr("failed: z.jpg and w.jpg: one is a full panorama and the other "
                                   "is not: such pairs cannot be verified\n"));
}

TEST_F(VerifyTest, DamagedMatchesAreReported) {
    add(project, "a.jpg", {Keypoint(1, 2)});
    add(project, "b.jpg", {Keypoint(1, 2)});
    project.putMatches(1, 2,
                       {matchList(std::vector<std::array<std::uint32_t, 2>>(20, {0, 1})),
                        std::vector<float>(20, 1.0F)},
                       "m");
    EXPECT_EQ(run(project).failed, 1U);
    EXPECT_FALSE(project.geometry(1, 2));
}

}  // namespace
}  // namespace marlo::app
