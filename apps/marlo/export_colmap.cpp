// SPDX-License-Identifier: BSD-3-Clause
#include <map>

#include "marlo/descriptor_bytes.h"
#include "marlo/export.h"
#include "marlo/export_formats.h"
#include "marlo/interruption.h"
#include "marlo/output_file.h"

namespace marlo::app {
namespace {

constexpr auto kPixelCorner = static_cast<float>(kColmapPixelCorner);

std::string featuresFile(const std::string& name) {
    return "features/" + name + ".txt";
}

std::string featuresText(const Features& features) {
    const DescMat bytes = siftBytesForColmap(features.rows);
    std::string text = std::to_string(features.keypoints.size()) + " 128\n";
    for (std::size_t i = 0; i < features.keypoints.size(); ++i) {
        const Keypoint& keypoint = features.keypoints[i];
        appendNumber(text, keypoint.x + kPixelCorner);
        text += ' ';
        appendNumber(text, keypoint.y + kPixelCorner);
        text += ' ';
        appendNumber(text, keypoint.scale);
        text += ' ';
        appendNumber(text, clockwise(keypoint.angle));
        const unsigned char* row = bytes.data + i * bytes.step;
        for (int element = 0; element < bytes.cols; ++element) {
            text += ' ';
            appendNumber(text, row[element]);
        }
        text += '\n';
    }
    return text;
}

bool hasWhiteSpace(const std::string& name) {
    return name.find_first_of(" \t\n\v\f\r") != std::string::npos;
}

std::string block(const std::string& first, const std::string& second, const MatchList& matches) {
    std::string text = first + ' ' + second + '\n';
    appendMatches(text, matches);
    return text + '\n';
}

// The pairs that are not in the lists, as lines of text.
std::string writeMatchLists(const Project& project, const std::filesystem::path& folder) {
    const std::vector<Pair> pairs = project.pairs();
    std::map<std::int64_t, std::string> names;
    for (const Photograph& photograph : project.photographs()) {
        names[photograph.id] = photograph.name;
    }
    OutputFile raw(folder / "matches.txt");
    OutputFile verified(folder / "inliers.txt");
    std::string leftOut;
    for (const Pair& pair : pairs) {
        stopIfInterrupted();
        const std::string& first = names.at(pair.first);
        const std::string& second = names.at(pair.second);
        if (pair.matches == 0) continue;
        if (hasWhiteSpace(first) || hasWhiteSpace(second)) {
            leftOut.append("\n\"").append(first).append("\" and \"").append(second).append("\"");
            continue;
        }
        raw.write(block(first, second, project.matches(pair.first, pair.second).matches));
        const auto geometry = project.geometry(pair.first, pair.second);
        if (geometry && geometry->inliers.rows() > 0) {
            verified.write(block(first, second, geometry->inliers));
        }
    }
    raw.commit();
    verified.commit();
    return leftOut;
}

}  // namespace

void exportColmap(const Project& project, const std::filesystem::path& folder) {
    refuseLdah(project,
               "COLMAP has no text form for LDAH rows. Use the project's database.db instead, "
               "which COLMAP reads, with keypoints, matches and geometry.");
    const std::vector<Photograph> photographs = photographsWithFeatures(project);
    const auto files = targets(folder, photographs, featuresFile);
    for (std::size_t i = 0; i < photographs.size(); ++i) {
        stopIfInterrupted();
        OutputFile file(files[i]);
        file.write(featuresText(project.features(photographs[i].id)));
        file.commit();
    }
    const std::string leftOut = writeMatchLists(project, folder);
    if (!leftOut.empty()) {
        throw SomeLeftOut(
            "COLMAP's match lists cannot hold names with white space. All else has been written "
            "to " +
            folder.string() + ", but not the matches of these pairs:" + leftOut +
            "\nRename the photographs, or use the project's database.db, which COLMAP reads.");
    }
}

}  // namespace marlo::app
