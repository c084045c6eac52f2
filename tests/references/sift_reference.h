// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <vector>

#include "libfeatures/base/keypoint.h"
#include "support/image.h"

/// SIFT on the CPU, said as plainly as possible: scalar loops, one thread, no concern for speed.
/// Keypoint detection in single precision performs the library's operations in the library's order,
/// so that results can be compared bit for bit.
namespace marlo::reference {

/// Blurs an image in place with an isotropic Gaussian.
using Blur = std::function<void(FloatImage& image, double sigma)>;
/// Writes gradient lengths and directions of `image`; the outputs have its size.
using Gradients =
    std::function<void(const FloatImage& image, FloatImage& magnitude, FloatImage& orientation)>;

/// Convolution in double precision with a Gaussian sampled out to ceil(4 sigma) whose weights sum
/// to 1. The image goes on as ... b a | a b c d | d c ... in all directions.
FloatImage exactGaussianBlur(const FloatImage& image, double sigma);

struct Gradient {
    float magnitude = 0.0F;
    float orientation = 0.0F;
};
/// Right minus left and above minus below, halved; one-sided, not halved, at the borders.
Gradient gradient(const FloatImage& image, Eigen::Index row, Eigen::Index col);
/// gradient() of every pixel.
void gradients(const FloatImage& image, FloatImage& magnitude, FloatImage& orientation);

constexpr std::size_t kOctaves = 3;
/// Six Gaussian levels of each octave.
using GaussianPyramid = std::array<std::array<FloatImage, 6>, kOctaves>;
GaussianPyramid gaussianPyramid(const FloatImage& image, const Blur& blur);

/// The five differences of the levels of one octave, less blurred minus more blurred.
using Differences = std::array<FloatImage, 5>;
Differences differences(const std::array<FloatImage, 6>& levels);

/// A refined extremum, in pixels of its octave.
struct Extremum {
    int level = 0;                  ///< 1 to 3
    Eigen::Index candidateRow = 0;  ///< where the search began
    Eigen::Index candidateCol = 0;
    Eigen::Index row = 0;  ///< where it ended
    Eigen::Index col = 0;
    int moves = 0;
    float levelOffset = 0.0F;
    float rowOffset = 0.0F;
    float colOffset = 0.0F;
    float value = 0.0F;  ///< interpolated difference

    [[nodiscard]] float sigma() const;
};

/// Whether no pixel of the 3 x 3 around (row, col) exceeds `value` (falls below it, if `value` is
/// not positive).
bool isExtremumIn(const FloatImage& difference, float value, Eigen::Index row, Eigen::Index col);
/// Fits a quadric at (row, col) of `extremum` and moves it to its final pixel. Whether it is
/// accepted there.
bool refine(const Differences& differences, Extremum& extremum);
/// All extrema that pass the acceptance tests, in the order level, row, column of the candidate.
std::vector<Extremum> acceptedExtrema(const Differences& differences);
/// Of each pixel only the first.
std::vector<Extremum> firstOfEachPixel(const std::vector<Extremum>& extrema, Eigen::Index rows,
                                       Eigen::Index cols);

using OrientationBins = std::array<float, 36>;
/// The histogram around (row, col) before smoothing. Directions beyond pi by more than a bin count
/// in bin 0.
OrientationBins rawOrientationHistogram(const FloatImage& magnitude, const FloatImage& orientation,
                                        float row, float col, float sigma);
void smooth(OrientationBins& bins);
/// The angles of the peaks of smoothed bins, in the order of the bins.
std::vector<float> peakAngles(const OrientationBins& bins);

/// The keypoints of an image in the order octave, level, row, column, angle.
std::vector<Keypoint> detect(const FloatImage& image, float imageScale, const Blur& blur,
                             const Gradients& gradients);

using SiftDescriptor = std::array<float, 128>;
/// Values before normalisation. (row, col) and sigma in pixels of the gradients.
SiftDescriptor rawSiftDescriptor(const FloatImage& magnitude, const FloatImage& orientation,
                                 float row, float col, float sigma, float angle);
void normalise(SiftDescriptor& descriptor);

/// The descriptor of a keypoint from the gradients of its octave and layer.
SiftDescriptor siftDescriptor(const FloatImage& magnitude, const FloatImage& orientation,
                              const Keypoint& keypoint, float octaveFactor, float imageScale);

}  // namespace marlo::reference
