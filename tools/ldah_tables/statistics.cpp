// SPDX-License-Identifier: BSD-3-Clause
#include "ldah_tables/statistics.h"

#include <algorithm>
#include <numeric>

namespace marlo::tools {
namespace {

std::vector<float> inOrder(std::vector<float> values) {
    std::sort(values.begin(), values.end());
    return values;
}

double shareWithin(const std::vector<float>& sorted, float most) {
    const auto within = std::upper_bound(sorted.begin(), sorted.end(), most) - sorted.begin();
    return static_cast<double>(within) / static_cast<double>(sorted.size());
}

}  // namespace

void Counts::operator+=(const Counts& other) {
    matches += other.matches;
    correct += other.correct;
}

double Counts::precision() const {
    if (matches == 0) return 0.0;
    return 100.0 * static_cast<double>(correct) / static_cast<double>(matches);
}

double Distances::falsePositives() const {
    const std::vector<float> right = inOrder(mates);
    const std::vector<float> wrong = inOrder(strangers);
    double recallBefore = 0.0;
    double wrongBefore = 0.0;
    for (auto step = right.begin(); step != right.end();
         step = std::upper_bound(step, right.end(), *step)) {
        const double recall = shareWithin(right, *step);
        const double share = shareWithin(wrong, *step);
        if (recall >= 0.95) {
            return wrongBefore +
                   (share - wrongBefore) * (0.95 - recallBefore) / (recall - recallBefore);
        }
        recallBefore = recall;
        wrongBefore = share;
    }
    return 1.0;
}

float Distances::mateQuantile(std::size_t percent) const {
    const std::size_t count = (mates.size() * percent + 99) / 100;
    return inOrder(mates)[count == 0 ? 0 : count - 1];
}

double Distances::meanOfStrangers() const {
    return std::accumulate(strangers.begin(), strangers.end(), 0.0) /
           static_cast<double>(strangers.size());
}

}  // namespace marlo::tools
