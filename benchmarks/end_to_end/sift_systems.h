// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <array>
#include <cstddef>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "libfeatures/base/keypoint.h"
#include "support/image.h"

namespace marlo::bench {

/// What is timed. The first three are whole operations, the others parts of them.
enum class Stage : std::size_t {
    Detect,
    Describe,
    Whole,
    Search,       ///< the next three together
    Pyramid,      ///< 18 Gaussian images: 16 blurs and 2 decimations
    Differences,  ///< 15 differences of Gaussians
    Extrema,      ///< the 3 x 3 x 3 test of 9 levels and the refinement of what passes
    Gradients,    ///< lengths and directions of 9 levels
    Orientation,
    Count,
};

constexpr std::size_t kStages = static_cast<std::size_t>(Stage::Count);
constexpr std::array<const char*, kStages> kStageNames{
    "detect",          "describe",    "detect + describe", "  pyramid to extrema", "    pyramid",
    "    differences", "    extrema", "  gradients",       "  orientation",
};

/// The least seconds of each stage; infinite where nothing was measured.
class StageTimes {
public:
    StageTimes() { seconds_.fill(std::numeric_limits<double>::infinity()); }
    void record(Stage stage, double seconds) {
        double& least = seconds_[static_cast<std::size_t>(stage)];
        if (seconds < least) least = seconds;
    }
    /// Replaces what record() has kept, for times that are worked out from others.
    void set(Stage stage, double seconds) { seconds_[static_cast<std::size_t>(stage)] = seconds; }
    [[nodiscard]] double operator[](Stage stage) const {
        return seconds_[static_cast<std::size_t>(stage)];
    }

private:
    std::array<double, kStages> seconds_{};
};

/// One way of getting from an image to keypoints with descriptors.
class SiftSystem {
public:
    SiftSystem() = default;
    SiftSystem(const SiftSystem&) = delete;
    SiftSystem& operator=(const SiftSystem&) = delete;
    virtual ~SiftSystem() = default;

    /// Detects and describes once, and keeps the least time of each stage.
    virtual void run() = 0;

    std::string name;
    std::string remark;  ///< what to know when comparing
    StageTimes times;
    std::size_t keypoints = 0;
};

/// This library. Its keypoints say how much work there was.
class LibfeaturesSift : public SiftSystem {
public:
    /// `image` must outlive the object.
    explicit LibfeaturesSift(const FloatImage& image);
    ~LibfeaturesSift() override;
    void run() override;

    [[nodiscard]] const std::vector<Keypoint>& found() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

/// OpenCV's SIFT at equal work: it doubles its input, so it gets the image at half the size.
std::unique_ptr<SiftSystem> makeOpenCvAtEqualWork(const ByteImage& image);
/// OpenCV's SIFT as it comes: the image doubled, its own thresholds.
std::unique_ptr<SiftSystem> makeOpenCvDefault(const ByteImage& image);
/// The image operations of the stages, done with OpenCV's functions for them.
std::unique_ptr<SiftSystem> makeOpenCvStages(const FloatImage& image);
/// VLFeat's SIFT without doubling, 3 octaves of 3 levels; empty if built without VLFeat.
std::unique_ptr<SiftSystem> makeVlFeat(const FloatImage& image);

}  // namespace marlo::bench
