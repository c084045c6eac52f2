// SPDX-License-Identifier: BSD-3-Clause
#include "ldah_tables/photographs.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <stdexcept>

#include "libfeatures/detectors/features_2d_sift_ldah.h"
#include "libfeatures/selectors/feature_selector_top.h"

namespace marlo::tools {
namespace {

constexpr int kFloats = 128;

bool isPhotograph(const std::filesystem::path& path) {
    static constexpr std::array kEndings{".jpg", ".jpeg", ".png", ".pgm", ".ppm", ".tif", ".tiff"};
    std::string ending = path.extension().string();
    std::transform(ending.begin(), ending.end(), ending.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    return std::find(kEndings.begin(), kEndings.end(), ending) != kEndings.end();
}

float* floatsOf(const DescMat& rows, int i) {
    return reinterpret_cast<float*>(rows.data + static_cast<std::size_t>(i) * rows.step);
}

}  // namespace

std::vector<std::string> photographsIn(const std::string& folder) {
    std::vector<std::string> paths;
    if (!std::filesystem::is_directory(folder)) throw std::runtime_error("no folder " + folder);
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (isPhotograph(entry.path())) paths.push_back(entry.path().string());
    }
    if (paths.empty()) throw std::runtime_error("no photographs in " + folder);
    std::sort(paths.begin(), paths.end());
    return paths;
}

FloatImage readPhotograph(const std::string& path, int longestSide) {
    // Pixels as the sensor gave them: positions need no turning back.
    cv::Mat grey = cv::imread(path, cv::IMREAD_GRAYSCALE | cv::IMREAD_IGNORE_ORIENTATION);
    if (grey.empty()) throw std::runtime_error("cannot read " + path);
    const int longer = std::max(grey.rows, grey.cols);
    if (longer > longestSide) {
        const double factor = static_cast<double>(longestSide) / longer;
        cv::resize(grey, grey, {}, factor, factor, cv::INTER_AREA);
    }
    cv::Mat values;
    grey.convertTo(values, CV_32F, 1.0 / 255.0);
    return Eigen::Map<const FloatImage>(values.ptr<float>(), values.rows, values.cols);
}

DescribedImage describe(const FloatImage& image, int mostKeypoints) {
    const auto detector = Features2dSiftLdah::createDetectorSIFT();
    dynamic_cast<SiftLdahBaseParams&>(*detector).setParams(1.0F);
    std::vector<Keypoint> found;
    detector->detect(image, found);
    std::vector<Keypoint> strongest;
    if (!found.empty()) {
        KeypointSelectorTop selector;
        selector.setNumberOfKeypoints(static_cast<std::size_t>(mostKeypoints));
        selector.select(found, strongest);
    }
    DescMat rows;
    dynamic_cast<IDescriptorExtractor&>(*detector).compute(image, strongest, rows);

    DescribedImage described;
    std::vector<int> finite;
    for (int i = 0; i < rows.rows; ++i) {
        if (std::isfinite(*floatsOf(rows, i))) finite.push_back(i);  // a row is NaN as a whole
    }
    described.rows = DescMat(static_cast<int>(finite.size()), kFloats, DescMat::Float);
    for (const int i : finite) {
        const auto to = static_cast<int>(described.keypoints.size());
        std::memcpy(floatsOf(described.rows, to), floatsOf(rows, i), kFloats * sizeof(float));
        described.keypoints.push_back(strongest[static_cast<std::size_t>(i)]);
    }
    return described;
}

const float* rowOf(const DescribedImage& image, int i) {
    return floatsOf(image.rows, i);
}

}  // namespace marlo::tools
