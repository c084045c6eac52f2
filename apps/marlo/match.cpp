// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/match.h"

#include <omp.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <limits>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include "libfeatures/base/extensible_factory.h"
#include "libfeatures/base/parameter_setters.h"
#include "libfeatures/matchers/i_descriptor_matcher.h"
#include "libfeatures/version.h"
#include "marlo/descriptor_bytes.h"
#include "marlo/gpu.h"
#include "marlo/interruption.h"
#include "marlo/library_log.h"
#include "marlo/pair_order.h"
#include "marlo/recently_used.h"
#include "marlo/similar_photographs.h"
#include "support/system.h"
#include "support/thread_count_guard.h"

namespace marlo::app {
namespace {

constexpr const char* kMatcherWithoutRatio = "LeftRight";
constexpr const char* kMatcherWithGpu = "DistFrac";  // for binary rows

PairOfIds ordered(std::int64_t a, std::int64_t b) {
    return a < b ? PairOfIds{a, b} : PairOfIds{b, a};
}

// The K of "sequence:K", if `kind` is of that form and `word` is "sequence:".
std::optional<std::size_t> numberBehind(std::string_view word, const std::string& kind) {
    if (!kind.starts_with(word)) return std::nullopt;
    int number = 0;
    const char* const begin = kind.data() + word.size();
    const char* const end = kind.data() + kind.size();
    const auto [rest, error] = std::from_chars(begin, end, number);
    if (error != std::errc() || rest != end || number < 1) {
        throw UsageError("--pairs " + std::string(word) + "K needs a whole number above 0, not '" +
                         begin + "'");
    }
    return static_cast<std::size_t>(number);
}

std::set<PairOfIds> pairsOfList(const std::string& path, const std::vector<Photograph>& all) {
    std::ifstream file(path);
    const auto refuse = [&] {
        throw std::runtime_error("the list of pairs " + path + " cannot be read");
    };
    if (!file || std::filesystem::is_directory(path)) refuse();
    std::map<std::string, std::int64_t> ids;
    for (const Photograph& photograph : all) ids[photograph.name] = photograph.id;
    std::set<PairOfIds> pairs;
    std::string line;
    for (int number = 1; std::getline(file, line); ++number) {
        const std::string where = path + ", line " + std::to_string(number) + ": ";
        std::istringstream words(line);
        std::string names[2];
        words >> std::ws;
        if (words.eof() || words.peek() == '#') continue;  // empty, or a comment
        std::string more;
        if (!(words >> std::quoted(names[0]) >> std::quoted(names[1])) || words >> more) {
            throw std::runtime_error(where + "two names of photographs are needed");
        }
        for (const std::string& name : names) {
            if (ids.count(name) == 0) {
                throw std::runtime_error(where +
                                         "the project has no photograph with features "
                                         "named '" +
                                         name + "'");
            }
        }
        if (ids[names[0]] != ids[names[1]]) pairs.insert(ordered(ids[names[0]], ids[names[1]]));
    }
    if (file.bad()) refuse();
    return pairs;
}

constexpr std::string_view kList = "list:";
constexpr std::string_view kSequence = "sequence:";
constexpr std::string_view kSimilar = "similar:";

void checkPairs(const std::string& kind) {
    if (kind == "all" || kind.starts_with(kList) || numberBehind(kSequence, kind) ||
        numberBehind(kSimilar, kind)) {
        return;
    }
    throw UsageError("--pairs is all, sequence:K, similar:K or list:FILE, not '" + kind + "'");
}

// Each with those that follow, `reach` of them.
std::set<PairOfIds> pairsInSequence(const std::vector<Photograph>& all, std::size_t reach) {
    std::set<PairOfIds> pairs;
    for (std::size_t i = 0; i < all.size(); ++i) {
        for (std::size_t j = i + 1; j < all.size() && j - i <= reach; ++j) {
            pairs.insert(ordered(all[i].id, all[j].id));
        }
    }
    return pairs;
}

// Photographs with features, by name.
std::vector<Photograph> byName(const Project& project) {
    std::vector<Photograph> all = photographsWithFeatures(project);
    std::sort(all.begin(), all.end(),
              [](const Photograph& a, const Photograph& b) { return a.name < b.name; });
    return all;
}

std::size_t rowBytesOf(const DescMat& rows) {
    return static_cast<std::size_t>(rows.rows) * rows.step;
}

std::size_t bytesOf(const Features& features) {
    return features.keypoints.size() * sizeof(Keypoint) + rowBytesOf(features.rows);
}

std::size_t mostFeatureBytes(const std::vector<Photograph>& photographs) {
    constexpr std::size_t kBytesOfKeypoint = sizeof(Keypoint) + 128 * sizeof(float);
    std::size_t most = 1;
    for (const Photograph& photograph : photographs) {
        most = std::max(most, static_cast<std::size_t>(photograph.keypoints) * kBytesOfKeypoint);
    }
    return most;
}

// How rows of one kind are matched.
struct Way {
    std::unique_ptr<IDescriptorMatcher> matcher;
    bool onGpu = false;
    std::string stamp;
};

// Where no ratio is given, the one that gives the most points at the accuracy of a stricter one,
// once geometry has been verified.
Way wayFor(const std::string& features, const MatchOptions& options) {
    constexpr float kRatioOfRows = 0.85F;
    constexpr float kRatioOfCodes = 0.9F;
    check(options, features);
    Way way;
    way.onGpu = options.matcher == kMatcherWithGpu && features == "ldah" && gpuIsUsable();
    way.matcher = extensibleFactoryInstance<IDescriptorMatcher>().create(options.matcher +
                                                                         (way.onGpu ? "Cuda" : ""));
    // Nothing of the GPU, which has the same matches.
    nlohmann::json parameters = {{"matcher", options.matcher}, {"library", libraryVersion()}};
    if (features == "sift") parameters["distance"] = options.distance;
    if (options.matcher != kMatcherWithoutRatio) {
        constexpr unsigned kMostBits = 50;
        constexpr float kMostDistance = 1000000.0F;
        const float ratio =
            options.ratio.value_or(features == "ldah" ? kRatioOfCodes : kRatioOfRows);
        parameters["ratio"] = ratio;
        // Both forms of rows: the setters are told apart by the type of the first limit.
        setDescriptorMatcherDistFracParams(way.matcher.get(), kMostBits, ratio);
        setDescriptorMatcherDistFracParams(way.matcher.get(), kMostDistance, ratio);
    }
    way.stamp = parameters.dump();
    return way;
}

// The matcher of the GPU says nothing when it goes to the CPU: because the GPU failed, if there are
// rows enough for it.
bool gpuHasFailed(const IDescriptorMatcher& matcher, const Features& first,
                  const Features& second) {
    constexpr int kFewestRowsForGpu = 1024;
    return first.rows.rows >= kFewestRowsForGpu && second.rows.rows >= kFewestRowsForGpu &&
           matcher.kernelName().startsWith(QLatin1String("CPU"));
}

void sayWhereMatched(const std::map<std::string, Way>& ways, const MatchOptions& options,
                     Progress& progress) {
    if (std::any_of(ways.begin(), ways.end(), [](const auto& way) { return way.second.onGpu; })) {
        sayGpuInUse(progress);
    } else if (options.gpuIsWanted) {
        progress.warning(
            "--gpu on: the GPU matches LDAH codes with --matcher DistFrac only; all "
            "is matched on the CPU");
    }
}

std::string tablesOf(const Photograph& photograph) {
    return nlohmann::json::parse(photograph.stamp).value("tables", "");
}

// Why the rows of two photographs cannot be compared; empty if they can.
std::string incomparable(const Photograph& first, const Photograph& second) {
    if (featuresOf(first) != featuresOf(second)) {
        return "one has SIFT and the other LDAH rows; extract both anew (--force)";
    }
    if (tablesOf(first) != tablesOf(second)) {
        return "their LDAH codes are of different tables; extract both anew (--force)";
    }
    return "";
}

std::set<PairOfIds> pairsOf(const std::string& kind, const std::vector<Photograph>& all,
                            const Project& project, Progress& progress) {
    if (kind.starts_with(kList)) return pairsOfList(kind.substr(kList.size()), all);
    if (const auto most = numberBehind(kSimilar, kind)) {
        const auto kindOfRows = [](const Photograph& photograph) {
            return featuresOf(photograph) + tablesOf(photograph);
        };
        return pairsOfSimilar(project, all, *most, kindOfRows, progress);
    }
    constexpr std::size_t kAll = std::numeric_limits<std::size_t>::max();
    return pairsInSequence(all, numberBehind(kSequence, kind).value_or(kAll));
}

PairMatches matchPair(const IDescriptorMatcher& matcher, const Features& first,
                      const Features& second) {
    PairMatches found;
    if (first.keypoints.empty() || second.keypoints.empty()) return found;
    // A matcher may set the number of threads for its caller.
    const ThreadCountGuard keep;
    const std::vector<DMatch> matches = matcher.match(first.rows, second.rows);
    found.matches.resize(static_cast<Eigen::Index>(matches.size()), 2);
    for (std::size_t i = 0; i < matches.size(); ++i) {
        found.matches.row(static_cast<Eigen::Index>(i))
            << static_cast<std::uint32_t>(matches[i].queryIndex),
            static_cast<std::uint32_t>(matches[i].trainIndex);
        found.scores.push_back(matches[i].distance);
    }
    return found;
}

}  // namespace

void check(const MatchOptions& options, const std::string& features) {
    checkPairs(options.pairs);
    const bool mutualOnly = options.matcher == kMatcherWithoutRatio;
    if (mutualOnly && features == "sift") {
        throw UsageError(
            "--matcher LeftRight is for LDAH codes; SIFT features need "
            "DistFracMutual or DistFrac");
    }
    if (mutualOnly && options.ratio) {
        throw UsageError("--matcher LeftRight has no ratio test: leave --ratio out");
    }
}

Outcome match(const MatchOptions& options, Project& project, Progress& progress) {
    check(options, project.setting("features").value_or(""));
    const std::vector<Photograph> photographs = byName(project);
    if (photographs.size() < 2) {
        throw std::runtime_error("The project " + project.folder().string() + " has " +
                                 std::to_string(photographs.size()) +
                                 " photographs with features; two are needed for a pair. Add some "
                                 "with `marlo extract`.");
    }
    const auto memory = static_cast<std::size_t>(availableMemory() / 4);
    const std::vector<PairOfIds> wanted =
        inBlocks(pairsOf(options.pairs, photographs, project, progress),
                 memory / 2 / mostFeatureBytes(photographs));
    Outcome outcome;
    outcome.interrupted = interruption() != 0;
    if (outcome.interrupted) return outcome;
    if (wanted.empty()) progress.warning("there are no pairs to match");
    std::map<std::int64_t, const Photograph*> byId;
    std::map<std::string, Way> ways;  // by the features
    for (const Photograph& photograph : photographs) {
        byId[photograph.id] = &photograph;
        const std::string features = featuresOf(photograph);
        if (ways.count(features) == 0) ways.emplace(features, wayFor(features, options));
    }
    const auto wayOf = [&](std::int64_t id) -> const Way& {
        return ways.at(featuresOf(*byId.at(id)));
    };
    sayWhereMatched(ways, options, progress);
    // Features that are replaced take their pairs along, so a pair that is there is of these.
    std::set<PairOfIds> done;
    for (const Pair& pair : project.pairs()) {
        if (pair.matchStamp == wayOf(pair.first).stamp) done.insert({pair.first, pair.second});
    }

    const ThreadCountGuard keep;
    omp_set_num_threads(options.threads > 0 ? options.threads : system::noLogicalCPUs());
    LibraryLog libraryLog(LibraryLog::Errors::said);
    RecentlyUsed<Features> cache(memory);
    const bool hellinger = options.distance == "hellinger";
    const auto loaded = [&](std::int64_t id) {
        return cache.get(
            id,
            [&](std::int64_t i) {
                Features features = project.features(i);
                if (hellinger && features.rows.type() == DescMat::Float) {
                    features.rows = hellingerRows(features.rows);
                }
                return features;
            },
            bytesOf);
    };
    bool failureSaid = false;
    progress.begin("match", "pairs", wanted.size());
    for (const PairOfIds& pair : wanted) {
        if (interruption() != 0) {
            outcome.interrupted = true;
            break;
        }
        const Photograph& first = *byId.at(pair.first);
        const Photograph& second = *byId.at(pair.second);
        const std::string reason = incomparable(first, second);
        if (!options.force && done.count(pair) != 0) {
            ++outcome.skipped;
        } else if (!reason.empty()) {
            ++outcome.failed;
            progress.failed(first.name + " and " + second.name, reason);
        } else {
            const Way& way = wayOf(pair.first);
            const auto firstFeatures = loaded(pair.first);
            const auto secondFeatures = loaded(pair.second);
            project.putMatches(pair.first, pair.second,
                               matchPair(*way.matcher, *firstFeatures, *secondFeatures), way.stamp);
            libraryLog.sayWarnings(progress);
            if (way.onGpu && !failureSaid &&
                gpuHasFailed(*way.matcher, *firstFeatures, *secondFeatures)) {
                progress.warning(gpuFailureText({}));
                failureSaid = true;
            }
            ++outcome.done;
        }
        progress.advance();
    }
    progress.end();
    return outcome;
}

}  // namespace marlo::app
