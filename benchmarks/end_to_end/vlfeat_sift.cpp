// SPDX-License-Identifier: BSD-3-Clause
#include "end_to_end/sift_systems.h"

#if defined(FEATURES_BENCH_WITH_VLFEAT)

extern "C" {
#include <vl/generic.h>
#include <vl/host.h>
#include <vl/sift.h>
}

#include <array>

#include "utilities/timing.h"

namespace marlo::bench {
namespace {

class VlFeatSift : public SiftSystem {
public:
    explicit VlFeatSift(const FloatImage& image)
        : image_(image),
          filter_(vl_sift_new(static_cast<int>(image.cols()), static_cast<int>(image.rows()), 3, 3,
                              0)) {
        vl_sift_set_peak_thresh(filter_, 1e-4);
        vl_sift_set_edge_thresh(filter_, 1e9);
        name = "VLFeat";
        char* const configuration = vl_static_configuration_to_string_copy();
        const bool vectorised = std::string(configuration).find("SSE2") != std::string::npos;
        vl_free(configuration);
        remark =
            "first octave 0, 3 octaves of 3 levels, peak 1e-4, no edge test; one thread; built ";
        remark +=
            vectorised ? "with SSE2" : "without SSE2 (a build with it is about twice as fast)";
    }
    ~VlFeatSift() override { vl_sift_delete(filter_); }

    void run() override {
        descriptors_.clear();
        seconds_ = {};
        add(Stage::Pyramid, [&] { more_ = vl_sift_process_first_octave(filter_, image_.data()); });
        while (more_ == VL_ERR_OK) {
            runOctave();
            add(Stage::Pyramid, [&] { more_ = vl_sift_process_next_octave(filter_); });
        }
        const double detect =
            sum({Stage::Pyramid, Stage::Extrema, Stage::Gradients, Stage::Orientation});
        times.record(Stage::Detect, detect);
        times.record(Stage::Search, sum({Stage::Pyramid, Stage::Extrema}));
        times.record(Stage::Whole, detect + sum({Stage::Describe}));
        for (const Stage stage : {Stage::Describe, Stage::Pyramid, Stage::Extrema, Stage::Gradients,
                                  Stage::Orientation}) {
            times.record(stage, sum({stage}));
        }
        keypoints = descriptors_.size();
    }

private:
    struct Oriented {
        VlSiftKeypoint keypoint;
        double angle;
    };

    template <typename Work>
    void add(Stage stage, Work&& work) {
        seconds_[static_cast<std::size_t>(stage)] += secondsOf(work);
    }
    [[nodiscard]] double sum(std::initializer_list<Stage> stages) const {
        double seconds = 0.0;
        for (const Stage stage : stages) seconds += seconds_[static_cast<std::size_t>(stage)];
        return seconds;
    }

    void runOctave() {
        add(Stage::Extrema, [&] { vl_sift_detect(filter_); });
        const VlSiftKeypoint* const first = vl_sift_get_keypoints(filter_);
        const int count = vl_sift_get_nkeypoints(filter_);
        if (count == 0) return;
        double angles[4];
        // The first question of an octave makes the gradients.
        add(Stage::Gradients, [&] { vl_sift_calc_keypoint_orientations(filter_, angles, first); });
        oriented_.clear();
        add(Stage::Orientation, [&] {
            for (const VlSiftKeypoint* point = first; point < first + count; ++point) {
                const int found = vl_sift_calc_keypoint_orientations(filter_, angles, point);
                for (int i = 0; i < found; ++i) oriented_.push_back({*point, angles[i]});
            }
        });
        add(Stage::Describe, [&] {
            for (const Oriented& entry : oriented_) {
                vl_sift_calc_keypoint_descriptor(filter_, descriptors_.emplace_back().data(),
                                                 &entry.keypoint, entry.angle);
            }
        });
    }

    const FloatImage& image_;
    VlSiftFilt* filter_;
    int more_ = VL_ERR_OK;
    std::array<double, kStages> seconds_{};
    std::vector<Oriented> oriented_;
    std::vector<std::array<float, 128>> descriptors_;
};

}  // namespace

std::unique_ptr<SiftSystem> makeVlFeat(const FloatImage& image) {
    return std::make_unique<VlFeatSift>(image);
}

}  // namespace marlo::bench

#else

namespace marlo::bench {

std::unique_ptr<SiftSystem> makeVlFeat(const FloatImage& /*image*/) {
    return nullptr;
}

}  // namespace marlo::bench

#endif
