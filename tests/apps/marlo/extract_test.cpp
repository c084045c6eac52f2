// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/extract.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Eigen/Geometry>
#include <algorithm>
#include <atomic>
#include <cmath>
#include <memory>
#include <nlohmann/json.hpp>
#include <numbers>
#include <opencv2/core.hpp>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "apps/marlo/made_images.h"
#include "apps/marlo/material.h"
#include "apps/marlo/scratch.h"
#include "libfeatures/base/cuda_exceptions.h"
#include "libfeatures/base/extensible_factory.h"
#include "libfeatures/base/registration.h"
#include "libfeatures/base/sift_ldah_base_params.h"
#include "libfeatures/descriptors/ldah_codes.h"
#include "libfeatures/descriptors/sift_ldah_descriptor.h"
#include "libfeatures/detectors/features_2d_sift_ldah.h"
#include "marlo/descriptor_bytes.h"
#include "stand_in/marlocuda_stand_in.h"
#include "utilities/synthetic_images.h"

namespace marlo::app {
namespace {

namespace fs = std::filesystem;

using test::bytesOf;
using test::encoded;
using test::photographLikeImage;
using test::refusal;
using test::ScratchFolder;
using test::writeBytes;
using test::writePng;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

// Amounts of memory.

TEST(ParseMemoryTest, NumbersAreBytes) {
    EXPECT_EQ(parseMemory("1"), 1U);
    EXPECT_EQ(parseMemory("1048576"), 1'048'576U);
    EXPECT_EQ(parseMemory("7B"), 7U);
}

TEST(ParseMemoryTest, UnitsArePowersOf1024) {
    EXPECT_EQ(parseMemory("3K"), 3U * 1024);
    EXPECT_EQ(parseMemory("3KiB"), 3U * 1024);
    EXPECT_EQ(parseMemory("500M"), 524'288'000U);
    EXPECT_EQ(parseMemory("500MiB"), 524'288'000U);
    EXPECT_EQ(parseMemory("8G"), 8'589'934'592U);
    EXPECT_EQ(parseMemory("8GiB"), 8'589'934'592U);
    EXPECT_EQ(parseMemory("2T"), 2'199'023'255'552U);
    EXPECT_EQ(parseMemory("2TiB"), 2'199'023'255'552U);
}

TEST(ParseMemoryTest, PartsOfAUnitArePossible) {
    EXPECT_EQ(parseMemory("1.5K"), 1536U);
    EXPECT_EQ(parseMemory("0.25G"), 268'435'456U);
}

TEST(ParseMemoryTest, OtherTextsAreRefused) {
    for (const char* const text : {"", "G", "much", "0", "0G", "-1", "-8G", "8X", "8g", "8 G",
                                   "8GB", "8G ", "nan", "inf", "1e30", "4194304T", "1,5G"}) {
        EXPECT_EQ(refusal<std::invalid_argument>([&] { parseMemory(text); }),
                  std::string("'") + text + "' is not an amount of memory such as 8G or 500M");
    }
}

TEST(AvailableMemoryTest, IsSomeAndNotMoreThanThereCanBe) {
    EXPECT_GT(availableMemory(), std::uint64_t{1} << 20);
    EXPECT_LT(availableMemory(), std::uint64_t{1} << 50);
}

// Extraction.

class ExtractTest : public testing::Test {
protected:
    ExtractTest() {
        // Once for all tests, as the program does it.
        static const bool registered = [] {
            registerMainFeatureDetectors();
            registerMainDescriptorExtractors();
            registerMainKeypointSelectors();
            registerMainTransforms();
            return true;
        }();
        static_cast<void>(registered);
        options.keypoints = 60;
        options.threads = 2;
    }

    [[nodiscard]] fs::path photograph(const std::string& name) const {
        return folder / ("photographs/" + name);
    }
    void writePhotograph(const std::string& name, std::uint32_t seed = 1) const {
        writePng(photograph(name), photographLikeImage(120, 160, seed));
    }

    Outcome run(const std::string& below = "") {
        Progress progress(said, Progress::Form::lines);
        return extract(findPhotographs({photograph(below).string()}), options, project, progress);
    }

    // The keypoints of all photographs, for comparison.
    std::vector<std::string> everything() {
        std::vector<std::string> all;
        for (const Photograph& one : project.photographs()) {
            const Features features = project.features(one.id);
            all.push_back(one.name + bytesOf(features.keypoints) + bytesOf(features.rows));
        }
        return all;
    }

    ScratchFolder folder;
    Project project{folder / "project", Project::Access::write};
    ExtractOptions options;
    std::ostringstream said;
};

TEST_F(ExtractTest, PhotographsAreStoredInTheOrderOfTheirNames) {
    for (const char* const name : {"c.png", "a.png", "b/d.png"}) writePhotograph(name);
    const Outcome outcome = run();
    EXPECT_EQ(outcome.done, 3U);
    EXPECT_EQ(outcome.skipped, 0U);
    EXPECT_EQ(outcome.failed, 0U);
    EXPECT_FALSE(outcome.interrupted);
    const std::vector<Photograph> all = project.photographs();
    ASSERT_EQ(all.size(), 3U);
    EXPECT_EQ(all[0].name, "a.png");
    EXPECT_EQ(all[1].name, "b/d.png");
    EXPECT_EQ(all[2].name, "c.png");
    EXPECT_EQ(all[0].status, PhotographStatus::done);
    EXPECT_EQ(all[0].width, 160);
    EXPECT_EQ(all[0].height, 120);
    EXPECT_EQ(all[0].keypoints, 60);
    EXPECT_GT(all[0].seconds, 0.0);
    EXPECT_EQ(project.camera(1), (Camera{160, 120, 192.0, false, ""}));
}

TEST_F(ExtractTest, SettingsSayWhatTheProjectHolds) {
    writePhotograph("a.png");
    run();
    EXPECT_EQ(project.setting("photographs"), fs::canonical(photograph("")).string());
    EXPECT_EQ(project.setting("features"), "sift");
    EXPECT_EQ(project.setting("ldah_tables"), std::string(ldahTablesIdentifier()));
}

TEST_F(ExtractTest, SiftHasRowsOf128FloatsAndTheirBytes) {
    writePhotograph("a.png");
    run();
    const Features features = project.features(1);
    EXPECT_EQ(features.rows.rows, 60);
    EXPECT_EQ(features.rows.cols, 128);
    EXPECT_EQ(features.rows.type(), DescMat::Float);
    const SQLite::Database database(folder / "project/database.db", SQLite::OPEN_READONLY);
    SQLite::Statement stored(database, "SELECT data FROM descriptors WHERE image_id = 1");
    ASSERT_TRUE(stored.executeStep());
    EXPECT_EQ(stored.getColumn(0).getString(), bytesOf(siftBytesForColmap(features.rows)));
}

TEST_F(ExtractTest, LdahHasRowsOf16BytesAndNoneForColmap) {
    writePhotograph("a.png");
    options.features = "ldah";
    run();
    const Features features = project.features(1);
    EXPECT_EQ(features.rows.rows, 60);
    EXPECT_EQ(features.rows.cols, 16);
    EXPECT_EQ(features.rows.type(), DescMat::Byte);
    const SQLite::Database database(folder / "project/database.db", SQLite::OPEN_READONLY);
    SQLite::Statement stored(database, "SELECT rows FROM descriptors WHERE image_id = 1");
    ASSERT_TRUE(stored.executeStep());
    EXPECT_EQ(stored.getColumn(0).getInt(), 0);
}

TEST_F(ExtractTest, KeypointsAreTheStrongest) {
    writePhotograph("a.png");
    run();
    std::vector<float> few;
    for (const Keypoint& keypoint : project.features(1).keypoints) few.push_back(keypoint.response);
    options.keypoints = 10'000;
    run();
    std::vector<float> all;
    for (const Keypoint& keypoint : project.features(1).keypoints) all.push_back(keypoint.response);
    ASSERT_GT(all.size(), 60U);
    std::sort(all.begin(), all.end(), std::greater<>());
    std::sort(few.begin(), few.end(), std::greater<>());
    EXPECT_TRUE(std::equal(few.begin(), few.end(), all.begin()));
}

TEST_F(ExtractTest, PhotographWithoutKeypointsIsDone) {
    writePng(photograph("a.png"), FloatImage::Constant(120, 160, 0.5F));
    writePng(photograph("b.png"), FloatImage::Constant(1, 1, 0.5F));
    EXPECT_EQ(run().done, 2U);
    for (const std::int64_t id : {1, 2}) {
        EXPECT_EQ(project.features(id).rows.rows, 0);
        EXPECT_EQ(project.features(id).rows.cols, 128);
    }
}

TEST_F(ExtractTest, NeitherThreadsNorMemoryChangeTheResult) {
    for (std::uint32_t i = 0; i < 5; ++i) writePhotograph(std::to_string(i) + ".png", i);
    options.threads = 1;
    run();
    const std::vector<std::string> expected = everything();
    options.force = true;
    options.threads = 7;
    EXPECT_EQ(run().done, 5U);
    EXPECT_EQ(everything(), expected);
    options.memory = 1;  // less than any photograph needs: one at a time
    EXPECT_EQ(run().done, 5U);
    EXPECT_EQ(everything(), expected);
}

TEST_F(ExtractTest, OtherKindsOfFeaturesAreRefused) {
    writePhotograph("a.png");
    options.features = "surf";
    EXPECT_EQ(refusal<std::runtime_error>([&] { run(); }),
              "--features is sift or ldah, not 'surf'");
    EXPECT_TRUE(project.photographs().empty());
    EXPECT_EQ(project.setting("features"), std::nullopt);
}

// Masks.

class MaskedExtractTest : public ExtractTest {
protected:
    MaskedExtractTest() { options.masks = folder / "masks"; }

    // Wanted is what lies at columns from 80 on.
    void writeMask(const std::string& name) const {
        FloatImage mask = FloatImage::Zero(120, 160);
        mask.rightCols(80).setOnes();
        writePng(folder / ("masks/" + name), mask);
    }
};

TEST_F(MaskedExtractTest, KeypointsAreSelectedAmongThoseThatTheMaskLeaves) {
    writePhotograph("a.png");
    writeMask("a.png.png");
    options.keypoints = 25;
    run();
    const Features features = project.features(1);
    EXPECT_EQ(features.keypoints.size(), 25U);
    EXPECT_EQ(features.rows.rows, 25);
    for (const Keypoint& keypoint : features.keypoints) EXPECT_GE(keypoint.x, 79.5F);
}

TEST_F(MaskedExtractTest, MasksAreFoundByTheWholeName) {
    writePhotograph("b/a.png");
    writePhotograph("c.png");
    writeMask("b/a.png.png");
    writeMask("c.png");
    run();
    for (const Keypoint& keypoint : project.features(1).keypoints) EXPECT_GE(keypoint.x, 79.5F);
    const std::vector<Keypoint> unmasked = project.features(2).keypoints;
    EXPECT_TRUE(std::any_of(unmasked.begin(), unmasked.end(),
                            [](const Keypoint& keypoint) { return keypoint.x < 70.0F; }));
}

TEST_F(MaskedExtractTest, MasksAreInPixelsOfThePhotographAlsoIfItIsMadeSmaller) {
    writePhotograph("a.png");
    writeMask("a.png.png");
    options.longestSide = 80;
    options.keypoints = 10'000;
    run();
    const std::vector<Keypoint> keypoints = project.features(1).keypoints;
    EXPECT_GE(keypoints.size(), 10U);
    for (const Keypoint& keypoint : keypoints) EXPECT_GE(keypoint.x, 79.5F);
    // All that are there without a mask.
    options.masks.reset();
    run();
    std::vector<Keypoint> all = project.features(1).keypoints;
    all.erase(std::remove_if(all.begin(), all.end(),
                             [](const Keypoint& keypoint) { return keypoint.x < 79.5F; }),
              all.end());
    EXPECT_EQ(bytesOf(all), bytesOf(keypoints));
}

TEST_F(MaskedExtractTest, MaskOfNothingLeavesNoKeypoints) {
    writePhotograph("a.png");
    writePng(folder / "masks/a.png.png", FloatImage::Zero(120, 160));
    EXPECT_EQ(run().done, 1U);
    EXPECT_EQ(project.photograph("a.png")->keypoints, 0);
}

TEST_F(MaskedExtractTest, MaskOfAnotherSizeFailsThePhotograph) {
    writePhotograph("a.png");
    writePng(folder / "masks/a.png.png", FloatImage::Ones(160, 120));
    EXPECT_EQ(run().failed, 1U);
    EXPECT_EQ(project.photograph("a.png")->reason,
              "the mask " + (folder / "masks/a.png.png").string() +
                  " has 120 x 160 pixels, the photograph 160 x 120");
}

TEST_F(MaskedExtractTest, ChangedMaskIsDoneAgain) {
    writePhotograph("a.png");
    run();
    writeMask("a.png.png");
    EXPECT_EQ(run().done, 1U);
    EXPECT_EQ(run().skipped, 1U);
    writePng(folder / "masks/a.png.png", FloatImage::Ones(120, 160));
    EXPECT_EQ(run().done, 1U);
}

// Smaller images.

class SmallerExtractTest : public ExtractTest {
protected:
    // Each is a keypoint of its own.
    const std::vector<std::pair<double, double>> centres{{60.0, 50.0},   {171.25, 52.5},
                                                         {240.5, 60.75}, {65.0, 150.5},
                                                         {150.0, 140.0}, {245.0, 147.0}};

    void writeBlobs(Eigen::Index rows, Eigen::Index cols) const {
        FloatImage image = FloatImage::Constant(rows, cols, 0.2F);
        for (const auto& [x, y] : centres) test::addBlob(image, y, x, 6.0, 0.7);
        writePng(photograph("a.png"), image);
    }

    // How far the nearest keypoint of its size is from each blob.
    [[nodiscard]] std::vector<double> misses() const {
        std::vector<double> all;
        for (const auto& [x, y] : centres) {
            double nearest = 1000.0;
            for (const Keypoint& keypoint : project.features(1).keypoints) {
                if (keypoint.scale < 4.0F || keypoint.scale > 9.0F) continue;
                nearest = std::min(nearest, std::hypot(keypoint.x - x, keypoint.y - y));
            }
            all.push_back(nearest);
        }
        return all;
    }
};

TEST_F(SmallerExtractTest, PositionsAreThoseInThePhotograph) {
    writeBlobs(200, 300);
    options.longestSide = 150;
    run();
    EXPECT_EQ(project.photograph("a.png")->width, 300);
    EXPECT_EQ(project.photograph("a.png")->height, 200);
    for (const double miss : misses()) EXPECT_LT(miss, 0.2);
}

TEST_F(SmallerExtractTest, PositionsAreRightAlsoWhereTheSidesHaveToBeRounded) {
    writeBlobs(203, 301);
    options.longestSide = 152;  // x 102.5, which is 103
    run();
    for (const double miss : misses()) EXPECT_LT(miss, 0.3);
}

TEST_F(SmallerExtractTest, PositionsOfAPhotographThatIsSmallEnoughStayTheSame) {
    writeBlobs(200, 300);
    run();
    for (const double miss : misses()) EXPECT_LT(miss, 0.2);
    const std::vector<std::string> expected = everything();
    options.longestSide = 300;
    EXPECT_EQ(run().done, 1U);
    EXPECT_EQ(everything(), expected);
}

TEST_F(SmallerExtractTest, ScalesAreThoseInThePhotograph) {
    writeBlobs(200, 300);
    options.longestSide = 150;
    run();
    int large = 0;
    for (const Keypoint& keypoint : project.features(1).keypoints) {
        large += keypoint.scale > 4.0F && keypoint.scale < 9.0F ? 1 : 0;
    }
    EXPECT_GE(large, 6);
}

// Full panoramas.

class PanoramaExtractTest : public ExtractTest {
protected:
    PanoramaExtractTest() {
        options.panorama = true;
        options.keypoints = 10'000;
    }

    static constexpr int kRows = 200;
    static constexpr int kCols = 400;

    // Of blobs that each are a keypoint of its own: column and row. Two lie across the seam, two
    // over the poles.
    const std::vector<Eigen::Vector2d> centres{{2.6, 100.4},   {397.3, 69.7}, {200.0, 0.6},
                                               {120.0, 199.3}, {250.3, 30.7}, {100.2, 164.3},
                                               {150.4, 90.3}};

    // In a panorama that is `factor` times as large.
    static Eigen::Vector2d enlarged(const Eigen::Vector2d& place, int factor) {
        return (factor * (place.array() + 0.5) - 0.5).matrix();
    }
    static Eigen::Vector3d directionOf(const Eigen::Vector2d& place, int factor) {
        const double longitude = (2.0 * place.x() / (factor * kCols) - 1.0) * std::numbers::pi;
        const double latitude = (place.y() / (factor * kRows) - 0.5) * std::numbers::pi;
        return {std::sin(longitude) * std::cos(latitude), std::sin(latitude),
                std::cos(longitude) * std::cos(latitude)};
    }
    // In rows of the smaller panorama.
    static double apart(const Eigen::Vector3d& a, const Eigen::Vector3d& b) {
        return std::atan2(a.cross(b).norm(), a.dot(b)) * kRows / std::numbers::pi;
    }

    // Blobs that are round on the sphere.
    void writeBlobs(int factor = 1) const {
        FloatImage image(factor * kRows, factor * kCols);
        for (int row = 0; row < image.rows(); ++row) {
            for (int col = 0; col < image.cols(); ++col) {
                const Eigen::Vector3d here = directionOf(Eigen::Vector2d(col, row), factor);
                double value = 0.2;
                for (const Eigen::Vector2d& centre : centres) {
                    const double distance =
                        apart(here, directionOf(enlarged(centre, factor), factor)) / 4.0;
                    if (distance < 6.0) value += 0.7 * std::exp(-0.5 * distance * distance);
                }
                image(row, col) = static_cast<float>(value);
            }
        }
        writePng(photograph("a.png"), image);
    }
    void writePanorama(const std::string& name, std::uint32_t seed = 1) const {
        writePng(photograph(name), photographLikeImage(kRows, kCols, seed));
    }

    // How far the nearest keypoint of its size is from each blob.
    [[nodiscard]] std::vector<double> misses(int factor = 1) const {
        std::vector<double> all;
        const std::vector<Keypoint> keypoints = project.features(1).keypoints;
        for (const Eigen::Vector2d& centre : centres) {
            const Eigen::Vector3d expected = directionOf(enlarged(centre, factor), factor);
            double nearest = 1000.0;
            for (const Keypoint& keypoint : keypoints) {
                const float scale = keypoint.scale / static_cast<float>(factor);
                if (scale < 2.7F || scale > 6.0F) continue;
                const Eigen::Vector2d place(keypoint.x, keypoint.y);
                nearest = std::min(nearest, apart(directionOf(place, factor), expected));
            }
            all.push_back(nearest);
        }
        return all;
    }
};

TEST_F(PanoramaExtractTest, KeypointsAreFoundAcrossTheSeamAndOverThePoles) {
    writeBlobs();
    EXPECT_EQ(run().done, 1U);
    for (const double miss : misses()) EXPECT_LT(miss, 0.5);
    for (const Keypoint& keypoint : project.features(1).keypoints) {
        EXPECT_GE(keypoint.x, 0.0F);
        EXPECT_LT(keypoint.x, 400.0F);
        EXPECT_GE(keypoint.y, 0.0F);
        EXPECT_LE(keypoint.y, 200.0F);
    }
}

TEST_F(PanoramaExtractTest, NothingIsFoundTwice) {
    // So large that small keypoints beyond the seam are found as before it.
    writePng(photograph("a.png"), photographLikeImage(400, 800, 1));
    run();
    const std::vector<Keypoint> keypoints = project.features(1).keypoints;
    for (std::size_t i = 0; i < keypoints.size(); ++i) {
        for (std::size_t j = 0; j < i; ++j) {
            const Keypoint& a = keypoints[i];
            const Keypoint& b = keypoints[j];
            const float across = std::remainder(a.x - b.x, 800.0F);
            EXPECT_FALSE(std::hypot(across, a.y - b.y) < 0.1F &&
                         std::abs(a.angle - b.angle) < 0.02F &&
                         std::abs(a.scale - b.scale) < 0.1F * a.scale)
                << a.x << ", " << a.y;
        }
    }
}

TEST_F(PanoramaExtractTest, OrdinaryExtractionDoesNotFindThem) {
    writeBlobs();
    options.panorama = false;
    EXPECT_EQ(run().done, 1U);
    EXPECT_GT(misses()[2], 2.0);
    EXPECT_GT(misses()[3], 2.0);
}

TEST_F(PanoramaExtractTest, PositionsAreThoseInThePanoramaAlsoIfItIsMadeSmaller) {
    writeBlobs(2);
    options.longestSide = 400;
    EXPECT_EQ(run().done, 1U);
    for (const double miss : misses(2)) EXPECT_LT(miss, 0.5);
    EXPECT_EQ(project.photograph("a.png")->width, 800);
    EXPECT_EQ(project.photograph("a.png")->height, 400);
}

TEST_F(PanoramaExtractTest, AsManyKeypointsAsAskedForAreReached) {
    writePanorama("a.png");
    for (const int count : {60, 200}) {
        options.keypoints = count;
        run();
        EXPECT_EQ(project.features(1).keypoints.size(), static_cast<std::size_t>(count));
        EXPECT_EQ(project.features(1).rows.rows, count);
    }
}

TEST_F(PanoramaExtractTest, CameraHasNoFocalLength) {
    writePanorama("a.png");
    run();
    EXPECT_EQ(project.camera(1), (Camera{400, 200, 0.0, false, ""}));
    EXPECT_TRUE(project.camera(1).isPanorama());
}

TEST_F(PanoramaExtractTest, OtherShapesAreRefused) {
    writePhotograph("a.png");
    writePanorama("b.png");
    const Outcome outcome = run();
    EXPECT_EQ(outcome.done, 1U);
    EXPECT_EQ(outcome.failed, 1U);
    EXPECT_EQ(project.photograph("a.png")->status, PhotographStatus::failed);
    EXPECT_EQ(project.photograph("a.png")->reason,
              "is 160 x 120 pixels and so no full panorama, which is twice as wide as high "
              "(--allow-non-spherical takes it as an ordinary photograph)");
    EXPECT_EQ(project.photograph("b.png")->status, PhotographStatus::done);
}

TEST_F(PanoramaExtractTest, OtherShapesAreOrdinaryPhotographsIfAllowed) {
    writePhotograph("a.png");
    options.allowNonSpherical = true;
    EXPECT_EQ(run().done, 1U);
    EXPECT_EQ(project.camera(1), (Camera{160, 120, 192.0, false, ""}));
    const std::vector<std::string> allowed = everything();
    options.panorama = false;
    options.allowNonSpherical = false;
    options.force = true;
    EXPECT_EQ(run().done, 1U);
    EXPECT_EQ(everything(), allowed);
}

TEST_F(PanoramaExtractTest, AllowingOtherShapesChangesNothingForPanoramas) {
    writePanorama("a.png");
    run();
    const std::vector<std::string> expected = everything();
    options.allowNonSpherical = true;
    EXPECT_EQ(run().skipped, 1U);
    options.force = true;
    run();
    EXPECT_EQ(everything(), expected);
    EXPECT_TRUE(project.camera(1).isPanorama());
}

TEST_F(PanoramaExtractTest, PhotographsOfAPanoramasShapeAreMentioned) {
    const std::string hint =
        "1 photographs are twice as wide as high and have been taken as ordinary ones; if they are "
        "full panoramas, give --panorama";
    writePanorama("a.png");
    writePhotograph("b.png");
    options.allowNonSpherical = true;
    run();
    EXPECT_THAT(said.str(), Not(HasSubstr(hint)));
    options.panorama = false;
    run();
    EXPECT_THAT(said.str(), HasSubstr(hint));
}

TEST_F(PanoramaExtractTest, TakingItForSomethingElseIsDoneAgain) {
    writePanorama("a.png");
    EXPECT_EQ(run().done, 1U);
    EXPECT_EQ(run().skipped, 1U);
    options.panorama = false;
    EXPECT_EQ(run().done, 1U);
    EXPECT_FALSE(project.camera(1).isPanorama());
    EXPECT_EQ(run().skipped, 1U);
    options.panorama = true;
    EXPECT_EQ(run().done, 1U);
    EXPECT_TRUE(project.camera(1).isPanorama());
}

TEST_F(PanoramaExtractTest, MasksAreInPixelsOfThePanorama) {
    writePanorama("a.png");
    // Unwanted are the lower half, and a quarter beside the seam.
    FloatImage mask = FloatImage::Ones(kRows, kCols);
    mask.bottomRows(100).setZero();
    mask.rightCols(100).setZero();
    writePng(folder / "masks/a.png.png", mask);
    options.masks = folder / "masks";
    run();
    const std::vector<Keypoint> masked = project.features(1).keypoints;
    int nearThePole = 0;
    for (const Keypoint& keypoint : masked) {
        EXPECT_LT(keypoint.y, 99.5F);
        EXPECT_TRUE(keypoint.x < 299.5F || keypoint.x >= 399.5F) << keypoint.x;
        nearThePole += keypoint.y < 45.0F ? 1 : 0;
    }
    EXPECT_GT(nearThePole, 20);
    options.masks.reset();
    run();
    EXPECT_GT(project.features(1).keypoints.size(), 2 * masked.size());
}

TEST_F(PanoramaExtractTest, LdahCodesOfPanoramasAreStored) {
    writePanorama("a.png");
    options.features = "ldah";
    options.keypoints = 50;
    EXPECT_EQ(run().done, 1U);
    EXPECT_EQ(project.features(1).rows.rows, 50);
    EXPECT_EQ(project.features(1).rows.cols, 16);
}

// What fails, and what is done already.

TEST_F(ExtractTest, PhotographsThatCannotBeUsedAreStoredWithTheirReason) {
    writePhotograph("a.png");
    writeBytes(photograph("b.png"), "a text");
    writeBytes(photograph("c.png"), "");
    writePhotograph("d.png");
    const Outcome outcome = run();
    EXPECT_EQ(outcome.done, 2U);
    EXPECT_EQ(outcome.failed, 2U);
    const Photograph text = *project.photograph("b.png");
    EXPECT_EQ(text.status, PhotographStatus::failed);
    EXPECT_EQ(text.reason, "is not an image that can be decoded, or is damaged");
    EXPECT_EQ(project.photograph("c.png")->reason, "is empty (0 bytes)");
    EXPECT_EQ(project.photograph("d.png")->status, PhotographStatus::done);
    EXPECT_THAT(said.str(),
                HasSubstr("failed: b.png: is not an image that can be decoded, or is damaged\n"));
    EXPECT_THAT(said.str(), HasSubstr("failed: c.png: is empty (0 bytes)\n"));
}

TEST_F(ExtractTest, FailuresAreEventsForPrograms) {
    writeBytes(photograph("a b.png"), "");
    Progress progress(said, Progress::Form::json);
    extract(findPhotographs({photograph("").string()}), options, project, progress);
    EXPECT_EQ(nlohmann::json::parse(said.str().substr(0, said.str().find('\n'))),
              nlohmann::json(
                  {{"event", "failed"}, {"name", "a b.png"}, {"reason", "is empty (0 bytes)"}}));
}

TEST_F(ExtractTest, RepairedPhotographsAreDone) {
    writePhotograph("a.png");
    writeBytes(photograph("b.png"), "a text");
    run();
    EXPECT_EQ(run().failed, 1U);  // still
    writePhotograph("b.png");
    const Outcome outcome = run();
    EXPECT_EQ(outcome.done, 1U);
    EXPECT_EQ(outcome.skipped, 1U);
    EXPECT_EQ(outcome.failed, 0U);
    EXPECT_EQ(project.photograph("b.png")->status, PhotographStatus::done);
    EXPECT_EQ(project.photograph("b.png")->reason, "");
    EXPECT_EQ(project.features(2).rows.rows, 60);
}

TEST_F(ExtractTest, PhotographsThatBecomeUnreadableKeepWhatWasDone) {
    writePhotograph("a.png");
    run();
    const std::vector<std::string> expected = everything();
    writeBytes(photograph("a.png"), "a text");
    EXPECT_EQ(run().failed, 1U);
    EXPECT_EQ(project.photograph("a.png")->status, PhotographStatus::done);
    EXPECT_EQ(everything(), expected);
}

TEST_F(ExtractTest, WhatIsDoneIsSkipped) {
    writePhotograph("a.png");
    run();
    writePhotograph("b.png");
    const Outcome outcome = run();
    EXPECT_EQ(outcome.skipped, 1U);
    EXPECT_EQ(outcome.done, 1U);
}

TEST_F(ExtractTest, FileThatIsOnlyNewerIsSkipped) {
    writePhotograph("a.png");
    run();
    writePhotograph("a.png");
    fs::last_write_time(photograph("a.png"),
                        fs::file_time_type::clock::now() + std::chrono::hours(1));
    EXPECT_EQ(run().skipped, 1U);
}

TEST_F(ExtractTest, ChangedContentIsDoneAgainAndForgetsItsPairs) {
    for (const char* const name : {"a.png", "b.png", "c.png"}) writePhotograph(name);
    run();
    const std::vector<std::string> before = everything();
    for (const auto& [first, second] : {std::pair{1, 2}, {1, 3}}) {
        project.putMatches(first, second, {test::matchList({{0, 0}}), {1.0F}}, "");
    }
    writePhotograph("b.png", 2);
    const Outcome outcome = run();
    EXPECT_EQ(outcome.done, 1U);
    EXPECT_EQ(outcome.skipped, 2U);
    const std::vector<std::string> after = everything();
    EXPECT_EQ(after[0], before[0]);
    EXPECT_NE(after[1], before[1]);
    EXPECT_EQ(after[2], before[2]);
    ASSERT_EQ(project.pairs().size(), 1U);
    EXPECT_EQ(project.pairs().front().second, 3);
}

TEST_F(ExtractTest, OtherParametersAreDoneAgain) {
    writePhotograph("a.png");
    run();
    options.keypoints = 50;
    EXPECT_EQ(run().done, 1U);
    EXPECT_EQ(project.features(1).rows.rows, 50);
    options.longestSide = 80;
    EXPECT_EQ(run().done, 1U);
    options.selector = "Default";
    EXPECT_EQ(run().done, 1U);
    options.applyOrientation = true;
    EXPECT_EQ(run().done, 1U);
    options.threads = 1;
    options.memory = 1'000'000'000;
    EXPECT_EQ(run().skipped, 1U);
}

TEST_F(ExtractTest, ForceDoesEverythingAgain) {
    writePhotograph("a.png");
    run();
    options.force = true;
    EXPECT_EQ(run().done, 1U);
}

TEST_F(ExtractTest, OtherFeaturesAreRefusedUnlessForced) {
    writePhotograph("a.png");
    run();
    const std::vector<std::string> expected = everything();
    options.features = "ldah";
    EXPECT_EQ(refusal<ProjectError>([&] { run(); }),
              "The project " + (folder / "project").string() +
                  " holds sift features, which cannot be matched with ldah. Use another project "
                  "folder (-o), or --force to replace them all.");
    EXPECT_EQ(everything(), expected);
    EXPECT_EQ(project.setting("features"), "sift");
    options.force = true;
    EXPECT_EQ(run().done, 1U);
    EXPECT_EQ(project.setting("features"), "ldah");
    EXPECT_EQ(project.features(1).rows.cols, 16);
}

// On a GPU.

// A detector that the GPU fails.
class FailingDetector : public IKeypointDetector, public SiftLdahBaseParams {
public:
    [[nodiscard]] std::unique_ptr<IKeypointDetector> clone() const override {
        return std::make_unique<FailingDetector>();
    }
    [[nodiscard]] bool hasOrientations() const override { return true; }
    [[nodiscard]] bool supportsIntImages() const override { return false; }
    [[nodiscard]] bool supportsFloatImages() const override { return true; }
    void detect(const ByteImage&, std::vector<Keypoint>&) override { throw cuda::CudaException(); }
    void detect(const FloatImage&, std::vector<Keypoint>&) override {
        throw cuda::CudaNoResourcesException();
    }
};

class GpuExtractTest : public ExtractTest {
protected:
    GpuExtractTest() {
        gpu.reset();
        for (const std::uint32_t seed : {1U, 2U, 3U, 4U, 5U}) {
            writePhotograph(std::to_string(seed) + ".png", seed);
        }
    }
    ~GpuExtractTest() override { gpu.reset(); }

    // One that finds and describes what the CPU does.
    void haveGpu() {
        gpu.featureAvailable = gpu.gpusAvailable = true;
        gpu.activeDevice = "two-core test GPU";
        detectOnGpuWith([this] {
            ++detectorsOnGpu;
            return Features2dSiftLdah::createDetectorSIFT();
        });
        extensibleFactoryInstance<IDescriptorExtractor>().registerType(
            "SIFTCuda", Features2dSiftLdah::createDescriptorSIFT);
    }

    static void detectOnGpuWith(const ExtensibleFactory<IKeypointDetector>::Creator& creator) {
        extensibleFactoryInstance<IKeypointDetector>().registerType("SIFTCuda", creator);
    }

    void haveGpuThatFails() {
        haveGpu();
        detectOnGpuWith([] { return std::make_unique<FailingDetector>(); });
        extensibleFactoryInstance<IDescriptorExtractor>().registerType(
            "SIFTCuda", SiftLdahDescriptor::createDescriptorSIFT);
        gpu.gradientPyramid.status = 3;
    }

    // All that the database says of photographs, but the time.
    [[nodiscard]] std::vector<std::string> stampsAndReasons() const {
        std::vector<std::string> all;
        for (const Photograph& one : project.photographs()) {
            EXPECT_EQ(one.status, PhotographStatus::done);
            all.push_back(one.stamp + one.reason);
        }
        return all;
    }

    test::StandIn& gpu = test::StandIn::instance();
    std::atomic<int> detectorsOnGpu = 0;
};

TEST_F(GpuExtractTest, UsableGpuIsUsedAndSaid) {
    haveGpu();
    EXPECT_EQ(run().done, 5U);
    EXPECT_EQ(detectorsOnGpu, 5);
    EXPECT_THAT(said.str(), StartsWith("GPU: two-core test GPU\n"));
}

TEST_F(GpuExtractTest, WithoutOneNoGpuIsMentioned) {
    run();
    EXPECT_THAT(said.str(), Not(HasSubstr("GPU")));
}

TEST_F(GpuExtractTest, WhatWasExtractedOnAGpuIsNotExtractedAgainWithoutOneNorTheOtherWay) {
    haveGpu();
    run();
    const std::vector<std::string> onGpu = stampsAndReasons();
    gpu.gpusAvailable = false;
    EXPECT_EQ(run().skipped, 5U);
    options.force = true;
    run();
    EXPECT_EQ(stampsAndReasons(), onGpu);
    EXPECT_EQ(detectorsOnGpu, 5);
    gpu.gpusAvailable = true;
    options.force = false;
    EXPECT_EQ(run().skipped, 5U);
}

TEST_F(GpuExtractTest, FailureOfTheGpuIsOneWarningForAllPhotographsAndNoError) {
    haveGpuThatFails();
    const Outcome outcome = run();
    EXPECT_EQ(outcome.done, 5U);
    EXPECT_EQ(outcome.failed, 0U);
    EXPECT_EQ(gpu.calls<test::GradientPyramidCall>().size(), 5U);
    const std::string start = "warning: the GPU failed, and the CPU does its work: ";
    for (const char* const cause :
         {"Not enough resources for the detector.", "Cuda processing error."}) {
        const std::string warning = start + cause + " (" + gpu.activeDevice + ")\n";
        const std::size_t at = said.str().find(warning);
        ASSERT_NE(at, std::string::npos) << said.str();
        EXPECT_EQ(said.str().find(warning, at + 1), std::string::npos) << said.str();
    }
    EXPECT_THAT(said.str(), Not(HasSubstr("failed:")));
    const std::vector<std::string> features = everything();
    const std::vector<std::string> stamps = stampsAndReasons();
    gpu.gpusAvailable = false;
    options.force = true;
    run();
    EXPECT_EQ(everything(), features);
    EXPECT_EQ(stampsAndReasons(), stamps);
}

// Folders.

TEST_F(ExtractTest, NamesStayBelowTheProjectsFolderOfPhotographs) {
    writePhotograph("a/b/x.png");
    writePhotograph("a/y.png");
    run("a");
    const Outcome outcome = run("a/b");
    EXPECT_EQ(outcome.skipped, 1U);
    EXPECT_EQ(outcome.done, 0U);
    writePhotograph("a/c/z.png");
    EXPECT_EQ(run("a/c").done, 1U);
    EXPECT_TRUE(project.photograph("c/z.png"));
}

TEST_F(ExtractTest, PhotographsOfAnotherFolderAreRefused) {
    writePhotograph("a/x.png");
    writePhotograph("ab/x.png");
    run("a");
    const fs::path known = fs::canonical(photograph("a"));
    const fs::path other = fs::canonical(photograph("ab/x.png"));
    EXPECT_EQ(refusal<ProjectError>([&] { run("ab"); }),
              "The photographs of the project " + (folder / "project").string() + " lie in " +
                  known.string() + ", and " + other.string() +
                  " does not. Use another project folder (-o).");
    EXPECT_EQ(project.photographs().size(), 1U);
}

}  // namespace
}  // namespace marlo::app
