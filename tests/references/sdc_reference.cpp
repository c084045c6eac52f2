// SPDX-License-Identifier: BSD-3-Clause
#include "references/sdc_reference.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <set>
#include <utility>

namespace marlo::reference {
namespace {

using Cell = std::pair<long long, long long>;  // column, row
using Companions = std::map<std::uint64_t, std::set<std::uint64_t>>;

bool isStronger(const Keypoint& a, const Keypoint& b) {
    if (a.response > b.response) return true;
    if (a.response < b.response) return false;
    if (a.angle > b.angle) return true;
    if (a.angle < b.angle) return false;
    if (a.x > b.x) return true;
    if (a.x < b.x) return false;
    return a.y > b.y;
}

bool atOnePlace(const Keypoint& a, const Keypoint& b) {
    return std::fabs(a.x - b.x) <= 0.001F && std::fabs(a.y - b.y) <= 0.001F;
}

// A coordinate beyond a border counts as one in the cell at that border, and NaN as 0.
long long cellNumber(float coordinate, unsigned cellSize, long long cells) {
    if (std::isnan(coordinate) || coordinate < 0.0F) {
        return 0;
    }
    const float number = std::trunc(coordinate / static_cast<float>(cellSize));
    if (number > static_cast<float>(cells - 1)) {
        return cells - 1;
    }
    return static_cast<long long>(number);
}

std::vector<Cell> discAround(Cell centre, long long radius, long long columns, long long rows) {
    std::vector<Cell> disc;
    const auto span = [&](long long row, long long halfWidth) {
        for (long long column = centre.first - halfWidth; column <= centre.first + halfWidth;
             ++column) {
            if (column >= 0 && column < columns && row >= 0 && row < rows) {
                disc.emplace_back(column, row);
            }
        }
    };
    long long x = 0;
    long long y = radius;
    long long error = 1 - radius;
    for (;;) {
        span(centre.second, y);
        span(centre.second + y, x);
        span(centre.second - y, x);
        span(centre.second + x, y);
        span(centre.second - x, y);
        if (x >= y) {
            return disc;
        }
        if (error >= 0) {
            error += 2 * (x - y) + 5;
            --y;
        } else {
            error += 2 * x + 3;
        }
        ++x;
    }
}

std::vector<std::uint64_t> onePass(const std::vector<Keypoint>& sorted,
                                   const DiscCoveringTask& task, unsigned cellSize, float radius,
                                   Companions& companions) {
    const long long columns = task.width / static_cast<long long>(cellSize) + 1;
    const long long rows = task.height / static_cast<long long>(cellSize) + 1;
    const auto discRadius = static_cast<long long>(radius / static_cast<float>(cellSize));
    std::map<Cell, std::uint64_t> owners;  // the cells that are not free
    std::set<std::uint64_t> taken;
    for (std::uint64_t i = 0; i < sorted.size(); ++i) {
        const Cell cell{cellNumber(sorted[i].x, cellSize, columns),
                        cellNumber(sorted[i].y, cellSize, rows)};
        if (owners.count(cell) == 0) {
            taken.insert(i);
            for (const Cell& covered : discAround(cell, discRadius, columns, rows)) {
                owners[covered] = i;
            }
            continue;
        }
        const std::uint64_t owner = owners[cell];
        if (task.withOrientations && atOnePlace(sorted[i], sorted[owner])) {
            companions[owner].insert(owner);
            companions[owner].insert(i);
            for (const std::uint64_t companion : companions[owner]) {
                taken.insert(companion);
            }
        }
    }
    return {taken.begin(), taken.end()};
}

}  // namespace

DiscCoveringAnswer slowDiscCovering(const DiscCoveringTask& task) {
    DiscCoveringAnswer answer;
    answer.sorted = task.in;
    std::stable_sort(answer.sorted.begin(), answer.sorted.end(), isStronger);

    std::map<std::uint64_t, std::uint64_t> tried;
    Companions companions;
    auto radius = static_cast<float>(task.width);
    float step = radius * 0.5F;
    for (; answer.passes < 1000; ++answer.passes) {
        const std::uint64_t count = answer.taken.size();
        if (task.requested <= count &&
            static_cast<float>(count) <= (1.0F + task.er) * static_cast<float>(task.requested)) {
            answer.end = DiscCoveringEnd::ToleranceMet;
            return answer;
        }
        const float tryRadius = count < task.requested ? radius - step : radius + step;
        step = step * 0.5F;
        const double size = static_cast<double>(tryRadius) * static_cast<double>(task.ek);
        const auto cellSize = static_cast<unsigned>(std::floor(size / 1.4142135623730951 + 0.5));
        if (cellSize == 0) {
            answer.end = DiscCoveringEnd::CellSizeZero;
            return answer;
        }
        answer.taken = onePass(answer.sorted, task, cellSize, tryRadius, companions);
        if (tried.count(cellSize) == 1 && tried[cellSize] > task.requested) {
            answer.end = DiscCoveringEnd::CellSizeRepeated;
            ++answer.passes;
            return answer;
        }
        radius = tryRadius;
        tried[cellSize] = answer.taken.size();
    }
    answer.end = DiscCoveringEnd::Never;
    return answer;
}

}  // namespace marlo::reference
