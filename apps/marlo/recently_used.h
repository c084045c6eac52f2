// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <utility>

namespace marlo::app {

/// Values by id, loaded where they are missing. Those used last stay in memory, up to a number of
/// bytes; the last two always do, so that a pair needs each of its photographs once.
template <typename Value>
class RecentlyUsed {
public:
    explicit RecentlyUsed(std::size_t mostBytes) : mostBytes_(mostBytes) {}

    /// `load(id)` makes a Value, `bytesOf(value)` says what it takes. A value that has gone from
    /// here lives on while somebody holds it.
    template <typename Load, typename BytesOf>
    std::shared_ptr<const Value> get(std::int64_t id, const Load& load, const BytesOf& bytesOf) {
        const auto found = std::find_if(entries_.begin(), entries_.end(),
                                        [&](const Entry& entry) { return entry.id == id; });
        if (found != entries_.end()) {
            entries_.splice(entries_.begin(), entries_, found);
            return found->value;
        }
        auto value = std::make_shared<const Value>(load(id));
        const std::size_t bytes = bytesOf(*value);
        entries_.push_front({id, bytes, value});
        bytes_ += bytes;
        while (bytes_ > mostBytes_ && entries_.size() > 2) {
            bytes_ -= entries_.back().bytes;
            entries_.pop_back();
        }
        return value;
    }

private:
    struct Entry {
        std::int64_t id;
        std::size_t bytes;
        std::shared_ptr<const Value> value;
    };
    std::size_t mostBytes_;
    std::size_t bytes_ = 0;
    std::list<Entry> entries_;
};

}  // namespace marlo::app
