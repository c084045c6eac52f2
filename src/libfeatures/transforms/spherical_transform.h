// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <memory>

#include "libfeatures/transforms/i_transform.h"

namespace marlo {

namespace detail {
class PolarDiscs;
}

/// Lets detectors for ordinary images work on a full panorama: all around, from pole to pole, in
/// equirectangular form, with longitude along the columns, latitude along the rows and the north
/// pole in row 0. It is exactly twice as wide as high.
///
/// Such an image has a seam, where what belongs together lies on opposite sides, and poles, where
/// one point fills a row. The working image has neither: a band with the latitudes from -45 to 45
/// degrees that goes on a little beyond the seam on either side, and below it two discs, north on
/// the left and south on the right, each a gnomonic view of a polar cap (on the tangent plane at
/// the pole). Pixels are those of the panorama that lie nearest. What band and discs show twice is
/// there so that detection and description have their surroundings; transformKeypointsBack() keeps
/// every keypoint once.
///
/// For a panorama of W x H pixels the working image has about 1.025 W x 1.25 H. The object keeps
/// it, and a table of about 1.54 bytes for each pixel of the panorama, which is made for the first
/// panorama of a size and kept while the size stays the same: a panorama of 20,000 x 10,000 pixels
/// takes 0.26 GB as bytes or 1.03 GB as floats, and 0.31 GB for the table.
///
/// Results do not depend on the number of threads.
class FEATURES_EXPORT SphericalTransform : public ITransform {
public:
    /// The working image of a panorama. An image that is not twice as wide as high is logged with
    /// a warning and returned itself.
    /// @throws std::length_error for a panorama of 2^32 pixels or more.
    const ByteImage& transformImage(const ByteImage& image) override;
    /// The same for float images. Either kind has a working image of its own, which stays valid
    /// until the next call for this kind.
    const FloatImage& transformImage(const FloatImage& image) override;

    /// Maps keypoints of the working image to the panorama: `output` has x from 0 to W and y from
    /// 0 to H, where the poles are. Angle and scale stay those of the working image. Any two of the
    /// lists may be the same object; then `output`, the last to be set, is what remains.
    ///
    /// Where the working image rounds margin and centres to pixels, these positions do not: they
    /// are off by up to 2.1 pixels, which SphericalLayout::inPanorama() avoids.
    ///
    /// Drops those that belong elsewhere: beyond the seam or close to the band's edges, in the
    /// outer tenth of a disc, and those of a disc that lie within 45 degrees of the equator.
    /// If the last image given to transformImage() was no panorama, warns and copies them all.
    void transformKeypointsBack(const std::vector<Keypoint>& transformed,
                                std::vector<Keypoint>& forDescriptors,
                                std::vector<Keypoint>& output, int width, int height) override;

private:
    template <typename Image>
    FEATURES_HIDDEN const Image& transform(const Image& image, Image& working);

    bool isSpherical_ = false;  ///< whether the last image was
    FloatImage floatImage_;     ///< the last working images
    ByteImage byteImage_;
    std::shared_ptr<const detail::PolarDiscs> discs_;  ///< for the size of the last panorama
};

}  // namespace marlo
