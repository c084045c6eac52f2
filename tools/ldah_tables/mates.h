// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <Eigen/Core>
#include <vector>

#include "ldah_tables/photographs.h"
#include "libfeatures/base/d_match.h"

namespace marlo::tools {

/// Where a keypoint of one image should lie in another, by geometry alone. What the two keypoints'
/// descriptors look like takes no part, or the mates would be those that are easy to match.
struct Place {
    int keypoint = 0;  ///< of the first image
    float x = 0.0F;    ///< in pixels of the second image
    float y = 0.0F;
    float scale = 0.0F;
    float angle = 0.0F;
    /// The second image's line through all points that the keypoint can show, of unit normal; 0 if
    /// the place is known exactly.
    Eigen::Vector3f line = Eigen::Vector3f::Zero();
};

/// A keypoint of the first image and the keypoint of the second that shows the same.
struct Mate {
    Place place;
    int keypoint = 0;  ///< of the second image
};

/// Places by a homography that maps pixels of the first image to the second. Places outside the
/// second image, of `rows` x `cols` pixels, or nearer than `margin` to its border are left out.
std::vector<Place> placesByHomography(const std::vector<Keypoint>& keypoints,
                                      const Eigen::Matrix3d& homography, Eigen::Index rows,
                                      Eigen::Index cols, float margin = 8.0F);

/// The geometry of two photographs of one scene.
struct EpipolarGeometry {
    bool found = false;      ///< at least 80 matches agree, and half of all
    Eigen::Matrix3d matrix;  ///< x2^T F x1 = 0
    std::vector<DMatch> inliers;
};
/// Estimates it from the mutual matches of the SIFT rows, robustly (MAGSAC++, D. Barath et al.,
/// CVPR 2020). The same input gives the same result.
EpipolarGeometry epipolarGeometry(const DescribedImage& first, const DescribedImage& second);

/// The distance in pixels of a point of the second image from the epipolar line of one of the
/// first.
float epipolarDistance(const Eigen::Matrix3d& matrix, const Keypoint& first,
                       const Keypoint& second);

/// Places by the affine map that fits the matches around a keypoint, its own left out.
std::vector<Place> placesByNeighbours(const DescribedImage& first, const DescribedImage& second,
                                      const EpipolarGeometry& geometry);

/// For each place the keypoint there, if there is one of the right size and direction.
std::vector<Mate> matesAt(const std::vector<Place>& places, const std::vector<Keypoint>& second);

}  // namespace marlo::tools
