// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "libfeatures/base/sift_ldah_base_params.h"
#include "libfeatures/descriptors/i_descriptor_extractor.h"
#include "libfeatures/detectors/i_keypoint_detector.h"
#include "libfeatures/features_export.h"

namespace marlo {

namespace detail {
struct Extremum;
}

/// Scale-space keypoints with orientations, and their SIFT or LDAH descriptors, on the CPU.
///
/// Detector and extractor in one object: description reads the scale space that detection has
/// built. The sequence for an image is setParams(), detect(), compute(), on one object. The scale
/// space has 3 octaves of 6 Gaussian levels at the resolution of the image (no doubling); extrema
/// of the 3 inner differences are refined to sub-pixel and sub-level precision and given one
/// keypoint for each dominant direction.
///
/// Keypoints, their order and every bit of the descriptors are the same on every run, for any
/// number of OpenMP threads and on any processor: octave by octave, level by level, row by row.
/// Memory beyond the image: about 36 bytes per pixel, and 500 rows for each
/// thread.
///
/// D. Lowe, Distinctive Image Features from Scale-Invariant Keypoints, IJCV 60(2), 2004. Departures
/// are named where they are made; above all there is no test against edges, and the contrast
/// threshold is low (selectors choose among many).
class FEATURES_EXPORT Features2dSiftLdah : public IKeypointDetector,
                                           public IDescriptorExtractor,
                                           public SiftLdahBaseParams {
public:
    ~Features2dSiftLdah() override;

    /// A new object with image scale 0 (not set) and no scale space; LDAH or SIFT says which
    /// descriptors compute() makes.
    static std::unique_ptr<IKeypointDetector> createDetectorLDAH();
    static std::unique_ptr<IKeypointDetector> createDetectorSIFT();
    static std::unique_ptr<IDescriptorExtractor> createDescriptorLDAH();
    static std::unique_ptr<IDescriptorExtractor> createDescriptorSIFT();

    /// A deep copy: parameters and scale space.
    [[nodiscard]] std::unique_ptr<IKeypointDetector> clone() const override;
    [[nodiscard]] bool hasOrientations() const override { return true; }
    [[nodiscard]] bool supportsIntImages() const override { return false; }
    [[nodiscard]] bool supportsFloatImages() const override { return true; }

    /// Not offered for 8-bit images. @throws std::runtime_error always.
    void detect(const ByteImage& image, std::vector<Keypoint>& keypoints) override;

    /// Replaces the content of `keypoints` by the keypoints of `image` and keeps the scale space of
    /// `image` for compute().
    ///
    /// Pixels are expected in [0, 1]: an extremum counts if its interpolated difference exceeds
    /// 0.0001. Pixels in [0, 255] work too, but then 255 times weaker extrema count, so noise on
    /// flat areas can give many more keypoints, and responses are 255 times larger than selectors
    /// expect.
    /// No keypoint lies within 1.5 pixels (of its octave) of the border pixels; an octave with
    /// fewer than 11 rows or columns has none. An empty image gives none, nor does a constant one.
    /// NaN and infinite pixels give none within reach of the blur; the rest of the image is not
    /// affected, but for descriptors whose window reaches there.
    ///
    /// Positions and scales are divided by `imageScale`, which is not checked: 0 makes them
    /// infinite or NaN, a negative scale turns their sign.
    /// @throws std::bad_alloc if there is not enough memory, std::invalid_argument if the image has
    ///         more than 1073741823 rows or columns. `keypoints` has no meaning then; the object
    ///         can be used again.
    void detect(const FloatImage& image, std::vector<Keypoint>& keypoints) override;

    /// @throws std::runtime_error always: "don't call this - re-use the same instance for
    ///         descriptor extraction that was used for feature extraction".
    [[nodiscard]] std::unique_ptr<IDescriptorExtractor> cloneExtractor() const override;

    /// Not offered for 8-bit images. @throws std::runtime_error always.
    void compute(const ByteImage& image, std::vector<Keypoint>& keypoints,
                 DescMat& descriptors) override;

    /// Replaces `descriptors` by one row for each of `keypoints`, which stay as they are.
    ///
    /// Reads the scale space of the last detect() on this object, not `image`; only an object that
    /// has none, because it has not seen an image or detect() failed, builds that of `image` and
    /// keeps it from then on.
    /// A keypoint whose octave is not 0 to 2 or whose layer is not 1 to 3 gets a row of zeros, as
    /// does every keypoint of an image of 12 rows or columns or fewer. A keypoint that no pixel
    /// with a gradient surrounds (off the image, of no finite position or size, on a flat area)
    /// gets a SIFT row of NaN, an LDAH row of zeros. Windows are cut to the image, so a wild scale
    /// costs at most one look at every pixel.
    /// @throws std::runtime_error "Invalid image scale, should be > 0.0" if `imageScale` is 0 (a
    ///         negative one passes); `descriptors` has its rows then, all zero. std::length_error
    ///         if there are more keypoints than a matrix can have rows.
    void compute(const FloatImage& image, std::vector<Keypoint>& keypoints,
                 DescMat& descriptors) override;

private:
    explicit Features2dSiftLdah(bool sift) { useSift = sift; }
    Features2dSiftLdah(const Features2dSiftLdah&) = default;

    /// Builds the scale space; finds its keypoints, too, unless `keypoints` is null.
    FEATURES_HIDDEN void createGaussPyramid(const FloatImage& image,
                                            std::vector<Keypoint>* keypoints);
    FEATURES_HIDDEN void octaveBinPoints(const std::vector<detail::Extremum>& extrema,
                                         std::vector<Keypoint>& keypoints) const;
    FEATURES_HIDDEN void assignOriHist(const detail::Extremum& extremum, float octaveFactor,
                                       std::vector<Keypoint>& keypoints) const;

    /// gradientPyramid_[o][s]: gradient magnitude, then direction in radians, of level s of octave
    /// o, (rows >> o) x (cols >> o). Levels 1 to 3; level 0 stays empty. All that orientations and
    /// descriptors need of the scale space; its Gaussian levels themselves are only passed through.
    std::vector<std::vector<std::pair<FloatImage, FloatImage>>> gradientPyramid_;
    std::uint8_t currentOctave_ = 0;
    bool pyramidBuilt_ = false;
};

}  // namespace marlo
