// SPDX-License-Identifier: BSD-3-Clause
#include "libmarlocuda/keypoint_agreement.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "libfeatures/base/parameter_setters.h"
#include "libfeatures/detectors/features_2d_sift_ldah.h"
#include "libmarlocuda/marlocuda.h"

namespace marlo::test {

FloatImage discImage(int rows, int cols, float dark, float bright) {
    FloatImage image = FloatImage::Constant(rows, cols, dark);
    for (int r = 0; r < rows; ++r) {
        for (int c = 0; c < cols; ++c) {
            const int dr = r - rows / 2;
            const int dc = c - cols / 2;
            if (dr * dr + dc * dc < rows * cols / 20) image(r, c) = bright;
        }
    }
    return image;
}

std::vector<Keypoint> cpuKeypoints(const FloatImage& image) {
    const auto detector = Features2dSiftLdah::createDetectorLDAH();
    setFeaDetSiftLdahParams(detector.get(), 1.0F);
    std::vector<Keypoint> keypoints;
    detector->detect(image, keypoints);
    return keypoints;
}

std::vector<Keypoint> gpuKeypoints(const FloatImage& image) {
    const auto rows = static_cast<std::uint64_t>(image.rows());
    const auto cols = static_cast<std::uint64_t>(image.cols());
    std::vector<Keypoint> keypoints(mlcMaximumKeypointsLDAH(rows, cols));
    std::uint64_t count = 0;
    EXPECT_EQ(mlcDetectLdah(image.data(), rows, cols, keypoints.data(), &count), 0);
    EXPECT_LE(count, keypoints.size());
    keypoints.resize(count);
    return keypoints;
}

Agreement agreement(const std::vector<Keypoint>& cpu, const std::vector<Keypoint>& gpu) {
    Agreement result;
    result.cpu = cpu.size();
    result.gpu = gpu.size();
    for (std::size_t i = 0; i < std::min(cpu.size(), gpu.size()); ++i) {
        const Keypoint& a = cpu[i];
        const Keypoint& b = gpu[i];
        if (std::hypot(a.x - b.x, a.y - b.y) <= 0.01F && std::fabs(a.angle - b.angle) <= 0.001F &&
            a.octave == b.octave && a.layer == b.layer) {
            ++result.close;
            result.largestScale = std::max(
                result.largestScale, static_cast<double>(std::fabs(a.scale - b.scale) / a.scale));
        }
        if (a.x == b.x && a.y == b.y && a.scale == b.scale && a.angle == b.angle &&
            a.response == b.response && a.octave == b.octave && a.layer == b.layer) {
            ++result.exact;
        }
    }
    return result;
}

}  // namespace marlo::test
