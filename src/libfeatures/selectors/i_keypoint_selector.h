// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "libfeatures/base/keypoint.h"
#include "libfeatures/features_export.h"

namespace marlo {

/// Thins a list of keypoints. The order of the virtual functions is part of the interface.
/// Selectors need nothing but keypoints: those of any other detector will do. Use an object from
/// one thread at a time; clone() gives an independent one for another thread.
class FEATURES_EXPORT IKeypointSelector {
public:
    virtual ~IKeypointSelector();

    /// A new selector of the same class with the same parameters.
    [[nodiscard]] virtual std::unique_ptr<IKeypointSelector> clone() const = 0;
    /// How many keypoints to keep. Nothing is checked here.
    virtual void setNumberOfKeypoints(std::uint64_t count) = 0;
    /// Replaces the content of `out` by the selected keypoints; `in` is unchanged.
    /// @throws std::runtime_error as checkNoInPlace(), and as the class says.
    virtual void select(const std::vector<Keypoint>& in, std::vector<Keypoint>& out) = 0;
    /// As select(), giving positions instead of copies. Classes say which positions, and whether
    /// they offer this.
    virtual void selectIndices(const std::vector<Keypoint>& in, std::vector<std::size_t>& out) = 0;

    /// @throws std::runtime_error "keypoint selectors cannot do selection in-place (in == out)" if
    ///         `in` and `out` are the same object.
    static void checkNoInPlace(const std::vector<Keypoint>& in, const std::vector<Keypoint>& out);

protected:
    IKeypointSelector() = default;
    IKeypointSelector(const IKeypointSelector&) = default;
    IKeypointSelector& operator=(const IKeypointSelector&) = default;
};

}  // namespace marlo
