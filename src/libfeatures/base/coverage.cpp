// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/base/coverage.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <tuple>
#include <utility>

namespace marlo {
namespace {

// Doubles: differences of single-precision coordinates and their squares neither cancel nor
// vanish, so that two places are never at a distance of 0.
struct Place {
    double x;
    double y;
};

constexpr double kPixelEdge = 0.5;  // from the centre of a pixel, where its coordinates are whole

bool isInside(float position, int length) {
    const double fromEdge = static_cast<double>(position) + kPixelEdge;
    return fromEdge >= 0.0 && fromEdge < length;
}

// Sorted, so that sums do not depend on the order of the keypoints.
std::vector<Place> placesOf(const std::vector<Keypoint>& keypoints, int width, int height) {
    std::vector<Place> places;
    places.reserve(keypoints.size());
    for (const Keypoint& keypoint : keypoints) {
        if (!isInside(keypoint.x, width) || !isInside(keypoint.y, height)) continue;
        places.push_back({static_cast<double>(keypoint.x), static_cast<double>(keypoint.y)});
    }
    std::sort(places.begin(), places.end(), [](const Place& a, const Place& b) {
        return std::tie(a.x, a.y) < std::tie(b.x, b.y);
    });
    const auto same = [](const Place& a, const Place& b) { return a.x == b.x && a.y == b.y; };
    places.erase(std::unique(places.begin(), places.end(), same), places.end());
    return places;
}

// Numbers of cells are sorted instead of marked in a grid: no grid is too fine.
double shareOfCells(const std::vector<Place>& places, int width, int height, int gridSize) {
    const auto cell = [&](double position, int length) {
        const double number = (position + kPixelEdge) * gridSize / length;
        return std::min(static_cast<std::uint64_t>(number),
                        static_cast<std::uint64_t>(gridSize) - 1);
    };
    std::vector<std::uint64_t> occupied;
    occupied.reserve(places.size());
    for (const Place& place : places) {
        occupied.push_back(static_cast<std::uint64_t>(gridSize) * cell(place.y, height) +
                           cell(place.x, width));
    }
    std::sort(occupied.begin(), occupied.end());
    const auto end = std::unique(occupied.begin(), occupied.end());
    return static_cast<double>(end - occupied.begin()) / (static_cast<double>(gridSize) * gridSize);
}

// A balanced k-d tree in place: the middle of a range divides the rest of it by x or by y, in
// turns. Unlike a grid of cells it is as fast where most places crowd in a corner.
class PlaceTree {
public:
    explicit PlaceTree(std::vector<Place> places) : places_(std::move(places)) {
        divide(0, places_.size(), &Place::x);
    }

    // Of the nearest place that is not at `from` itself.
    [[nodiscard]] double squaredDistanceFrom(const Place& from) const {
        double nearest = std::numeric_limits<double>::infinity();
        search(0, places_.size(), &Place::x, from, nearest);
        return nearest;
    }

private:
    using Axis = double Place::*;
    static constexpr std::size_t kUndivided = 8;  // as few are faster looked through than divided

    static Axis other(Axis axis) { return axis == &Place::x ? &Place::y : &Place::x; }

    void divide(std::size_t first, std::size_t last, Axis axis) {
        if (last - first <= kUndivided) return;
        const std::size_t middle = first + (last - first) / 2;
        const auto at = [&](std::size_t i) {
            return places_.begin() + static_cast<std::ptrdiff_t>(i);
        };
        std::nth_element(at(first), at(middle), at(last),
                         [axis](const Place& a, const Place& b) { return a.*axis < b.*axis; });
        divide(first, middle, other(axis));
        divide(middle + 1, last, other(axis));
    }

    static void compare(const Place& place, const Place& from, double& nearest) {
        const double dx = place.x - from.x;
        const double dy = place.y - from.y;
        const double squared = dx * dx + dy * dy;
        if (squared > 0.0) nearest = std::min(nearest, squared);
    }

    void search(std::size_t first, std::size_t last, Axis axis, const Place& from,
                double& nearest) const {
        if (last - first <= kUndivided) {
            for (std::size_t i = first; i < last; ++i) compare(places_[i], from, nearest);
            return;
        }
        const std::size_t middle = first + (last - first) / 2;
        compare(places_[middle], from, nearest);
        const double beyond = from.*axis - places_[middle].*axis;
        const auto below = [&] { search(first, middle, other(axis), from, nearest); };
        const auto above = [&] { search(middle + 1, last, other(axis), from, nearest); };
        if (beyond < 0.0) {
            below();
            if (beyond * beyond < nearest) above();
        } else {
            above();
            if (beyond * beyond < nearest) below();
        }
    }

    std::vector<Place> places_;
};

double nearestNeighbourRatio(const std::vector<Place>& places, int width, int height) {
    if (places.size() < 2) return 0.0;
    const PlaceTree tree(places);
    double sum = 0.0;
    for (const Place& place : places) sum += std::sqrt(tree.squaredDistanceFrom(place));
    const auto count = static_cast<double>(places.size());
    const double area = static_cast<double>(width) * height;
    const double expected = 0.5 / std::sqrt(count / area);
    return sum / count / expected;
}

}  // namespace

Coverage coverage(const std::vector<Keypoint>& keypoints, int width, int height, int gridSize) {
    if (width < 1 || height < 1) throw std::invalid_argument("coverage: the image has no pixels");
    if (gridSize < 1) throw std::invalid_argument("coverage: the grid has no cells");
    const std::vector<Place> places = placesOf(keypoints, width, height);
    return {places.size(), shareOfCells(places, width, height, gridSize),
            nearestNeighbourRatio(places, width, height)};
}

}  // namespace marlo
