// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/detectors/feature_detector_ldah_cuda.h"

#include <cstddef>
#include <cstdint>
#include <stdexcept>

#include "libfeatures/base/cuda_exceptions.h"
#include "libmarlocuda/marlocuda.h"

namespace marlo {
namespace {

// The GPU library writes keypoints straight into the vector's memory, as 24 bytes each.
static_assert(sizeof(Keypoint) == 24 && offsetof(Keypoint, x) == 0 && offsetof(Keypoint, y) == 4 &&
              offsetof(Keypoint, scale) == 8 && offsetof(Keypoint, angle) == 12 &&
              offsetof(Keypoint, response) == 16 && offsetof(Keypoint, octave) == 20 &&
              offsetof(Keypoint, layer) == 21);

// From pixels of the resized image to those of the host's.
void divideBy(float imageScale, std::vector<Keypoint>& keypoints) {
    const auto count = static_cast<std::ptrdiff_t>(keypoints.size());
#pragma omp parallel for schedule(static)  // one contiguous block for each thread
    for (std::ptrdiff_t i = 0; i < count; ++i) {
        Keypoint& keypoint = keypoints[static_cast<std::size_t>(i)];
        keypoint.x /= imageScale;
        keypoint.y /= imageScale;
        keypoint.scale /= imageScale;
    }
}

}  // namespace

FeatureDetectorLDAHCuda::FeatureDetectorLDAHCuda() = default;
FeatureDetectorLDAHCuda::~FeatureDetectorLDAHCuda() = default;

std::unique_ptr<IKeypointDetector> FeatureDetectorLDAHCuda::clone() const {
    return std::make_unique<FeatureDetectorLDAHCuda>(*this);
}

void FeatureDetectorLDAHCuda::detect(const ByteImage&, std::vector<Keypoint>&) {
    throw std::runtime_error("ui8 image version of detect not implemented");
}

void FeatureDetectorLDAHCuda::detect(const FloatImage& image, std::vector<Keypoint>& keypoints) {
    if (imageScale <= 0.0F) throw std::runtime_error("Invalid image scale, should be > 0.0");
    const auto rows = static_cast<std::uint64_t>(image.rows());
    const auto cols = static_cast<std::uint64_t>(image.cols());
    keypoints.clear();
    keypoints.resize(mlcMaximumKeypointsLDAH(rows, cols));
    std::uint64_t count = 0;
    const int status = mlcDetectLdah(image.data(), rows, cols, keypoints.data(), &count);
    if (status != 0) {
        keypoints.clear();
        keypoints.shrink_to_fit();
        if (status == 1 || status == 2) throw cuda::CudaNoResourcesException();
        throw cuda::CudaException();
    }
    keypoints.resize(count);
    divideBy(imageScale, keypoints);
}

bool cuda::mldGradOriImages(const float* src, float* magnitude, float* orientation,
                            unsigned long rows, unsigned long cols) {
    return mlcGradient(src, rows, cols, magnitude, orientation) == 0;
}

bool cuda::conv_gauss(float* data, unsigned long rows, unsigned long cols, double sigma) {
    return mlcGaussianFilter(data, rows, cols, sigma) == 0;
}

}  // namespace marlo
