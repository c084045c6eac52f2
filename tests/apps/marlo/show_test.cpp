// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/show.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "apps/marlo/made_images.h"
#include "apps/marlo/material.h"
#include "apps/marlo/scratch.h"
#include "marlo/pictures.h"

namespace marlo::app {
namespace {

namespace fs = std::filesystem;

using test::contentOf;
using test::encoded;
using test::matchList;
using test::refusal;
using test::ScratchFolder;
using test::writeBytes;
using testing::ElementsAre;
using testing::HasSubstr;

class ShowTest : public testing::Test {
protected:
    ShowTest() { project.putSetting("photographs", (folder / "photographs").string()); }

    static cv::Mat imageOf(int width, int height) {
        cv::Mat image(height, width, CV_8UC3, cv::Scalar(30, 90, 150));
        image.rowRange(0, height / 2) = cv::Scalar(160, 110, 60);
        return image;
    }

    // A file, and its features in the project.
    void add(const std::string& name, int width, int height, double focalLength) {
        writeBytes(folder / ("photographs/" + name), encoded(".png", imageOf(width, height)));
        Photograph photograph = project.addPhotographs({name}).front();
        photograph.stamp = "{}";
        Features features;
        features.keypoints = {keypoint};
        allocateDescriptors(features.rows, 1, true);
        project.putFeatures(photograph, Camera{width, height, focalLength, false, ""}, features,
                            DescMat());
    }
    void addPanorama(const std::string& name, int width, int height) {
        add(name, width, height, 0);
    }
    void addOrdinary(const std::string& name) { add(name, 120, 90, 144.0); }

    ScratchFolder folder;
    Project project{folder / "project", Project::Access::write};
    const Keypoint keypoint{60, 30, 5, 0, 1, 0, 1};
    std::ostringstream said;
};

TEST_F(ShowTest, PanoramaIsDrawnWithItsWorkingImage) {
    addPanorama("a.png", 200, 100);
    showPanorama(project, "a.png", folder / "a.png");
    const cv::Mat picture = cv::imread((folder / "a.png").string());
    ASSERT_FALSE(picture.empty());
    const cv::Mat expected = drawPanorama(imageOf(200, 100), {keypoint});
    ASSERT_EQ(picture.size(), expected.size());
    EXPECT_EQ(cv::norm(picture, expected, cv::NORM_INF), 0.0);
}

TEST_F(ShowTest, LargePanoramasAreMadeSmaller) {
    addPanorama("a.png", 2602, 1301);
    showPanorama(project, "a.png", folder / "a.png");
    const cv::Mat picture = cv::imread((folder / "a.png").string());
    EXPECT_GT(picture.rows, 2380);
    EXPECT_LE(picture.rows, 2400);
}

TEST_F(ShowTest, OrdinaryPhotographIsNoPanorama) {
    addOrdinary("a.png");
    EXPECT_EQ(
        refusal<std::runtime_error>([&] { showPanorama(project, "a.png", folder / "a.jpg"); }),
        "a.png was extracted as an ordinary photograph; a full panorama is extracted with "
        "`marlo extract --panorama`.");
    EXPECT_FALSE(fs::exists(folder / "a.jpg"));
}

TEST_F(ShowTest, PanoramaThatIsNotThereIsReported) {
    EXPECT_EQ(
        refusal<std::runtime_error>([&] { showPanorama(project, "b.png", folder / "a.jpg"); }),
        "The project has no photograph named 'b.png'. Names are paths below " +
            (folder / "photographs").string() + ".");
    project.putFailure(project.addPhotographs({"b.png"}).front(), "is empty (0 bytes)");
    EXPECT_EQ(
        refusal<std::runtime_error>([&] { showPanorama(project, "b.png", folder / "a.jpg"); }),
        "b.png has no features: is empty (0 bytes).");
}

TEST_F(ShowTest, PanoramaWhoseFileIsGoneIsReported) {
    addPanorama("a.png", 200, 100);
    fs::remove(folder / "photographs/a.png");
    EXPECT_THAT(
        refusal<std::runtime_error>([&] { showPanorama(project, "a.png", folder / "a.jpg"); }),
        HasSubstr((folder / "photographs/a.png").string() + " "));
}

TEST_F(ShowTest, ProjectsPicturesAreThoseOfPairsThenOfPhotographsThenOfPanoramas) {
    addOrdinary("a.png");
    addPanorama("b/c.png", 200, 100);
    project.putMatches(1, 2, {matchList({{0, 0}}), {1.0F}}, "");
    Progress progress(said, Progress::Form::lines);
    const fs::path pictures = folder / "pictures";
    EXPECT_THAT(
        showProject(project, pictures, 10, progress),
        ElementsAre(pictures / "matches a.png - b%2Fc.png.jpg", pictures / "keypoints a.png.jpg",
                    pictures / "coverage a.png.jpg", pictures / "keypoints b%2Fc.png.jpg",
                    pictures / "coverage b%2Fc.png.jpg", pictures / "panorama b%2Fc.png.jpg"));
    EXPECT_THAT(said.str(), HasSubstr("pictures: 6 of 6 pictures"));
    EXPECT_EQ(cv::imread((pictures / "panorama b%2Fc.png.jpg").string()).size(),
              cv::Size(206, 238));
}

TEST_F(ShowTest, OfEachKindNoMorePicturesAreDrawnThanAskedFor) {
    addOrdinary("a.png");
    for (const char* const name : {"b.png", "c.png", "d.png"}) addPanorama(name, 200, 100);
    Progress progress(said, Progress::Form::lines);
    const fs::path pictures = folder / "pictures";
    EXPECT_THAT(showProject(project, pictures, 2, progress),
                ElementsAre(pictures / "keypoints a.png.jpg", pictures / "coverage a.png.jpg",
                            pictures / "keypoints b.png.jpg", pictures / "coverage b.png.jpg",
                            pictures / "panorama b.png.jpg", pictures / "panorama c.png.jpg"));
}

TEST_F(ShowTest, PanoramaThatCannotBeDrawnIsAWarning) {
    addPanorama("a.png", 200, 100);
    fs::remove(folder / "photographs/a.png");
    Progress progress(said, Progress::Form::lines);
    EXPECT_TRUE(showProject(project, folder / "pictures", 2, progress).empty());
    EXPECT_THAT(said.str(), HasSubstr("warning: no picture of panorama a.png: "));
}

}  // namespace
}  // namespace marlo::app
