// SPDX-License-Identifier: BSD-3-Clause
// What it buys to spread the selected keypoints over the image: coverage, correct matches and the
// error of the geometry that they give, for each selector and several numbers of keypoints. The
// same photographs give the same figures.
#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <opencv2/core.hpp>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <tuple>
#include <utility>
#include <vector>

#include "end_to_end/pair_geometry.h"
#include "end_to_end/selection_photographs.h"
#include "libfeatures/base/coverage.h"
#include "libfeatures/base/registration.h"
#include "libfeatures/matchers/desc_matcher_dist_frac_mutual.h"

namespace marlo::bench {
namespace {

namespace fs = std::filesystem;

constexpr const char* kUsage =
    "usage: selection_quality_bench FOLDER... [--keypoints N,N...] [--csv FILE]\n"
    "Prints tables of what each selector makes of the photographs of each FOLDER. With files\n"
    "H1to2p, H1to3p ... that hold homographies the first photograph by name is matched with each\n"
    "other one, without them each photograph with the next.\n"
    "  --keypoints N,N...  how many to select (default 500,1000,2000,5000)\n"
    "  --csv FILE          the same figures, for plot_selection.py\n";

struct Options {
    std::vector<std::string> folders;
    std::vector<std::size_t> counts{500, 1000, 2000, 5000};
    std::string csv;
};

bool parseCounts(std::string_view text, std::vector<std::size_t>& counts) {
    counts.clear();
    const char* next = text.data();
    const char* const end = next + text.size();
    while (true) {
        const auto [after, error] = std::from_chars(next, end, counts.emplace_back());
        if (error != std::errc{} || counts.back() == 0) return false;
        if (after == end) return true;
        if (*after != ',') return false;
        next = after + 1;
    }
}

bool parse(int argc, char** argv, Options& options) {
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (!argument.starts_with("-")) {
            options.folders.emplace_back(argument);
            continue;
        }
        if (++i == argc) return false;
        if (argument == "--csv") {
            options.csv = argv[i];
        } else if (argument != "--keypoints" || !parseCounts(argv[i], options.counts)) {
            return false;
        }
    }
    return !options.folders.empty();
}

struct Selection {
    std::string selector;   // empty: none, which keeps all
    std::size_t count = 0;  // 0: the selector decides
};

bool operator<(const Selection& a, const Selection& b) {
    return std::tie(a.selector, a.count) < std::tie(b.selector, b.count);
}

constexpr std::array kWithoutNumber{"", "Default"};
constexpr std::array kWithNumber{"TOP",      "ANMS", "ANMSBound", "ANMSOri",
                                 "ANMSOrig", "SDC",  "SDCOri"};

std::vector<Selection> selectionsOf(const std::vector<std::size_t>& counts) {
    std::vector<Selection> selections;
    for (const char* const selector : kWithoutNumber) selections.push_back({selector, 0});
    for (const char* const selector : kWithNumber) {
        for (const std::size_t count : counts) selections.push_back({selector, count});
    }
    return selections;
}

class Mean {
public:
    void add(double value) {
        sum_ += value;
        ++count_;
    }
    [[nodiscard]] double value() const { return sum_ / static_cast<double>(count_); }

private:
    double sum_ = 0.0;
    std::size_t count_ = 0;
};

// Means over photographs, and over pairs.
struct Figures {
    Mean keypoints;
    Mean occupiedCells;
    Mean nearestNeighbourRatio;
    Mean matches;
    Mean correct;
    Mean correctCells;  // of the first photograph, with correct matches
    Mean error;
};
using AllFigures = std::map<Selection, Figures>;

// A photograph and what is kept of its keypoints by each selection.
struct SelectedPhotograph {
    DescribedPhotograph described;
    std::vector<std::vector<unsigned int>> kept;

    [[nodiscard]] cv::Size size() const { return {described.width, described.height}; }
};

SelectedPhotograph select(const std::string& path, const std::vector<Selection>& selections,
                          AllFigures& figures) {
    SelectedPhotograph photograph{describePhotograph(path), {}};
    for (const Selection& selection : selections) {
        photograph.kept.push_back(
            selectKeypoints(photograph.described, selection.selector, selection.count));
        std::vector<Keypoint> keypoints;
        for (const unsigned int i : photograph.kept.back()) {
            keypoints.push_back(photograph.described.keypoints[i]);
        }
        const Coverage measured =
            coverage(keypoints, photograph.described.width, photograph.described.height);
        Figures& mean = figures[selection];
        mean.keypoints.add(static_cast<double>(keypoints.size()));
        mean.occupiedCells.add(measured.occupiedCells);
        mean.nearestNeighbourRatio.add(measured.nearestNeighbourRatio);
    }
    return photograph;
}

PointPairs matched(const SelectedPhotograph& first, const SelectedPhotograph& second,
                   std::size_t selection) {
    const std::vector<unsigned int>& kept1 = first.kept[selection];
    const std::vector<unsigned int>& kept2 = second.kept[selection];
    PointPairs pairs;
    for (const DMatch& match : DescMatcherDistFracMutual().matchSubset(
             first.described.rows, second.described.rows, kept1, kept2)) {
        const Keypoint& a = first.described.keypoints[kept1[match.queryIndex]];
        const Keypoint& b = second.described.keypoints[kept2[match.trainIndex]];
        pairs.first.emplace_back(a.x, a.y);
        pairs.second.emplace_back(b.x, b.y);
    }
    return pairs;
}

// Without a file of a homography all keypoints' matches are the reference.
void addPair(const SelectedPhotograph& first, const SelectedPhotograph& second,
             const std::string& homography, const std::vector<Selection>& selections,
             AllFigures& figures) {
    std::unique_ptr<PairGeometry> geometry;
    for (std::size_t i = 0; i < selections.size(); ++i) {
        const PointPairs matches = matched(first, second, i);
        if (i == 0) {  // all keypoints
            geometry = homography.empty()
                           ? epipolarReference(matches, first.size())
                           : knownHomography(homography, first.size(), second.size());
        }
        std::vector<Keypoint> correct;
        const std::vector<bool> confirmed = geometry->confirmed(matches);
        for (std::size_t m = 0; m < confirmed.size(); ++m) {
            if (confirmed[m]) correct.emplace_back(matches.first[m].x, matches.first[m].y);
        }
        Figures& mean = figures[selections[i]];
        mean.matches.add(static_cast<double>(matches.first.size()));
        mean.correct.add(static_cast<double>(correct.size()));
        mean.correctCells.add(
            coverage(correct, first.described.width, first.described.height).occupiedCells);
        mean.error.add(geometry->errorOfEstimate(matches));
    }
}

AllFigures measure(const std::string& folder, const std::vector<Selection>& selections) {
    const auto homography = [&](std::size_t number) {
        return folder + "/H1to" + std::to_string(number) + "p";
    };
    const bool planar = fs::exists(homography(2));
    AllFigures figures;
    std::vector<SelectedPhotograph> photographs;  // the first, or the one before
    std::size_t number = 0;
    for (const std::string& path : photographsIn(folder)) {
        ++number;
        photographs.push_back(select(path, selections, figures));
        if (number == 1) continue;
        addPair(photographs[0], photographs[1], planar ? homography(number) : "", selections,
                figures);
        photographs.erase(planar ? photographs.begin() + 1 : photographs.begin());
    }
    return figures;
}

// "a / b / c", one for each number of keypoints.
std::string joined(const AllFigures& figures, const std::string& selector, Mean Figures::*figure,
                   const char* format, double factor = 1.0) {
    std::string text;
    for (const auto& [selection, mean] : figures) {  // by number
        if (selection.selector != selector) continue;
        if (!text.empty()) text += " / ";
        text += cv::format(format, factor * (mean.*figure).value());
    }
    return text;
}

void print(const std::string& name, const AllFigures& figures) {
    std::printf(
        "\n%s\n\n| selector | keypoints | cells with keypoints, %% | nearest-neighbour ratio | "
        "correct matches | cells with these, %% | error, pixels |\n|---|---|---|---|---|---|---|\n",
        name.c_str());
    std::vector<std::string> selectors(kWithNumber.begin(), kWithNumber.end());
    selectors.insert(selectors.end(), kWithoutNumber.rbegin(), kWithoutNumber.rend());
    for (const std::string& selector : selectors) {
        std::printf("| %s | %s | %s | %s | %s | %s | %s |\n",
                    selector.empty() ? "all keypoints" : selector.c_str(),
                    joined(figures, selector, &Figures::keypoints, "%.0f").c_str(),
                    joined(figures, selector, &Figures::occupiedCells, "%.0f", 100.0).c_str(),
                    joined(figures, selector, &Figures::nearestNeighbourRatio, "%.2f").c_str(),
                    joined(figures, selector, &Figures::correct, "%.0f").c_str(),
                    joined(figures, selector, &Figures::correctCells, "%.0f", 100.0).c_str(),
                    joined(figures, selector, &Figures::error, "%.2f").c_str());
    }
    std::fflush(stdout);
}

void writeLines(std::ostream& file, const std::string& name, const AllFigures& figures) {
    for (const auto& [selection, mean] : figures) {
        file << name << ',' << selection.selector << ',' << selection.count << ','
             << mean.keypoints.value() << ',' << mean.occupiedCells.value() << ','
             << mean.nearestNeighbourRatio.value() << ',' << mean.matches.value() << ','
             << mean.correct.value() << ',' << mean.correctCells.value() << ','
             << mean.error.value() << '\n';
    }
}

std::string nameOf(const fs::path& folder) {
    const fs::path plain = folder.lexically_normal();
    return (plain.has_filename() ? plain : plain.parent_path()).filename().string();
}

void run(const Options& options) {
    registerMainKeypointSelectors();
    const std::vector<Selection> selections = selectionsOf(options.counts);
    std::printf("Means of each set; numbers of keypoints to select:");
    for (const std::size_t count : options.counts) std::printf(" %zu", count);
    std::printf(". OpenCV %s.\n", CV_VERSION);
    std::ofstream csv;
    if (!options.csv.empty()) csv.open(options.csv);
    csv << "set,selector,requested,keypoints,occupied_cells,nearest_neighbour_ratio,matches,"
           "correct,correct_cells,error\n";
    for (const std::string& folder : options.folders) {
        const AllFigures figures = measure(folder, selections);
        print(nameOf(folder), figures);
        writeLines(csv, nameOf(folder), figures);
    }
    csv.close();
    if (!options.csv.empty() && !csv) throw std::runtime_error("cannot write " + options.csv);
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
        std::fprintf(stderr, "selection_quality_bench: %s\n", error.what());
        return 1;
    }
    return 0;
}
