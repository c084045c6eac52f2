// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/detectors/features_2d_sift_ldah.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <stdexcept>
#include <utility>

#include "libfeatures/descriptors/detail/describe_keypoints.h"
#include "libfeatures/detectors/detail/octave_sweep.h"
#include "libfeatures/detectors/detail/orientation_histogram.h"
#include "support/detail/first_exception.h"
#include "support/detail/gradient_source.h"

namespace marlo {
namespace {

using detail::Extremum;
using detail::OctaveExtrema;

constexpr std::uint8_t kOctaves = 3;
constexpr std::size_t kPiece = 64;  // extrema that a thread gives orientations at a time

void requireCountableSides(const FloatImage& image) {
    constexpr Eigen::Index kMost = std::numeric_limits<int>::max() / 2;
    if (image.rows() > kMost || image.cols() > kMost) {
        throw std::invalid_argument(
            "Images of more than 1073741823 rows or columns are not supported.");
    }
}

// Keeps the first extremum of each pixel, in the order of levels, rows and columns.
std::vector<Extremum> firstOfEachPixel(const OctaveExtrema& extrema, const FloatImage& octave) {
    std::vector<std::uint8_t> extremumMask(static_cast<std::size_t>(octave.size()));
    std::vector<Extremum> first;
    for (const std::vector<Extremum>& level : extrema) {
        for (const Extremum& extremum : level) {
            std::uint8_t& taken = extremumMask[static_cast<std::size_t>(
                extremum.pixelRow * octave.cols() + extremum.pixelCol)];
            if (taken != 0) continue;
            taken = 1;
            first.push_back(extremum);
        }
    }
    return first;
}

// The extrema in an order in which neighbours read the same pixels.
std::vector<std::uint32_t> inTiles(const std::vector<Extremum>& extrema) {
    std::vector<std::uint32_t> order(extrema.size());
    std::iota(order.begin(), order.end(), 0U);
    std::sort(order.begin(), order.end(), [&](std::uint32_t a, std::uint32_t b) {
        const auto key = [&](std::uint32_t i) {
            return detail::readingOrder(static_cast<std::uint64_t>(extrema[i].level),
                                        static_cast<std::uint64_t>(extrema[i].pixelRow),
                                        static_cast<std::uint64_t>(extrema[i].pixelCol));
        };
        return key(a) < key(b);
    });
    return order;
}

detail::GradientSource sourceOf(const detail::Gradients& level) {
    return {level.first, level.second};
}

// The pixels that the orientations of an extremum are found from, asked for ahead of their use.
void prefetchWindow(const Extremum& extremum, const std::vector<detail::Gradients>& levels) {
    const auto gradients = sourceOf(levels[static_cast<std::size_t>(extremum.level)]);
    const auto radius = static_cast<Eigen::Index>(4.5F * extremum.sigma) + 1;
    gradients.prefetch(std::max<Eigen::Index>(extremum.pixelRow - radius, 0),
                       std::min(extremum.pixelRow + radius, gradients.rows - 1),
                       std::max<Eigen::Index>(extremum.pixelCol - radius, 0),
                       std::min(extremum.pixelCol + radius, gradients.cols - 1));
}

}  // namespace

Features2dSiftLdah::~Features2dSiftLdah() = default;

std::unique_ptr<IKeypointDetector> Features2dSiftLdah::createDetectorLDAH() {
    return std::unique_ptr<Features2dSiftLdah>(new Features2dSiftLdah(false));
}
std::unique_ptr<IKeypointDetector> Features2dSiftLdah::createDetectorSIFT() {
    return std::unique_ptr<Features2dSiftLdah>(new Features2dSiftLdah(true));
}
std::unique_ptr<IDescriptorExtractor> Features2dSiftLdah::createDescriptorLDAH() {
    return std::unique_ptr<Features2dSiftLdah>(new Features2dSiftLdah(false));
}
std::unique_ptr<IDescriptorExtractor> Features2dSiftLdah::createDescriptorSIFT() {
    return std::unique_ptr<Features2dSiftLdah>(new Features2dSiftLdah(true));
}

std::unique_ptr<IKeypointDetector> Features2dSiftLdah::clone() const {
    return std::unique_ptr<Features2dSiftLdah>(new Features2dSiftLdah(*this));
}

std::unique_ptr<IDescriptorExtractor> Features2dSiftLdah::cloneExtractor() const {
    throw std::runtime_error(
        "don't call this - re-use the same instance for descriptor extraction that was used for "
        "feature extraction");
}

void Features2dSiftLdah::detect(const ByteImage&, std::vector<Keypoint>&) {
    throw std::runtime_error("ui8 image detect has not been implemented yet");
}

void Features2dSiftLdah::compute(const ByteImage&, std::vector<Keypoint>&, DescMat&) {
    throw std::runtime_error("ui8 image compute has not been implemented yet");
}

void Features2dSiftLdah::detect(const FloatImage& image, std::vector<Keypoint>& keypoints) {
    keypoints.clear();
    createGaussPyramid(image, &keypoints);
}

void Features2dSiftLdah::createGaussPyramid(const FloatImage& image,
                                            std::vector<Keypoint>* keypoints) {
    pyramidBuilt_ = false;
    requireCountableSides(image);
    gradientPyramid_.resize(kOctaves);
    FloatImage levelZero;  // of the current octave, then of the next
    for (currentOctave_ = 0; currentOctave_ < kOctaves; ++currentOctave_) {
        std::vector<detail::Gradients>& gradients = gradientPyramid_[currentOctave_];
        gradients.resize(detail::kLastSearched + 1);
        FloatImage nextLevelZero;
        detail::OctaveTask task;
        task.input = currentOctave_ == 0 ? &image : &levelZero;
        task.blurInput = currentOctave_ == 0;
        task.gradients = &gradients;
        if (currentOctave_ + 1 < kOctaves) task.nextInput = &nextLevelZero;
        task.search = keypoints != nullptr;
        const OctaveExtrema extrema = detail::sweepOctave(task);
        levelZero = std::move(nextLevelZero);
        if (keypoints != nullptr) {
            octaveBinPoints(firstOfEachPixel(extrema, gradients[detail::kFirstSearched].first),
                            *keypoints);
        }
    }
    currentOctave_ = 0;
    pyramidBuilt_ = true;
}

// Gives each extremum of the current octave its orientations and appends the keypoints, in the
// order of the extrema.
void Features2dSiftLdah::octaveBinPoints(const std::vector<Extremum>& extrema,
                                         std::vector<Keypoint>& keypoints) const {
    const auto f = static_cast<float>(1U << currentOctave_);
    const std::vector<std::uint32_t> order = inTiles(extrema);
    const std::size_t pieces = (extrema.size() + kPiece - 1) / kPiece;
    std::vector<std::vector<Keypoint>> found(pieces);
    // Where the keypoints of each extremum are: its piece, the first of them and one past the last.
    struct Place {
        std::size_t piece, begin, end;
    };
    std::vector<Place> places(extrema.size());
    detail::FirstException failure;
#pragma omp parallel for schedule(dynamic) if (pieces > 1)
    for (std::size_t piece = 0; piece < pieces; ++piece) {
        failure.capture([&] {
            const std::size_t end = std::min((piece + 1) * kPiece, extrema.size());
            for (std::size_t i = piece * kPiece; i < end; ++i) {
                if (i + 1 < end) {
                    prefetchWindow(extrema[order[i + 1]], gradientPyramid_[currentOctave_]);
                }
                const std::size_t before = found[piece].size();
                assignOriHist(extrema[order[i]], f, found[piece]);
                places[order[i]] = {piece, before, found[piece].size()};
            }
        });
    }
    failure.rethrow();
    for (const Place& place : places) {
        const auto some = found[place.piece].begin();
        keypoints.insert(keypoints.end(), some + static_cast<std::ptrdiff_t>(place.begin),
                         some + static_cast<std::ptrdiff_t>(place.end));
    }
}

void Features2dSiftLdah::assignOriHist(const Extremum& extremum, float octaveFactor,
                                       std::vector<Keypoint>& keypoints) const {
    const auto level = static_cast<std::size_t>(extremum.level);
    const auto gradients = sourceOf(gradientPyramid_[currentOctave_][level]);
    detail::OrientationBins bins;
    const float threshold =
        detail::orientationHistogram(gradients, extremum.row, extremum.col, extremum.sigma, bins);
    detail::forEachOrientation(bins, threshold, [&](float angle) {
        keypoints.emplace_back(
            octaveFactor * extremum.col / imageScale, octaveFactor * extremum.row / imageScale,
            octaveFactor * extremum.sigma / imageScale, angle, std::fabs(extremum.value),
            currentOctave_, static_cast<unsigned char>(extremum.level));
    });
}

void Features2dSiftLdah::compute(const FloatImage& image, std::vector<Keypoint>& keypoints,
                                 DescMat& descriptors) {
    allocateDescriptors(descriptors, detail::rowCount(keypoints), useSift);
    if (imageScale == 0.0F) {
        throw std::runtime_error("Invalid image scale, should be > 0.0");
    }
    if (!pyramidBuilt_) createGaussPyramid(image, nullptr);
    if (image.rows() <= 12 || image.cols() <= 12) return;
    std::vector<detail::LevelGradients> gradients;
    for (std::size_t octave = 0; octave < gradientPyramid_.size(); ++octave) {
        for (std::size_t level = detail::kFirstSearched; level <= detail::kLastSearched; ++level) {
            detail::LevelGradients entry{.octave = static_cast<unsigned char>(octave),
                                         .layer = static_cast<int>(level),
                                         .octaveFactor = static_cast<float>(1U << octave),
                                         .gradients = sourceOf(gradientPyramid_[octave][level])};
            gradients.push_back(entry);
        }
    }
    detail::describeKeypoints(gradients, keypoints, imageScale,
                              useSift ? DescriptorType::SIFT : DescriptorType::LDAH, descriptors);
}

}  // namespace marlo
