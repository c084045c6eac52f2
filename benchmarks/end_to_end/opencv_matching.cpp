// SPDX-License-Identifier: BSD-3-Clause
#include "end_to_end/matching_systems.h"

#if defined(FEATURES_BENCH_WITH_OPENCV)

#include <limits>
#include <opencv2/core.hpp>
#include <opencv2/features2d.hpp>

namespace marlo::bench {
namespace {

// A view of the same rows.
cv::Mat view(const DescMat& rows) {
    return {rows.rows, rows.cols, rows.type(), rows.data, rows.step};
}

class OpenCvMatching : public MatchingSystem {
public:
    OpenCvMatching(const DescMat& query, const DescMat& train)
        : query_(view(query)),
          train_(view(train)),
          matcher_(query.type() == DescMat::Byte ? cv::NORM_HAMMING : cv::NORM_L2) {
        name = "OpenCV BFMatcher";
    }

    void run() override {
        matches_.clear();
        matcher_.knnMatch(query_, train_, matches_, 2);
    }

    [[nodiscard]] Neighbours neighbours() const override {
        constexpr float kInfinity = std::numeric_limits<float>::infinity();
        Neighbours found;
        for (const std::vector<cv::DMatch>& row : matches_) {
            found.nearest.push_back(row.empty() ? -1 : row[0].trainIdx);
            found.distance.push_back(row.empty() ? kInfinity : row[0].distance);
            found.secondDistance.push_back(row.size() < 2 ? kInfinity : row[1].distance);
        }
        return found;
    }

private:
    cv::Mat query_;
    cv::Mat train_;
    cv::BFMatcher matcher_;
    std::vector<std::vector<cv::DMatch>> matches_;
};

}  // namespace

std::unique_ptr<MatchingSystem> makeOpenCvMatching(const DescMat& query, const DescMat& train) {
    return std::make_unique<OpenCvMatching>(query, train);
}

std::string openCvVersion() {
    return CV_VERSION;
}

void setOpenCvThreads(int threads) {
    cv::setNumThreads(threads);
}

}  // namespace marlo::bench

#else

namespace marlo::bench {

std::unique_ptr<MatchingSystem> makeOpenCvMatching(const DescMat&, const DescMat&) {
    return nullptr;
}

std::string openCvVersion() {
    return {};
}

void setOpenCvThreads(int) {}

}  // namespace marlo::bench

#endif
