// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/selectors/feature_selector_sdc.h"

#include <cassert>
#include <limits>
#include <stdexcept>

#include "libfeatures/selectors/detail/sdc_grid.h"

namespace marlo {

std::unique_ptr<IKeypointSelector> KeypointSelectorSdc::clone() const {
    return std::make_unique<KeypointSelectorSdc>(*this);
}

void KeypointSelectorSdc::setNumberOfKeypoints(std::uint64_t count) {
    numberOfKeypoints_ = count;
}

void KeypointSelectorSdc::select(const std::vector<Keypoint>& in, std::vector<Keypoint>& out) {
    checkNoInPlace(in, out);
    prepare(in);
    if (allAreRequested()) {
        out = std::vector<Keypoint>(sorted_);
    } else if (searchDiscs()) {
        out = readTaken(sorted_, numberOfKeypoints_);
    } else {
        out = readTaken(in, taken_.size());  // in, not sorted_: as documented
    }
}

void KeypointSelectorSdc::selectIndices(const std::vector<Keypoint>& in,
                                        std::vector<std::size_t>& out) {
    prepare(in);
    if (allAreRequested()) {
        throw std::runtime_error("This case has not been implemented yet");
    }
    const bool found = searchDiscs();
    out = readTakenPositions(found ? numberOfKeypoints_ : taken_.size());
}

bool KeypointSelectorSdc::searchDiscs() {
    detail::SdcGrid<std::uint8_t> grid(width_, height_);
    std::uint8_t passNumber = 0;
    return search([&](std::uint32_t cellSize, std::uint32_t discRadius) {
        assert(passNumber < std::numeric_limits<std::uint8_t>::max());  // search() says why
        ++passNumber;
        grid.startPass(cellSize, discRadius);
        taken_.clear();
        for (std::size_t position = 0; position < sorted_.size(); ++position) {
            const auto cell = grid.cellOf(sorted_[position]);
            if (grid.markOf(cell) < passNumber) {
                taken_.push_back(position);
                grid.cover(cell, passNumber);
            }
        }
    });
}

}  // namespace marlo
