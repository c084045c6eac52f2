// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "libfeatures/base/sift_ldah_base_params.h"
#include "libfeatures/descriptors/i_descriptor_extractor.h"
#include "libfeatures/detectors/i_keypoint_detector.h"
#include "libfeatures/matchers/desc_matcher_dist_frac_base.h"
#include "libfeatures/matchers/i_descriptor_matcher.h"
#include "libfeatures/selectors/feature_selector_anms_base.h"
#include "libfeatures/selectors/feature_selector_sdc_base.h"
#include "libfeatures/selectors/i_keypoint_selector.h"
#include "libfeatures/transforms/i_transform.h"

/// Plug-ins that do what a test hands them as a function. Each writes what it is asked to do into
/// a journal, so that a test can compare the whole course of events.
namespace marlo::test {

using Journal = std::vector<std::string>;

/// What a detector or extractor is asked to do; may throw.
using DetectAction = std::function<void(std::vector<Keypoint>&)>;
using ComputeAction = std::function<void(std::vector<Keypoint>&, DescMat&)>;
using SelectAction = std::function<void(const std::vector<Keypoint>&, std::vector<Keypoint>&)>;

/// A detector without parameters.
class PlainDetector : public IKeypointDetector {
public:
    explicit PlainDetector(DetectAction action = {}) : action_(std::move(action)) {}

    [[nodiscard]] std::unique_ptr<IKeypointDetector> clone() const override;
    [[nodiscard]] bool hasOrientations() const override { return orientations; }
    [[nodiscard]] bool supportsIntImages() const override { return intImages; }
    [[nodiscard]] bool supportsFloatImages() const override { return true; }
    void detect(const ByteImage& image, std::vector<Keypoint>& keypoints) override;
    void detect(const FloatImage& image, std::vector<Keypoint>& keypoints) override;

    bool orientations = true;
    bool intImages = false;

private:
    DetectAction action_;
};

/// A detector with the image scale as its parameter; journals "NAME.setParams SCALE" and
/// "NAME.detect WIDTHxHEIGHT PIXEL".
class ScaledDetector : public IKeypointDetector, public SiftLdahBaseParams {
public:
    ScaledDetector(std::string name, Journal& journal, DetectAction action = {});

    [[nodiscard]] std::unique_ptr<IKeypointDetector> clone() const override;
    [[nodiscard]] bool hasOrientations() const override { return true; }
    [[nodiscard]] bool supportsIntImages() const override { return false; }
    [[nodiscard]] bool supportsFloatImages() const override { return true; }
    void detect(const ByteImage& image, std::vector<Keypoint>& keypoints) override;
    void detect(const FloatImage& image, std::vector<Keypoint>& keypoints) override;
    void setParams(float scale) override;

protected:
    std::string name_;
    Journal* journal_;

private:
    DetectAction action_;
};

/// An extractor with the image scale as its parameter; journals "NAME.setParams SCALE" and
/// "NAME.compute WIDTHxHEIGHT PIXEL".
class ScaledExtractor : public IDescriptorExtractor, public SiftLdahBaseParams {
public:
    ScaledExtractor(std::string name, Journal& journal, ComputeAction action = {});

    [[nodiscard]] std::unique_ptr<IDescriptorExtractor> cloneExtractor() const override;
    void compute(const ByteImage& image, std::vector<Keypoint>& keypoints,
                 DescMat& descriptors) override;
    void compute(const FloatImage& image, std::vector<Keypoint>& keypoints,
                 DescMat& descriptors) override;
    void setParams(float scale) override;

private:
    std::string name_;
    Journal* journal_;
    ComputeAction action_;
};

/// One object for both roles, as the CPU class of the SIFT and LDAH features is.
class DetectorAndExtractor : public ScaledDetector, public IDescriptorExtractor {
public:
    DetectorAndExtractor(std::string name, Journal& journal, DetectAction detectAction = {},
                         ComputeAction computeAction = {});
    ~DetectorAndExtractor() override;

    [[nodiscard]] std::unique_ptr<IDescriptorExtractor> cloneExtractor() const override;
    void compute(const ByteImage& image, std::vector<Keypoint>& keypoints,
                 DescMat& descriptors) override;
    void compute(const FloatImage& image, std::vector<Keypoint>& keypoints,
                 DescMat& descriptors) override;

private:
    ComputeAction computeAction_;
};

/// A selector without parameters; journals "NAME.setNumberOfKeypoints N" and "NAME.select". Without
/// an action it selects everything.
class PlainSelector : public IKeypointSelector {
public:
    PlainSelector(std::string name, Journal& journal, SelectAction action = {});

    [[nodiscard]] std::unique_ptr<IKeypointSelector> clone() const override;
    void setNumberOfKeypoints(std::uint64_t count) override;
    void select(const std::vector<Keypoint>& in, std::vector<Keypoint>& out) override;
    void selectIndices(const std::vector<Keypoint>& in, std::vector<std::size_t>& out) override;

protected:
    std::string name_;
    Journal* journal_;

private:
    SelectAction action_;
};

/// Journals the parameters that it has when it selects: "NAME.params C".
class AnmsLikeSelector : public PlainSelector, public KeypointSelectorAnmsBase {
public:
    using PlainSelector::PlainSelector;
    void select(const std::vector<Keypoint>& in, std::vector<Keypoint>& out) override;
};

/// Journals the parameters that it has when it selects: "NAME.params WIDTH HEIGHT EK ER".
class SdcLikeSelector : public PlainSelector, public KeypointSelectorSdcBase {
public:
    using PlainSelector::PlainSelector;
    void select(const std::vector<Keypoint>& in, std::vector<Keypoint>& out) override;
};

/// Doubles the width of an image and adds 100 to its first pixel; maps keypoints back by adding 0.5
/// to x. Journals "transformImage WIDTHxHEIGHT" and "transformKeypointsBack WIDTHxHEIGHT".
class WideningTransform : public ITransform {
public:
    explicit WideningTransform(Journal& journal) : journal_(&journal) {}

    const ByteImage& transformImage(const ByteImage& image) override;
    const FloatImage& transformImage(const FloatImage& image) override;
    void transformKeypointsBack(const std::vector<Keypoint>& transformed,
                                std::vector<Keypoint>& forDescriptors,
                                std::vector<Keypoint>& output, int width, int height) override;

private:
    Journal* journal_;
    ByteImage byteImage_;
    FloatImage floatImage_;
};

/// A matcher with the distance-fraction parameters that pairs row i with row i.
class DiagonalMatcher : public IDescriptorMatcher, public DescMatcherDistFracBase {
public:
    [[nodiscard]] std::unique_ptr<IDescriptorMatcher> clone() const override;
    [[nodiscard]] std::vector<DMatch> match(const DescMat& query,
                                            const DescMat& train) const override;
    [[nodiscard]] QString kernelName() const override { return kernelName_; }
};

}  // namespace marlo::test
