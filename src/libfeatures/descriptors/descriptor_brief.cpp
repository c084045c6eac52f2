// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/descriptors/descriptor_brief.h"

#include <cstddef>
#include <limits>
#include <stdexcept>

#include "libfeatures/descriptors/detail/brief_pattern.h"
#include "libfeatures/descriptors/detail/brief_rows.h"
#include "libfeatures/descriptors/detail/describe_keypoints.h"
#include "support/log.h"

namespace marlo {
namespace {

// In steps of 5 degrees, truncated toward zero; the smallest integer for what has none, as the x86
// conversion gives it.
int rotationSteps(float degrees) {
    constexpr double kLimit = 2147483648.0;
    const double steps = static_cast<double>(degrees * 72.0F) / 360.0;
    return steps > -kLimit && steps < kLimit ? static_cast<int>(steps)
                                             : std::numeric_limits<int>::min();
}

// The number of the pattern to take for each keypoint.
std::vector<std::uint8_t> rotationsOf(const std::vector<Keypoint>& keypoints) {
    std::vector<std::uint8_t> rotations;
    rotations.reserve(keypoints.size());
    for (const Keypoint& keypoint : keypoints) {
        int rotation = rotationSteps(keypoint.angle);
        if (rotation < 0 || rotation >= detail::kBriefRotations) {
            log::LogStreamer(log::defaultLogSource(), log::Level::Warning, {},
                             {"descriptor_brief", 110})
                << "i_angle out of range " << rotation << " angle [deg]: " << keypoint.angle;
            rotation = 0;
        }
        if (rotations.empty()) {
            log::LogStreamer(log::defaultLogSource(), log::Level::Detail, {},
                             {"descriptor_brief", 116})
                << "angle bin for keypoint " << 0 << " i_angle " << rotation
                << " angle [deg]: " << keypoint.angle;
        }
        rotations.push_back(static_cast<std::uint8_t>(rotation));
    }
    return rotations;
}

}  // namespace

Brief::Brief() : rotatedPatterns_(detail::rotatedBriefPatterns()) {}

Brief::~Brief() = default;

std::unique_ptr<IDescriptorExtractor> Brief::cloneExtractor() const {
    return std::make_unique<Brief>(*this);
}

void Brief::compute(const ByteImage& image, std::vector<Keypoint>& keypoints,
                    DescMat& descriptors) {
    if (image.size() == 0 || keypoints.empty()) {
        throw std::runtime_error("the image or keypoints (or both) are empty");
    }
    descriptors.create(detail::rowCount(keypoints), 64, DescMat::Byte);
    detail::computeBriefRows(image, keypoints, rotatedPatterns_, rotationsOf(keypoints),
                             descriptors);
}

void Brief::compute(const FloatImage&, std::vector<Keypoint>&, DescMat&) {
    throw std::runtime_error("compute functon with float matrices not implemented yet");
}

}  // namespace marlo
