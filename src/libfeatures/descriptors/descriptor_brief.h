// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "libfeatures/descriptors/i_descriptor_extractor.h"
#include "libfeatures/features_export.h"

namespace marlo {

/// Oriented binary descriptors of 8-bit images: 512 bits, each of which says which of two small
/// boxes near the keypoint is the brighter one. Compared by Hamming distance.
///
/// The pairs of boxes are drawn at random, the same in every process and on every platform, and
/// turned in steps of 5 degrees; a keypoint takes the step of its angle. There is no scale: boxes
/// and distances are the same number of pixels for every keypoint. M. Calonder, V. Lepetit,
/// C. Strecha, P. Fua, BRIEF: Binary Robust Independent Elementary Features, ECCV 2010; turned
/// patterns are those of E. Rublee, V. Rabaud, K. Konolige, G. Bradski, ORB: an efficient
/// alternative to SIFT or SURF, ICCV 2011, sec. 4.1. Here points are normally distributed with a
/// standard deviation of 9 pixels, lie within 24 pixels of the keypoint, and are means of 8 x 8
/// pixels.
///
/// **Angles are in degrees, clockwise as the image is displayed, in [0, 360)**, as those of
/// OpenCV's keypoints. Detectors of this library give radians, counter-clockwise. So:
///
///     const ByteImage bytes = ...;
///     const FloatImage floats = bytes.cast<float>() / 255.0F;
///     auto detector = extensibleFactoryInstance<IKeypointDetector>().create("SIFT");
///     setFeaDetSiftLdahParams(detector.get(), 1.0F);
///     std::vector<Keypoint> keypoints;
///     detector->detect(floats, keypoints);
///     for (Keypoint& k : keypoints) k.angle = std::fmod(360.0F - k.angle * 57.29578F, 360.0F);
///     DescMat descriptors;
///     Brief().compute(bytes, keypoints, descriptors);
///
/// A controller cannot run this extractor by its key, which begins with neither "LDAH" nor "SIFT".
class FEATURES_EXPORT Brief : public IDescriptorExtractor {
public:
    /// Columns and rows of two points, in pixels from the keypoint: x to the right, y downwards.
    struct PatternEntry {
        std::int8_t dx1;
        std::int8_t dy1;
        std::int8_t dx2;
        std::int8_t dy2;
    };
    /// Entry 8 b + k belongs to bit k of byte b, the bit of value 2^k.
    using Pattern = std::array<PatternEntry, 512>;

    Brief();
    Brief(const Brief&) = default;
    Brief& operator=(const Brief&) = default;
    ~Brief() override;

    /// A new extractor with a copy of the patterns.
    [[nodiscard]] std::unique_ptr<IDescriptorExtractor> cloneExtractor() const override;

    /// Replaces `descriptors` by keypoints.size() rows of 64 bytes (DescMat::Byte); row i belongs
    /// to keypoints[i]. Of a keypoint only `x`, `y` (pixels of `image`) and `angle` (degrees, see
    /// above) are read, and nothing is changed. A bit is 1 where the first box of its pair is
    /// brighter than the second. The box at column c and row r is the mean, rounded down, of
    /// columns c - 3 to c + 4 and rows r - 3 to r + 4; c and r are dx + x and dy + y, added in
    /// single precision and rounded down, and not cut to 16 bits: images may be of any size. So a
    /// uniform image gives zeros.
    ///
    /// Boxes of keypoints within 28 pixels of a border may reach beyond it, where the image goes on
    /// with the pixels at its border. That holds for keypoints anywhere, outside the image as well;
    /// a coordinate that is NaN counts as one far to the left of the image or above it.
    ///
    /// An angle that has no step, since it is -5 or less, 360 or more or no number, is logged as a
    /// warning and counts as 0. The step of the first keypoint is logged as a detail.
    /// @throws std::runtime_error "the image or keypoints (or both) are empty", std::length_error
    ///         if there are more keypoints than a matrix can have rows; `descriptors` is unchanged
    ///         in both cases. std::bad_alloc; `descriptors` may have its rows then, not filled.
    void compute(const ByteImage& image, std::vector<Keypoint>& keypoints,
                 DescMat& descriptors) override;
    /// Not offered for float images. @throws std::runtime_error always.
    void compute(const FloatImage& image, std::vector<Keypoint>& keypoints,
                 DescMat& descriptors) override;

    /// The 72 patterns; number a is the drawn one, number 0, turned clockwise as the image is
    /// displayed by 5 a degrees. The reference stays valid until the object is assigned to or
    /// destroyed.
    [[nodiscard]] const std::vector<Pattern>& rotatedPatterns() const noexcept {
        return rotatedPatterns_;
    }

private:
    std::vector<Pattern> rotatedPatterns_;
};

}  // namespace marlo
