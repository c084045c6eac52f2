// SPDX-License-Identifier: BSD-3-Clause
// Compares the LDAH codes of photographs with the SIFT rows of the same keypoints. See the usage
// text.
#include <Eigen/Core>
#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "ldah_tables/command_line.h"
#include "ldah_tables/mates.h"
#include "ldah_tables/photographs.h"
#include "ldah_tables/statistics.h"
#include "libfeatures/descriptors/ldah_codes.h"
#include "libfeatures/matchers/desc_matcher_dist_frac.h"

namespace marlo::tools {
namespace {

constexpr std::string_view kUsage =
    "usage: evaluate_codes [--keypoints N] [--side PIXELS] [--curves FILE.csv] FOLDER...\n"
    "Matches the photographs of each FOLDER by SIFT rows and by LDAH codes of the same keypoints,\n"
    "with \"DistFrac\" at its defaults, and counts the matches that geometry confirms: less than "
    "3\n"
    "pixels from the place by the homographies in the files H1to2p, H1to3p ... of the folder, or,\n"
    "without such files, less than 2 pixels from the epipolar line, for photographs next to each\n"
    "other by name and next but one.\n"
    "  --keypoints N   of each photograph, the strongest (3000)\n"
    "  --side PIXELS   longest side of photographs, larger ones are made smaller (1600); not with\n"
    "                  homographies\n"
    "  --curves FILE   matches and correct matches for ratios from 0.5 to 1, for plot_curves.py\n";

constexpr float kDefaultFraction = 0.8F;
constexpr std::size_t kFractions = 26;  // 0.5, 0.52 ... 1

struct Options {
    std::vector<std::string> folders;
    std::string curves;
    int keypoints = 3000;
    int longestSide = 1600;
};

Options parsed(const std::vector<std::string>& arguments) {
    Options options;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        if (argument == "--help") return {};
        if (argument.rfind("--", 0) != 0) {
            options.folders.push_back(argument);
            continue;
        }
        if (i + 1 == arguments.size()) throw std::invalid_argument(argument + " needs a value");
        const std::string& value = arguments[++i];
        if (argument == "--curves") {
            options.curves = value;
        } else if (argument == "--keypoints") {
            options.keypoints = wholeNumber(argument, value, 1);
        } else if (argument == "--side") {
            options.longestSide = wholeNumber(argument, value, 1);
        } else {
            throw std::invalid_argument("unknown option " + argument);
        }
    }
    if (options.folders.empty()) throw std::invalid_argument("no folder of photographs given");
    return options;
}

// Two images and which keypoints of theirs show the same.
struct ImagePair {
    const DescribedImage* first;
    const DescribedImage* second;
    bool planar;
    Eigen::Matrix3d matrix;  // the homography, or the fundamental matrix
    std::vector<Mate> mates;

    // How far a match is from what geometry says, in pixels.
    [[nodiscard]] float error(const Keypoint& a, const Keypoint& b) const {
        if (!planar) return epipolarDistance(matrix, a, b);
        const Eigen::Vector3d to =
            matrix * Eigen::Vector3d(static_cast<double>(a.x), static_cast<double>(a.y), 1.0);
        return static_cast<float>(std::hypot(to.x() / to.z() - static_cast<double>(b.x),
                                             to.y() / to.z() - static_cast<double>(b.y)));
    }
    [[nodiscard]] bool confirms(const DMatch& match) const {
        const float mostError = planar ? 3.0F : 2.0F;
        return error(first->keypoints[static_cast<std::size_t>(match.queryIndex)],
                     second->keypoints[static_cast<std::size_t>(match.trainIndex)]) < mostError;
    }
};

Eigen::Matrix3d readHomography(const std::string& path) {
    std::ifstream file(path);
    Eigen::Matrix3d matrix;
    for (int row = 0; row < 3; ++row) {
        for (int col = 0; col < 3; ++col) file >> matrix(row, col);
    }
    if (!file) throw std::runtime_error("cannot read " + path);
    return matrix;
}

std::vector<ImagePair> pairsOf(const std::string& folder, const Options& options,
                               std::vector<DescribedImage>& described) {
    const bool planar = std::filesystem::exists(folder + "/H1to2p");
    std::vector<FloatImage> images;
    for (const std::string& path : photographsIn(folder)) {
        images.push_back(
            readPhotograph(path, planar ? std::numeric_limits<int>::max() : options.longestSide));
        described.push_back(describe(images.back(), options.keypoints));
    }
    std::vector<ImagePair> pairs;
    if (planar) {
        if (images.size() > 9) {
            throw std::runtime_error(folder +
                                     " has homographies for more than 9 photographs: "
                                     "their names would not sort by number");
        }
        for (std::size_t i = 1; i < images.size(); ++i) {
            ImagePair pair{&described[0], &described[i], true, {}, {}};
            pair.matrix = readHomography(folder + "/H1to" + std::to_string(i + 1) + "p");
            pair.mates = matesAt(placesByHomography(pair.first->keypoints, pair.matrix,
                                                    images[i].rows(), images[i].cols()),
                                 pair.second->keypoints);
            pairs.push_back(std::move(pair));
        }
        return pairs;
    }
    for (std::size_t i = 0; i < images.size(); ++i) {
        for (std::size_t j = i + 1; j <= i + 2 && j < images.size(); ++j) {
            const EpipolarGeometry geometry = epipolarGeometry(described[i], described[j]);
            if (!geometry.found) continue;
            ImagePair pair{&described[i], &described[j], false, geometry.matrix, {}};
            pair.mates = matesAt(placesByNeighbours(*pair.first, *pair.second, geometry),
                                 pair.second->keypoints);
            pairs.push_back(std::move(pair));
        }
    }
    return pairs;
}

Counts countMatches(const ImagePair& pair, const DescMat& query, const DescMat& train,
                    float fraction) {
    DescMatcherDistFrac matcher;
    matcher.distanceFraction = fraction;
    Counts counts;
    for (const DMatch& match : matcher.match(query, train)) {
        ++counts.matches;
        if (pair.confirms(match)) ++counts.correct;
    }
    return counts;
}

float siftDistance(const DescribedImage& a, int i, const DescribedImage& b, int j) {
    const Eigen::Map<const Eigen::Array<float, 128, 1>> first(rowOf(a, i));
    const Eigen::Map<const Eigen::Array<float, 128, 1>> second(rowOf(b, j));
    return std::sqrt((first - second).square().sum());
}

float bitDistance(const DescMat& a, int i, const DescMat& b, int j) {
    std::uint64_t words[2][2];
    std::memcpy(words[0], a.data + static_cast<std::size_t>(i) * a.step, sizeof words[0]);
    std::memcpy(words[1], b.data + static_cast<std::size_t>(j) * b.step, sizeof words[1]);
    return static_cast<float>(std::popcount(words[0][0] ^ words[1][0]) +
                              std::popcount(words[0][1] ^ words[1][1]));
}

// Everything that is counted, of one folder or of all.
struct Evaluation {
    std::size_t pairs = 0;
    std::array<Counts, kFractions> sift;
    std::array<Counts, kFractions> ldah;
    Counts siftDefault;
    Counts ldahDefault;
    Distances siftDistances;
    Distances ldahDistances;

    void add(const Evaluation& other) {
        pairs += other.pairs;
        for (std::size_t i = 0; i < kFractions; ++i) {
            sift[i] += other.sift[i];
            ldah[i] += other.ldah[i];
        }
        siftDefault += other.siftDefault;
        ldahDefault += other.ldahDefault;
        append(siftDistances, other.siftDistances);
        append(ldahDistances, other.ldahDistances);
    }

    [[nodiscard]] double correctShare() const {
        return static_cast<double>(ldahDefault.correct) /
               static_cast<double>(std::max<std::size_t>(siftDefault.correct, 1));
    }

private:
    static void append(Distances& to, const Distances& from) {
        to.mates.insert(to.mates.end(), from.mates.begin(), from.mates.end());
        to.strangers.insert(to.strangers.end(), from.strangers.begin(), from.strangers.end());
    }
};

float fractionAt(std::size_t i) {
    return 0.5F + 0.02F * static_cast<float>(i);
}

void addDistances(const ImagePair& pair, const DescMat& codes1, const DescMat& codes2,
                  Evaluation& evaluation) {
    const auto add = [&](int i, int j, std::vector<float>& sift, std::vector<float>& ldah) {
        sift.push_back(siftDistance(*pair.first, i, *pair.second, j));
        ldah.push_back(bitDistance(codes1, i, codes2, j));
    };
    for (const Mate& mate : pair.mates) {
        add(mate.place.keypoint, mate.keypoint, evaluation.siftDistances.mates,
            evaluation.ldahDistances.mates);
    }
    if (pair.first->keypoints.empty() || pair.second->keypoints.empty()) return;
    constexpr int kStrangers = 20000;  // of each pair of images
    constexpr float kFarAway = 20.0F;  // pixels
    std::mt19937 random(1);
    for (int n = 0; n < kStrangers; ++n) {
        const auto i = static_cast<int>(random() % pair.first->keypoints.size());
        const auto j = static_cast<int>(random() % pair.second->keypoints.size());
        if (pair.error(pair.first->keypoints[static_cast<std::size_t>(i)],
                       pair.second->keypoints[static_cast<std::size_t>(j)]) < kFarAway) {
            continue;
        }
        add(i, j, evaluation.siftDistances.strangers, evaluation.ldahDistances.strangers);
    }
}

Evaluation evaluate(const std::string& folder, const Options& options) {
    std::vector<DescribedImage> described;
    described.reserve(photographsIn(folder).size());  // pairs point into it
    Evaluation evaluation;
    for (const ImagePair& pair : pairsOf(folder, options, described)) {
        ++evaluation.pairs;
        DescMat codes1;
        DescMat codes2;
        ldahRowsFromSift(pair.first->rows, codes1);
        ldahRowsFromSift(pair.second->rows, codes2);
        evaluation.siftDefault +=
            countMatches(pair, pair.first->rows, pair.second->rows, kDefaultFraction);
        evaluation.ldahDefault += countMatches(pair, codes1, codes2, kDefaultFraction);
        addDistances(pair, codes1, codes2, evaluation);
        if (options.curves.empty()) continue;
        for (std::size_t i = 0; i < kFractions; ++i) {
            evaluation.sift[i] +=
                countMatches(pair, pair.first->rows, pair.second->rows, fractionAt(i));
            evaluation.ldah[i] += countMatches(pair, codes1, codes2, fractionAt(i));
        }
    }
    return evaluation;
}

std::string nameOf(const std::filesystem::path& folder) {
    const std::filesystem::path plain = folder.lexically_normal();
    return (plain.has_filename() ? plain : plain.parent_path()).filename().string();
}

void printLine(const std::string& name, const Evaluation& e) {
    std::printf("| %-10s | %5zu | %7zu | %7.1f | %7zu | %7.1f | %7.3f |\n", name.c_str(), e.pairs,
                e.siftDefault.correct, e.siftDefault.precision(), e.ldahDefault.correct,
                e.ldahDefault.precision(), e.correctShare());
    std::fflush(stdout);
}

void writeCurves(const std::string& path, const Evaluation& all) {
    std::ofstream file(path);
    file << "rows,fraction,matches,correct\n";
    for (std::size_t i = 0; i < kFractions; ++i) {
        file << "SIFT," << fractionAt(i) << ',' << all.sift[i].matches << ',' << all.sift[i].correct
             << "\nLDAH," << fractionAt(i) << ',' << all.ldah[i].matches << ','
             << all.ldah[i].correct << '\n';
    }
    file.close();
    if (!file) throw std::runtime_error("cannot write " + path);
}

void run(const Options& options) {
    std::printf("tables %s\n\n", std::string(ldahTablesIdentifier()).c_str());
    std::printf(
        "| photographs | pairs | SIFT correct | precision %% | LDAH correct | precision %% | "
        "correct LDAH / SIFT |\n");
    std::printf("|---|---|---|---|---|---|---|\n");
    Evaluation all;
    for (const std::string& folder : options.folders) {
        const Evaluation evaluation = evaluate(folder, options);
        printLine(nameOf(folder), evaluation);
        all.add(evaluation);
    }
    printLine("all", all);
    if (!options.curves.empty()) writeCurves(options.curves, all);
    if (all.siftDistances.mates.empty() || all.siftDistances.strangers.empty()) return;
    const Distances& bits = all.ldahDistances;
    std::printf(
        "\nFalse positives among random pairs at 95 %% recall: SIFT %.3f %%, LDAH %.3f %%\n",
        100.0 * all.siftDistances.falsePositives(), 100.0 * bits.falsePositives());
    std::printf("Bits between mates: 5 %% %.0f, 50 %% %.0f, 95 %% %.0f, 99 %% %.0f (%zu mates)\n",
                static_cast<double>(bits.mateQuantile(5)),
                static_cast<double>(bits.mateQuantile(50)),
                static_cast<double>(bits.mateQuantile(95)),
                static_cast<double>(bits.mateQuantile(99)), bits.mates.size());
    std::printf("Bits between others: %.1f on average\n", bits.meanOfStrangers());
}

}  // namespace
}  // namespace marlo::tools

int main(int argc, char** argv) {
    using namespace marlo::tools;
    Options options;
    try {
        options = parsed({argv + 1, argv + argc});
    } catch (const std::exception& error) {
        std::cerr << "evaluate_codes: " << error.what() << '\n' << kUsage;
        return 2;
    }
    if (options.folders.empty()) {
        std::cout << kUsage;
        return 0;
    }
    try {
        run(options);
    } catch (const std::exception& error) {
        std::cerr << "evaluate_codes: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
