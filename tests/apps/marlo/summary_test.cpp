// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/summary.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "apps/marlo/material.h"
#include "apps/marlo/scratch.h"
#include "libfeatures/version.h"

namespace marlo::app {
namespace {

using nlohmann::json;
using test::contentOf;
using test::matchList;
using test::ScratchFolder;

class SummaryTest : public testing::Test {
protected:
    SummaryTest() {
        project.putSetting("photographs", "/home/a/photographs");
        project.putSetting("features", "sift");
    }

    // With two keypoints, in a quarter of a second.
    void addDone(const std::string& name) {
        Photograph photograph = project.addPhotographs({name}).front();
        photograph.seconds = 0.25;
        Features features;
        features.keypoints.resize(2);
        allocateDescriptors(features.rows, 2, true);
        project.putFeatures(photograph, Camera{640, 480, 700.0, false, ""}, features, DescMat());
    }

    void addFailed(const std::string& name, const std::string& reason) {
        Photograph photograph = project.addPhotographs({name}).front();
        photograph.seconds = 0.5;
        project.putFailure(photograph, reason);
    }

    // Verified if `inliers` is not negative.
    void addPair(std::int64_t first, std::int64_t second, int matches, int inliers) {
        const std::vector<std::array<std::uint32_t, 2>> all{{0, 1}, {1, 0}};
        const auto some = [&](int count) { return matchList({all.begin(), all.begin() + count}); };
        project.putMatches(
            first, second,
            {some(matches), std::vector<float>(static_cast<std::size_t>(matches), 1.0F)}, "m");
        if (inliers < 0) return;
        VerifiedPair geometry;
        geometry.inliers = some(inliers);
        project.putGeometry(first, second, geometry, "v");
    }

    // A project with one of each.
    void addAll() {
        addDone("b.jpg");
        addFailed("a.jpg", "is empty (0 bytes)");
        addDone("c/d e.jpg");
        addDone("f.jpg");
        project.addPhotographs({"g.jpg"});
        addPair(1, 3, 1, -1);
        addPair(1, 4, 2, 1);
        addPair(3, 4, 2, 2);
    }

    ScratchFolder folder;
    Project project{folder / "project", Project::Access::write};
};

TEST_F(SummaryTest, HoldsPhotographsByIdAndPairsMostVerifiedFirst) {
    addAll();
    json expected = json::parse(R"json({
        "photographs_folder": "/home/a/photographs",
        "features": "sift",
        "photographs": [
            {"name": "b.jpg", "keypoints": 2, "width": 640, "height": 480, "seconds": 0.25},
            {"name": "a.jpg", "failed": "is empty (0 bytes)", "seconds": 0.5},
            {"name": "c/d e.jpg", "keypoints": 2, "width": 640, "height": 480, "seconds": 0.25},
            {"name": "f.jpg", "keypoints": 2, "width": 640, "height": 480, "seconds": 0.25},
            {"name": "g.jpg", "waiting": true, "seconds": 0.0}],
        "pairs": [
            {"first": "c/d e.jpg", "second": "f.jpg", "matches": 2, "verified": 2},
            {"first": "b.jpg", "second": "f.jpg", "matches": 2, "verified": 1},
            {"first": "b.jpg", "second": "c/d e.jpg", "matches": 1}]})json");
    expected["library"] = libraryVersion();
    EXPECT_EQ(summary(project), expected);
}

TEST_F(SummaryTest, PairsWithEquallyManyVerifiedStayInTheOrderOfTheirIds) {
    for (const char* const name : {"z.jpg", "y.jpg", "x.jpg"}) addDone(name);
    addPair(1, 2, 1, 1);
    addPair(1, 3, 1, 1);
    addPair(2, 3, 1, 1);
    const json pairs = summary(project)["pairs"];
    EXPECT_EQ(pairs[0]["second"], "y.jpg");
    EXPECT_EQ(pairs[1]["second"], "x.jpg");
    EXPECT_EQ(pairs[2]["first"], "y.jpg");
}

TEST_F(SummaryTest, NamesTheTablesOfLdahCodes) {
    project.putSetting("ldah_tables", "tables of a Tuesday");
    EXPECT_FALSE(summary(project).contains("ldah_tables"));
    project.putSetting("features", "ldah");
    EXPECT_EQ(summary(project)["ldah_tables"], "tables of a Tuesday");
}

TEST_F(SummaryTest, OfAnEmptyProjectHasEmptyLists) {
    const json all = summary(project);
    EXPECT_EQ(all["photographs"], json::array());
    EXPECT_EQ(all["pairs"], json::array());
}

TEST_F(SummaryTest, TextIsATableOfPhotographsAndOneOfPairs) {
    addAll();
    EXPECT_EQ(summaryText(summary(project)),
              "# 5 photographs, 3 pairs\n\n"
              "Photographs in /home/a/photographs, sift features, libfeatures " +
                  std::string(libraryVersion()) +
                  ".\n\n"
                  "| photograph | keypoints | seconds |\n|---|---|---|\n"
                  "| b.jpg | 2 | 0.25 |\n"
                  "| a.jpg | failed: is empty (0 bytes) | 0.50 |\n"
                  "| c/d e.jpg | 2 | 0.25 |\n"
                  "| f.jpg | 2 | 0.25 |\n"
                  "| g.jpg | not extracted yet | 0.00 |\n"
                  "\n"
                  "| pair | matches | verified |\n|---|---|---|\n"
                  "| c/d e.jpg, f.jpg | 2 | 2 |\n"
                  "| b.jpg, f.jpg | 2 | 1 |\n"
                  "| b.jpg, c/d e.jpg | 1 |  |\n");
}

TEST_F(SummaryTest, BothAreWrittenIntoTheProject) {
    addAll();
    writeSummary(project);
    const json all = summary(project);
    EXPECT_EQ(json::parse(contentOf(folder / "project/summary.json")), all);
    EXPECT_EQ(contentOf(folder / "project/summary.md"), summaryText(all));
}

TEST_F(SummaryTest, NamesNeedNotBeUtf8) {
    addDone("\xE9t\xE9.jpg");  // Latin-1
    writeSummary(project);
    EXPECT_EQ(json::parse(contentOf(folder / "project/summary.json"))["photographs"][0]["name"],
              "\xEF\xBF\xBDt\xEF\xBF\xBD.jpg");
    EXPECT_NE(contentOf(folder / "project/summary.md").find("| \xE9t\xE9.jpg | 2 |"),
              std::string::npos);
}

}  // namespace
}  // namespace marlo::app
