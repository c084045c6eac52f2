// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/extract.h"

#include <omp.h>
#include <sys/sysinfo.h>

#include <QString>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <fstream>
#include <limits>
#include <mutex>
#include <new>
#include <nlohmann/json.hpp>
#include <opencv2/core/mat.hpp>
#include <stdexcept>

#include "libfeatures/base/features_controller.h"
#include "libfeatures/descriptors/ldah_codes.h"
#include "libfeatures/version.h"
#include "marlo/descriptor_bytes.h"
#include "marlo/edge_test.h"
#include "marlo/gpu.h"
#include "marlo/interruption.h"
#include "marlo/library_log.h"
#include "marlo/ordered_work.h"
#include "marlo/working_image.h"
#include "support/system.h"

namespace marlo::app {
namespace {

namespace fs = std::filesystem;

// A photograph in work: decoded, grey and its scale space (35 bytes a pixel), with room to spare.
constexpr std::uint64_t kBytesPerPixel = 64;
constexpr std::uint64_t kBytesPerPhotograph = std::uint64_t{64} << 20;
constexpr std::uint64_t kUnknownPixels = 24'000'000;  // where the header does not say

std::uint64_t sizeOf(const fs::path& path) {
    std::error_code error;
    const std::uintmax_t bytes = fs::file_size(path, error);
    return error ? 0 : bytes;
}

std::uint64_t pixelsAtMost(const fs::path& path, std::uint64_t fileBytes) {
    const std::uint64_t pixels = pixelsByHeader(path);
    // A file that is not compressed has a byte for each pixel at least.
    return pixels > 0 ? pixels : std::max(kUnknownPixels, fileBytes);
}

// Lets images begin while all of them together need less than the limit, and any one alone.
class MemoryBudget {
public:
    explicit MemoryBudget(std::uint64_t limit) : limit_(limit) {}

    class Share {
    public:
        Share(MemoryBudget& budget, std::uint64_t bytes) : budget_(budget), bytes_(bytes) {
            std::unique_lock<std::mutex> lock(budget_.mutex_);
            budget_.changed_.wait(lock, [&] {
                return budget_.used_ == 0 || budget_.used_ + bytes_ <= budget_.limit_;
            });
            budget_.used_ += bytes_;
        }
        ~Share() {
            const std::lock_guard<std::mutex> lock(budget_.mutex_);
            budget_.used_ -= bytes_;
            budget_.changed_.notify_all();
        }
        Share(const Share&) = delete;
        Share& operator=(const Share&) = delete;

    private:
        MemoryBudget& budget_;
        std::uint64_t bytes_;
    };

private:
    std::uint64_t limit_;
    std::uint64_t used_ = 0;
    std::mutex mutex_;
    std::condition_variable changed_;
};

void removeMasked(const cv::Mat& mask, const WorkingImage& working,
                  std::vector<Keypoint>& keypoints) {
    const auto isMasked = [&](const Keypoint& keypoint) {
        const cv::Point2d point = working.inPhotograph(keypoint);
        const int col = std::clamp(static_cast<int>(std::lround(point.x)), 0, mask.cols - 1);
        const int row = std::clamp(static_cast<int>(std::lround(point.y)), 0, mask.rows - 1);
        return mask.at<std::uint8_t>(row, col) == 0;
    };
    keypoints.erase(std::remove_if(keypoints.begin(), keypoints.end(), isMasked), keypoints.end());
}

std::string controllerKey(const std::string& features) {
    if (features == "sift") return "SIFT";
    if (features == "ldah") return "LDAH";
    throw std::runtime_error("--features is sift or ldah, not '" + features + "'");
}

fs::path maskPath(const fs::path& masks, const PhotographFile& file) {
    return masks / (file.name + ".png");
}

// What one photograph has given.
struct Extracted {
    bool skipped = false;
    std::string failure;
    bool outOfMemory = false;
    std::string stamp;
    Camera camera;
    Features features;
    DescMat bytes;
    double seconds = 0.0;
};

class Extractor {
public:
    Extractor(const PhotographFiles& files, const std::vector<Photograph>& photographs,
              const ExtractOptions& options, std::uint64_t memory)
        : files_(files), photographs_(photographs), options_(options), budget_(memory) {}

    Extracted run(std::size_t i) {
        Extracted extracted;
        const auto begin = std::chrono::steady_clock::now();
        try {
            LibraryLog::clearErrors();
            fill(i, extracted);
        } catch (const std::bad_alloc&) {
            extracted.outOfMemory = true;
            extracted.failure =
                "needs more memory than there is; make it smaller with --max-size, "
                "or give fewer --threads";
        } catch (const std::exception& error) {
            extracted.failure = error.what();
        }
        extracted.seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
        return extracted;
    }

private:
    void fill(std::size_t i, Extracted& extracted) {
        const PhotographFile& file = files_.files[i];
        const Photograph& known = photographs_[i];
        if (!options_.force && known.status == PhotographStatus::done &&
            known.stamp == stamp(file, contentHash(file.path))) {
            extracted.skipped = true;
            return;
        }
        const std::uint64_t fileBytes = sizeOf(file.path);
        const MemoryBudget::Share share(
            budget_, pixelsAtMost(file.path, fileBytes) * kBytesPerPixel *
                             (options_.enlargeBelow > 0 ? 4 : 1) * (options_.panorama ? 3 : 2) / 2 +
                         fileBytes + kBytesPerPhotograph);
        DecodedPhotograph photograph =
            decodePhotograph(file.path, DecodeOptions{options_.applyOrientation});
        extracted.camera = photograph.camera;
        extracted.stamp = stamp(file, photograph.contentHash);
        const cv::Mat mask = maskOf(file, photograph.grey);
        const bool isPanorama = options_.panorama && isFullPanorama(photograph.grey);
        if (isPanorama) {
            extracted.camera.focalLength = 0.0;
            extracted.camera.focalLengthKnown = false;
        }
        WorkingImage working(std::move(photograph.grey),
                             {options_.longestSide, options_.enlargeBelow, isPanorama});
        detectAndDescribe(working, mask, extracted);
    }

    [[nodiscard]] bool isFullPanorama(const FloatImage& grey) const {
        if (grey.cols() == 2 * grey.rows()) return true;
        if (options_.allowNonSpherical) return false;
        throw std::runtime_error("is " + std::to_string(grey.cols()) + " x " +
                                 std::to_string(grey.rows()) +
                                 " pixels and so no full panorama, which is twice as wide as high "
                                 "(--allow-non-spherical takes it as an ordinary photograph)");
    }

    void detectAndDescribe(WorkingImage& working, const cv::Mat& mask, Extracted& extracted) const {
        const QString key = QString::fromStdString(controllerKey(options_.features));
        // A new controller for each photograph: some selectors keep records between calls.
        FeaturesController controller(key, key, QString::fromStdString(options_.selector),
                                      QStringLiteral("Default"));
        controller.setFeatureSetParams(working.scale(), working.height(), working.width(),
                                       options_.keypoints);
        std::vector<Keypoint> found;
        controller.detect(working.image(), found);
        LibraryLog::throwErrors();
        working.keepOneOfEach(found);
        if (!mask.empty()) removeMasked(mask, working, found);
        if (options_.edgeRatio > 0.0) {
            removeEdges(working.image(), working.scale(), options_.edgeRatio, found);
        }
        Features& features = extracted.features;
        if (!found.empty()) {
            controller.select(found, features.keypoints);
            LibraryLog::throwErrors();
        }
        allocateDescriptors(features.rows, 0, options_.features == "sift");
        if (features.keypoints.size() > kMostKeypoints) {
            throw std::runtime_error("has " + std::to_string(features.keypoints.size()) +
                                     " keypoints; a project can hold " +
                                     std::to_string(kMostKeypoints) +
                                     " of a photograph (--keypoints)");
        }
        if (!features.keypoints.empty()) {
            controller.compute(working.image(), features.keypoints, features.rows);
            LibraryLog::throwErrors();
        }
        for (Keypoint& keypoint : features.keypoints) {
            const cv::Point2d point = working.inPhotograph(keypoint);
            keypoint.x = static_cast<float>(point.x);
            keypoint.y = static_cast<float>(point.y);
        }
        if (options_.features == "sift") extracted.bytes = siftBytesForColmap(features.rows);
    }

    [[nodiscard]] bool hasMask(const PhotographFile& file) const {
        return options_.masks && fs::exists(maskPath(*options_.masks, file));
    }

    // Empty if there is none.
    [[nodiscard]] cv::Mat maskOf(const PhotographFile& file, const FloatImage& grey) const {
        if (!hasMask(file)) return {};
        return readMask(maskPath(*options_.masks, file), grey.rows(), grey.cols());
    }

    // All that the features depend on.
    [[nodiscard]] std::string stamp(const PhotographFile& file, const std::string& content) const {
        nlohmann::json all = {{"content", content},
                              {"features", options_.features},
                              {"selector", options_.selector},
                              {"keypoints", options_.keypoints},
                              {"max_size", options_.longestSide},
                              {"enlarge_below", options_.enlargeBelow},
                              {"edge_ratio", options_.edgeRatio},
                              {"orientation", options_.applyOrientation},
                              {"library", libraryVersion()}};
        if (options_.panorama) all["panorama"] = true;
        if (options_.features == "ldah") all["tables"] = ldahTablesIdentifier();
        if (hasMask(file)) all["mask"] = contentHash(maskPath(*options_.masks, file));
        return all.dump();
    }

    const PhotographFiles& files_;
    const std::vector<Photograph>& photographs_;
    const ExtractOptions& options_;
    MemoryBudget budget_;
};

// Only to a folder in which some of the photographs are found, so that a wrong one, or a disk that
// is not there, does no harm.
void moveBase(const std::string& from, const PhotographFiles& files, const ExtractOptions& options,
              Project& project) {
    const std::vector<Photograph> photographs = project.photographs();
    const bool found = std::any_of(
        photographs.begin(), photographs.end(),
        [&](const Photograph& photograph) { return fs::exists(files.base / photograph.name); });
    if (!found && !photographs.empty()) {
        throw ProjectError("The photographs of the project " + project.folder().string() +
                           " lay in " + from + ", which is gone, and none of them is in " +
                           files.base.string() +
                           ". Give the folder that they are in now, or use another project (-o).");
    }
    if (options.prune) {
        throw UsageError("The photographs have moved from " + from + " to " + files.base.string() +
                         ". Run once without --prune first.");
    }
    project.putSetting("photographs", files.base.string());
}

// A project's photographs lie below one folder, and names are paths from there.
PhotographFiles belowProjectFolder(const PhotographFiles& files, const ExtractOptions& options,
                                   Project& project, Progress& progress) {
    const std::optional<std::string> known = project.setting("photographs");
    if (!known) {
        project.putSetting("photographs", files.base.string());
        return files;
    }
    if (!fs::exists(*known)) {
        moveBase(*known, files, options, project);
        progress.message("The photographs have moved from " + *known + " to " +
                         files.base.string());
        return files;
    }
    PhotographFiles renamed{*known, {}};
    for (const PhotographFile& file : files.files) {
        const fs::path name = file.path.lexically_relative(*known);
        if (name.empty() || *name.begin() == "..") {
            throw ProjectError("The photographs of the project " + project.folder().string() +
                               " lie in " + *known + ", and " + file.path.string() +
                               " does not. Use another project folder (-o).");
        }
        renamed.files.push_back({name.generic_string(), file.path});
    }
    return renamed;
}

std::string namesOf(const std::vector<Photograph>& photographs) {
    constexpr std::size_t kMost = 3;
    std::string names;
    for (std::size_t i = 0; i < std::min(kMost, photographs.size()); ++i) {
        names += (i == 0 ? "" : ", ") + photographs[i].name;
    }
    return photographs.size() > kMost ? names + ", ..." : names;
}

void removeOrReportGone(const PhotographFiles& files, const ExtractOptions& options,
                        Project& project, Progress& progress) {
    std::vector<Photograph> gone = project.photographs();
    std::erase_if(gone, [&](const Photograph& photograph) {
        return fs::exists(files.base / photograph.name);
    });
    if (gone.empty()) return;
    const std::string what =
        std::to_string(gone.size()) + " of the project's photographs (" + namesOf(gone) + ") ";
    if (!options.prune) {
        progress.warning(what + "are not in " + files.base.string() +
                         " any more; --prune removes them from the project");
        return;
    }
    for (const Photograph& photograph : gone) project.remove(photograph);
    progress.message(what + "have been removed from it");
}

void reportMasks(const PhotographFiles& files, const fs::path& masks, Progress& progress) {
    const auto used = std::count_if(
        files.files.begin(), files.files.end(),
        [&](const PhotographFile& file) { return fs::exists(maskPath(masks, file)); });
    if (used > 0) {
        progress.message(std::to_string(used) + " of " + std::to_string(files.files.size()) +
                         " photographs have a mask");
        return;
    }
    progress.warning("no photograph has a mask in " + masks.string() + "; that of " +
                     files.files.front().name + " would be " +
                     maskPath(masks, files.files.front()).string());
}

void checkFeatures(const ExtractOptions& options, Project& project) {
    const std::optional<std::string> known = project.setting("features");
    if (known && *known != options.features && !options.force) {
        throw ProjectError("The project " + project.folder().string() + " holds " + *known +
                           " features, which cannot be matched with " + options.features +
                           ". Use another project folder (-o), or --force to replace them all.");
    }
    project.putSetting("features", options.features);
    project.putSetting("ldah_tables", std::string(ldahTablesIdentifier()));
}

}  // namespace

std::uint64_t availableMemory() {
    struct sysinfo info = {};
    std::uint64_t bytes = std::uint64_t{1} << 30;
    if (sysinfo(&info) == 0) bytes = std::uint64_t{info.totalram} * info.mem_unit;
    // Every control group on the way up may have a limit.
    std::string group;
    std::ifstream groups("/proc/self/cgroup");
    for (std::string line; std::getline(groups, line);) {
        if (line.rfind("0::/", 0) == 0) group = line.substr(4);
    }
    for (fs::path at = group;; at = at.parent_path()) {
        std::uint64_t limit = 0;
        std::ifstream file(fs::path("/sys/fs/cgroup") / at / "memory.max");
        if (file >> limit) bytes = std::min(bytes, limit);
        if (at.empty()) return bytes;
    }
}

std::uint64_t parseMemory(const std::string& text) {
    std::size_t used = 0;
    double value = 0.0;
    try {
        value = std::stod(text, &used);
    } catch (const std::exception&) {
        used = 0;
    }
    const std::string unit = text.substr(used);
    double factor = 0.0;
    if (unit.empty() || unit == "B") factor = 1.0;
    if (unit == "K" || unit == "KiB") factor = 0x1p10;
    if (unit == "M" || unit == "MiB") factor = 0x1p20;
    if (unit == "G" || unit == "GiB") factor = 0x1p30;
    if (unit == "T" || unit == "TiB") factor = 0x1p40;
    if (used == 0 || factor == 0.0 || !(value * factor >= 1.0) || value * factor >= 0x1p62) {
        throw UsageError("'" + text + "' is not an amount of memory such as 8G or 500M");
    }
    return static_cast<std::uint64_t>(value * factor);
}

Outcome extract(const PhotographFiles& given, const ExtractOptions& options, Project& project,
                Progress& progress) {
    controllerKey(options.features);
    const PhotographFiles files = belowProjectFolder(given, options, project, progress);
    checkFeatures(options, project);
    removeOrReportGone(files, options, project, progress);
    if (options.masks) reportMasks(files, *options.masks, progress);
    std::vector<std::string> names;
    for (const PhotographFile& file : files.files) names.push_back(file.name);
    const std::vector<Photograph> photographs = project.addPhotographs(names);

    sayGpuInUse(progress);
    LibraryLog libraryLog(LibraryLog::Errors::thrown);
    const int threads = options.threads > 0 ? options.threads : system::noLogicalCPUs();
    const auto workers =
        std::clamp<std::size_t>(names.size(), 1, static_cast<std::size_t>(threads));
    const int threadsOfEach = std::max(1, threads / static_cast<int>(workers));
    const std::uint64_t memory = options.memory > 0 ? options.memory : availableMemory() / 2;
    Extractor extractor(files, photographs, options, memory);
    Outcome outcome;
    bool outOfMemory = false;
    std::size_t replaced = 0;
    std::size_t perhapsPanoramas = 0;
    progress.begin("extract", "photographs", names.size());
    const auto produce = [&](std::size_t i) {
        omp_set_num_threads(threadsOfEach);
        return extractor.run(i);
    };
    const auto consume = [&](std::size_t i, Extracted&& extracted) {
        libraryLog.sayWarnings(progress);
        Photograph photograph = photographs[i];
        photograph.stamp = extracted.stamp;
        photograph.seconds = extracted.seconds;
        if (extracted.skipped) {
            ++outcome.skipped;
        } else if (!extracted.failure.empty()) {
            ++outcome.failed;
            outOfMemory = outOfMemory || extracted.outOfMemory;
            // What was done before, from another content or with other parameters, stays.
            if (photograph.status != PhotographStatus::done) {
                project.putFailure(photograph, extracted.failure);
            }
            progress.failed(names[i], extracted.failure);
        } else {
            project.putFeatures(photograph, extracted.camera, extracted.features, extracted.bytes);
            ++outcome.done;
            if (photograph.status == PhotographStatus::done && !options.force) ++replaced;
            const Camera& camera = extracted.camera;
            perhapsPanoramas += !options.panorama && camera.width == 2 * camera.height ? 1 : 0;
        }
        progress.advance();
    };
    workInOrder(names.size(), workers, produce, consume, [] { return interruption() != 0; });
    progress.end();
    if (perhapsPanoramas > 0) {
        progress.message(std::to_string(perhapsPanoramas) +
                         " photographs are twice as wide as high and have been taken as ordinary "
                         "ones; if they are full panoramas, give --panorama");
    }
    if (replaced > 0) {
        progress.message(std::to_string(replaced) +
                         " photographs had features of other content or parameters, which have "
                         "been replaced; their matches are gone");
    }
    outcome.interrupted = interruption() != 0;
    if (outOfMemory && outcome.done + outcome.skipped == 0) {
        throw OutOfSpace("No photograph could be extracted for want of memory.");
    }
    return outcome;
}

}  // namespace marlo::app
