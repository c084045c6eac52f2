// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstdint>
#include <vector>

#include "libfeatures/base/keypoint.h"

/// Disc covering, said as plainly as possible, for small images and few keypoints.
namespace marlo::reference {

struct DiscCoveringTask {
    std::vector<Keypoint> in;
    std::uint64_t requested = 0;  // 1 to in.size() - 1
    int width = 0;
    int height = 0;
    float ek = 0.0F;
    float er = 0.0F;
    bool withOrientations = false;
};

enum class DiscCoveringEnd {
    ToleranceMet,
    CellSizeZero,
    CellSizeRepeated,
    Never,  // the rule goes on for ever, taking the same keypoints; stopped after 1000 passes
};

struct DiscCoveringAnswer {
    DiscCoveringEnd end = DiscCoveringEnd::Never;
    std::vector<Keypoint> sorted;
    std::vector<std::uint64_t> taken;  // of the last pass: positions in `sorted`
    int passes = 0;
};

DiscCoveringAnswer slowDiscCovering(const DiscCoveringTask& task);

}  // namespace marlo::reference
