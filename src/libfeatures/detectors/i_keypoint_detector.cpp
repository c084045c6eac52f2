// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/detectors/i_keypoint_detector.h"

namespace marlo {

IKeypointDetector::~IKeypointDetector() = default;

}  // namespace marlo
