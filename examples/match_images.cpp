// SPDX-License-Identifier: BSD-3-Clause
#include <libfeatures/features.h>

#include <cmath>
#include <iostream>
#include <vector>

namespace {

/// A scene of 250 bright and dark spots of different sizes, seen from `left` pixels to the right
/// and `top` pixels down.
marlo::FloatImage render(int left, int top) {
    marlo::FloatImage image = marlo::FloatImage::Constant(240, 320, 0.5F);
    unsigned random = 1;
    const auto next = [&random](unsigned below) {
        random = random * 1664525U + 1013904223U;
        return static_cast<float>((random >> 8) % below);
    };
    for (int spot = 0; spot < 250; ++spot) {
        const float spotX = next(420) - static_cast<float>(left);
        const float spotY = next(340) - static_cast<float>(top);
        const float width = 1.5F + 0.1F * next(40);
        const float height = 1.5F + 0.1F * next(40);
        const float strength = spot % 2 == 0 ? 0.15F : -0.15F;
        for (int y = 0; y < image.rows(); ++y) {
            for (int x = 0; x < image.cols(); ++x) {
                const float u = (static_cast<float>(x) - spotX) / width;
                const float v = (static_cast<float>(y) - spotY) / height;
                const float fall = 1 + u * u + v * v;
                image(y, x) += strength / (fall * fall);
            }
        }
    }
    return image;
}

}  // namespace

int main() {
    marlo::registerMainFeatureDetectors();
    marlo::registerMainDescriptorExtractors();
    marlo::registerMainKeypointSelectors();
    marlo::registerMainTransforms();
    marlo::registerMainDescriptorMatchers();

    // One controller an image: it keeps the scale space between detection and description.
    std::vector<marlo::Keypoint> keypoints[2];
    marlo::DescMat descriptors[2];
    const marlo::FloatImage images[] = {render(0, 0), render(40, 25)};
    for (int i = 0; i < 2; ++i) {
        marlo::FeaturesController controller("SIFT", "SIFT", "TOP", "Default");
        controller.setFeatureSetParams(1.0, 240, 320, 500);
        controller.process(images[i], keypoints[i], descriptors[i]);
        std::cout << "image " << i << ": " << keypoints[i].size() << " keypoints\n";
    }

    const auto matcher =
        marlo::extensibleFactoryInstance<marlo::IDescriptorMatcher>().create("DistFracMutual");
    // The nearest row at less than 0.8 times the distance of the second-nearest; any distance.
    marlo::setDescriptorMatcherDistFracParams(matcher.get(), 1000000.0F, 0.8F);
    const std::vector<marlo::DMatch> matches = matcher->match(descriptors[0], descriptors[1]);
    const auto right = [&](const marlo::DMatch& match) {
        const marlo::Keypoint& a = keypoints[0][match.queryIndex];
        const marlo::Keypoint& b = keypoints[1][match.trainIndex];
        return std::abs(a.x - 40.0F - b.x) < 1.0F && std::abs(a.y - 25.0F - b.y) < 1.0F;
    };
    int rightCount = 0;
    for (const marlo::DMatch& match : matches) rightCount += right(match) ? 1 : 0;
    std::cout << matches.size() << " matches, of which " << rightCount << " are right\n";

    // `distance` is a score: larger is better.
    const std::vector<marlo::DMatch> sure = marlo::copyBestMatches(matches, 0.5F);
    std::cout << sure.size() << " with a score above 0.5; the best: " << sure.front();
}
