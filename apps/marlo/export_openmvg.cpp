// SPDX-License-Identifier: BSD-3-Clause
#include <algorithm>
#include <bit>
#include <map>
#include <nlohmann/json.hpp>

#include "marlo/descriptor_bytes.h"
#include "marlo/export_formats.h"
#include "marlo/interruption.h"
#include "marlo/output_file.h"
#include "support/bin_io.h"

namespace marlo::app {
namespace {

static_assert(std::endian::native == std::endian::little, "OpenMVG's numbers are little-endian");

std::string basename(const std::string& name) {
    return std::filesystem::path(name).stem().string();
}

std::filesystem::path withEnding(std::filesystem::path path, const char* ending) {
    return path += ending;
}

std::string featText(const std::vector<Keypoint>& keypoints) {
    std::string text;
    for (const Keypoint& keypoint : keypoints) {
        appendNumber(text, keypoint.x);
        text += ' ';
        appendNumber(text, keypoint.y);
        text += ' ';
        appendNumber(text, keypoint.scale);
        text += ' ';
        appendNumber(text, clockwise(keypoint.angle));
        text += '\n';
    }
    return text;
}

// The number of rows in 64 bits, and the rows.
std::string descContent(const DescMat& floats) {
    const DescMat bytes = siftBytesForOpenMvg(floats);
    BinWriter content;
    content.write(static_cast<std::uint64_t>(bytes.rows));
    for (int i = 0; i < bytes.rows; ++i) {
        content.writeBytes(bytes.data + static_cast<std::size_t>(i) * bytes.step,
                           static_cast<std::size_t>(bytes.cols));
    }
    return {reinterpret_cast<const char*>(content.buffer().data()), content.buffer().size()};
}

// What matching needs to know of the descriptors, as the cereal library writes an empty set of
// them: an object behind a pointer to its base class, with two lists.
std::string imageDescriber() {
    constexpr std::uint32_t kFirstNamedType = 0x80000001U;
    nlohmann::ordered_json lists;
    lists["value0"] = nlohmann::ordered_json::array();
    lists["value1"] = nlohmann::ordered_json::array();
    nlohmann::ordered_json pointer;
    pointer["valid"] = 1;
    pointer["data"] = lists;
    nlohmann::ordered_json type;
    type["polymorphic_id"] = kFirstNamedType;
    type["polymorphic_name"] = "SIFT_Regions";
    type["ptr_wrapper"] = pointer;
    nlohmann::ordered_json all;
    all["regions_type"] = type;
    return all.dump(4) + '\n';
}

using Views = std::map<std::int64_t, std::size_t>;  // position by the project's id

// Empty without matches. OpenMVG has the smaller view first.
std::string block(const Views& views, const Pair& pair, MatchList matches) {
    if (matches.rows() == 0) return {};
    std::size_t first = views.at(pair.first);
    std::size_t second = views.at(pair.second);
    if (first > second) {
        std::swap(first, second);
        matches.col(0).swap(matches.col(1));
    }
    std::string text = std::to_string(first) + ' ' + std::to_string(second) + '\n' +
                       std::to_string(matches.rows()) + '\n';
    appendMatches(text, matches);
    return text;
}

void writeMatches(const Project& project, const std::vector<Pair>& pairs, const Views& views,
                  const std::filesystem::path& folder) {
    OutputFile putative(folder / "matches.putative.txt");
    OutputFile filtered(folder / "matches.f.txt");
    for (const Pair& pair : pairs) {
        stopIfInterrupted();
        putative.write(block(views, pair, project.matches(pair.first, pair.second).matches));
        const auto geometry = project.geometry(pair.first, pair.second);
        if (geometry) filtered.write(block(views, pair, geometry->inliers));
    }
    putative.commit();
    filtered.commit();
}

}  // namespace

void exportOpenMvg(const Project& project, const std::filesystem::path& folder) {
    refuseLdah(project,
               "OpenMVG has no regions for LDAH rows. Export a project of SIFT features, or "
               "choose another format.");
    const std::vector<Pair> pairs = project.pairs();
    std::vector<Photograph> photographs = project.photographs();
    std::sort(photographs.begin(), photographs.end(),
              [](const Photograph& a, const Photograph& b) { return a.name < b.name; });
    const auto files = targets(folder, photographs, basename);
    Views views;
    std::string viewsText;
    for (std::size_t i = 0; i < photographs.size(); ++i) {
        stopIfInterrupted();
        const Photograph& photograph = photographs[i];
        Features features;
        if (photograph.status == PhotographStatus::done) {
            features = project.features(photograph.id);
        }
        writeFile(withEnding(files[i], ".feat"), featText(features.keypoints));
        writeFile(withEnding(files[i], ".desc"), descContent(features.rows));
        views[photograph.id] = i;
        viewsText += std::to_string(i) + ' ' + photograph.name + '\n';
    }
    writeFile(folder / "image_describer.json", imageDescriber());
    writeMatches(project, pairs, views, folder);
    writeFile(folder / "views.txt", viewsText);
}

}  // namespace marlo::app
