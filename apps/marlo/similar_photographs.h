// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "marlo/pair_order.h"
#include "marlo/progress.h"
#include "marlo/project.h"

namespace marlo::app {

/// Pairs each photograph with the `most` that are most like it among those whose rows are of the
/// same kind, by the text that `kindOfRows` gives. They are alike by the distance of their
/// FeatureHistograms, of which the counts are scaled to one sum, since photographs have different
/// numbers of keypoints. Of equally similar ones the first in the list counts. A photograph without
/// keypoints is like none. Features are loaded one photograph at a time. Gives no pairs when there
/// is an interruption().
/// @throws ProjectError.
[[nodiscard]] std::set<PairOfIds> pairsOfSimilar(
    const Project& project, const std::vector<Photograph>& photographs, std::size_t most,
    const std::function<std::string(const Photograph&)>& kindOfRows, Progress& progress);

}  // namespace marlo::app
