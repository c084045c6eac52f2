// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/export.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zip.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <nlohmann/json.hpp>
#include <numbers>
#include <opencv2/core.hpp>
#include <opencv2/core/persistence.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "apps/marlo/scratch.h"
#include "marlo/npz_file.h"

namespace marlo::app {
namespace {

using test::contentOf;
using test::ScratchFolder;
using testing::HasSubstr;

constexpr float kPi = std::numbers::pi_v<float>;

const Keypoint kFirst(1.0F, 2.25F, 1.5F, 0.5F, 0.125F, 0, 1);
const Keypoint kSecond(10.0F, 0.0F, 4.0F, -kPi / 2, 0.0625F, 2, 3);

// 16 elements of a quarter: root bytes of 128. Other rows are of NaN.
Features siftFeatures(const std::vector<Keypoint>& keypoints, std::size_t rowsOfNumbers = 1) {
    Features features;
    features.keypoints = keypoints;
    allocateDescriptors(features.rows, static_cast<int>(keypoints.size()), true);
    for (std::size_t row = 0; row < keypoints.size(); ++row) {
        auto* const elements =
            reinterpret_cast<float*>(features.rows.data + row * features.rows.step);
        if (row < rowsOfNumbers) {
            std::fill_n(elements, 16, 0.25F);
        } else {
            std::fill_n(elements, 128, std::numeric_limits<float>::quiet_NaN());
        }
    }
    return features;
}

Features ldahFeatures(const std::vector<Keypoint>& keypoints) {
    Features features;
    features.keypoints = keypoints;
    allocateDescriptors(features.rows, static_cast<int>(keypoints.size()), false);
    for (int i = 0; i < 16 * features.rows.rows; ++i) {
        features.rows.data[i] = static_cast<unsigned char>(i);
    }
    return features;
}

MatchList matchList(const std::vector<std::array<std::uint32_t, 2>>& rows) {
    MatchList matches(static_cast<Eigen::Index>(rows.size()), 2);
    for (std::size_t i = 0; i < rows.size(); ++i) {
        matches.row(static_cast<Eigen::Index>(i)) << rows[i][0], rows[i][1];
    }
    return matches;
}

VerifiedPair verified(const MatchList& inliers) {
    VerifiedPair geometry;
    geometry.config = 3;
    geometry.inliers = inliers;
    return geometry;
}

std::string sixteenTimes128AndZeros() {
    std::string text;
    for (int i = 0; i < 128; ++i) text += i < 16 ? " 128" : " 0";
    return text;
}

class ExportTest : public testing::Test {
protected:
    Photograph add(const std::string& name, const Features& features) {
        const Photograph photograph = project.addPhotographs({name}).front();
        project.putFeatures(photograph, Camera{640, 480, 700.0, false, ""}, features, DescMat());
        return photograph;
    }

    // a.jpg (1) and b.jpg (2) with two matches, the second of them verified.
    void addPair() {
        add("a.jpg", siftFeatures({kFirst, kSecond}));
        add("b.jpg", siftFeatures({kFirst, kSecond}));
        project.putMatches(1, 2, {matchList({{0, 1}, {1, 0}}), {0.75F, 0.5F}}, "");
        project.putGeometry(1, 2, verified(matchList({{1, 0}})), "");
    }

    void exportAs(const char* format) {
        exportProject(project, parseExportFormat(format), folder / "out");
    }

    // What exporting throws, as text.
    template <typename Exception>
    std::string refusal(const char* format) {
        try {
            exportAs(format);
        } catch (const Exception& error) {
            return error.what();
        }
        return "nothing was thrown";
    }

    [[nodiscard]] std::filesystem::path out(const std::string& name) const {
        return folder / ("out/" + name);
    }

    ScratchFolder folder;
    Project project{folder / "project", Project::Access::write};
};

TEST(ExportFormatTest, WordsAreFormats) {
    EXPECT_EQ(parseExportFormat("colmap"), ExportFormat::colmap);
    EXPECT_EQ(parseExportFormat("openmvg"), ExportFormat::openmvg);
    EXPECT_EQ(parseExportFormat("opencv-yaml"), ExportFormat::opencvYaml);
    EXPECT_EQ(parseExportFormat("npz"), ExportFormat::npz);
}

TEST(ExportFormatTest, OtherWordsAreAnsweredWithTheChoices) {
    try {
        static_cast<void>(parseExportFormat("Colmap"));
        FAIL() << "nothing was thrown";
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(
            error.what(),
            "There is no export format \"Colmap\". Choose one of colmap, openmvg, opencv-yaml, "
            "npz.");
    }
}

TEST_F(ExportTest, ColmapFeaturesHavePixelCentresAtOneHalfAndClockwiseOrientations) {
    add("a.jpg", siftFeatures({kFirst}));
    exportAs("colmap");
    EXPECT_EQ(contentOf(out("features/a.jpg.txt")),
              "1 128\n1.5 2.75 1.5 -0.5" + sixteenTimes128AndZeros() + "\n");
}

TEST_F(ExportTest, ColmapFeaturesOfDirectionZeroHaveNoMinusZero) {
    add("a.jpg", siftFeatures({Keypoint(0, 0, 1, 0, 1, 0, 1)}));
    exportAs("colmap");
    EXPECT_EQ(contentOf(out("features/a.jpg.txt")),
              "1 128\n0.5 0.5 1 0" + sixteenTimes128AndZeros() + "\n");
}

TEST_F(ExportTest, ColmapRowsOfNanBecomeZeros) {
    add("a.jpg", siftFeatures({kFirst}, 0));
    exportAs("colmap");
    std::string zeros;
    for (int i = 0; i < 128; ++i) zeros += " 0";
    EXPECT_EQ(contentOf(out("features/a.jpg.txt")), "1 128\n1.5 2.75 1.5 -0.5" + zeros + "\n");
}

TEST_F(ExportTest, ColmapNumbersGiveTheSameFloatsAgain) {
    const Keypoint keypoint(1234.56789F, 0.1F, 1.7F, 0.333333343F, 1, 0, 1);
    add("a.jpg", siftFeatures({keypoint}));
    exportAs("colmap");
    std::istringstream text(contentOf(out("features/a.jpg.txt")));
    std::string line;
    std::getline(text, line);
    float x = 0;
    float y = 0;
    float scale = 0;
    float orientation = 0;
    text >> x >> y >> scale >> orientation;
    EXPECT_EQ(x, keypoint.x + 0.5F);
    EXPECT_EQ(y, keypoint.y + 0.5F);
    EXPECT_EQ(scale, keypoint.scale);
    EXPECT_EQ(orientation, -keypoint.angle);
}

TEST_F(ExportTest, ColmapFeaturesLieInThePhotographsFolders) {
    add("left/inner/a.jpg", siftFeatures({}));
    exportAs("colmap");
    EXPECT_EQ(contentOf(out("features/left/inner/a.jpg.txt")), "0 128\n");
}

TEST_F(ExportTest, ColmapMatchListsHoldAllMatchesAndTheVerifiedOnes) {
    addPair();
    exportAs("colmap");
    EXPECT_EQ(contentOf(out("matches.txt")), "a.jpg b.jpg\n0 1\n1 0\n\n");
    EXPECT_EQ(contentOf(out("inliers.txt")), "a.jpg b.jpg\n1 0\n\n");
}

TEST_F(ExportTest, ColmapMatchListsLeaveOutPairsWithoutMatches) {
    addPair();
    project.putMatches(1, 2, {matchList({}), {}}, "");
    exportAs("colmap");
    EXPECT_EQ(contentOf(out("matches.txt")), "");
    EXPECT_EQ(contentOf(out("inliers.txt")), "");
}

TEST_F(ExportTest, ColmapPairsWithoutVerifiedMatchesAreNotAmongTheInliers) {
    addPair();
    project.putGeometry(1, 2, verified(matchList({})), "");
    exportAs("colmap");
    EXPECT_EQ(contentOf(out("matches.txt")), "a.jpg b.jpg\n0 1\n1 0\n\n");
    EXPECT_EQ(contentOf(out("inliers.txt")), "");
}

TEST_F(ExportTest, ColmapPairsOfNamesWithSpacesAreReportedAfterAllElseIsWritten) {
    addPair();
    add("c d.jpg", siftFeatures({kFirst}));
    project.putMatches(1, 3, {matchList({{0, 0}}), {1.0F}}, "");
    project.putMatches(2, 3, {matchList({{1, 0}}), {1.0F}}, "");
    EXPECT_EQ(refusal<std::runtime_error>("colmap"),
              "COLMAP's match lists cannot hold names with white space. All else has been written "
              "to " +
                  out("").parent_path().string() +
                  ", but not the matches of these pairs:\n\"a.jpg\" and \"c d.jpg\"\n\"b.jpg\" and "
                  "\"c d.jpg\"\nRename the photographs, or use the project's database.db, which "
                  "COLMAP reads.");
    EXPECT_EQ(contentOf(out("matches.txt")), "a.jpg b.jpg\n0 1\n1 0\n\n");
    EXPECT_THAT(contentOf(out("features/c d.jpg.txt")), testing::StartsWith("1 128\n"));
}

TEST_F(ExportTest, ColmapIsNotForLdah) {
    project.putSetting("features", "ldah");
    add("a.jpg", ldahFeatures({kFirst}));
    EXPECT_THAT(refusal<std::invalid_argument>("colmap"), HasSubstr("database.db"));
    EXPECT_FALSE(std::filesystem::exists(out("")));
}

TEST_F(ExportTest, PhotographsWithoutFeaturesHaveNoFiles) {
    add("a.jpg", siftFeatures({kFirst}));
    project.addPhotographs({"waiting.jpg", "failed.jpg"});
    project.putFailure(*project.photograph("failed.jpg"), "is not an image");
    for (const char* const format : {"colmap", "opencv-yaml", "npz"}) exportAs(format);
    for (const char* const name : {"waiting.jpg", "failed.jpg"}) {
        EXPECT_FALSE(std::filesystem::exists(out("features/" + std::string(name) + ".txt")));
        EXPECT_FALSE(std::filesystem::exists(out(std::string(name) + ".yml.gz")));
        EXPECT_FALSE(std::filesystem::exists(out(std::string(name) + ".npz")));
    }
}

TEST_F(ExportTest, NamesThatLeadOutOfTheFolderAreRefused) {
    add("../a.jpg", siftFeatures({kFirst}));
    for (const char* const format : {"colmap", "npz"}) {
        EXPECT_THAT(refusal<std::invalid_argument>(format), HasSubstr("\"../a.jpg\""));
    }
    EXPECT_FALSE(std::filesystem::exists(out("")));
}

TEST_F(ExportTest, OpenMvgFeaturesHavePixelCentresAtIntegersAndClockwiseOrientations) {
    add("left/a.jpg", siftFeatures({kFirst, Keypoint(0, 1, 2, 0, 1, 0, 1)}));
    exportAs("openmvg");
    EXPECT_EQ(contentOf(out("a.feat")), "1 2.25 1.5 -0.5\n0 1 2 0\n");
}

TEST_F(ExportTest, OpenMvgDescriptorsAreACountAndBytes) {
    add("a.jpg", siftFeatures({kFirst, kSecond}));
    exportAs("openmvg");
    EXPECT_EQ(contentOf(out("a.desc")), std::string("\x02\0\0\0\0\0\0\0", 8) +
                                            std::string(16, '\x80') + std::string(112 + 128, '\0'));
}

TEST_F(ExportTest, OpenMvgDescriberSaysThatRegionsAreSift) {
    add("a.jpg", siftFeatures({}));
    exportAs("openmvg");
    const auto describer = nlohmann::json::parse(contentOf(out("image_describer.json")));
    const auto type = describer.at("regions_type");
    EXPECT_EQ(type.at("polymorphic_name"), "SIFT_Regions");
    EXPECT_EQ(type.at("polymorphic_id"), 2147483649U);
    EXPECT_EQ(type.at("ptr_wrapper").at("valid"), 1);
}

TEST_F(ExportTest, OpenMvgViewsAreNumberedByName) {
    add("b.jpg", siftFeatures({}));
    add("z/a.jpg", siftFeatures({}));
    add("c.jpg", siftFeatures({}));
    exportAs("openmvg");
    EXPECT_EQ(contentOf(out("views.txt")), "0 b.jpg\n1 c.jpg\n2 z/a.jpg\n");
}

TEST_F(ExportTest, OpenMvgMatchesBelongToViewsWithTheSmallerNumberFirst) {
    add("z.jpg", siftFeatures({kFirst, kSecond}));
    add("a.jpg", siftFeatures({kFirst, kSecond}));
    project.addPhotographs({"b.jpg"});
    add("c.jpg", siftFeatures({kFirst, kSecond}));
    project.putMatches(1, 2, {matchList({{0, 1}, {1, 1}}), {1.0F, 1.0F}}, "");
    project.putMatches(2, 4, {matchList({{0, 1}}), {1.0F}}, "");
    project.putGeometry(1, 2, verified(matchList({{0, 1}})), "");
    exportAs("openmvg");
    EXPECT_EQ(contentOf(out("matches.putative.txt")), "0 3\n2\n1 0\n1 1\n0 2\n1\n0 1\n");
    EXPECT_EQ(contentOf(out("matches.f.txt")), "0 3\n1\n1 0\n");
}

TEST_F(ExportTest, OpenMvgRegionsOfPhotographsWithoutFeaturesAreEmpty) {
    project.addPhotographs({"waiting.jpg"});
    exportAs("openmvg");
    EXPECT_TRUE(std::filesystem::exists(out("waiting.feat")));
    EXPECT_EQ(contentOf(out("waiting.feat")), "");
    EXPECT_EQ(contentOf(out("waiting.desc")), std::string(8, '\0'));
}

TEST_F(ExportTest, OpenMvgRefusesEqualBasenamesBeforeAnythingIsWritten) {
    add("a/x.jpg", siftFeatures({}));
    add("b/x.png", siftFeatures({}));
    EXPECT_EQ(refusal<std::invalid_argument>("openmvg"),
              "The photographs \"a/x.jpg\" and \"b/x.png\" would both be written to " +
                  out("x").string() + ". Rename one of them, or choose another format.");
    EXPECT_FALSE(std::filesystem::exists(out("")));
}

TEST_F(ExportTest, OpenMvgIsNotForLdah) {
    project.putSetting("features", "ldah");
    add("a.jpg", ldahFeatures({kFirst}));
    EXPECT_EQ(refusal<std::invalid_argument>("openmvg"),
              "OpenMVG has no regions for LDAH rows. Export a project of SIFT features, or choose "
              "another format.");
}

TEST_F(ExportTest, OpenCvReadsKeypoints) {
    add("left/a.jpg", siftFeatures({kFirst, kSecond}));
    exportAs("opencv-yaml");
    const cv::FileStorage file(out("left__a.jpg.yml.gz").string(), cv::FileStorage::READ);
    std::vector<cv::KeyPoint> keypoints;
    file["keypoints"] >> keypoints;
    ASSERT_EQ(keypoints.size(), 2U);
    EXPECT_EQ(keypoints[0].pt, cv::Point2f(1.0F, 2.25F));
    EXPECT_EQ(keypoints[0].size, 3.0F);
    EXPECT_NEAR(keypoints[0].angle, 360.0 - 28.6478897, 1e-4);  // half a radian
    EXPECT_EQ(keypoints[0].response, 0.125F);
    EXPECT_EQ(keypoints[0].octave, 0x100);
    EXPECT_EQ(keypoints[0].class_id, -1);
    EXPECT_EQ(keypoints[1].octave, 0x302);
    EXPECT_NEAR(keypoints[1].angle, 90.0, 1e-4);  // down, as displayed
}

TEST_F(ExportTest, OpenCvAnglesAreBelow360) {
    std::vector<Keypoint> keypoints(3, kFirst);
    keypoints[0].angle = 0.0F;
    keypoints[1].angle = 1e-9F;
    keypoints[2].angle = -1e-3F;
    add("a.jpg", siftFeatures(keypoints));
    exportAs("opencv-yaml");
    const cv::FileStorage file(out("a.jpg.yml.gz").string(), cv::FileStorage::READ);
    std::vector<cv::KeyPoint> read;
    file["keypoints"] >> read;
    ASSERT_EQ(read.size(), 3U);
    EXPECT_EQ(read[0].angle, 0.0F);
    EXPECT_EQ(read[1].angle, 0.0F);
    EXPECT_NEAR(read[2].angle, 0.0572958, 1e-6);
}

TEST_F(ExportTest, OpenCvReadsSiftRowsOfLength512AndZerosForNan) {
    add("a.jpg", siftFeatures({kFirst, kSecond}));
    exportAs("opencv-yaml");
    const cv::FileStorage file(out("a.jpg.yml.gz").string(), cv::FileStorage::READ);
    cv::Mat rows;
    file["descriptors"] >> rows;
    ASSERT_EQ(rows.type(), CV_32FC1);
    ASSERT_EQ(rows.size(), cv::Size(128, 2));
    cv::Mat expected = cv::Mat::zeros(2, 128, CV_32FC1);
    expected(cv::Rect(0, 0, 16, 1)) = 128.0F;
    EXPECT_EQ(cv::norm(rows, expected, cv::NORM_INF), 0.0);
}

TEST_F(ExportTest, OpenCvReadsLdahRows) {
    add("a.jpg", ldahFeatures({kFirst, kSecond}));
    exportAs("opencv-yaml");
    const cv::FileStorage file(out("a.jpg.yml.gz").string(), cv::FileStorage::READ);
    cv::Mat rows;
    file["descriptors"] >> rows;
    ASSERT_EQ(rows.type(), CV_8UC1);
    ASSERT_EQ(rows.size(), cv::Size(16, 2));
    EXPECT_EQ(rows.at<unsigned char>(0, 15), 15);
    EXPECT_EQ(rows.at<unsigned char>(1, 15), 31);
}

TEST_F(ExportTest, OpenCvReadsPhotographsWithoutKeypoints) {
    add("a.jpg", siftFeatures({}));
    exportAs("opencv-yaml");
    const cv::FileStorage file(out("a.jpg.yml.gz").string(), cv::FileStorage::READ);
    std::vector<cv::KeyPoint> keypoints(1);
    cv::Mat rows(1, 1, CV_8UC1);
    file["keypoints"] >> keypoints;
    file["descriptors"] >> rows;
    EXPECT_TRUE(keypoints.empty());
    EXPECT_TRUE(rows.empty());
}

TEST_F(ExportTest, OpenCvReadsMatches) {
    addPair();
    add("odd \"name\" \\ ä: #.jpg", siftFeatures({kFirst}));
    project.putMatches(1, 3, {matchList({{0, 0}}), {1.0F}}, "");
    exportAs("opencv-yaml");
    const cv::FileStorage file(out("matches.yml.gz").string(), cv::FileStorage::READ);
    const cv::FileNode pairs = file["pairs"];
    ASSERT_EQ(pairs.size(), 2U);
    EXPECT_EQ(static_cast<std::string>(pairs[0]["first"]), "a.jpg");
    EXPECT_EQ(static_cast<std::string>(pairs[0]["second"]), "b.jpg");
    EXPECT_EQ(static_cast<int>(pairs[0]["verified"]), 1);
    std::vector<cv::DMatch> matches;
    pairs[0]["matches"] >> matches;
    ASSERT_EQ(matches.size(), 2U);
    EXPECT_EQ(matches[0].queryIdx, 0);
    EXPECT_EQ(matches[0].trainIdx, 1);
    EXPECT_EQ(matches[0].imgIdx, 0);
    EXPECT_EQ(matches[0].distance, 0.25F);
    pairs[0]["inliers"] >> matches;
    ASSERT_EQ(matches.size(), 1U);
    EXPECT_EQ(matches[0].queryIdx, 1);
    EXPECT_EQ(matches[0].trainIdx, 0);
    EXPECT_EQ(matches[0].distance, 0.5F);

    EXPECT_EQ(static_cast<std::string>(pairs[1]["second"]), "odd \"name\" \\ ä: #.jpg");
    EXPECT_EQ(static_cast<int>(pairs[1]["verified"]), 0);
    pairs[1]["inliers"] >> matches;
    EXPECT_TRUE(matches.empty());
}

TEST_F(ExportTest, OpenCvReadsAnEmptyListOfPairs) {
    exportAs("opencv-yaml");
    const cv::FileStorage file(out("matches.yml.gz").string(), cv::FileStorage::READ);
    EXPECT_TRUE(file["pairs"].isSeq());
    EXPECT_EQ(file["pairs"].size(), 0U);
}

TEST_F(ExportTest, OpenCvRefusesNamesThatBecomeEqual) {
    add("a/x.jpg", siftFeatures({}));
    add("a__x.jpg", siftFeatures({}));
    EXPECT_THAT(refusal<std::invalid_argument>("opencv-yaml"),
                HasSubstr("\"a/x.jpg\" and \"a__x.jpg\" would both be written to"));
}

// The array `name` of a file: header and elements.
std::string arrayOf(const std::filesystem::path& path, const std::string& name) {
    int error = 0;
    zip_t* const archive = zip_open(path.c_str(), ZIP_RDONLY, &error);
    if (archive == nullptr) return "no file";
    zip_stat_t about;
    std::string content = "no array";
    if (zip_stat(archive, (name + ".npy").c_str(), 0, &about) == 0) {
        content.resize(about.size);
        zip_file_t* const file = zip_fopen_index(archive, about.index, 0);
        zip_fread(file, content.data(), content.size());
        zip_fclose(file);
    }
    zip_discard(archive);
    return content;
}

template <typename Element>
std::string bytesOf(const std::vector<Element>& elements) {
    std::string bytes(elements.size() * sizeof(Element), '\0');
    if (!bytes.empty()) std::memcpy(bytes.data(), elements.data(), bytes.size());
    return bytes;
}

TEST_F(ExportTest, NpzKeypointsAreAsTheLibraryHasThem) {
    add("left/a.jpg", siftFeatures({kFirst, kSecond}));
    exportAs("npz");
    const std::filesystem::path file = out("left/a.jpg.npz");
    EXPECT_EQ(arrayOf(file, "keypoints"),
              npyHeader("<f4", {2, 4}) +
                  bytesOf<float>({1.0F, 2.25F, 1.5F, 0.5F, 10.0F, 0.0F, 4.0F, -kPi / 2}));
    EXPECT_EQ(arrayOf(file, "responses"),
              npyHeader("<f4", {2}) + bytesOf<float>({0.125F, 0.0625F}));
    EXPECT_EQ(arrayOf(file, "octaves"), npyHeader("|u1", {2}) + std::string("\0\2", 2));
    EXPECT_EQ(arrayOf(file, "layers"), npyHeader("|u1", {2}) + "\1\3");
}

TEST_F(ExportTest, NpzDescriptorsAreTheRows) {
    add("sift.jpg", siftFeatures({kFirst}));
    add("ldah.jpg", ldahFeatures({kFirst}));
    exportAs("npz");
    std::vector<float> floats(128, 0.0F);
    std::fill_n(floats.begin(), 16, 0.25F);
    EXPECT_EQ(arrayOf(out("sift.jpg.npz"), "descriptors"),
              npyHeader("<f4", {1, 128}) + bytesOf(floats));
    EXPECT_EQ(arrayOf(out("ldah.jpg.npz"), "descriptors"),
              npyHeader("|u1", {1, 16}) +
                  std::string("\0\1\2\3\4\5\6\7\x08\x09\x0a\x0b\x0c\x0d\x0e\x0f", 16));
}

TEST_F(ExportTest, NpzMatchesAreNamedByTheNumbersInViews) {
    addPair();
    add("c.jpg", siftFeatures({kFirst}));
    project.putMatches(1, 3, {matchList({{0, 0}}), {1.0F}}, "");
    exportAs("npz");
    const std::filesystem::path file = out("matches.npz");
    EXPECT_EQ(arrayOf(file, "1_2"),
              npyHeader("<u4", {2, 2}) + bytesOf<std::uint32_t>({0, 1, 1, 0}));
    EXPECT_EQ(arrayOf(file, "1_2_scores"), npyHeader("<f4", {2}) + bytesOf<float>({0.75F, 0.5F}));
    EXPECT_EQ(arrayOf(file, "1_2_inliers"),
              npyHeader("<u4", {1, 2}) + bytesOf<std::uint32_t>({1, 0}));
    EXPECT_EQ(arrayOf(file, "1_3"), npyHeader("<u4", {1, 2}) + bytesOf<std::uint32_t>({0, 0}));
    EXPECT_EQ(arrayOf(file, "1_3_inliers"), "no array");  // not verified
    EXPECT_EQ(contentOf(out("views.txt")), "1 a.jpg\n2 b.jpg\n3 c.jpg\n");
}

TEST_F(ExportTest, NpzOfPhotographsWithoutKeypointsHaveArraysWithoutRows) {
    add("a.jpg", siftFeatures({}));
    exportAs("npz");
    EXPECT_EQ(arrayOf(out("a.jpg.npz"), "keypoints"), npyHeader("<f4", {0, 4}));
    EXPECT_EQ(arrayOf(out("a.jpg.npz"), "descriptors"), npyHeader("<f4", {0, 128}));
}

TEST_F(ExportTest, FullDiskIsOutOfSpaceInEveryFormat) {
    add("a.jpg", siftFeatures({kFirst}));
    for (const char* const format : {"colmap", "openmvg", "opencv-yaml", "npz"}) {
        const test::FileSizeLimit limit(2);
        EXPECT_THROW(exportAs(format), OutOfSpace) << format;
    }
}

}  // namespace
}  // namespace marlo::app
