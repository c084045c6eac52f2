// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/match.h"

#include <omp.h>

#include <algorithm>
#include <charconv>
#include <fstream>
#include <iomanip>
#include <limits>
#include <list>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <stdexcept>

#include "libfeatures/base/extensible_factory.h"
#include "libfeatures/base/parameter_setters.h"
#include "libfeatures/matchers/i_descriptor_matcher.h"
#include "libfeatures/version.h"
#include "marlo/interruption.h"
#include "support/system.h"
#include "support/thread_count_guard.h"

namespace marlo::app {
namespace {

using PairOfIds = std::pair<std::int64_t, std::int64_t>;

PairOfIds ordered(std::int64_t a, std::int64_t b) {
    return a < b ? PairOfIds{a, b} : PairOfIds{b, a};
}

int sequenceLength(const std::string& text) {
    int length = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, length);
    if (error != std::errc() || rest != end || length < 1) {
        throw std::invalid_argument("--pairs sequence:K needs a whole number above 0, not '" +
                                    text + "'");
    }
    return length;
}

std::set<PairOfIds> pairsOfList(const std::string& path, const std::vector<Photograph>& all) {
    std::ifstream file(path);
    if (!file) throw std::runtime_error("the list of pairs " + path + " cannot be read");
    std::map<std::string, std::int64_t> ids;
    for (const Photograph& photograph : all) ids[photograph.name] = photograph.id;
    std::set<PairOfIds> pairs;
    std::string line;
    for (int number = 1; std::getline(file, line); ++number) {
        const std::string where = path + ", line " + std::to_string(number) + ": ";
        std::istringstream words(line);
        std::string names[2];
        if (!(words >> std::quoted(names[0]))) continue;  // an empty line
        if (names[0].rfind('#', 0) == 0) continue;
        std::string more;
        if (!(words >> std::quoted(names[1])) || words >> more) {
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
    return pairs;
}

bool isList(const std::string& kind) {
    return kind.rfind("list:", 0) == 0;
}

// How many of the photographs that follow by name one is matched with, by a kind that is no list.
std::size_t reach(const std::string& kind) {
    if (kind == "all") return std::numeric_limits<std::size_t>::max();
    if (kind.rfind("sequence:", 0) == 0) {
        return static_cast<std::size_t>(sequenceLength(kind.substr(9)));
    }
    throw std::invalid_argument("--pairs is all, sequence:K or list:FILE, not '" + kind + "'");
}

std::set<PairOfIds> pairsOf(const std::string& kind, const std::vector<Photograph>& all) {
    if (isList(kind)) return pairsOfList(kind.substr(5), all);
    const std::size_t length = reach(kind);
    std::set<PairOfIds> pairs;
    for (std::size_t i = 0; i < all.size(); ++i) {
        for (std::size_t j = i + 1; j < all.size() && j - i <= length; ++j) {
            pairs.insert(ordered(all[i].id, all[j].id));
        }
    }
    return pairs;
}

// Photographs with features, by name.
std::vector<Photograph> withFeatures(const Project& project) {
    std::vector<Photograph> all = project.photographs();
    all.erase(
        std::remove_if(all.begin(), all.end(),
                       [](const Photograph& p) { return p.status != PhotographStatus::done; }),
        all.end());
    std::sort(all.begin(), all.end(),
              [](const Photograph& a, const Photograph& b) { return a.name < b.name; });
    return all;
}

// The features used last stay in memory, up to an amount.
class FeatureCache {
public:
    FeatureCache(const Project& project, std::size_t mostBytes)
        : project_(project), mostBytes_(mostBytes) {}

    std::shared_ptr<const Features> get(std::int64_t id) {
        const auto found = std::find_if(entries_.begin(), entries_.end(),
                                        [&](const Entry& entry) { return entry.id == id; });
        if (found != entries_.end()) {
            entries_.splice(entries_.begin(), entries_, found);
            return entries_.front().features;
        }
        auto features = std::make_shared<const Features>(project_.features(id));
        const std::size_t bytes =
            features->keypoints.size() * sizeof(Keypoint) +
            static_cast<std::size_t>(features->rows.rows) * features->rows.step;
        entries_.push_front({id, bytes, features});
        bytes_ += bytes;
        while (bytes_ > mostBytes_ && entries_.size() > 2) {
            bytes_ -= entries_.back().bytes;
            entries_.pop_back();
        }
        return features;
    }

private:
    struct Entry {
        std::int64_t id;
        std::size_t bytes;
        std::shared_ptr<const Features> features;
    };
    const Project& project_;
    std::size_t mostBytes_;
    std::size_t bytes_ = 0;
    std::list<Entry> entries_;
};

std::unique_ptr<IDescriptorMatcher> makeMatcher(const MatchOptions& options) {
    auto matcher = extensibleFactoryInstance<IDescriptorMatcher>().create(options.matcher);
    if (options.ratio) {
        constexpr unsigned kMostBits = 50;
        constexpr float kMostDistance = 1000000.0F;
        // Both forms of rows: the setters are told apart by the type of the first limit.
        setDescriptorMatcherDistFracParams(matcher.get(), kMostBits, *options.ratio);
        setDescriptorMatcherDistFracParams(matcher.get(), kMostDistance, *options.ratio);
    }
    return matcher;
}

// Why the rows of two photographs cannot be compared; empty if they can.
std::string incomparable(const Photograph& first, const Photograph& second) {
    const auto made = [](const Photograph& photograph, const char* key) {
        return nlohmann::json::parse(photograph.stamp).value(key, "");
    };
    if (made(first, "features") != made(second, "features")) {
        return "one has SIFT and the other LDAH rows; extract both anew (--force)";
    }
    if (made(first, "tables") != made(second, "tables")) {
        return "their LDAH codes are of different tables; extract both anew (--force)";
    }
    return "";
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
    if (!isList(options.pairs)) reach(options.pairs);
    const bool mutualOnly = options.matcher == "LeftRight";
    if (mutualOnly && features == "sift") {
        throw std::invalid_argument(
            "--matcher LeftRight is for LDAH codes; SIFT features need "
            "DistFracMutual or DistFrac");
    }
    if (mutualOnly && options.ratio) {
        throw std::invalid_argument("--matcher LeftRight has no ratio test: leave --ratio out");
    }
}

Outcome match(const MatchOptions& options, Project& project, Progress& progress) {
    check(options, project.setting("features").value_or(""));
    const std::vector<Photograph> photographs = withFeatures(project);
    if (photographs.size() < 2) {
        throw std::runtime_error("The project " + project.folder().string() + " has " +
                                 std::to_string(photographs.size()) +
                                 " photographs with features; two are needed for a pair. Add some "
                                 "with `marlo extract`.");
    }
    const std::set<PairOfIds> wanted = pairsOf(options.pairs, photographs);
    const std::unique_ptr<IDescriptorMatcher> matcher = makeMatcher(options);
    std::map<std::int64_t, const Photograph*> byId;
    for (const Photograph& photograph : photographs) byId[photograph.id] = &photograph;
    std::map<PairOfIds, std::string> done;
    for (const Pair& pair : project.pairs()) done[{pair.first, pair.second}] = pair.matchStamp;

    const ThreadCountGuard keep;
    omp_set_num_threads(options.threads > 0 ? options.threads : system::noLogicalCPUs());
    FeatureCache cache(project, static_cast<std::size_t>(availableMemory() / 4));
    Outcome outcome;
    progress.begin("match", "pairs", wanted.size());
    for (const PairOfIds& pair : wanted) {
        if (interruption() != 0) {
            outcome.interrupted = true;
            break;
        }
        // Features that are replaced take their pairs along, so a pair that is there is of these.
        nlohmann::json parameters = {{"matcher", options.matcher}, {"library", libraryVersion()}};
        if (options.ratio) parameters["ratio"] = *options.ratio;
        const std::string stamp = parameters.dump();
        const auto known = done.find(pair);
        if (!options.force && known != done.end() && known->second == stamp) {
            ++outcome.skipped;
            progress.advance();
            continue;
        }
        const std::shared_ptr<const Features> first = cache.get(pair.first);
        const std::shared_ptr<const Features> second = cache.get(pair.second);
        const std::string reason = incomparable(*byId[pair.first], *byId[pair.second]);
        if (!reason.empty()) {
            ++outcome.failed;
            const std::string names = byId[pair.first]->name + " and " + byId[pair.second]->name;
            progress.report("failed: " + names + ": " + reason,
                            {{"event", "failed"}, {"name", names}, {"reason", reason}});
        } else {
            project.putMatches(pair.first, pair.second, matchPair(*matcher, *first, *second),
                               stamp);
            ++outcome.done;
        }
        progress.advance();
    }
    progress.end();
    return outcome;
}

}  // namespace marlo::app
