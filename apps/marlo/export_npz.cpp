// SPDX-License-Identifier: BSD-3-Clause
#include <bit>
#include <type_traits>

#include "marlo/export_formats.h"
#include "marlo/interruption.h"
#include "marlo/npz_file.h"
#include "marlo/output_file.h"

namespace marlo::app {
namespace {

static_assert(std::endian::native == std::endian::little, "the arrays say that they are");

std::string arraysFile(const std::string& name) {
    return name + ".npz";
}

template <typename Element>
constexpr const char* numpyType() {
    if constexpr (std::is_same_v<Element, float>) return "<f4";
    if constexpr (std::is_same_v<Element, std::uint32_t>) return "<u4";
    if constexpr (std::is_same_v<Element, unsigned char>) return "|u1";
}

template <typename Element>
std::string array(const Element* elements, const std::vector<std::size_t>& shape) {
    std::size_t bytes = sizeof(Element);
    for (const std::size_t size : shape) bytes *= size;
    std::string content = npyHeader(numpyType<Element>(), shape);
    if (bytes > 0) content.append(reinterpret_cast<const char*>(elements), bytes);
    return content;
}

// One number of each keypoint.
template <typename Element>
std::string column(const std::vector<Keypoint>& keypoints, Element Keypoint::*field) {
    std::vector<Element> elements;
    elements.reserve(keypoints.size());
    for (const Keypoint& keypoint : keypoints) elements.push_back(keypoint.*field);
    return array(elements.data(), {elements.size()});
}

std::string positions(const std::vector<Keypoint>& keypoints) {
    std::vector<float> elements;
    for (const Keypoint& k : keypoints)
        elements.insert(elements.end(), {k.x, k.y, k.scale, k.angle});
    return array(elements.data(), {keypoints.size(), 4});
}

std::string descriptors(const DescMat& rows) {
    const char* type =
        rows.type() == DescMat::Float ? numpyType<float>() : numpyType<unsigned char>();
    const auto count = static_cast<std::size_t>(rows.rows);
    const auto width = static_cast<std::size_t>(rows.cols);
    std::string content = npyHeader(type, {count, width});
    for (std::size_t i = 0; i < count; ++i) {
        content.append(reinterpret_cast<const char*>(rows.data + i * rows.step),
                       width * rows.elemSizeBytes());
    }
    return content;
}

std::string matchArray(const MatchList& matches) {
    return array(matches.data(), {static_cast<std::size_t>(matches.rows()), 2});
}

void writeFeatures(const std::filesystem::path& path, const Features& features) {
    NpzFile file(path);
    const std::vector<Keypoint>& keypoints = features.keypoints;
    file.add("keypoints", [&] { return positions(keypoints); });
    file.add("responses", [&] { return column(keypoints, &Keypoint::response); });
    file.add("octaves", [&] { return column(keypoints, &Keypoint::octave); });
    file.add("layers", [&] { return column(keypoints, &Keypoint::layer); });
    file.add("descriptors", [&] { return descriptors(features.rows); });
    file.commit();
}

void writeMatches(const Project& project, const std::filesystem::path& path) {
    NpzFile file(path);
    for (const Pair& pair : project.pairs()) {
        const auto first = pair.first;
        const auto second = pair.second;
        const std::string name = std::to_string(first) + '_' + std::to_string(second);
        file.add(name, [&project, first, second] {
            stopIfInterrupted();
            return matchArray(project.matches(first, second).matches);
        });
        file.add(name + "_scores", [&project, first, second] {
            const std::vector<float> scores = project.matches(first, second).scores;
            return array(scores.data(), {scores.size()});
        });
        if (!project.geometry(first, second)) continue;
        file.add(name + "_inliers", [&project, first, second] {
            return matchArray(project.geometry(first, second).value_or(VerifiedPair{}).inliers);
        });
    }
    file.commit();
}

}  // namespace

void exportNpz(const Project& project, const std::filesystem::path& folder) {
    const std::vector<Photograph> photographs = photographsWithFeatures(project);
    const auto files = targets(folder, photographs, arraysFile);
    for (std::size_t i = 0; i < photographs.size(); ++i) {
        stopIfInterrupted();
        writeFeatures(files[i], project.features(photographs[i].id));
    }
    writeMatches(project, folder / "matches.npz");
    OutputFile views(folder / "views.txt");
    for (const Photograph& photograph : project.photographs()) {
        views.write(std::to_string(photograph.id) + ' ' + photograph.name + '\n');
    }
    views.commit();
}

}  // namespace marlo::app
