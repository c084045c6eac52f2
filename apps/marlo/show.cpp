// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/show.h"

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <stdexcept>

#include "marlo/interruption.h"
#include "marlo/output_file.h"
#include "marlo/photograph_files.h"
#include "marlo/pictures.h"

namespace marlo::app {
namespace {

namespace fs = std::filesystem;

constexpr int kLongestSide = 2400;  // of one photograph in a picture, in pixels
constexpr std::size_t kMostLines = 400;

Photograph withFeatures(const Project& project, const std::string& name) {
    const std::optional<Photograph> photograph = project.photograph(name);
    if (!photograph) {
        throw std::runtime_error("The project has no photograph named '" + name +
                                 "'. Names are paths below " +
                                 project.setting("photographs").value_or("its folder") + ".");
    }
    if (photograph->status != PhotographStatus::done) {
        throw std::runtime_error(name + " has no features" +
                                 (photograph->reason.empty() ? "" : ": " + photograph->reason) +
                                 ".");
    }
    return *photograph;
}

// A photograph, scaled down, and its keypoints with it.
struct Shown {
    cv::Mat image;
    std::vector<Keypoint> keypoints;
};

Shown shown(const Project& project, const Photograph& photograph, int longestSide) {
    const fs::path path = fs::path(project.setting("photographs").value_or("")) / photograph.name;
    DecodeOptions options;
    options.applyOrientation = nlohmann::json::parse(photograph.stamp).value("orientation", false);
    Shown result;
    try {
        const Preview preview = readPreview(path, longestSide, options);
        result.image = preview.image;
        result.keypoints =
            scaledKeypoints(project.features(photograph.id).keypoints, preview.scale);
    } catch (const ProjectError&) {
        throw;
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(path.string() + " " + error.what());
    }
    return result;
}

void writePicture(const fs::path& path, const cv::Mat& picture) {
    std::vector<unsigned char> file;
    const std::string ending = path.extension().string();
    bool encoded = false;
    try {
        encoded = !ending.empty() && cv::imencode(ending, picture, file);
    } catch (const cv::Exception&) {
        encoded = false;
    }
    if (!encoded) {
        throw std::runtime_error(path.string() + ": pictures are written as .png or .jpg");
    }
    OutputFile output(path);
    output.write({reinterpret_cast<const char*>(file.data()), file.size()});
    output.commit();
}

}  // namespace

std::string pictureName(const std::string& what) {
    std::string name;
    for (const char c : what) {
        if (c == '/') {
            name += "%2F";
        } else if (c == '%') {
            name += "%25";
        } else {
            name += c;
        }
    }
    return name;
}

void showKeypoints(const Project& project, const std::string& name, const fs::path& picture) {
    const Shown photograph = shown(project, withFeatures(project, name), kLongestSide);
    writePicture(picture, drawKeypoints(photograph.image, photograph.keypoints));
}

void showPanorama(const Project& project, const std::string& name, const fs::path& picture) {
    const Photograph photograph = withFeatures(project, name);
    if (!project.camera(photograph.id).isPanorama()) {
        throw std::runtime_error(name +
                                 " was extracted as an ordinary photograph; a full panorama is "
                                 "extracted with `marlo extract --panorama`.");
    }
    const Shown whole = shown(project, photograph, kLongestSide);
    writePicture(picture, drawPanorama(whole.image, whole.keypoints));
}

ShownCoverage showCoverage(const Project& project, const std::string& name,
                           const fs::path& picture) {
    const Shown photograph = shown(project, withFeatures(project, name), kLongestSide);
    writePicture(picture, drawCoverage(photograph.image, photograph.keypoints));
    return {photograph.keypoints.size(),
            photographCoverage(photograph.image, photograph.keypoints)};
}

void showMatches(const Project& project, const std::string& firstName,
                 const std::string& secondName, const fs::path& picture) {
    Photograph first = withFeatures(project, firstName);
    Photograph second = withFeatures(project, secondName);
    if (first.id == second.id) throw std::runtime_error("two different photographs are needed");
    if (first.id > second.id) std::swap(first, second);
    const std::vector<Pair> pairs = project.pairs();
    const bool matched = std::any_of(pairs.begin(), pairs.end(), [&](const Pair& pair) {
        return pair.first == first.id && pair.second == second.id;
    });
    if (!matched) {
        throw std::runtime_error(first.name + " and " + second.name +
                                 " have not been matched. Run `marlo match " +
                                 project.folder().string() + "` first.");
    }
    const PairMatches matches = project.matches(first.id, second.id);
    const std::optional<VerifiedPair> geometry = project.geometry(first.id, second.id);
    const MatchList none(0, 2);
    const Shown left = shown(project, first, kLongestSide / 2);
    const Shown right = shown(project, second, kLongestSide / 2);
    writePicture(picture, drawMatches(left.image, right.image, left.keypoints, right.keypoints,
                                      matches.matches, matches.scores,
                                      geometry ? geometry->inliers : none, kMostLines));
}

std::vector<fs::path> showProject(const Project& project, const fs::path& folder, std::size_t most,
                                  Progress& progress) {
    std::map<std::int64_t, std::string> names;
    std::vector<std::string> photographs;
    std::vector<std::string> panoramas;
    for (const Photograph& photograph : project.photographs()) {
        names[photograph.id] = photograph.name;
        if (photograph.status != PhotographStatus::done) continue;
        photographs.push_back(photograph.name);
        if (project.camera(photograph.id).isPanorama()) panoramas.push_back(photograph.name);
    }
    photographs.resize(std::min(photographs.size(), most));
    panoramas.resize(std::min(panoramas.size(), most));
    std::vector<Pair> pairs = project.pairs();
    std::stable_sort(pairs.begin(), pairs.end(), [](const Pair& a, const Pair& b) {
        return a.inliers.value_or(0) > b.inliers.value_or(0);
    });
    pairs.resize(std::min(pairs.size(), most));

    std::vector<fs::path> files;
    progress.begin("pictures", "pictures",
                   2 * photographs.size() + panoramas.size() + pairs.size());
    const auto add = [&](const std::string& file, const auto& write) {
        if (interruption() != 0) return;
        const fs::path path = folder / (pictureName(file) + ".jpg");
        try {
            write(path);
            files.push_back(path);
        } catch (const OutOfSpace&) {
            throw;
        } catch (const std::exception& error) {
            progress.warning("no picture of " + file + ": " + error.what());
        }
        progress.advance();
    };
    for (const Pair& pair : pairs) {
        const std::string& first = names[pair.first];
        const std::string& second = names[pair.second];
        add("matches " + first + " - " + second,
            [&](const fs::path& file) { showMatches(project, first, second, file); });
    }
    for (const std::string& name : photographs) {
        add("keypoints " + name, [&](const fs::path& file) { showKeypoints(project, name, file); });
        add("coverage " + name, [&](const fs::path& file) { showCoverage(project, name, file); });
    }
    for (const std::string& name : panoramas) {
        add("panorama " + name, [&](const fs::path& file) { showPanorama(project, name, file); });
    }
    progress.end();
    return files;
}

}  // namespace marlo::app
