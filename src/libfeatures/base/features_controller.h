// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QString>
#include <memory>
#include <vector>

#include "libfeatures/base/keypoint.h"
#include "libfeatures/descriptors/i_descriptor_extractor.h"
#include "libfeatures/detectors/i_keypoint_detector.h"
#include "libfeatures/features_export.h"
#include "libfeatures/selectors/i_keypoint_selector.h"
#include "libfeatures/transforms/i_transform.h"
#include "support/desc_mat.h"
#include "support/image.h"

namespace marlo {

/// Turns an image into selected keypoints with descriptors.
///
/// Owns one detector, selector, extractor and transform and runs them in a fixed order. Where a GPU
/// can be used, the detector and extractor "LDAH" and "SIFT" are replaced by their GPU variants;
/// when the GPU fails, the controller goes back to the CPU for good, says so in the log and repeats
/// the step.
///
/// A std::exception of a plug-in, GPU failures apart, does not leave detect(), select() or
/// compute(): it is logged as an error (log level 7) and the output is empty. An empty result
/// therefore calls for a look at the log. Selectors report an empty input the same way, so an image
/// without keypoints leaves such a line too.
///
/// Use a controller from one thread at a time. After being moved from it can only be destroyed or
/// assigned to.
class FEATURES_EXPORT FeaturesController {
public:
    /// Creates the four plug-ins by their keys; see registration.h. If detector and extractor are
    /// both "LDAH" or both "SIFT" and no GPU is used, one object serves as both, so that
    /// description reuses the scale space of detection. The selector's key may be empty: there is
    /// no selector then.
    ///
    /// Any registered detector and extractor can be created; those that are to run need a key that
    /// begins with "LDAH" or "SIFT" ("... not supported in mapper." in the log otherwise) and have
    /// SiftLdahBaseParams ("This operation is only implemented for LDAH feature detectors" or
    /// "descriptors" otherwise).
    /// @throws std::runtime_error if a key is not registered or its creator gives no object.
    FeaturesController(const QString& detector, const QString& extractor, const QString& selector,
                       const QString& transform);

    /// Takes plug-ins that the host has made. `extractor` may be null if the detector also
    /// extracts (it then serves as both) or if nothing is to be described (compute() then logs an
    /// error and gives no rows); `selector` may be null.
    ///
    /// These objects have no keys, and keys decide which parameters are set before they run. A
    /// detector or extractor with SiftLdahBaseParams goes by "LDAH" or "SIFT", as its `useSift`
    /// says, and is given the image scale; any other is refused by detect() and compute() ("...
    /// not supported in mapper."). A selector is given the number of keypoints only: set its other
    /// parameters before you hand it over. There is no fallback from a GPU object: its failure
    /// reaches the caller of detect() or compute() as "Cannot fallback to CPU: LDAH" (or SIFT).
    /// @throws std::runtime_error if `detector` or `transform` is null.
    FeaturesController(std::unique_ptr<IKeypointDetector> detector,
                       std::unique_ptr<IDescriptorExtractor> extractor,
                       std::unique_ptr<IKeypointSelector> selector,
                       std::unique_ptr<ITransform> transform);

    FeaturesController(FeaturesController&&) noexcept;
    FeaturesController& operator=(FeaturesController&&) noexcept;
    FeaturesController(const FeaturesController&) = delete;
    FeaturesController& operator=(const FeaturesController&) = delete;
    ~FeaturesController();

    /// Must be called before detection. Nothing is checked here: a scale of 0 or NaN gives
    /// keypoints at infinity or nowhere; the GPU detector refuses 0 and negative ones.
    /// @param imageScale  the factor by which the host has resized the image: keypoints are divided
    ///                    by it and so refer to the unscaled image. That is exact if pixel (0, 0)
    ///                    has stayed where it was; after a resampling that keeps the image's outer
    ///                    edges (cv::resize) add (1 / imageScale - 1) / 2 to both coordinates
    /// @param height,width  size of the unscaled image in pixels; select() uses it, process() knows
    /// @param count  how many keypoints to select; a negative number asks for all. The selector
    ///               "Default" goes by its grid instead
    void setFeatureSetParams(double imageScale, int height, int width, int count);

    /// Replaces `keypoints` by those that the detector finds in `image` itself, untransformed.
    /// @throws std::runtime_error "Cannot fallback to CPU: " and the detector's key, if a detector
    ///         other than "LDAHCuda" and "SIFTCuda" reports a GPU failure; what making the CPU
    ///         variant throws, if that fails.
    void detect(const ByteImage& image, std::vector<Keypoint>& keypoints);
    void detect(const FloatImage& image, std::vector<Keypoint>& keypoints);

    /// Replaces `out` by the keypoints selected from `in`; without a selector `out` is unchanged.
    void select(const std::vector<Keypoint>& in, std::vector<Keypoint>& out);

    /// Replaces `descriptors` by one row per keypoint; the extractor may change `keypoints`.
    /// @throws std::runtime_error as detect(), with the extractor's key.
    void compute(const ByteImage& image, std::vector<Keypoint>& keypoints, DescMat& descriptors);
    void compute(const FloatImage& image, std::vector<Keypoint>& keypoints, DescMat& descriptors);

    /// The whole road: transform, detect, select, map back, compute. `keypoints` receives the
    /// selected keypoints in the geometry of `image` and `descriptors` their rows. Without a
    /// selector nothing is selected, so both are empty. If description fails, `keypoints` stays
    /// and `descriptors` is empty: check `descriptors.rows`.
    /// @throws std::runtime_error as detect() and compute(), whatever the transform throws, and, if
    ///         the extractor drops keypoints:
    ///         "[features_controller:462] keypoint size missmatch. Reason: The Spherical transform
    ///         is not compatible with the descriptor extractor"
    void process(const ByteImage& image, std::vector<Keypoint>& keypoints, DescMat& descriptors);
    void process(const FloatImage& image, std::vector<Keypoint>& keypoints, DescMat& descriptors);

    /// Columns of a descriptor row: 16 if the detector's key begins with "LDAH", 128 with "SIFT".
    /// @throws std::runtime_error "Unsupported type for the controller" for any other.
    [[nodiscard]] int sizeOfDescriptors() const;

    /// Whether the detector accepts 8-bit images.
    [[nodiscard]] bool supportsIntImageInput() const;
    /// Whether the detector gives keypoints a direction.
    [[nodiscard]] bool detectorHasOrientations() const;

private:
    class Pimpl;
    std::unique_ptr<Pimpl> pimpl_;
};

}  // namespace marlo
