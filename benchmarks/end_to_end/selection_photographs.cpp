// SPDX-License-Identifier: BSD-3-Clause
#include "end_to_end/selection_photographs.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <memory>
#include <numeric>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <stdexcept>
#include <tuple>

#include "libfeatures/base/extensible_factory.h"
#include "libfeatures/base/parameter_setters.h"
#include "libfeatures/detectors/features_2d_sift_ldah.h"
#include "support/image.h"

namespace marlo::bench {
namespace {

constexpr int kFloats = 128;

cv::Mat readGrey(const std::string& path) {
    // Pixels as the sensor gave them: positions need no turning back.
    const cv::Mat grey = cv::imread(path, cv::IMREAD_GRAYSCALE | cv::IMREAD_IGNORE_ORIENTATION);
    if (grey.empty()) throw std::runtime_error("cannot read " + path);
    cv::Mat values;
    grey.convertTo(values, CV_32F, 1.0 / 255.0);
    return values;
}

// Everything that may tell keypoints apart.
auto fieldsOf(const Keypoint& k) {
    return std::tie(k.x, k.y, k.angle, k.response, k.scale, k.octave, k.layer);
}

std::unique_ptr<IKeypointSelector> createSelector(const std::string& key, int width, int height) {
    auto selector = extensibleFactoryInstance<IKeypointSelector>().create(key);
    if (key.starts_with("SDC")) {
        setSdcParams(selector.get(), width, height, 0.25F, 0.1F);
    } else if (key.starts_with("ANMS")) {
        setAnmsRobustness(selector.get(), 0.8F);
    } else if (key.starts_with("Default")) {
        setSelectorDefaultParams(selector.get(), height, width);
    }
    return selector;
}

}  // namespace

std::vector<std::string> photographsIn(const std::string& folder) {
    constexpr std::array kEndings{".jpg", ".jpeg", ".png", ".pgm", ".ppm", ".tif", ".tiff"};
    std::vector<std::string> paths;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        std::string ending = entry.path().extension().string();
        std::transform(ending.begin(), ending.end(), ending.begin(),
                       [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
        if (std::find(kEndings.begin(), kEndings.end(), ending) != kEndings.end()) {
            paths.push_back(entry.path().string());
        }
    }
    if (paths.size() < 2) throw std::runtime_error("fewer than two photographs in " + folder);
    std::sort(paths.begin(), paths.end());
    return paths;
}

DescribedPhotograph describePhotograph(const std::string& path) {
    constexpr int kMegapixel = 1'000'000;
    cv::Mat values = readGrey(path);
    DescribedPhotograph photograph;
    photograph.width = values.cols;
    photograph.height = values.rows;
    const float scale = values.rows * values.cols <= kMegapixel ? 2.0F : 1.0F;
    if (scale > 1.0F) cv::resize(values, values, {}, 2.0, 2.0, cv::INTER_LINEAR);
    const FloatImage image =
        Eigen::Map<const FloatImage>(values.ptr<float>(), values.rows, values.cols);

    const auto detector = Features2dSiftLdah::createDetectorSIFT();
    dynamic_cast<SiftLdahBaseParams&>(*detector).setParams(scale);
    std::vector<Keypoint> found;
    detector->detect(image, found);
    DescMat rows;
    dynamic_cast<IDescriptorExtractor&>(*detector).compute(image, found, rows);

    const auto rowOf = [](const DescMat& mat, std::size_t i) { return mat.data + i * mat.step; };
    std::vector<std::size_t> finite;
    for (std::size_t i = 0; i < found.size(); ++i) {
        float first = 0.0F;  // a row is NaN as a whole
        std::memcpy(&first, rowOf(rows, i), sizeof first);
        if (std::isfinite(first)) finite.push_back(i);
    }
    photograph.rows.create(static_cast<int>(finite.size()), kFloats, DescMat::Float);
    // Resizing has kept the outer edges of the image, not the centre of its first pixel.
    const float shift = (1.0F / scale - 1.0F) / 2.0F;
    for (const std::size_t i : finite) {
        std::memcpy(rowOf(photograph.rows, photograph.keypoints.size()), rowOf(rows, i),
                    kFloats * sizeof(float));
        photograph.keypoints.push_back(found[i]);
        photograph.keypoints.back().x += shift;
        photograph.keypoints.back().y += shift;
    }
    return photograph;
}

std::vector<unsigned int> selectKeypoints(const DescribedPhotograph& photograph,
                                          const std::string& selector, std::size_t count) {
    const std::vector<Keypoint>& all = photograph.keypoints;
    std::vector<unsigned int> order(all.size());
    std::iota(order.begin(), order.end(), 0U);
    if (selector.empty()) return order;
    const auto created = createSelector(selector, photograph.width, photograph.height);
    created->setNumberOfKeypoints(count);
    std::vector<Keypoint> selected;
    created->select(all, selected);

    // Not every selector gives positions: where the copies came from is looked up.
    std::sort(order.begin(), order.end(),
              [&](unsigned int i, unsigned int j) { return fieldsOf(all[i]) < fieldsOf(all[j]); });
    std::vector<unsigned int> kept;
    for (const Keypoint& keypoint : selected) {
        const auto at = std::lower_bound(order.begin(), order.end(), keypoint,
                                         [&](unsigned int i, const Keypoint& value) {
                                             return fieldsOf(all[i]) < fieldsOf(value);
                                         });
        if (at == order.end() || fieldsOf(all[*at]) != fieldsOf(keypoint)) {
            throw std::runtime_error(selector + " gave a keypoint that it was not given");
        }
        kept.push_back(*at);
    }
    return kept;
}

}  // namespace marlo::bench
