// SPDX-License-Identifier: BSD-3-Clause
// How well histograms of descriptors tell which photographs show the same thing, with the library's
// visual words and with others, and how fast they are made. The same photographs give the same
// figures, but for the times.
#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <limits>
#include <numeric>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "end_to_end/selection_photographs.h"
#include "libfeatures/base/detail/float_search.h"
#include "libfeatures/base/detail/hamming_instance.h"
#include "libfeatures/base/detail/hamming_search.h"
#include "libfeatures/base/registration.h"
#include "libfeatures/descriptors/ldah_codes.h"
#include "libfeatures/histogram/feature_histogram.h"
#include "libfeatures/histogram/random_descriptors.h"
#include "support/detail/sift_distance_kernels.h"
#include "support/system.h"
#include "utilities/machine.h"
#include "utilities/random.h"
#include "utilities/timing.h"

namespace marlo::bench {
namespace {

namespace fs = std::filesystem;

constexpr const char* kUsage =
    "usage: histogram_bench FOLDER... [--others FOLDER]... [--keypoints N]\n"
    "Ranks, for each photograph of each FOLDER, all other photographs by the distance of their\n"
    "histograms, and prints how far in front those of the same FOLDER are. All photographs of one\n"
    "FOLDER must show the same thing.\n"
    "  --others FOLDER  photographs that show none of these things; some of their descriptors are\n"
    "                   words to compare with (else some of all photographs)\n"
    "  --keypoints N    the strongest of each photograph (default 1400)\n";

constexpr int kWords = 1024;

struct Options {
    std::vector<std::string> folders;
    std::vector<std::string> others;
    std::size_t keypoints = 1400;
};

bool parse(int argc, char** argv, Options& options) {
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (!argument.starts_with("-")) {
            options.folders.emplace_back(argument);
            continue;
        }
        if (++i == argc) return false;
        const std::string_view value = argv[i];
        if (argument == "--others") {
            options.others.emplace_back(value);
            continue;
        }
        const auto [end, error] =
            std::from_chars(value.data(), value.data() + value.size(), options.keypoints);
        if (argument != "--keypoints" || error != std::errc{} ||
            end != value.data() + value.size() || options.keypoints == 0) {
            return false;
        }
    }
    return !options.folders.empty();
}

// A photograph's SIFT rows or LDAH rows, and the number of its folder.
struct Rows {
    DescMat rows;
    std::size_t folder;
};

DescMat someRows(const DescMat& all, const std::vector<unsigned int>& which) {
    DescMat some(static_cast<int>(which.size()), all.cols, all.type());
    for (std::size_t i = 0; i < which.size(); ++i) {
        DescMat row = some.row(static_cast<int>(i));
        all.row(static_cast<int>(which[i])).copyTo(row);
    }
    return some;
}

std::vector<Rows> readRows(const Options& options) {
    std::vector<std::string> folders = options.folders;
    folders.insert(folders.end(), options.others.begin(), options.others.end());
    std::vector<Rows> photographs;
    for (std::size_t folder = 0; folder < folders.size(); ++folder) {
        for (const std::string& path : photographsIn(folders[folder])) {
            const DescribedPhotograph described = describePhotograph(path);
            const std::size_t count = std::min(options.keypoints, described.keypoints.size());
            if (count == 0) throw std::runtime_error("no keypoints in " + path);
            photographs.push_back(
                {someRows(described.rows, selectKeypoints(described, "TOP", count)), folder});
        }
    }
    return photographs;
}

std::vector<Rows> codesOf(const std::vector<Rows>& photographs) {
    std::vector<Rows> codes;
    for (const Rows& photograph : photographs) {
        codes.push_back({DescMat(), photograph.folder});
        ldahRowsFromSift(photograph.rows, codes.back().rows);
    }
    return codes;
}

// The nearest word of each row.
std::vector<std::uint32_t> nearestWords(const DescMat& rows, const DescMat& words) {
    std::vector<std::uint32_t> nearest;
    if (rows.type() == DescMat::Float) {
        std::vector<detail::TwoNearestFloat> found(static_cast<std::size_t>(rows.rows));
        detail::FloatTrain(*detail::fastest(detail::screenKernels()), rows, words)
            .search(0, rows.rows, found.data(), nullptr);
        for (const auto& of : found) nearest.push_back(of.index);
    } else {
        std::vector<detail::TwoNearestBits> found(static_cast<std::size_t>(rows.rows));
        detail::withHammingInstance(
            system::hasPOPCNT(), rows.cols, [&]<system::popcnt_t P, int N>() {
                detail::HammingTrain<N>(*detail::fastest(detail::hammingKernels<P, N>()), words)
                    .search(rows, 0, rows.rows, found.data(), nullptr);
            });
        for (const auto& of : found) nearest.push_back(of.index);
    }
    return nearest;
}

using Histograms = std::vector<FeatureHistogram>;

Histograms histogramsOf(const std::vector<Rows>& photographs, const DescMat& words) {
    Histograms histograms;
    for (const Rows& photograph : photographs) {
        histograms.emplace_back(DescriptorType::LDAH);
        for (const std::uint32_t word : nearestWords(photograph.rows, words)) {
            ++histograms.back().bins[word];
        }
    }
    return histograms;
}

// So that all counts add up to 2^24.
Histograms scaled(Histograms histograms) {
    for (FeatureHistogram& histogram : histograms) {
        const std::uint64_t sum =
            std::accumulate(histogram.bins.begin(), histogram.bins.end(), std::uint64_t{0});
        for (std::uint32_t& bin : histogram.bins) {
            bin = static_cast<std::uint32_t>(((std::uint64_t{bin} << 24) + sum / 2) / sum);
        }
    }
    return histograms;
}

// Bits that tell which word a descriptor of the first `count` photographs belongs to.
double entropy(const Histograms& histograms, std::size_t count) {
    std::array<double, kWords> sums{};
    double total = 0.0;
    for (std::size_t i = 0; i < count; ++i) {
        for (std::size_t word = 0; word < kWords; ++word) {
            sums[word] += histograms[i].bins[word];
            total += histograms[i].bins[word];
        }
    }
    double bits = 0.0;
    for (const double sum : sums) {
        if (sum > 0.0) bits -= sum / total * std::log2(sum / total);
    }
    return bits;
}

// Of the ranks of those that count: the mean share of them among all up to each.
double averagePrecision(const std::vector<bool>& counts) {
    double found = 0.0;
    double sum = 0.0;
    for (std::size_t rank = 0; rank < counts.size(); ++rank) {
        if (!counts[rank]) continue;
        found += 1.0;
        sum += found / static_cast<double>(rank + 1);
    }
    return sum / found;
}

// The mean over the photographs of the first `folders` folders, ranked among the first `count`
// photographs by what distanceOf(i, j) gives.
template <typename DistanceOf>
double meanAveragePrecision(const std::vector<Rows>& photographs, std::size_t count,
                            std::size_t folders, DistanceOf&& distanceOf) {
    double sum = 0.0;
    double queries = 0.0;
    for (std::size_t i = 0; i < count && photographs[i].folder < folders; ++i) {
        std::vector<std::pair<double, std::size_t>> ranked;
        for (std::size_t j = 0; j < count; ++j) {
            if (j != i) ranked.emplace_back(distanceOf(i, j), j);
        }
        std::sort(ranked.begin(), ranked.end());
        std::vector<bool> same;
        for (const auto& [distance, j] : ranked) {
            same.push_back(photographs[j].folder == photographs[i].folder);
        }
        sum += averagePrecision(same);
        queries += 1.0;
    }
    return sum / queries;
}

struct Collection {
    std::vector<Rows> photographs;
    std::size_t folders = 0;  // the first ones are to be told apart
    std::size_t ofThem = 0;   // photographs, which are the first
};

double precisionOf(const Collection& all, std::size_t count, const Histograms& histograms) {
    return meanAveragePrecision(all.photographs, count, all.folders, [&](auto i, auto j) {
        return static_cast<double>(histograms[i].distance(histograms[j]));
    });
}

double chance(const Collection& all, std::size_t count) {
    constexpr int kRepeats = 200;
    Random random(5);
    double sum = 0.0;
    for (int i = 0; i < kRepeats; ++i) {
        sum += meanAveragePrecision(all.photographs, count, all.folders,
                                    [&](auto, auto) { return double{random.next()}; });
    }
    return sum / kRepeats;
}

void report(const char* words, const Collection& all, const Histograms& histograms) {
    std::printf("| %s | %.2f | %.3f | %.3f |\n", words, entropy(histograms, all.ofThem),
                precisionOf(all, all.ofThem, histograms),
                precisionOf(all, all.photographs.size(), histograms));
}

// Even in the cube of non-negative elements, of length 1.
DescMat evenFloats(std::uint32_t seed) {
    Random random(seed);
    DescMat words(kWords, 128, DescMat::Float);
    for (int i = 0; i < kWords; ++i) {
        auto* const values = reinterpret_cast<float*>(words.row(i).data);
        std::generate(values, values + 128, [&] { return random.next(); });
        const float norm = std::sqrt(std::inner_product(values, values + 128, values, 0.0F));
        std::for_each(values, values + 128, [norm](float& value) { value /= norm; });
    }
    return words;
}

DescMat evenBits(std::uint32_t seed) {
    Random random(seed);
    DescMat words(kWords, 16, DescMat::Byte);
    for (std::size_t i = 0; i < std::size_t{kWords} * 16; ++i) {
        words.data[i] = static_cast<unsigned char>(random.nextBits() >> 56);
    }
    return words;
}

// Rows of the photographs that are only there to be ranked behind, or of all if there are none.
DescMat sampled(const Collection& all, std::uint32_t seed) {
    Random random(seed);
    const std::size_t first = all.ofThem < all.photographs.size() ? all.ofThem : 0;
    const DescMat& like = all.photographs[0].rows;
    DescMat words(kWords, like.cols, like.type());
    for (int i = 0; i < kWords; ++i) {
        const DescMat& rows =
            all.photographs[first + random.nextBits() % (all.photographs.size() - first)].rows;
        DescMat row = words.row(i);
        rows.row(static_cast<int>(random.nextBits() % static_cast<std::uint64_t>(rows.rows)))
            .copyTo(row);
    }
    return words;
}

// What scaling the counts is for: every other photograph has a quarter of its keypoints.
void reportUnequal(const Collection& all, const DescMat& words) {
    Collection unequal{{}, all.folders, all.ofThem};
    for (std::size_t i = 0; i < all.photographs.size(); ++i) {
        const DescMat& rows = all.photographs[i].rows;
        std::vector<unsigned int> kept(static_cast<std::size_t>(rows.rows) / (i % 2 == 0 ? 1 : 4));
        std::iota(kept.begin(), kept.end(), 0U);
        unequal.photographs.push_back({someRows(rows, kept), all.photographs[i].folder});
    }
    const Histograms histograms = histogramsOf(unequal.photographs, words);
    std::printf("every other photograph with a quarter of its rows: %.3f by counts, %.3f scaled\n",
                precisionOf(unequal, all.photographs.size(), histograms),
                precisionOf(unequal, all.photographs.size(), scaled(histograms)));
}

void compareWords(const char* name, const Collection& all, const DescMat& own,
                  DescMat (*even)(std::uint32_t)) {
    std::printf(
        "\n%s\n\n| words | entropy, bits | precision | with the others |\n|---|---|---|---|\n",
        name);
    std::printf("| by chance | | %.3f | %.3f |\n", chance(all, all.ofThem),
                chance(all, all.photographs.size()));
    report("the library's", all, histogramsOf(all.photographs, own));
    for (const std::uint32_t seed : {1U, 2U, 3U}) {
        report("even", all, histogramsOf(all.photographs, even(seed)));
    }
    for (const std::uint32_t seed : {1U, 2U, 3U}) {
        report("sampled from photographs", all, histogramsOf(all.photographs, sampled(all, seed)));
    }
    std::printf("\n");
    reportUnequal(all, own);
}

const unsigned char* rowAt(const DescMat& matrix, int row) {
    return matrix.data + static_cast<std::size_t>(row) * matrix.step;
}

// Distance by distance, each by the library's fastest kernel for one.
std::uint32_t plainNearestFloats(const unsigned char* row, const DescMat& words) {
    const auto distance = detail::fastest(detail::siftDistanceKernels());
    std::uint32_t best = 0;
    float least = std::numeric_limits<float>::max();
    for (int word = 0; word < words.rows; ++word) {
        const float d = distance(reinterpret_cast<const float*>(row),
                                 reinterpret_cast<const float*>(rowAt(words, word)), words.cols);
        if (d < least) {
            least = d;
            best = static_cast<std::uint32_t>(word);
        }
    }
    return best;
}

// Distance by distance, with the processor's instruction for counting bits.
#if defined(__x86_64__)
[[gnu::target("popcnt")]]
#endif
std::uint32_t
plainNearestBits(const unsigned char* row, const DescMat& words) {
    std::uint64_t own[2];
    std::memcpy(own, row, sizeof own);
    std::uint32_t best = 0;
    int least = std::numeric_limits<int>::max();
    for (int word = 0; word < words.rows; ++word) {
        std::uint64_t other[2];
        std::memcpy(other, words.data + 16 * static_cast<std::size_t>(word), sizeof other);
        const int d =
            __builtin_popcountll(own[0] ^ other[0]) + __builtin_popcountll(own[1] ^ other[1]);
        if (d < least) {
            least = d;
            best = static_cast<std::uint32_t>(word);
        }
    }
    return best;
}

void reportSpeed(const char* name, const DescMat& rows, const DescMat& words) {
    constexpr int kRepeats = 7;
    const bool floats = rows.type() == DescMat::Float;
    FeatureHistogram histogram(floats ? DescriptorType::SIFT : DescriptorType::LDAH);
    std::vector<std::uint32_t> plain;
    const double plainSeconds = leastSecondsOf(kRepeats, [&] {
        plain.assign(kWords, 0);
        for (int row = 0; row < rows.rows; ++row) {
            ++plain[floats ? plainNearestFloats(rowAt(rows, row), words)
                           : plainNearestBits(rowAt(rows, row), words)];
        }
    });
    const double seconds = leastSecondsOf(kRepeats, [&] { histogram.classify(rows); });
    std::printf(
        "%s: %d rows, classify %.2f million rows/s, plain scan %.3f, ratio %.1f, counts %s\n", name,
        rows.rows, 1e-6 * rows.rows / seconds, 1e-6 * rows.rows / plainSeconds,
        plainSeconds / seconds, plain == histogram.bins ? "equal" : "DIFFER");
}

void run(const Options& options) {
    registerMainKeypointSelectors();
    std::printf("%s, %s %s, one thread\n", processorName().c_str(), compilerName().c_str(),
                compilerFlags().c_str());
    DescMat siftWords;
    DescMat ldahWords;
    std::printf("words made in %.1f ms (SIFT), %.1f ms (LDAH)\n",
                1e3 * secondsOf([&] { fillRandomSift(siftWords, kWords); }),
                1e3 * secondsOf([&] { fillRandomLdah(ldahWords, kWords); }));

    Collection sift{readRows(options), options.folders.size(), 0};
    while (sift.ofThem < sift.photographs.size() &&
           sift.photographs[sift.ofThem].folder < sift.folders) {
        ++sift.ofThem;
    }
    const Collection ldah{codesOf(sift.photographs), sift.folders, sift.ofThem};
    std::printf("%zu photographs of %zu things, %zu others; up to %zu keypoints each\n",
                sift.ofThem, sift.folders, sift.photographs.size() - sift.ofThem,
                options.keypoints);
    reportSpeed("SIFT", sift.photographs[0].rows, siftWords);
    reportSpeed("LDAH", ldah.photographs[0].rows, ldahWords);
    compareWords("SIFT rows", sift, siftWords, evenFloats);
    compareWords("LDAH rows", ldah, ldahWords, evenBits);
}

}  // namespace
}  // namespace marlo::bench

int main(int argc, char** argv) {
    marlo::bench::Options options;
    if (!marlo::bench::parse(argc, argv, options)) {
        std::fputs(marlo::bench::kUsage, stderr);
        return 2;
    }
    try {
        marlo::bench::run(options);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "histogram_bench: %s\n", error.what());
        return 1;
    }
    return 0;
}
