// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/demo.h"

#include <chrono>
#include <cstdio>
#include <map>
#include <nlohmann/json.hpp>
#include <numbers>
#include <opencv2/imgcodecs.hpp>
#include <optional>
#include <string>
#include <vector>

#include "marlo/extract.h"
#include "marlo/interruption.h"
#include "marlo/match.h"
#include "marlo/output_file.h"
#include "marlo/photograph_files.h"
#include "marlo/scene.h"
#include "marlo/show.h"
#include "marlo/summary.h"

namespace marlo::app {
namespace {

namespace fs = std::filesystem;

constexpr double kMostError = 2.0;  // pixels
constexpr std::size_t kPictures = 3;

struct Share {
    std::size_t count = 0;
    std::size_t correct = 0;

    void add(bool isCorrect) {
        ++count;
        correct += isCorrect ? 1 : 0;
    }
    [[nodiscard]] double percent() const {
        return count == 0 ? 0.0 : 100.0 * static_cast<double>(correct) / static_cast<double>(count);
    }
};

// What one kind of rows has reached.
struct Result {
    std::size_t keypoints = 0;
    std::size_t pairs = 0;  // with verified matches
    Share matches;
    Share verified;
    double extractSeconds = 0.0;
    double matchSeconds = 0.0;
    double verifySeconds = 0.0;
};

// The cameras as they are, for comparison with what a reconstruction finds.
void writeCameras(const std::vector<DemoView>& views, const fs::path& path) {
    nlohmann::json cameras = nlohmann::json::array();
    for (const DemoView& view : views) {
        const PinholeCamera& camera = view.camera;
        nlohmann::json rotation = nlohmann::json::array();
        for (int row = 0; row < 3; ++row) {
            rotation.push_back(
                {camera.rotation(row, 0), camera.rotation(row, 1), camera.rotation(row, 2)});
        }
        cameras.push_back(
            {{"name", view.name},
             {"focal_length", camera.focalLength},
             {"principal_point", {camera.principalPoint.x(), camera.principalPoint.y()}},
             {"world_to_camera", rotation},
             {"centre", {camera.centre.x(), camera.centre.y(), camera.centre.z()}}});
    }
    writeFile(path, cameras.dump(2) + '\n');
}

// Returns where they are.
template <typename View>
std::vector<std::string> writeViews(const std::vector<View>& views, const fs::path& folder) {
    std::vector<std::string> files;
    for (const View& view : views) {
        std::vector<unsigned char> file;
        cv::imencode(".png", view.image, file);
        writeFile(folder / view.name, std::string(file.begin(), file.end()));
        files.push_back((folder / view.name).string());
    }
    return files;
}

bool isCorrect(const DemoView& first, const Keypoint& a, const DemoView& second,
               const Keypoint& b) {
    const auto to = transfer(
        first, Eigen::Vector2d(static_cast<double>(a.x), static_cast<double>(a.y)), second);
    return to &&
           (*to - Eigen::Vector2d(static_cast<double>(b.x), static_cast<double>(b.y))).norm() <
               kMostError;
}

Share judged(const DemoView& first, const std::vector<Keypoint>& firstKeypoints,
             const DemoView& second, const std::vector<Keypoint>& secondKeypoints,
             const MatchList& matches) {
    Share share;
    for (Eigen::Index i = 0; i < matches.rows(); ++i) {
        share.add(isCorrect(first, firstKeypoints[matches(i, 0)], second,
                            secondKeypoints[matches(i, 1)]));
    }
    return share;
}

void add(Share& to, const Share& share) {
    to.count += share.count;
    to.correct += share.correct;
}

void judge(const Project& project, const std::vector<DemoView>& views, Result& result) {
    std::map<std::int64_t, const DemoView*> viewOf;
    std::map<std::int64_t, std::vector<Keypoint>> keypoints;
    // The folder may have held a project with other photographs.
    for (const Photograph& photograph : photographsWithFeatures(project)) {
        for (const DemoView& view : views) {
            if (view.name == photograph.name) viewOf[photograph.id] = &view;
        }
        if (viewOf.count(photograph.id) == 0) continue;
        keypoints[photograph.id] = project.keypoints(photograph.id);
        result.keypoints += keypoints[photograph.id].size();
    }
    for (const Pair& pair : project.pairs()) {
        if (viewOf.count(pair.first) == 0 || viewOf.count(pair.second) == 0) continue;
        const auto judgedMatches = [&](const MatchList& matches) {
            return judged(*viewOf.at(pair.first), keypoints[pair.first], *viewOf.at(pair.second),
                          keypoints[pair.second], matches);
        };
        const auto geometry = project.geometry(pair.first, pair.second);
        if (!geometry || geometry->inliers.rows() == 0) continue;
        ++result.pairs;
        add(result.matches, judgedMatches(project.matches(pair.first, pair.second).matches));
        add(result.verified, judgedMatches(geometry->inliers));
    }
}

template <typename Work>
double secondsOf(const Work& work) {
    const auto begin = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

Result runChain(const std::string& features, const std::vector<DemoView>& views,
                const std::vector<std::string>& files, const fs::path& folder, Progress& progress) {
    Result result;
    Project project(folder / features, Project::Access::write);
    ExtractOptions extractOptions;
    extractOptions.features = features;
    extractOptions.force = true;
    result.extractSeconds =
        secondsOf([&] { extract(findPhotographs(files), extractOptions, project, progress); });
    stopIfInterrupted();
    MatchOptions matchOptions;
    result.matchSeconds = secondsOf([&] { match(matchOptions, project, progress); });
    result.verifySeconds = secondsOf([&] { verify(VerifyOptions(), project, progress); });
    stopIfInterrupted();
    judge(project, views, result);
    writeSummary(project);
    showProject(project, folder / features / "pictures", kPictures, progress);
    return result;
}

Eigen::Vector2d position(const Keypoint& keypoint) {
    return {static_cast<double>(keypoint.x), static_cast<double>(keypoint.y)};
}

// Two panoramas, taken as what they are or as ordinary photographs.
struct PanoramaResult {
    std::size_t keypoints = 0;
    Share matches;
    Share verified;
};

PanoramaResult runPanoramas(bool asPanoramas, const std::vector<DemoPanorama>& panoramas,
                            const std::vector<std::string>& files, const fs::path& folder,
                            Progress& progress) {
    Project project(folder, Project::Access::write);
    ExtractOptions options;
    options.panorama = asPanoramas;
    options.force = true;
    extract(findPhotographs(files), options, project, progress);
    stopIfInterrupted();
    match(MatchOptions(), project, progress);
    stopIfInterrupted();
    verify(VerifyOptions(), project, progress);
    stopIfInterrupted();
    const std::optional<Photograph> first = project.photograph(panoramas[0].name);
    const std::optional<Photograph> second = project.photograph(panoramas[1].name);
    PanoramaResult result;
    if (!first || !second) return result;
    const std::vector<Keypoint> from = project.keypoints(first->id);
    const std::vector<Keypoint> to = project.keypoints(second->id);
    result.keypoints = from.size() + to.size();
    const PanoramaCamera& camera = panoramas[1].camera;
    const double mostAngle = kMostError * std::numbers::pi / camera.height;
    const auto judged = [&](const MatchList& matches) {
        Share share;
        for (Eigen::Index i = 0; i < matches.rows(); ++i) {
            const auto expected =
                transfer(panoramas[0], position(from[matches(i, 0)]), panoramas[1]);
            const Eigen::Vector3d there = camera.ray(position(to[matches(i, 1)]));
            share.add(expected && (*expected - there).norm() < mostAngle);
        }
        return share;
    };
    result.matches = judged(project.matches(first->id, second->id).matches);
    const auto geometry = project.geometry(first->id, second->id);
    if (geometry) result.verified = judged(geometry->inliers);
    if (asPanoramas) {
        writeSummary(project);
        showProject(project, folder / "pictures", kPictures, progress);
    }
    return result;
}

void printPanoramaTable(const std::vector<std::pair<std::string, PanoramaResult>>& results,
                        Progress& progress) {
    progress.report(
        "\n| panoramas extracted | keypoints | matches | within 2 px | verified | within 2 px |\n"
        "|---|---|---|---|---|---|",
        {{"event", "demo"}});
    for (const auto& [name, r] : results) {
        char line[256];
        std::snprintf(line, sizeof line, "| %s | %zu | %zu | %.1f %% | %zu | %.1f %% |",
                      name.c_str(), r.keypoints, r.matches.count, r.matches.percent(),
                      r.verified.count, r.verified.percent());
        progress.report(line, {{"event", "demo"},
                               {"panoramas", name},
                               {"keypoints", r.keypoints},
                               {"matches", r.matches.count},
                               {"matches_correct", r.matches.correct},
                               {"verified", r.verified.count},
                               {"verified_correct", r.verified.correct}});
    }
}

// What it brings to see panoramas as such.
void showPanoramas(const fs::path& folder, Progress& progress) {
    progress.message("Two panoramas of the scene, one camera upright and one on its side");
    const std::vector<DemoPanorama> panoramas = renderDemoPanoramas();
    makeFolder(folder / "panoramas");
    const std::vector<std::string> files = writeViews(panoramas, folder / "panoramas");
    std::vector<std::pair<std::string, PanoramaResult>> results;
    results.emplace_back(
        "as ordinary photographs",
        runPanoramas(false, panoramas, files, folder / "panorama-as-ordinary", progress));
    results.emplace_back("with --panorama",
                         runPanoramas(true, panoramas, files, folder / "panorama", progress));
    printPanoramaTable(results, progress);
}

void printTable(const std::vector<std::pair<std::string, Result>>& results, Progress& progress) {
    progress.report(
        "\n| rows | keypoints | pairs | matches | within 2 px | verified | within 2 px | extract | "
        "match | verify |\n|---|---|---|---|---|---|---|---|---|---|",
        {{"event", "demo"}});
    for (const auto& [name, r] : results) {
        char line[256];
        std::snprintf(
            line, sizeof line,
            "| %s | %zu | %zu | %zu | %.1f %% | %zu | %.1f %% | %.2f s | %.2f s | %.2f s |",
            name.c_str(), r.keypoints, r.pairs, r.matches.count, r.matches.percent(),
            r.verified.count, r.verified.percent(), r.extractSeconds, r.matchSeconds,
            r.verifySeconds);
        progress.report(line, {{"event", "demo"},
                               {"features", name},
                               {"keypoints", r.keypoints},
                               {"pairs", r.pairs},
                               {"matches", r.matches.count},
                               {"matches_correct", r.matches.correct},
                               {"verified", r.verified.count},
                               {"verified_correct", r.verified.correct},
                               {"extract_seconds", r.extractSeconds},
                               {"match_seconds", r.matchSeconds},
                               {"verify_seconds", r.verifySeconds}});
    }
}

}  // namespace

void demo(const fs::path& folder, Progress& progress) {
    progress.message("Rendering views of a scene whose geometry is known");
    const std::vector<DemoView> views = renderDemoViews();
    makeFolder(folder / "photographs");
    const std::vector<std::string> files = writeViews(views, folder / "photographs");
    writeCameras(views, folder / "cameras.json");
    std::vector<std::pair<std::string, Result>> results;
    for (const std::string features : {"sift", "ldah"}) {
        progress.message("The whole chain with " + features + " features");
        results.emplace_back(features, runChain(features, views, files, folder, progress));
        stopIfInterrupted();
    }
    printTable(results, progress);
    showPanoramas(folder, progress);
    const std::string where = fs::absolute(folder).lexically_normal().string();
    progress.report("\nViews: " + where + "/photographs and " + where +
                        "/panoramas\nPictures: " + where + "/sift/pictures, " + where +
                        "/ldah/pictures and " + where + "/panorama/pictures",
                    {{"event", "done"}, {"folder", where}});
}

}  // namespace marlo::app
