// SPDX-License-Identifier: BSD-3-Clause
// Finds keypoints of photographs that show the same, by geometry, and writes their SIFT rows for
// learn_tables.py. See the usage text.
#include <Eigen/Core>
#include <algorithm>
#include <cstdint>
#include <exception>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "ldah_tables/command_line.h"
#include "ldah_tables/mates.h"
#include "ldah_tables/photographs.h"
#include "ldah_tables/synthetic_views.h"

namespace marlo::tools {
namespace {

constexpr std::string_view kUsage =
    "usage: collect_mates [options] SAMPLES FOLDER...\n"
    "Writes to the file SAMPLES pairs of keypoints that show the same, found in the photographs "
    "of\n"
    "each FOLDER: in photographs that follow each other by name and show one scene, and in each\n"
    "photograph and synthetic views of it.\n"
    "  --keypoints N   of each photograph, the strongest (3000)\n"
    "  --side PIXELS   longest side of photographs, larger ones are made smaller (1600)\n"
    "  --views N       synthetic views of each photograph (8)\n"
    "  --apart N       how far apart by name photographs of one scene may be (3)\n";

struct Options {
    std::string output;
    std::vector<std::string> folders;
    int keypoints = 3000;
    int longestSide = 1600;
    int views = 8;
    int apart = 3;
};

Options parsed(const std::vector<std::string>& arguments) {
    Options options;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        if (argument == "--help") return {};
        if (argument.rfind("--", 0) != 0) {
            if (options.output.empty()) {
                options.output = argument;
            } else {
                options.folders.push_back(argument);
            }
            continue;
        }
        int* const value = argument == "--keypoints" ? &options.keypoints
                           : argument == "--side"    ? &options.longestSide
                           : argument == "--views"   ? &options.views
                           : argument == "--apart"   ? &options.apart
                                                     : nullptr;
        if (value == nullptr) throw std::invalid_argument("unknown option " + argument);
        if (i + 1 == arguments.size()) throw std::invalid_argument(argument + " needs a number");
        const bool mayBeNone = value == &options.views || value == &options.apart;
        *value = wholeNumber(argument, arguments[++i], mayBeNone ? 0 : 1);
    }
    if (options.folders.empty()) throw std::invalid_argument("no folder of photographs given");
    return options;
}

// The file: for each pair of images the numbers of mates and of second keypoints, the rows of the
// mates' first keypoints, the index of their second ones, for each mate (x, y, radius) around which
// keypoints of the second image are no strangers, then position and row of every second keypoint.
// Numbers of 4 bytes in the machine's order; learn_tables.py reads it.
class SampleFile {
public:
    explicit SampleFile(const std::string& path)
        : path_(path), file_(path, std::ios::binary | std::ios::trunc) {
        if (!file_) throw std::runtime_error("cannot write " + path);
    }

    void append(const DescribedImage& first, const DescribedImage& second,
                const std::vector<Mate>& mates) {
        constexpr std::size_t kRowBytes = 128 * sizeof(float);
        const std::int32_t counts[2] = {static_cast<std::int32_t>(mates.size()),
                                        static_cast<std::int32_t>(second.keypoints.size())};
        write(counts, sizeof counts);
        for (const Mate& mate : mates) write(rowOf(first, mate.place.keypoint), kRowBytes);
        for (const Mate& mate : mates) write(&mate.keypoint, sizeof(std::int32_t));
        for (const Mate& mate : mates) {
            const float radius = std::max(10.0F, 4.0F * mate.place.scale);
            const float around[3] = {mate.place.x, mate.place.y, radius};
            write(around, sizeof around);
        }
        for (const Keypoint& keypoint : second.keypoints) {
            const float position[2] = {keypoint.x, keypoint.y};
            write(position, sizeof position);
        }
        for (int i = 0; i < second.rows.rows; ++i) write(rowOf(second, i), kRowBytes);
        mates_ += mates.size();
        ++pairs_;
    }

    void finish() {
        file_.flush();
        if (!file_) throw std::runtime_error("cannot write all of " + path_);
        if (mates_ == 0) throw std::runtime_error("the photographs have no mates");
        std::cout << pairs_ << " pairs of images, " << mates_ << " mates\n";
    }

private:
    void write(const void* data, std::size_t bytes) {
        file_.write(static_cast<const char*>(data), static_cast<std::streamsize>(bytes));
    }

    std::string path_;
    std::ofstream file_;
    std::size_t mates_ = 0;
    std::size_t pairs_ = 0;
};

void collectFolder(const std::string& folder, const Options& options, SampleFile& samples) {
    const std::vector<std::string> paths = photographsIn(folder);
    std::vector<DescribedImage> described;
    for (std::size_t i = 0; i < paths.size(); ++i) {
        const FloatImage image = readPhotograph(paths[i], options.longestSide);
        described.push_back(describe(image, options.keypoints));
        const DescribedImage& first = described.back();
        std::cout << paths[i] << ": " << first.keypoints.size() << " keypoints, mates";
        for (int view = 0; view < options.views; ++view) {
            // The name decides, so that one more photograph in the folder changes nothing else.
            std::uint64_t seed = static_cast<std::uint64_t>(view) + 1;
            for (const char c : paths[i].substr(paths[i].find_last_of('/') + 1)) {
                seed = seed * 1099511628211U + static_cast<unsigned char>(c);
            }
            const SyntheticView synthetic = syntheticView(image, seed);
            const DescribedImage second = describe(synthetic.image, options.keypoints);
            const std::vector<Mate> mates =
                matesAt(placesByHomography(first.keypoints, synthetic.homography, image.rows(),
                                           image.cols()),
                        second.keypoints);
            samples.append(first, second, mates);
            std::cout << ' ' << mates.size();
        }
        const std::size_t before = i < static_cast<std::size_t>(options.apart)
                                       ? 0
                                       : i - static_cast<std::size_t>(options.apart);
        for (std::size_t j = before; j < i; ++j) {
            const EpipolarGeometry geometry = epipolarGeometry(first, described[j]);
            if (!geometry.found) continue;
            const std::vector<Mate> mates =
                matesAt(placesByNeighbours(first, described[j], geometry), described[j].keypoints);
            samples.append(first, described[j], mates);
            std::cout << " +" << mates.size();
        }
        std::cout << std::endl;
    }
}

}  // namespace
}  // namespace marlo::tools

int main(int argc, char** argv) {
    using namespace marlo::tools;
    Options options;
    try {
        options = parsed({argv + 1, argv + argc});
    } catch (const std::exception& error) {
        std::cerr << "collect_mates: " << error.what() << '\n' << kUsage;
        return 2;
    }
    if (options.folders.empty()) {
        std::cout << kUsage;
        return 0;
    }
    try {
        // Before the file is begun, which may replace another.
        for (const std::string& folder : options.folders) photographsIn(folder);
        SampleFile samples(options.output);
        for (const std::string& folder : options.folders) collectFolder(folder, options, samples);
        samples.finish();
    } catch (const std::exception& error) {
        std::cerr << "collect_mates: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
