// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <condition_variable>
#include <cstddef>
#include <exception>
#include <map>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <variant>
#include <vector>

namespace marlo::app {

/// Calls produce(i) for i = 0 ... count - 1 on `workers` threads, and consume(i, result) for each
/// in this order on the calling thread. Workers run ahead by a few results at most. Once stop() is
/// true, asked before each item, no further item begins; those begun are consumed. Returns how many
/// have been. After an exception of produce or consume no further item begins, those begun are
/// dropped, and the first exception is thrown.
template <typename Produce, typename Consume, typename Stop>
std::size_t workInOrder(std::size_t count, std::size_t workers, const Produce& produce,
                        const Consume& consume, const Stop& stop) {
    using Result = decltype(produce(std::size_t{}));
    std::mutex mutex;
    std::condition_variable changed;
    std::map<std::size_t, std::variant<Result, std::exception_ptr>> results;
    std::size_t next = 0;
    std::size_t consumed = 0;
    bool stopped = false;
    const std::size_t ahead = 2 * workers;

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
            std::variant<Result, std::exception_ptr> result;
            try {
                result.template emplace<0>(produce(i));
            } catch (...) {
                result.template emplace<1>(std::current_exception());
            }
            lock.lock();
            results.emplace(i, std::move(result));
            changed.notify_all();
        }
    };
    std::vector<std::thread> threads;
    for (std::size_t w = 0; w < workers; ++w) {
        try {
            threads.emplace_back(work);
        } catch (const std::system_error&) {
            if (threads.empty()) throw;
            break;  // the system has no more; those that there are do the work
        }
    }

    std::exception_ptr failure;
    for (;;) {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [&] {
            return results.count(consumed) != 0 || consumed == count ||
                   (stopped && consumed == next);
        });
        const auto found = results.find(consumed);
        if (found == results.end()) break;
        auto result = std::move(found->second);
        results.erase(found);
        lock.unlock();
        try {
            if (result.index() == 1) std::rethrow_exception(std::get<1>(result));
            if (!failure) consume(consumed, std::move(std::get<0>(result)));
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
