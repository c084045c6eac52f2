// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <atomic>
#include <exception>
#include <utility>

namespace marlo::detail {

/// Carries an exception out of an OpenMP region, which none may leave by itself.
class FirstException {
public:
    /// Runs `body`; of all that bodies throw, the exception that comes first is kept.
    template <typename Body>
    void capture(Body&& body) noexcept {
        try {
            std::forward<Body>(body)();
        } catch (...) {
            if (!taken_.exchange(true)) exception_ = std::current_exception();
        }
    }

    /// Call it after the region.
    void rethrow() const {
        if (exception_) std::rethrow_exception(exception_);
    }

private:
    std::atomic<bool> taken_ = false;
    std::exception_ptr exception_;
};

}  // namespace marlo::detail
