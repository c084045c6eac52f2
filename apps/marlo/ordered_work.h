// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

namespace marlo::app {

/// Calls produce(i) for i = 0 ... count - 1 on `workers` threads, at least one, and consume(i,
/// result) for each in this order on the calling thread. Workers run ahead by at most two results
/// each. Once stop() is true, asked before each item, no further item begins; those begun are
/// consumed. Returns how many have been. After an exception of produce or consume no further item
/// begins, those begun are dropped, and the first exception is thrown.
template <typename Produce, typename Consume, typename Stop>
std::size_t workInOrder(std::size_t count, std::size_t workers, const Produce& produce,
                        const Consume& consume, const Stop& stop) {
    using Result = decltype(produce(std::size_t{}));
    struct Slot {
        std::optional<Result> result;
        std::exception_ptr failure;

        [[nodiscard]] bool isFilled() const { return result || failure; }
    };
    workers = std::clamp<std::size_t>(count, 1, std::max<std::size_t>(1, workers));
    const std::size_t ahead = 2 * workers;
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<Slot> slots(ahead);  // the result of item i is in slot i % ahead
    std::size_t next = 0;
    std::size_t consumed = 0;
    bool stopped = false;

    const auto work = [&] {
        for (;;) {
            std::unique_lock<std::mutex> lock(mutex);
            changed.wait(lock, [&] { return stopped || next == count || next < consumed + ahead; });
            if (!stopped && stop()) stopped = true;
            if (stopped || next == count) {
                changed.notify_all();
                return;
            }
            const std::size_t i = next++;
            lock.unlock();
            Slot done;
            try {
                done.result.emplace(produce(i));
            } catch (...) {
                done.failure = std::current_exception();
            }
            lock.lock();
            slots[i % ahead] = std::move(done);
            changed.notify_all();
        }
    };
    std::vector<std::thread> threads;
    threads.reserve(workers);
    for (std::size_t w = 0; w < workers; ++w) {
        try {
            threads.emplace_back(work);
        } catch (const std::exception&) {
            if (threads.empty()) throw;
            break;  // the system has no more; those that there are do the work
        }
    }

    std::exception_ptr failure;
    for (;;) {
        std::unique_lock<std::mutex> lock(mutex);
        Slot& slot = slots[consumed % ahead];
        changed.wait(lock, [&] {
            return slot.isFilled() || consumed == count || (stopped && consumed == next);
        });
        if (!slot.isFilled()) break;
        Slot done = std::move(slot);
        slot = Slot();
        lock.unlock();
        try {
            if (done.failure) std::rethrow_exception(done.failure);
            if (!failure) consume(consumed, std::move(*done.result));
        } catch (...) {
            if (!failure) failure = std::current_exception();
        }
        lock.lock();
        ++consumed;
        if (failure) stopped = true;
        changed.notify_all();
    }
    for (std::thread& thread : threads) thread.join();
    if (failure) std::rethrow_exception(failure);
    return consumed;
}

}  // namespace marlo::app
