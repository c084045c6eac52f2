// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <string>
#include <vector>

namespace marlo::app {

/// What the options take.
inline const std::vector<std::string> kFeatures{"sift", "ldah"};
inline const std::vector<std::string> kSelectors{"TOP",     "Default",  "ANMS", "ANMSBound",
                                                 "ANMSOri", "ANMSOrig", "SDC",  "SDCOri"};
inline const std::vector<std::string> kDistances{"hellinger", "euclidean"};
inline const std::vector<std::string> kGpuChoices{"auto", "off", "on"};
inline const std::vector<std::string> kMatchers{"DistFracMutual", "DistFrac", "LeftRight"};

}  // namespace marlo::app
