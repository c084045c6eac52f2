// SPDX-License-Identifier: BSD-3-Clause
#include <cmath>
#include <map>
#include <numbers>
#include <opencv2/core.hpp>
#include <opencv2/core/persistence.hpp>
#include <utility>

#include "marlo/export_formats.h"
#include "marlo/interruption.h"
#include "marlo/output_file.h"

namespace marlo::app {
namespace {

constexpr float kUnit = 512.0F;  // cv::SIFT's rows have this length

std::string keypointsFile(const std::string& name) {
    std::string file;
    for (const char c : name) file += c == '/' ? std::string("__") : std::string(1, c);
    return file + ".yml.gz";
}

float clockwiseDegrees(float angle) {
    constexpr double kTurn = 360.0;
    const double degrees = std::fmod(kTurn - angle * (180.0 / std::numbers::pi), kTurn);
    const auto rounded = static_cast<float>(degrees);
    return rounded < 360.0F ? rounded : 0.0F;  // a little less than 360 may round to it
}

cv::KeyPoint converted(const Keypoint& keypoint) {
    const int octave = keypoint.octave | keypoint.layer << 8;
    return {keypoint.x,        keypoint.y, 2.0F * keypoint.scale, clockwiseDegrees(keypoint.angle),
            keypoint.response, octave};
}

cv::Mat converted(const DescMat& rows) {
    if (rows.rows == 0) return cv::Mat(0, rows.cols, rows.type());
    cv::Mat ours(rows.rows, rows.cols, rows.type(), rows.data, rows.step);
    if (rows.type() != DescMat::Float) return ours;
    cv::Mat theirs = ours * kUnit;
    cv::patchNaNs(theirs, 0.0);
    return theirs;
}

std::string featuresText(const Features& features) {
    std::vector<cv::KeyPoint> keypoints;
    for (const Keypoint& keypoint : features.keypoints) keypoints.push_back(converted(keypoint));
    cv::FileStorage file(".yml", cv::FileStorage::WRITE | cv::FileStorage::MEMORY);
    cv::write(file, "keypoints", keypoints);
    cv::write(file, "descriptors", converted(features.rows));
    return file.releaseAndGetString();
}

std::string yamlText(const std::string& name) {
    std::string text = "\"";
    for (const char c : name) {
        if (c == '"' || c == '\\') text += '\\';
        text += c;
    }
    return text + '"';
}

using Scores = std::map<std::pair<std::uint32_t, std::uint32_t>, float>;

Scores scoresOf(const PairMatches& pair) {
    Scores scores;
    for (Eigen::Index i = 0; i < pair.matches.rows(); ++i) {
        scores[{pair.matches(i, 0), pair.matches(i, 1)}] =
            pair.scores.at(static_cast<std::size_t>(i));
    }
    return scores;
}

// As cv::FileStorage writes a list of cv::DMatch.
void appendDMatches(std::string& text, const char* key, const MatchList& matches,
                    const Scores& scores) {
    text += std::string("      ") + key + (matches.rows() == 0 ? ": []\n" : ":\n");
    for (Eigen::Index i = 0; i < matches.rows(); ++i) {
        text += "         - [ ";
        appendNumber(text, matches(i, 0));
        text += ", ";
        appendNumber(text, matches(i, 1));
        text += ", 0, ";
        const auto score = scores.find({matches(i, 0), matches(i, 1)});
        appendNumber(text, score == scores.end() ? 1.0F : 1.0F - score->second);
        text += " ]\n";
    }
}

// Pair by pair: cv::FileStorage would keep the text of all of them in memory.
void writeMatches(const Project& project, const std::filesystem::path& folder) {
    const std::vector<Pair> pairs = project.pairs();
    std::map<std::int64_t, std::string> names;
    for (const Photograph& photograph : project.photographs()) {
        names[photograph.id] = photograph.name;
    }
    GzipFile file(folder / "matches.yml.gz");
    file.write(pairs.empty() ? "%YAML:1.0\n---\npairs: []\n" : "%YAML:1.0\n---\npairs:\n");
    for (const Pair& pair : pairs) {
        stopIfInterrupted();
        const PairMatches matches = project.matches(pair.first, pair.second);
        const auto geometry = project.geometry(pair.first, pair.second);
        const Scores scores = scoresOf(matches);
        std::string text = "   -\n";
        text += "      first: " + yamlText(names.at(pair.first)) + '\n';
        text += "      second: " + yamlText(names.at(pair.second)) + '\n';
        text += geometry ? "      verified: 1\n" : "      verified: 0\n";
        appendDMatches(text, "matches", matches.matches, scores);
        appendDMatches(text, "inliers", geometry ? geometry->inliers : MatchList(0, 2), scores);
        file.write(text);
    }
    file.commit();
}

}  // namespace

void exportOpenCv(const Project& project, const std::filesystem::path& folder) {
    const std::vector<Photograph> photographs = photographsWithFeatures(project);
    const auto files = targets(folder, photographs, keypointsFile);
    for (std::size_t i = 0; i < photographs.size(); ++i) {
        stopIfInterrupted();
        GzipFile file(files[i]);
        file.write(featuresText(project.features(photographs[i].id)));
        file.commit();
    }
    writeMatches(project, folder);
}

}  // namespace marlo::app
