// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/matchers/detail/ratio_test.h"

#include <algorithm>
#include <tuple>

namespace marlo::detail {

void sortBestFirst(std::vector<DMatch>& matches) {
    std::sort(matches.begin(), matches.end(), [](const DMatch& a, const DMatch& b) {
        return std::tie(a.distance, a.queryIndex, a.trainIndex) >
               std::tie(b.distance, b.queryIndex, b.trainIndex);
    });
}

}  // namespace marlo::detail
