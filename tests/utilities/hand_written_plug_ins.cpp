// SPDX-License-Identifier: BSD-3-Clause
#include "utilities/hand_written_plug_ins.h"

#include <algorithm>
#include <sstream>

namespace marlo::test {
namespace {

template <typename... Parts>
std::string joined(const Parts&... parts) {
    std::ostringstream text;
    (text << ... << parts);
    return text.str();
}

template <typename Image>
std::string described(const Image& image) {
    return joined(image.cols(), "x", image.rows(), " ",
                  image.size() == 0 ? 0.0 : static_cast<double>(image(0, 0)));
}

template <typename Image>
const Image& widened(const Image& image, Image& storage) {
    using Pixel = typename Image::Scalar;
    storage = Image::Zero(image.rows(), 2 * image.cols());
    storage.leftCols(image.cols()) = image;
    storage(0, 0) = static_cast<Pixel>(storage(0, 0) + Pixel{100});
    return storage;
}

}  // namespace

std::unique_ptr<IKeypointDetector> PlainDetector::clone() const {
    return std::make_unique<PlainDetector>(*this);
}

void PlainDetector::detect(const ByteImage& /*image*/, std::vector<Keypoint>& keypoints) {
    if (action_) action_(keypoints);
}

void PlainDetector::detect(const FloatImage& /*image*/, std::vector<Keypoint>& keypoints) {
    if (action_) action_(keypoints);
}

ScaledDetector::ScaledDetector(std::string name, Journal& journal, DetectAction action)
    : name_(std::move(name)), journal_(&journal), action_(std::move(action)) {}

std::unique_ptr<IKeypointDetector> ScaledDetector::clone() const {
    return std::make_unique<ScaledDetector>(*this);
}

void ScaledDetector::detect(const ByteImage& image, std::vector<Keypoint>& keypoints) {
    journal_->push_back(joined(name_, ".detect ", described(image)));
    if (action_) action_(keypoints);
}

void ScaledDetector::detect(const FloatImage& image, std::vector<Keypoint>& keypoints) {
    journal_->push_back(joined(name_, ".detect ", described(image)));
    if (action_) action_(keypoints);
}

void ScaledDetector::setParams(float scale) {
    journal_->push_back(joined(name_, ".setParams ", scale));
    SiftLdahBaseParams::setParams(scale);
}

ScaledExtractor::ScaledExtractor(std::string name, Journal& journal, ComputeAction action)
    : name_(std::move(name)), journal_(&journal), action_(std::move(action)) {}

std::unique_ptr<IDescriptorExtractor> ScaledExtractor::cloneExtractor() const {
    return std::make_unique<ScaledExtractor>(*this);
}

void ScaledExtractor::compute(const ByteImage& image, std::vector<Keypoint>& keypoints,
                              DescMat& descriptors) {
    journal_->push_back(joined(name_, ".compute ", described(image)));
    if (action_) action_(keypoints, descriptors);
}

void ScaledExtractor::compute(const FloatImage& image, std::vector<Keypoint>& keypoints,
                              DescMat& descriptors) {
    journal_->push_back(joined(name_, ".compute ", described(image)));
    if (action_) action_(keypoints, descriptors);
}

void ScaledExtractor::setParams(float scale) {
    journal_->push_back(joined(name_, ".setParams ", scale));
    SiftLdahBaseParams::setParams(scale);
}

DetectorAndExtractor::DetectorAndExtractor(std::string name, Journal& journal,
                                           DetectAction detectAction, ComputeAction computeAction)
    : ScaledDetector(std::move(name), journal, std::move(detectAction)),
      computeAction_(std::move(computeAction)) {}

DetectorAndExtractor::~DetectorAndExtractor() {
    journal_->push_back(name_ + " destroyed");
}

std::unique_ptr<IDescriptorExtractor> DetectorAndExtractor::cloneExtractor() const {
    return std::make_unique<DetectorAndExtractor>(*this);
}

void DetectorAndExtractor::compute(const ByteImage& image, std::vector<Keypoint>& keypoints,
                                   DescMat& descriptors) {
    journal_->push_back(joined(name_, ".compute ", described(image)));
    if (computeAction_) computeAction_(keypoints, descriptors);
}

void DetectorAndExtractor::compute(const FloatImage& image, std::vector<Keypoint>& keypoints,
                                   DescMat& descriptors) {
    journal_->push_back(joined(name_, ".compute ", described(image)));
    if (computeAction_) computeAction_(keypoints, descriptors);
}

PlainSelector::PlainSelector(std::string name, Journal& journal, SelectAction action)
    : name_(std::move(name)), journal_(&journal), action_(std::move(action)) {}

std::unique_ptr<IKeypointSelector> PlainSelector::clone() const {
    return std::make_unique<PlainSelector>(*this);
}

void PlainSelector::setNumberOfKeypoints(std::uint64_t count) {
    journal_->push_back(joined(name_, ".setNumberOfKeypoints ", count));
}

void PlainSelector::select(const std::vector<Keypoint>& in, std::vector<Keypoint>& out) {
    journal_->push_back(name_ + ".select");
    if (action_) {
        action_(in, out);
    } else {
        out = in;
    }
}

void PlainSelector::selectIndices(const std::vector<Keypoint>& in, std::vector<std::size_t>& out) {
    out.resize(in.size());
    for (std::size_t i = 0; i < out.size(); ++i) {
        out[i] = i;
    }
}

void AnmsLikeSelector::select(const std::vector<Keypoint>& in, std::vector<Keypoint>& out) {
    journal_->push_back(joined(name_, ".params ", robustness()));
    PlainSelector::select(in, out);
}

void SdcLikeSelector::select(const std::vector<Keypoint>& in, std::vector<Keypoint>& out) {
    journal_->push_back(joined(name_, ".params ", width(), " ", height(), " ", ek(), " ", er()));
    PlainSelector::select(in, out);
}

const ByteImage& WideningTransform::transformImage(const ByteImage& image) {
    journal_->push_back(joined("transformImage ", image.cols(), "x", image.rows()));
    return widened(image, byteImage_);
}

const FloatImage& WideningTransform::transformImage(const FloatImage& image) {
    journal_->push_back(joined("transformImage ", image.cols(), "x", image.rows()));
    return widened(image, floatImage_);
}

void WideningTransform::transformKeypointsBack(const std::vector<Keypoint>& transformed,
                                               std::vector<Keypoint>& forDescriptors,
                                               std::vector<Keypoint>& output, int width,
                                               int height) {
    journal_->push_back(joined("transformKeypointsBack ", width, "x", height));
    forDescriptors = transformed;
    output = transformed;
    for (Keypoint& keypoint : output) {
        keypoint.x += 0.5F;
    }
}

std::unique_ptr<IDescriptorMatcher> DiagonalMatcher::clone() const {
    return std::make_unique<DiagonalMatcher>(*this);
}

std::vector<DMatch> DiagonalMatcher::match(const DescMat& query, const DescMat& train) const {
    std::vector<DMatch> matches;
    for (int i = 0; i < std::min(query.rows, train.rows); ++i) {
        matches.emplace_back(static_cast<unsigned int>(i), static_cast<unsigned int>(i), 1.0F);
    }
    kernelName_ = QLatin1String("diagonal");
    return matches;
}

}  // namespace marlo::test
