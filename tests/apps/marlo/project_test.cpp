// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/project.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <unistd.h>

#include <Eigen/Core>
#include <cstring>
#include <fstream>
#include <limits>
#include <numbers>
#include <string>
#include <vector>

#include "apps/marlo/material.h"
#include "apps/marlo/scratch.h"

namespace marlo::app {
namespace {

using test::bytesOf;
using test::contentOf;
using test::FileSizeLimit;
using test::matchList;
using test::pairsOf;
using test::refusal;
using test::ScratchFolder;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using Access = Project::Access;

constexpr float kPi = std::numbers::pi_v<float>;
constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

const Camera kUnknown{640, 480, 768.0, false, ""};
const Camera kKnown{640, 480, 700.0, true, "Maker|Model|50/1"};

// Rows of floats of which each has its own value in every place.
Features siftFeatures(const std::vector<Keypoint>& keypoints) {
    Features features;
    features.keypoints = keypoints;
    allocateDescriptors(features.rows, static_cast<int>(keypoints.size()), true);
    auto* const elements = reinterpret_cast<float*>(features.rows.data);
    for (int i = 0; i < features.rows.rows * 128; ++i) elements[i] = static_cast<float>(i) / 7.0F;
    return features;
}

DescMat byteRows(int rows, int cols) {
    DescMat bytes(rows, cols, DescMat::Byte);
    for (int i = 0; i < rows * cols; ++i) bytes.data[i] = static_cast<unsigned char>(i);
    return bytes;
}

std::vector<std::string> namesOf(const std::vector<Photograph>& photographs) {
    std::vector<std::string> names;
    for (const Photograph& photograph : photographs) names.push_back(photograph.name);
    return names;
}

std::vector<std::int64_t> idsOf(const std::vector<Photograph>& photographs) {
    std::vector<std::int64_t> ids;
    for (const Photograph& photograph : photographs) ids.push_back(photograph.id);
    return ids;
}

std::vector<std::pair<std::int64_t, std::int64_t>> pairsIn(const Project& project) {
    std::vector<std::pair<std::int64_t, std::int64_t>> pairs;
    for (const Pair& pair : project.pairs()) pairs.emplace_back(pair.first, pair.second);
    return pairs;
}

template <typename Number>
std::vector<Number> numbersOf(const std::string& bytes) {
    std::vector<Number> numbers(bytes.size() / sizeof(Number));
    std::memcpy(numbers.data(), bytes.data(), numbers.size() * sizeof(Number));
    return numbers;
}

class ProjectTest : public testing::Test {
protected:
    [[nodiscard]] std::filesystem::path path() const { return folder / "project"; }
    [[nodiscard]] std::string file() const { return (path() / "database.db").string(); }

    // What another program finds in the database: all rows, '|' between columns.
    [[nodiscard]] std::vector<std::string> found(const std::string& query) const {
        const SQLite::Database database(file(), SQLite::OPEN_READONLY);
        SQLite::Statement statement(database, query);
        std::vector<std::string> rows;
        while (statement.executeStep()) {
            std::string row;
            for (int i = 0; i < statement.getColumnCount(); ++i) {
                if (i > 0) row += '|';
                const SQLite::Column column = statement.getColumn(i);
                row += column.isNull() ? "NULL" : column.getString();
            }
            rows.push_back(row);
        }
        return rows;
    }

    template <typename Number>
    [[nodiscard]] std::vector<Number> blob(const std::string& query) const {
        const SQLite::Database database(file(), SQLite::OPEN_READONLY);
        SQLite::Statement statement(database, query);
        if (!statement.executeStep() || !statement.getColumn(0).isBlob()) {
            ADD_FAILURE() << "no blob: " << query;
            return {};
        }
        return numbersOf<Number>(statement.getColumn(0).getString());
    }

    // What another program does to the database.
    void change(const std::string& statements) const {
        SQLite::Database database(file(), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
        database.exec(statements);
    }

    static Photograph add(Project& project, const std::string& name,
                          const Camera& camera = kUnknown) {
        const Photograph photograph = project.addPhotographs({name}).front();
        project.putFeatures(photograph, camera, siftFeatures({Keypoint(1, 2), Keypoint(3, 4)}),
                            byteRows(2, 128));
        return photograph;
    }

    // Three photographs with features, all pairs of them matched and verified.
    static void addThree(Project& project) {
        for (const char* const name : {"a.jpg", "b.jpg", "c.jpg"}) add(project, name);
        VerifiedPair geometry;
        geometry.inliers = matchList({{0, 1}});
        for (const auto& [first, second] : {std::pair{1, 2}, {1, 3}, {2, 3}}) {
            project.putMatches(first, second, {matchList({{0, 1}, {1, 0}}), {0.5F, 0.25F}}, "m");
            project.putGeometry(first, second, geometry, "v");
        }
    }

    ScratchFolder folder;
};

TEST_F(ProjectTest, FoldersAreMadeForANewProject) {
    const Project project(folder / "a/b/project", Access::write);
    EXPECT_EQ(project.folder(), folder / "a/b/project");
    EXPECT_TRUE(std::filesystem::exists(folder / "a/b/project/database.db"));
    EXPECT_THAT(project.photographs(), IsEmpty());
    EXPECT_THAT(project.pairs(), IsEmpty());
}

TEST_F(ProjectTest, WhatIsWrittenIsThereAgain) {
    {
        Project project(path(), Access::write);
        project.putSetting("features", "sift");
        addThree(project);
    }
    for (const Access access : {Access::read, Access::update, Access::write}) {
        const Project project(path(), access);
        EXPECT_EQ(project.setting("features"), "sift");
        EXPECT_THAT(namesOf(project.photographs()), ElementsAre("a.jpg", "b.jpg", "c.jpg"));
        EXPECT_EQ(project.pairs().size(), 3U);
    }
}

TEST_F(ProjectTest, OnlyWritingMakesAProject) {
    for (const Access access : {Access::read, Access::update}) {
        EXPECT_EQ(refusal<ProjectError>([&] { const Project project(path(), access); }),
                  "There is no project in " + path().string() +
                      ": database.db is missing. Begin with `marlo extract PHOTOS -o " +
                      path().string() + "`.");
        EXPECT_FALSE(std::filesystem::exists(path()));
    }
}

TEST_F(ProjectTest, ReadersChangeNothing) {
    { const Project project(path(), Access::write); }
    Project reader(path(), Access::read);
    EXPECT_THAT(refusal<ProjectError>([&] { reader.putSetting("features", "sift"); }),
                StartsWith(file() + ": "));
    EXPECT_EQ(reader.setting("features"), std::nullopt);
}

TEST_F(ProjectTest, FolderThatIsAFileIsRefused) {
    std::ofstream(path()) << "a file";
    EXPECT_THAT(refusal<ProjectError>([&] { const Project project(path(), Access::write); }),
                StartsWith("Cannot make the folder " + path().string() + ": "));
}

TEST_F(ProjectTest, ProjectsCanBeMoved) {
    Project project(path(), Access::write);
    project.putSetting("features", "sift");
    Project moved(std::move(project));
    EXPECT_EQ(moved.setting("features"), "sift");
    Project other(folder / "other", Access::write);
    other = std::move(moved);
    EXPECT_EQ(other.setting("features"), "sift");
    // The lock of the one that was given up is free.
    EXPECT_NO_THROW(Project(folder / "other", Access::write));
}

TEST_F(ProjectTest, SettingsAreNothingUntilTheyAreSet) {
    Project project(path(), Access::write);
    EXPECT_EQ(project.setting("features"), std::nullopt);
    project.putSetting("features", "sift");
    EXPECT_EQ(project.setting("features"), "sift");
    EXPECT_EQ(project.setting("photographs"), std::nullopt);
}

TEST_F(ProjectTest, SettingsCanBeChanged) {
    Project project(path(), Access::write);
    project.putSetting("photographs", "/a 'b' \"c\"/ü");
    project.putSetting("photographs", "");
    EXPECT_EQ(project.setting("photographs"), "");
    project.putSetting("photographs", "/a 'b' \"c\"/ü");
    EXPECT_EQ(project.setting("photographs"), "/a 'b' \"c\"/ü");
}

// Photographs.

TEST_F(ProjectTest, PhotographsGetIdsInTheOrderOfAddition) {
    Project project(path(), Access::write);
    const std::vector<Photograph> added = project.addPhotographs({"c.jpg", "a.jpg"});
    EXPECT_THAT(namesOf(added), ElementsAre("c.jpg", "a.jpg"));
    EXPECT_THAT(idsOf(added), ElementsAre(1, 2));
    EXPECT_EQ(added[0].status, PhotographStatus::waiting);
}

TEST_F(ProjectTest, PhotographsThatAreThereKeepTheirIds) {
    Project project(path(), Access::write);
    project.addPhotographs({"c.jpg", "a.jpg"});
    const std::vector<Photograph> added = project.addPhotographs({"a.jpg", "b.jpg", "c.jpg"});
    EXPECT_THAT(namesOf(added), ElementsAre("a.jpg", "b.jpg", "c.jpg"));
    ASSERT_EQ(idsOf(added)[0], 2);
    ASSERT_EQ(idsOf(added)[2], 1);
    EXPECT_GT(idsOf(added)[1], 2);
    EXPECT_THAT(namesOf(project.photographs()), ElementsAre("c.jpg", "a.jpg", "b.jpg"));
}

TEST_F(ProjectTest, PhotographsAreFoundByTheirWholeName) {
    Project project(path(), Access::write);
    project.addPhotographs({"a/x.jpg", "b/x.jpg", "é 'x'.jpg"});
    EXPECT_EQ(project.photograph("b/x.jpg")->id, 2);
    EXPECT_EQ(project.photograph("é 'x'.jpg")->id, 3);
    EXPECT_FALSE(project.photograph("x.jpg"));
    EXPECT_FALSE(project.photograph(""));
}

TEST_F(ProjectTest, ImagesHaveThePhotographsIdsAlsoWhereNamesAreInAnotherOrder) {
    Project project(path(), Access::write);
    add(project, "c.jpg");
    project.addPhotographs({"b.jpg"});
    add(project, "a.jpg");
    EXPECT_THAT(found("SELECT image_id, name FROM images ORDER BY image_id"),
                ElementsAre("1|c.jpg", "3|a.jpg"));
}

TEST_F(ProjectTest, DonePhotographsSayWhatTheyHold) {
    Project project(path(), Access::write);
    Photograph photograph = project.addPhotographs({"a.jpg"}).front();
    photograph.stamp = "made from this";
    photograph.seconds = 0.75;
    photograph.reason = "an old one";
    project.putFeatures(photograph, kKnown, siftFeatures({Keypoint(1, 2)}), byteRows(1, 128));
    const Photograph done = *project.photograph("a.jpg");
    EXPECT_EQ(done.id, 1);
    EXPECT_EQ(done.status, PhotographStatus::done);
    EXPECT_EQ(done.reason, "");
    EXPECT_EQ(done.stamp, "made from this");
    EXPECT_EQ(done.width, 640);
    EXPECT_EQ(done.height, 480);
    EXPECT_EQ(done.keypoints, 1);
    EXPECT_EQ(done.seconds, 0.75);
}

TEST_F(ProjectTest, FailedPhotographsSayWhy) {
    Project project(path(), Access::write);
    Photograph photograph = project.addPhotographs({"a.jpg"}).front();
    photograph.seconds = 0.5;
    project.putFailure(photograph, "is empty (0 bytes)");
    const Photograph failed = *project.photograph("a.jpg");
    EXPECT_EQ(failed.status, PhotographStatus::failed);
    EXPECT_EQ(failed.reason, "is empty (0 bytes)");
    EXPECT_EQ(failed.keypoints, 0);
    EXPECT_EQ(failed.seconds, 0.5);
    EXPECT_EQ(refusal<ProjectError>([&] { static_cast<void>(project.features(1)); }),
              file() + " has no features of photograph 1.");
    EXPECT_EQ(refusal<ProjectError>([&] { static_cast<void>(project.camera(1)); }),
              file() + " has no camera of photograph 1.");
}

TEST_F(ProjectTest, FailureForgetsFeaturesAndPairs) {
    Project project(path(), Access::write);
    addThree(project);
    project.putFailure(*project.photograph("b.jpg"), "is empty (0 bytes)");
    EXPECT_THROW(static_cast<void>(project.features(2)), ProjectError);
    EXPECT_THAT(pairsIn(project), ElementsAre(std::pair{1, 3}));
    for (const char* const table : {"images", "keypoints", "descriptors", "marlo_features"}) {
        EXPECT_THAT(found("SELECT image_id FROM " + std::string(table) + " ORDER BY image_id"),
                    ElementsAre("1", "3"));
    }
}

// What COLMAP reads.

TEST_F(ProjectTest, VersionIsThatOfColmapsTables) {
    const Project project(path(), Access::write);
    EXPECT_THAT(found("PRAGMA user_version"), ElementsAre("3800"));
}

TEST_F(ProjectTest, TablesThatAreThereKeepTheirVersion) {
    { const Project project(path(), Access::write); }
    change("PRAGMA user_version = 3900");
    { const Project project(path(), Access::write); }
    EXPECT_THAT(found("PRAGMA user_version"), ElementsAre("3900"));
}

TEST_F(ProjectTest, KeypointsOfColmapHavePixelCentresAtOneHalfAndClockwiseAngles) {
    Project project(path(), Access::write);
    const Keypoint first(0.0F, 2.25F, 1.5F, 0.5F, 0.125F, 0, 1);
    const Keypoint second(10.0F, -0.5F, 4.0F, -kPi / 2, 0.0625F, 2, 3);
    project.putFeatures(project.addPhotographs({"a.jpg"}).front(), kUnknown,
                        siftFeatures({first, second}), byteRows(2, 128));
    EXPECT_THAT(found("SELECT image_id, rows, cols FROM keypoints"), ElementsAre("1|2|4"));
    EXPECT_THAT(blob<float>("SELECT data FROM keypoints"),
                ElementsAre(0.5F, 2.75F, 1.5F, -0.5F, 10.5F, 0.0F, 4.0F, kPi / 2));
}

TEST_F(ProjectTest, DescriptorsOfColmapAreTheBytesGiven) {
    Project project(path(), Access::write);
    const DescMat bytes = byteRows(2, 128);
    project.putFeatures(project.addPhotographs({"a.jpg"}).front(), kUnknown,
                        siftFeatures({Keypoint(1, 2), Keypoint(3, 4)}), bytes);
    EXPECT_THAT(found("SELECT image_id, rows, cols FROM descriptors"), ElementsAre("1|2|128"));
    EXPECT_EQ(blob<char>("SELECT data FROM descriptors"),
              std::vector<char>(bytes.data, bytes.data + 256));
}

TEST_F(ProjectTest, PhotographsWithoutBytesHaveNoDescriptorsInColmap) {
    Project project(path(), Access::write);
    Features features;
    features.keypoints = {Keypoint(1, 2)};
    features.rows = byteRows(1, 16);
    project.putFeatures(project.addPhotographs({"a.jpg"}).front(), kUnknown, features, DescMat());
    EXPECT_THAT(found("SELECT rows, cols, length(data) FROM descriptors"), ElementsAre("0|128|0"));
    EXPECT_THAT(found("SELECT rows, cols, length(data) FROM keypoints"), ElementsAre("1|4|16"));
}

TEST_F(ProjectTest, CamerasOfColmapAreSimpleRadialWithTheCentreInTheMiddle) {
    Project project(path(), Access::write);
    add(project, "a.jpg", Camera{641, 480, 700.0, true, "Maker|Model|50/1"});
    EXPECT_THAT(found("SELECT model, width, height, prior_focal_length FROM cameras"),
                ElementsAre("2|641|480|1"));
    EXPECT_THAT(blob<double>("SELECT params FROM cameras"), ElementsAre(700.0, 320.5, 240.0, 0.0));
}

TEST_F(ProjectTest, CamerasOfPanoramasAreEquirectangular) {
    Project project(path(), Access::write);
    add(project, "a.jpg", Camera{640, 320, 0.0, false, ""});
    EXPECT_THAT(found("SELECT model, width, height, prior_focal_length FROM cameras"),
                ElementsAre("17|640|320|0"));
    EXPECT_THAT(blob<double>("SELECT params FROM cameras"), ElementsAre(640.0, 320.0));
}

TEST_F(ProjectTest, GuessedFocalLengthIsNoPrior) {
    Project project(path(), Access::write);
    add(project, "a.jpg", kUnknown);
    EXPECT_THAT(found("SELECT prior_focal_length FROM cameras"), ElementsAre("0"));
}

TEST_F(ProjectTest, PairIdIsTheFirstIdTimes2147483647AndTheSecond) {
    Project project(path(), Access::write);
    for (int i = 1; i <= 7; ++i) add(project, std::to_string(i));
    project.putMatches(1, 2, {matchList({{1, 0}}), {1.0F}}, "");
    project.putMatches(3, 7, {matchList({{0, 1}, {1, 0}}), {1.0F, 1.0F}}, "");
    EXPECT_THAT(found("SELECT pair_id, rows, cols FROM matches ORDER BY pair_id"),
                ElementsAre("2147483649|1|2", "6442450948|2|2"));
    EXPECT_THAT(blob<std::uint32_t>("SELECT data FROM matches ORDER BY pair_id DESC"),
                ElementsAre(0U, 1U, 1U, 0U));
}

TEST_F(ProjectTest, PairsNeedTheSmallerIdFirst) {
    Project project(path(), Access::write);
    addThree(project);
    for (const auto& [first, second] : {std::pair{2, 1}, {2, 2}}) {
        EXPECT_THROW(project.putMatches(first, second, {}, ""), std::invalid_argument);
        EXPECT_THROW(project.putGeometry(first, second, {}, ""), std::invalid_argument);
        EXPECT_THROW(static_cast<void>(project.matches(first, second)), std::invalid_argument);
        EXPECT_THROW(static_cast<void>(project.geometry(first, second)), std::invalid_argument);
    }
    EXPECT_EQ(project.pairs().size(), 3U);
}

// Cameras.

TEST_F(ProjectTest, CamerasComeBack) {
    Project project(path(), Access::write);
    add(project, "a.jpg", kKnown);
    add(project, "b.jpg", kUnknown);
    EXPECT_EQ(project.camera(1), kKnown);
    EXPECT_EQ(project.camera(2), kUnknown);
}

TEST_F(ProjectTest, CamerasOfPanoramasComeBack) {
    const Camera panorama{640, 320, 0.0, false, "Maker|Model|50/1"};
    {
        Project project(path(), Access::write);
        add(project, "a.jpg", panorama);
        add(project, "b.jpg", kKnown);
    }
    const Project project(path(), Access::read);
    EXPECT_EQ(project.camera(1), panorama);
    EXPECT_TRUE(project.camera(1).isPanorama());
    EXPECT_FALSE(project.camera(2).isPanorama());
}

TEST_F(ProjectTest, PhotographsOfOneDeviceShareACamera) {
    Project project(path(), Access::write);
    add(project, "a.jpg", kKnown);
    add(project, "b.jpg", kUnknown);
    add(project, "c.jpg", kKnown);
    EXPECT_THAT(found("SELECT a.camera_id = c.camera_id FROM images a, images c "
                      "WHERE a.image_id = 1 AND c.image_id = 3"),
                ElementsAre("1"));
    EXPECT_THAT(found("SELECT count(*) FROM cameras"), ElementsAre("2"));
}

TEST_F(ProjectTest, AnotherSizeFocalLengthOrDeviceIsAnotherCamera) {
    Project project(path(), Access::write);
    add(project, "a.jpg", kKnown);
    const auto addWith = [&](const std::string& name, auto changed) {
        Camera camera = kKnown;
        changed(camera);
        add(project, name, camera);
        EXPECT_EQ(project.camera(project.photograph(name)->id), camera);
    };
    addWith("b.jpg", [](Camera& camera) { camera.width = 480; });
    addWith("c.jpg", [](Camera& camera) { camera.height = 640; });
    addWith("d.jpg", [](Camera& camera) { camera.focalLength = 700.5; });
    addWith("e.jpg", [](Camera& camera) { camera.focalLengthKnown = false; });
    addWith("f.jpg", [](Camera& camera) { camera.device = "Maker|Model|51/1"; });
    EXPECT_THAT(found("SELECT count(DISTINCT camera_id) FROM images"), ElementsAre("6"));
}

TEST_F(ProjectTest, PhotographsOfUnknownDevicesHaveTheirOwn) {
    Project project(path(), Access::write);
    add(project, "a.jpg", kUnknown);
    add(project, "b.jpg", kUnknown);
    EXPECT_THAT(found("SELECT count(DISTINCT camera_id) FROM images"), ElementsAre("2"));
}

TEST_F(ProjectTest, CamerasThatNoPhotographHasAreRemoved) {
    Project project(path(), Access::write);
    add(project, "a.jpg", kKnown);
    add(project, "b.jpg", kKnown);
    add(project, "a.jpg", kUnknown);
    EXPECT_THAT(found("SELECT count(*) FROM cameras"), ElementsAre("2"));
    add(project, "b.jpg", kUnknown);
    EXPECT_THAT(found("SELECT device FROM marlo_cameras"), ElementsAre("", ""));
    EXPECT_THAT(found("SELECT count(*) FROM cameras"), ElementsAre("2"));
}

// Features.

TEST_F(ProjectTest, FloatRowsComeBackBitForBit) {
    Project project(path(), Access::write);
    const Features features = [] {
        Features made =
            siftFeatures({Keypoint(0.1F, -0.0F, 7.0F, 3.0F, 0.1F, 255, 128), Keypoint(5, 6)});
        auto* const elements = reinterpret_cast<float*>(made.rows.data);
        elements[0] = kNan;
        elements[1] = -0.0F;
        elements[2] = std::numeric_limits<float>::denorm_min();
        elements[255] = std::numeric_limits<float>::infinity();
        return made;
    }();
    project.putFeatures(project.addPhotographs({"a.jpg"}).front(), kUnknown, features,
                        byteRows(2, 128));
    const Features again = project.features(1);
    EXPECT_EQ(again.rows.rows, 2);
    EXPECT_EQ(again.rows.cols, 128);
    EXPECT_EQ(again.rows.type(), DescMat::Float);
    EXPECT_EQ(bytesOf(again.rows), bytesOf(features.rows));
    EXPECT_EQ(bytesOf(again.keypoints), bytesOf(features.keypoints));
}

TEST_F(ProjectTest, RowsOf16BytesComeBackBitForBit) {
    Project project(path(), Access::write);
    Features features;
    features.keypoints = {Keypoint(1, 2), Keypoint(3, 4), Keypoint(5, 6)};
    features.rows = byteRows(3, 16);
    project.putFeatures(project.addPhotographs({"a.jpg"}).front(), kUnknown, features, DescMat());
    const Features again = project.features(1);
    EXPECT_EQ(again.rows.rows, 3);
    EXPECT_EQ(again.rows.cols, 16);
    EXPECT_EQ(again.rows.type(), DescMat::Byte);
    EXPECT_EQ(bytesOf(again.rows), bytesOf(features.rows));
    EXPECT_EQ(bytesOf(again.keypoints), bytesOf(features.keypoints));
}

TEST_F(ProjectTest, RowsMayLieFurtherApartThanTheyAreLong) {
    Project project(path(), Access::write);
    std::vector<unsigned char> memory(48, 0xEE);
    for (std::size_t i = 0; i < 16; ++i) {
        memory[i] = static_cast<unsigned char>(i);
        memory[24 + i] = static_cast<unsigned char>(100 + i);
    }
    Features features;
    features.keypoints = {Keypoint(1, 2), Keypoint(3, 4)};
    features.rows = DescMat(0, 16, DescMat::Byte);
    features.rows.rows = 2;
    features.rows.data = memory.data();
    features.rows.step = 24;
    project.putFeatures(project.addPhotographs({"a.jpg"}).front(), kUnknown, features, DescMat());
    EXPECT_EQ(bytesOf(project.features(1).rows),
              std::string(memory.begin(), memory.begin() + 16) +
                  std::string(memory.begin() + 24, memory.begin() + 40));
}

TEST_F(ProjectTest, NoKeypointsComeBackAsNone) {
    Project project(path(), Access::write);
    project.putFeatures(project.addPhotographs({"a.jpg"}).front(), kUnknown, siftFeatures({}),
                        DescMat());
    const Features again = project.features(1);
    EXPECT_THAT(again.keypoints, IsEmpty());
    EXPECT_EQ(again.rows.rows, 0);
    EXPECT_EQ(again.rows.cols, 128);
    EXPECT_EQ(again.rows.type(), DescMat::Float);
    EXPECT_THAT(found("SELECT rows, cols, length(data) FROM keypoints"), ElementsAre("0|4|0"));
    EXPECT_THAT(found("SELECT rows, cols, length(data) FROM descriptors"), ElementsAre("0|128|0"));
}

TEST_F(ProjectTest, NewFeaturesReplaceTheOldOnes) {
    Project project(path(), Access::write);
    const Photograph photograph = add(project, "a.jpg");
    const Features features = siftFeatures({Keypoint(9, 8)});
    project.putFeatures(photograph, kKnown, features, byteRows(1, 128));
    EXPECT_EQ(bytesOf(project.features(1).keypoints), bytesOf(features.keypoints));
    EXPECT_EQ(project.photograph("a.jpg")->keypoints, 1);
    EXPECT_THAT(found("SELECT image_id, rows FROM keypoints"), ElementsAre("1|1"));
    EXPECT_THAT(found("SELECT image_id, rows FROM descriptors"), ElementsAre("1|1"));
}

TEST_F(ProjectTest, NewFeaturesForgetThePairsOfTheirPhotographOnly) {
    Project project(path(), Access::write);
    addThree(project);
    add(project, "b.jpg");
    EXPECT_THAT(pairsIn(project), ElementsAre(std::pair{1, 3}));
    EXPECT_TRUE(project.geometry(1, 3));
    EXPECT_FALSE(project.geometry(1, 2));
    EXPECT_FALSE(project.geometry(2, 3));
    for (const char* const table : {"matches", "two_view_geometries", "marlo_pairs"}) {
        EXPECT_THAT(found("SELECT pair_id FROM " + std::string(table)), ElementsAre("2147483650"));
    }
}

TEST_F(ProjectTest, PairsThatColmapHasMatchedAreForgottenToo) {
    Project project(path(), Access::write);
    for (const char* const name : {"a.jpg", "b.jpg", "c.jpg"}) add(project, name);
    change("INSERT INTO matches VALUES(2147483649, 0, 2, x''), (2147483650, 0, 2, x'')");
    add(project, "b.jpg");
    EXPECT_THAT(found("SELECT pair_id FROM matches"), ElementsAre("2147483650"));
}

TEST_F(ProjectTest, DamagedRowsAreReportedWithWhatToDo) {
    Project project(path(), Access::write);
    add(project, "a.jpg");
    change("UPDATE marlo_features SET data = x'0102'");
    EXPECT_EQ(refusal<ProjectError>([&] { static_cast<void>(project.features(1)); }),
              file() + ": the features of photograph 1 are damaged. Extract it again (--force).");
}

class DamagedFeaturesTest : public ProjectTest, public testing::WithParamInterface<const char*> {};

TEST_P(DamagedFeaturesTest, AreReported) {
    Project project(path(), Access::write);
    add(project, "a.jpg");
    change("UPDATE marlo_features SET " + std::string(GetParam()));
    EXPECT_EQ(refusal<ProjectError>([&] { static_cast<void>(project.features(1)); }),
              file() + ": the features of photograph 1 are damaged. Extract it again (--force).");
}

INSTANTIATE_TEST_SUITE_P(Columns, DamagedFeaturesTest,
                         testing::Values("data = x''", "keypoints = x'00'", "keypoints = x''",
                                         "rows = 1", "rows = 3", "rows = 0", "rows = -1",
                                         "rows = 2147483647", "cols = 64", "cols = -1",
                                         "cols = 2147483647", "type = 0", "type = 77"));

// Pairs.

TEST_F(ProjectTest, MatchesComeBackWithTheirScores) {
    Project project(path(), Access::write);
    for (const char* const name : {"a.jpg", "b.jpg"}) add(project, name);
    project.putMatches(1, 2, {matchList({{0, 1}, {4'000'000'000U, 7}}), {0.1F, kNan}}, "stamp");
    const PairMatches again = project.matches(1, 2);
    EXPECT_THAT(pairsOf(again.matches),
                ElementsAre(std::array{0U, 1U}, std::array{4'000'000'000U, 7U}));
    ASSERT_EQ(again.scores.size(), 2U);
    EXPECT_EQ(again.scores[0], 0.1F);
    EXPECT_NE(again.scores[1], again.scores[1]);
}

TEST_F(ProjectTest, MatchedPairsAreListedByFirstAndSecondId) {
    Project project(path(), Access::write);
    for (const char* const name : {"a.jpg", "b.jpg", "c.jpg"}) add(project, name);
    project.putMatches(2, 3, {matchList({}), {}}, "third");
    project.putMatches(1, 3, {matchList({{0, 1}, {1, 0}}), {0.5F, 0.25F}}, "second");
    project.putMatches(1, 2, {matchList({{1, 1}}), {0.5F}}, "first");
    EXPECT_THAT(pairsIn(project), ElementsAre(std::pair{1, 2}, std::pair{1, 3}, std::pair{2, 3}));
    const std::vector<Pair> pairs = project.pairs();
    EXPECT_EQ(pairs[0].matches, 1);
    EXPECT_EQ(pairs[1].matches, 2);
    EXPECT_EQ(pairs[2].matches, 0);
    EXPECT_EQ(pairs[1].matchStamp, "second");
    EXPECT_EQ(pairs[1].verifyStamp, "");
    EXPECT_EQ(pairs[1].inliers, std::nullopt);
}

TEST_F(ProjectTest, PairsThatAreNotMatchedHaveNoMatchesAndNoGeometry) {
    Project project(path(), Access::write);
    for (const char* const name : {"a.jpg", "b.jpg"}) add(project, name);
    EXPECT_EQ(project.matches(1, 2).matches.rows(), 0);
    EXPECT_THAT(project.matches(1, 2).scores, IsEmpty());
    EXPECT_FALSE(project.geometry(1, 2));
    EXPECT_THAT(project.pairs(), IsEmpty());
}

TEST_F(ProjectTest, VerifiedPairsSayHowManyMatchesAgree) {
    Project project(path(), Access::write);
    addThree(project);
    VerifiedPair nothing;
    nothing.inliers = matchList({});
    project.putGeometry(1, 2, nothing, "anew");
    const std::vector<Pair> pairs = project.pairs();
    EXPECT_EQ(pairs[0].inliers, 0);
    EXPECT_EQ(pairs[0].verifyStamp, "anew");
    EXPECT_EQ(pairs[1].inliers, 1);
    EXPECT_EQ(pairs[1].verifyStamp, "v");
}

TEST_F(ProjectTest, NewMatchesForgetTheGeometry) {
    Project project(path(), Access::write);
    addThree(project);
    project.putMatches(1, 2, {matchList({{1, 1}}), {0.5F}}, "anew");
    EXPECT_FALSE(project.geometry(1, 2));
    EXPECT_TRUE(project.geometry(1, 3));
    const Pair pair = project.pairs().front();
    EXPECT_EQ(pair.matches, 1);
    EXPECT_EQ(pair.inliers, std::nullopt);
    EXPECT_EQ(pair.matchStamp, "anew");
    EXPECT_EQ(pair.verifyStamp, "");
}

// A geometry that has nothing special: x2^T F x1 = 0 and x2 ~ H x1 for these points, by hand.
class GeometryTest : public ProjectTest {
protected:
    GeometryTest() {
        for (const char* const name : {"a.jpg", "b.jpg"}) add(project, name);
        project.putMatches(1, 2, {matchList({{0, 1}, {1, 0}}), {1.0F, 1.0F}}, "");
        geometry.config = 3;
        geometry.inliers = matchList({{1, 0}});
        geometry.fundamental << 0, 1, -1, 2, 0, 0, 0, -5, 5;
        geometry.homography << 2, 0, 1, 0, 3, -1, 0, 2, 1;
    }

    [[nodiscard]] Eigen::Matrix3d matrix(const char* name) const {
        const std::vector<double> numbers =
            blob<double>("SELECT " + std::string(name) + " FROM two_view_geometries");
        if (numbers.size() != 9) return Eigen::Matrix3d::Zero();
        return Eigen::Map<const Eigen::Matrix<double, 3, 3, Eigen::RowMajor>>(numbers.data());
    }

    Project project{path(), Access::write};
    VerifiedPair geometry;
    // In pixels whose centres are at integers. H maps the first to (5, 8, 7).
    const Eigen::Vector3d first{2, 3, 1};
    const Eigen::Vector3d second{1, 2, 1};
    // The same points for COLMAP, whose origin is the corner of the image.
    const Eigen::Vector3d firstFromCorner{2.5, 3.5, 1};
    const Eigen::Vector3d secondFromCorner{1.5, 2.5, 1};
};

TEST_F(GeometryTest, ComesBack) {
    project.putGeometry(1, 2, geometry, "");
    const VerifiedPair again = *project.geometry(1, 2);
    EXPECT_EQ(again.config, 3);
    EXPECT_THAT(pairsOf(again.inliers), ElementsAre(std::array{1U, 0U}));
    EXPECT_EQ(again.fundamental, geometry.fundamental);
    EXPECT_EQ(again.homography, geometry.homography);
    EXPECT_EQ(second.dot(again.fundamental * first), 0.0);
}

TEST_F(GeometryTest, FundamentalMatrixOfColmapIsForItsPixels) {
    project.putGeometry(1, 2, geometry, "");
    Eigen::Matrix3d expected;
    expected << 0, 1, -1.5, 2, 0, -1, -1, -5.5, 8.75;
    EXPECT_EQ(matrix("F"), expected);
    EXPECT_EQ(secondFromCorner.dot(matrix("F") * firstFromCorner), 0.0);
    EXPECT_NE(second.dot(matrix("F") * first), 0.0);
}

TEST_F(GeometryTest, HomographyOfColmapIsForItsPixels) {
    project.putGeometry(1, 2, geometry, "");
    Eigen::Matrix3d expected;
    expected << 2, 1, 0, 0, 4, -2.5, 0, 2, 0;
    EXPECT_EQ(matrix("H"), expected);
    // (5, 8) / 7 and one half.
    EXPECT_EQ(matrix("H") * firstFromCorner, Eigen::Vector3d(8.5, 11.5, 7));
}

TEST_F(GeometryTest, EssentialMatrixIsOfRaysAndComesBackAsItIs) {
    geometry = VerifiedPair{};
    geometry.config = 2;
    geometry.inliers = matchList({{1, 0}});
    geometry.essential << 0, -0.25, 2, 0.125, 0, -1, -3, 4, 0;
    project.putGeometry(1, 2, geometry, "");
    EXPECT_EQ(matrix("E"), geometry.essential);
    EXPECT_THAT(found("SELECT config, F, H FROM two_view_geometries"), ElementsAre("2|NULL|NULL"));
    const VerifiedPair again = *project.geometry(1, 2);
    EXPECT_EQ(again.config, 2);
    EXPECT_EQ(again.essential, geometry.essential);
    EXPECT_TRUE(again.fundamental.isZero(0.0));
    EXPECT_TRUE(again.homography.isZero(0.0));
}

TEST_F(GeometryTest, ColmapHasTheInliersAndTheConfiguration) {
    project.putGeometry(1, 2, geometry, "");
    EXPECT_THAT(found("SELECT pair_id, rows, cols, config, E, qvec, tvec "
                      "FROM two_view_geometries"),
                ElementsAre("2147483649|1|2|3|NULL|NULL|NULL"));
    EXPECT_THAT(blob<std::uint32_t>("SELECT data FROM two_view_geometries"), ElementsAre(1U, 0U));
}

TEST_F(GeometryTest, MatricesThatThereAreNotAreNullAndComeBackAsZero) {
    geometry = VerifiedPair{};
    geometry.inliers = matchList({});
    project.putGeometry(1, 2, geometry, "");
    EXPECT_THAT(found("SELECT rows, config, F, H, E, length(data) FROM two_view_geometries"),
                ElementsAre("0|1|NULL|NULL|NULL|0"));
    const VerifiedPair again = *project.geometry(1, 2);
    EXPECT_EQ(again.config, 1);
    EXPECT_EQ(again.inliers.rows(), 0);
    EXPECT_TRUE(again.fundamental.isZero(0.0));
    EXPECT_TRUE(again.homography.isZero(0.0));
    EXPECT_TRUE(again.essential.isZero(0.0));
}

// Others at work.

TEST_F(ProjectTest, SecondWriterIsToldWhoWorksOnTheProject) {
    const Project project(path(), Access::write);
    char host[256] = {};
    ASSERT_EQ(gethostname(host, sizeof host - 1), 0);
    for (const Access access : {Access::update, Access::write}) {
        EXPECT_EQ(refusal<ProjectError>([&] { const Project second(path(), access); }),
                  "Another marlo (process " + std::to_string(getpid()) + " on " + host +
                      ") works on the project " + path().string() +
                      ". Wait until it has finished, or use another folder (-o). If none is "
                      "running there, delete marlo.lock.");
    }
}

TEST_F(ProjectTest, NextWriterMayFollow) {
    { const Project project(path(), Access::write); }
    EXPECT_FALSE(std::filesystem::exists(path() / "marlo.lock"));
    EXPECT_NO_THROW(Project(path(), Access::update));
}

TEST_F(ProjectTest, LockOfAProcessThatIsGoneIsTaken) {
    { const Project project(path(), Access::write); }
    // No process has this number: it is beyond the largest that Linux gives.
    std::ofstream(path() / "marlo.lock") << "4194305\nmarlo\n";
    EXPECT_NO_THROW(Project(path(), Access::update));
}

TEST_F(ProjectTest, ReadersSeeWhatAWriterHasWrittenSoFar) {
    Project project(path(), Access::write);
    add(project, "a.jpg");
    const Project reader(path(), Access::read);
    EXPECT_EQ(reader.photographs().size(), 1U);
    add(project, "b.jpg");
    EXPECT_EQ(reader.photographs().size(), 2U);
    EXPECT_EQ(reader.features(2).keypoints.size(), 2U);
}

TEST_F(ProjectTest, DatabaseOfAnotherProgramIsLeftAlone) {
    std::filesystem::create_directories(path());
    change("CREATE TABLE images(image_id INTEGER)");
    const std::string before = contentOf(file());
    for (const Access access : {Access::read, Access::update, Access::write}) {
        EXPECT_EQ(
            refusal<ProjectError>([&] { const Project project(path(), access); }),
            file() + " was made by another program. Use another folder, or move the file away.");
    }
    EXPECT_EQ(contentOf(file()), before);
    EXPECT_FALSE(std::filesystem::exists(path() / "marlo.lock"));
}

TEST_F(ProjectTest, AnotherFormatIsRefused) {
    { const Project project(path(), Access::write); }
    change("UPDATE marlo_settings SET value = '2' WHERE key = 'format'");
    for (const Access access : {Access::read, Access::update, Access::write}) {
        EXPECT_EQ(refusal<ProjectError>([&] { const Project project(path(), access); }),
                  file() +
                      " has the format 2, and this marlo works with 1 only. Use the version "
                      "that made it, or another folder.");
    }
    change("DELETE FROM marlo_settings");
    EXPECT_THAT(refusal<ProjectError>([&] { const Project project(path(), Access::write); }),
                HasSubstr(" has the format none, "));
}

TEST_F(ProjectTest, FileThatIsNoDatabaseIsRefused) {
    std::filesystem::create_directories(path());
    std::ofstream(file()) << std::string(1000, 'x');
    for (const Access access : {Access::read, Access::update, Access::write}) {
        const std::string error =
            refusal<ProjectError>([&] { const Project project(path(), access); });
        EXPECT_THAT(error, StartsWith(file() + ": "));
        EXPECT_THAT(error, HasSubstr("Move the file away to begin anew."));
    }
    EXPECT_EQ(contentOf(file()), std::string(1000, 'x'));
}

TEST_F(ProjectTest, EmptyFileBecomesAProject) {
    std::filesystem::create_directories(path());
    std::ofstream(file()).close();
    Project project(path(), Access::write);
    project.putSetting("features", "sift");
    EXPECT_EQ(project.setting("features"), "sift");
}

TEST_F(ProjectTest, FullDiskIsOutOfSpaceAndKeepsWhatWasThere) {
    Project project(path(), Access::write);
    add(project, "a.jpg");
    const Photograph second = project.addPhotographs({"b.jpg"}).front();
    const Features many = siftFeatures(std::vector<Keypoint>(5000));
    {
        const FileSizeLimit limit(500'000);
        EXPECT_THAT(refusal<OutOfSpace>(
                        [&] { project.putFeatures(second, kUnknown, many, byteRows(5000, 128)); }),
                    StartsWith(file() + ": "));
    }
    EXPECT_EQ(project.features(1).keypoints.size(), 2U);
    EXPECT_EQ(project.photograph("b.jpg")->status, PhotographStatus::waiting);
    // There is space again.
    project.putFeatures(second, kUnknown, many, byteRows(5000, 128));
    EXPECT_EQ(project.features(2).keypoints.size(), 5000U);
}

}  // namespace
}  // namespace marlo::app
