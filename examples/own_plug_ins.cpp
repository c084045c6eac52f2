// SPDX-License-Identifier: BSD-3-Clause
// A detector and an extractor of the host's own behind the controller: transform, detect, select,
// map back and describe in one call, with the log shown as it goes.
#include <libfeatures/features.h>

#include <Eigen/LU>
#include <cmath>
#include <iostream>

namespace {

// Corners after C. Harris and M. Stephens, A Combined Corner and Edge Detector, AVC 1988: local
// maxima of det(M) - 0.04 trace(M)^2, where M sums the gradient products over 5 x 5 pixels.
// Keys that begin with "SIFT" or "LDAH" are given the image scale, so the class carries it.
class Corners : public marlo::IKeypointDetector, public marlo::SiftLdahBaseParams {
public:
    std::unique_ptr<IKeypointDetector> clone() const override {
        return std::make_unique<Corners>(*this);
    }
    bool hasOrientations() const override { return false; }
    bool supportsIntImages() const override { return true; }
    bool supportsFloatImages() const override { return true; }
    void detect(const marlo::ByteImage& image, std::vector<marlo::Keypoint>& keypoints) override {
        detect(marlo::FloatImage(image.cast<float>() / 255.0F), keypoints);
    }
    void detect(const marlo::FloatImage& image, std::vector<marlo::Keypoint>& keypoints) override {
        keypoints.clear();
        marlo::FloatImage strength = marlo::FloatImage::Zero(image.rows(), image.cols());
        for (Eigen::Index y = 3; y + 3 < image.rows(); ++y) {
            for (Eigen::Index x = 3; x + 3 < image.cols(); ++x) {
                strength(y, x) = response(image, y, x);
            }
        }
        for (Eigen::Index y = 3; y + 3 < image.rows(); ++y) {
            for (Eigen::Index x = 3; x + 3 < image.cols(); ++x) {
                const float here = strength(y, x);
                const auto around = strength.block<3, 3>(y - 1, x - 1).array();
                if (here > 1e-4F && (around >= here).count() == 1) {
                    keypoints.emplace_back(static_cast<float>(x) / imageScale,
                                           static_cast<float>(y) / imageScale, 5.0F / imageScale,
                                           0.0F, here, 0, 1);
                }
            }
        }
    }

private:
    static float response(const marlo::FloatImage& image, Eigen::Index y, Eigen::Index x) {
        Eigen::Matrix2f m = Eigen::Matrix2f::Zero();
        for (Eigen::Index v = y - 2; v <= y + 2; ++v) {
            for (Eigen::Index u = x - 2; u <= x + 2; ++u) {
                const Eigen::Vector2f gradient(image(v, u + 1) - image(v, u - 1),
                                               image(v + 1, u) - image(v - 1, u));
                m += gradient * gradient.transpose();
            }
        }
        return m.determinant() - 0.04F * m.trace() * m.trace();
    }
};

// The 5 x 5 pixels around a keypoint as 25 floats.
class Patches : public marlo::IDescriptorExtractor, public marlo::SiftLdahBaseParams {
    using Patch = Eigen::Matrix<float, 5, 5, Eigen::RowMajor>;

public:
    std::unique_ptr<IDescriptorExtractor> cloneExtractor() const override {
        return std::make_unique<Patches>(*this);
    }
    void compute(const marlo::ByteImage& image, std::vector<marlo::Keypoint>& keypoints,
                 marlo::DescMat& descriptors) override {
        compute(marlo::FloatImage(image.cast<float>() / 255.0F), keypoints, descriptors);
    }
    void compute(const marlo::FloatImage& image, std::vector<marlo::Keypoint>& keypoints,
                 marlo::DescMat& descriptors) override {
        descriptors.create(static_cast<int>(keypoints.size()), 25, marlo::DescMat::Float);
        for (std::size_t i = 0; i < keypoints.size(); ++i) {
            const Eigen::Index x = std::lround(keypoints[i].x * imageScale);
            const Eigen::Index y = std::lround(keypoints[i].y * imageScale);
            Eigen::Map<Patch> row(
                reinterpret_cast<float*>(descriptors.data + i * descriptors.step));
            row = image.block<5, 5>(y - 2, x - 2);
        }
    }
};

}  // namespace

int main() {
    marlo::log::defaultLogSource().setSink([](const marlo::log::Line& line) {
        std::cout << "level " << static_cast<int>(line.level) << ": " << line.text << '\n';
    });
    marlo::extensibleFactoryInstance<marlo::IKeypointDetector>().registerType(
        "SIFT-Corners", [] { return std::make_unique<Corners>(); });
    marlo::extensibleFactoryInstance<marlo::IDescriptorExtractor>().registerType(
        "SIFT-Patches", [] { return std::make_unique<Patches>(); });
    marlo::registerMainKeypointSelectors();
    marlo::registerMainTransforms();

    // A bright rectangle on a dark ground has four corners.
    marlo::FloatImage image = marlo::FloatImage::Constant(60, 80, 0.25F);
    image.block(20, 30, 25, 35).setConstant(0.75F);

    marlo::FeaturesController controller("SIFT-Corners", "SIFT-Patches", "TOP", "Default");
    controller.setFeatureSetParams(1.0, 60, 80, 4);
    std::vector<marlo::Keypoint> keypoints;
    marlo::DescMat descriptors;
    controller.process(image, keypoints, descriptors);

    std::cout << keypoints.size() << " keypoints, descriptors " << descriptors.rows << " x "
              << descriptors.cols << '\n';
    for (const marlo::Keypoint& keypoint : keypoints) {
        std::cout << "corner at (" << keypoint.x << ", " << keypoint.y << ")\n";
    }
}
