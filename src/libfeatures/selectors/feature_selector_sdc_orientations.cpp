// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/selectors/feature_selector_sdc_orientations.h"

#include <limits>
#include <stdexcept>

#include "libfeatures/selectors/detail/sdc_grid.h"

namespace marlo {
namespace {

using Positions = std::vector<std::uint64_t>;

// The passes of one call. Positions are those in the sorted list. `Mark` must have room for 256
// times their number: every pass marks the cells with numbers of its own.
template <typename Mark>
class OrientationPasses {
public:
    OrientationPasses(const std::vector<Keypoint>& sorted, int width, int height)
        : sorted_(sorted),
          grid_(width, height),
          companions_(sorted.size()),
          newestOwner_(sorted.size(), sorted.size()),
          takenInPass_(sorted.size(), 0),
          completedInPass_(sorted.size(), 0) {}

    void run(std::uint32_t cellSize, std::uint32_t discRadius, Positions& taken) {
        ++pass_;
        grid_.startPass(cellSize, discRadius);
        // Owners are marked in the grid as position + firstMark; lower marks are of earlier passes.
        const std::uint64_t firstMark = pass_ * sorted_.size();
        for (std::uint64_t position = 0; position < sorted_.size(); ++position) {
            const auto cell = grid_.cellOf(sorted_[position]);
            const Mark mark = grid_.markOf(cell);
            if (mark < firstMark) {
                takenInPass_[position] = pass_;
                grid_.cover(cell, static_cast<Mark>(firstMark + position));
            } else if (sorted_[position].samePosition(sorted_[mark - firstMark])) {
                takeAlong(mark - firstMark, position);
            }
        }
        taken.clear();
        for (std::uint64_t position = 0; position < sorted_.size(); ++position) {
            if (takenInPass_[position] == pass_) {
                taken.push_back(position);
            }
        }
    }

private:
    // Once the companions of earlier passes are taken, only new ones can be missing.
    void takeAlong(std::uint64_t owner, std::uint64_t position) {
        Positions& companions = companions_[owner];
        if (completedInPass_[owner] != pass_) {
            completedInPass_[owner] = pass_;
            for (const std::uint64_t companion : companions) {
                takenInPass_[companion] = pass_;
            }
        }
        takenInPass_[position] = pass_;
        // A position that went to another owner in between is entered twice, which does no harm.
        if (newestOwner_[position] != owner) {
            newestOwner_[position] = owner;
            companions.push_back(position);
        }
    }

    const std::vector<Keypoint>& sorted_;
    detail::SdcGrid<Mark> grid_;
    std::uint32_t pass_ = 0;
    std::vector<Positions> companions_;           // by owner, from all passes; without the owner
    Positions newestOwner_;                       // by position; the input size: none yet
    std::vector<std::uint32_t> takenInPass_;      // by position: the last pass that took it
    std::vector<std::uint32_t> completedInPass_;  // by owner: the last pass that had a companion
};

}  // namespace

std::unique_ptr<IKeypointSelector> KeypointSelectorSdcOrientations::clone() const {
    return std::make_unique<KeypointSelectorSdcOrientations>(*this);
}

void KeypointSelectorSdcOrientations::setNumberOfKeypoints(std::uint64_t count) {
    numberOfKeypoints_ = count;
}

void KeypointSelectorSdcOrientations::select(const std::vector<Keypoint>& in,
                                             std::vector<Keypoint>& out) {
    checkNoInPlace(in, out);
    prepare(in);
    if (allAreRequested()) {
        out = std::vector<Keypoint>(sorted_);
        return;
    }
    searchDiscs();
    out = readTaken(sorted_, numberOfKeypoints_);
}

void KeypointSelectorSdcOrientations::selectIndices(const std::vector<Keypoint>& in,
                                                    std::vector<std::size_t>& out) {
    prepare(in);
    if (allAreRequested()) {
        throw std::runtime_error("This case has not been implemented yet");
    }
    searchDiscs();
    out = readTakenPositions(numberOfKeypoints_);
}

void KeypointSelectorSdcOrientations::searchDiscs() {
    const auto searchWith = [&](auto passes) {
        search([&](std::uint32_t cellSize, std::uint32_t discRadius) {
            passes.run(cellSize, discRadius, taken_);
        });
    };
    // The grid is what costs time where cells are small, so it is kept as small as it can be.
    if (sorted_.size() < std::numeric_limits<std::uint32_t>::max() / 256) {
        searchWith(OrientationPasses<std::uint32_t>(sorted_, width_, height_));
    } else {
        searchWith(OrientationPasses<std::uint64_t>(sorted_, width_, height_));
    }
}

}  // namespace marlo
