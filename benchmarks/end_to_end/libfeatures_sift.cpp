// SPDX-License-Identifier: BSD-3-Clause
#include <memory>
#include <utility>

#include "end_to_end/sift_systems.h"
#include "libfeatures/detectors/detail/octave_sweep.h"
#include "libfeatures/detectors/features_2d_sift_ldah.h"
#include "utilities/timing.h"

namespace marlo::bench {
namespace {

// The octaves of a scale space as detection makes them, without anything that follows.
class ScaleSpace {
public:
    void build(const FloatImage& image, bool search) {
        FloatImage levelZero;
        for (int o = 0; o < kOctaves; ++o) {
            FloatImage nextLevelZero;
            detail::OctaveTask task;
            task.input = o == 0 ? &image : &levelZero;
            task.blurInput = o == 0;
            task.gradients = &octaves_[o];
            if (o + 1 < kOctaves) task.nextInput = &nextLevelZero;
            task.search = search;
            detail::sweepOctave(task);
            levelZero = std::move(nextLevelZero);
        }
    }

private:
    static constexpr int kOctaves = 3;
    using Levels = std::vector<detail::Gradients>;
    Levels octaves_[kOctaves] = {Levels(detail::kLevels), Levels(detail::kLevels),
                                 Levels(detail::kLevels)};
};

}  // namespace

struct LibfeaturesSift::State {
    explicit State(const FloatImage& inputImage)
        : image(inputImage),
          detector(Features2dSiftLdah::createDetectorSIFT()),
          extractor(dynamic_cast<IDescriptorExtractor&>(*detector)) {
        dynamic_cast<SiftLdahBaseParams&>(*detector).setParams(1.0F);
    }

    const FloatImage& image;
    std::unique_ptr<IKeypointDetector> detector;
    IDescriptorExtractor& extractor;
    std::vector<Keypoint> keypoints;
    DescMat descriptors;
    ScaleSpace scaleSpace;
};

LibfeaturesSift::LibfeaturesSift(const FloatImage& image) : state_(std::make_unique<State>(image)) {
    name = "libfeatures";
    remark =
        "differences and extrema are made in the sweep that makes the pyramid (extrema: what "
        "searching adds to it); gradients in that of the pyramid";
}

LibfeaturesSift::~LibfeaturesSift() = default;

const std::vector<Keypoint>& LibfeaturesSift::found() const {
    return state_->keypoints;
}

void LibfeaturesSift::run() {
    State& s = *state_;
    const double detect = secondsOf([&] { s.detector->detect(s.image, s.keypoints); });
    const double describe =
        secondsOf([&] { s.extractor.compute(s.image, s.keypoints, s.descriptors); });
    times.record(Stage::Detect, detect);
    times.record(Stage::Describe, describe);
    times.record(Stage::Whole, detect + describe);
    keypoints = s.keypoints.size();

    times.record(Stage::Pyramid, secondsOf([&] { s.scaleSpace.build(s.image, false); }));
    times.record(Stage::Search, secondsOf([&] { s.scaleSpace.build(s.image, true); }));
    times.set(Stage::Extrema, times[Stage::Search] - times[Stage::Pyramid]);
    times.set(Stage::Orientation, times[Stage::Detect] - times[Stage::Search]);
}

}  // namespace marlo::bench
