// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/pair_order.h"

#include <algorithm>
#include <map>
#include <tuple>

namespace marlo::app {

std::vector<PairOfIds> inBlocks(const std::set<PairOfIds>& pairs, std::size_t inMemory) {
    std::map<std::int64_t, std::size_t> block;  // of an id
    for (const PairOfIds& pair : pairs) {
        block[pair.first] = 0;
        block[pair.second] = 0;
    }
    std::size_t position = 0;
    for (auto& [id, number] : block) number = position++ / std::max<std::size_t>(1, inMemory);
    using Place = std::tuple<std::size_t, std::size_t, PairOfIds>;
    std::vector<Place> places;
    places.reserve(pairs.size());
    for (const PairOfIds& pair : pairs) {
        places.emplace_back(block.at(pair.first), block.at(pair.second), pair);
    }
    std::sort(places.begin(), places.end());
    std::vector<PairOfIds> ordered;
    ordered.reserve(places.size());
    for (const Place& place : places) ordered.push_back(std::get<PairOfIds>(place));
    return ordered;
}

}  // namespace marlo::app
