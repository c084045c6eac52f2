// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/ordered_work.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "apps/marlo/material.h"

namespace marlo::app {
namespace {

using test::refusal;

const auto kNever = [] { return false; };

// Waits until `condition` holds; for so long only that no sensible machine takes it.
template <typename Condition>
bool waitUntil(const Condition& condition) {
    for (int i = 0; i < 20'000; ++i) {
        if (condition()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
}

std::vector<std::size_t> upTo(std::size_t count) {
    std::vector<std::size_t> numbers;
    for (std::size_t i = 0; i < count; ++i) numbers.push_back(i);
    return numbers;
}

class OrderedWorkTest : public testing::TestWithParam<std::size_t> {};

TEST_P(OrderedWorkTest, EveryItemIsConsumedInOrderWithItsResult) {
    for (const std::size_t count : {0U, 1U, 2U, 7U, 200U}) {
        std::vector<std::size_t> consumed;
        const std::size_t returned = workInOrder(
            count, GetParam(), [](std::size_t i) { return 3 * i; },
            [&](std::size_t i, std::size_t result) {
                EXPECT_EQ(result, 3 * i);
                consumed.push_back(i);
            },
            kNever);
        EXPECT_EQ(consumed, upTo(count));
        EXPECT_EQ(returned, count);
    }
}

TEST_P(OrderedWorkTest, EveryItemIsProducedOnce) {
    std::vector<std::atomic<int>> produced(100);
    workInOrder(
        produced.size(), GetParam(), [&](std::size_t i) { return ++produced[i]; },
        [](std::size_t, int) {}, kNever);
    for (const auto& times : produced) EXPECT_EQ(times, 1);
}

TEST_P(OrderedWorkTest, LateResultsHoldUpTheOrderOnly) {
    std::vector<std::size_t> consumed;
    workInOrder(
        40, GetParam(),
        [](std::size_t i) {
            if (i % 5 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(3));
            return i;
        },
        [&](std::size_t, std::size_t result) { consumed.push_back(result); }, kNever);
    EXPECT_EQ(consumed, upTo(40));
}

TEST_P(OrderedWorkTest, ConsumesOnTheCallingThreadAndProducesOnOthers) {
    const std::thread::id caller = std::this_thread::get_id();
    workInOrder(
        10, GetParam(), [](std::size_t) { return std::this_thread::get_id(); },
        [&](std::size_t, std::thread::id producer) {
            EXPECT_NE(producer, caller);
            EXPECT_EQ(std::this_thread::get_id(), caller);
        },
        kNever);
}

TEST_P(OrderedWorkTest, WorkersRunAheadByTwoResultsEachAndNoFurther) {
    const std::size_t ahead = 2 * GetParam();
    std::atomic<std::size_t> begun{0};
    std::size_t most = 0;
    workInOrder(
        100, GetParam(), [&](std::size_t) { return ++begun; },
        [&](std::size_t i, std::size_t) {
            if (i == 0) {
                EXPECT_TRUE(waitUntil([&] { return begun >= ahead; }));
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
            }
            most = std::max(most, begun - i);
        },
        kNever);
    EXPECT_EQ(most, ahead);
}

TEST_P(OrderedWorkTest, ExceptionOfAnItemIsThrownAfterAllBeforeItAreConsumed) {
    std::vector<std::size_t> consumed;
    const auto call = [&] {
        workInOrder(
            100, GetParam(),
            [](std::size_t i) {
                if (i == 5) throw std::runtime_error("the fifth");
                return i;
            },
            [&](std::size_t i, std::size_t) { consumed.push_back(i); }, kNever);
    };
    EXPECT_EQ(refusal<std::runtime_error>(call), "the fifth");
    EXPECT_EQ(consumed, upTo(5));
}

TEST_P(OrderedWorkTest, FirstExceptionIsThatOfTheFirstItem) {
    std::atomic<bool> laterHasFailed{false};
    const bool alone = GetParam() == 1;
    const auto call = [&] {
        workInOrder(
            100, GetParam(),
            [&](std::size_t i) {
                if (i == 3) {
                    EXPECT_TRUE(alone || waitUntil([&] { return laterHasFailed.load(); }));
                    throw std::runtime_error("the third");
                }
                if (i == 4) {
                    laterHasFailed = true;
                    throw std::runtime_error("the fourth");
                }
                return i;
            },
            [](std::size_t, std::size_t) {}, kNever);
    };
    EXPECT_EQ(refusal<std::runtime_error>(call), "the third");
}

TEST_P(OrderedWorkTest, AfterAnExceptionNoFurtherItemBegins) {
    std::atomic<std::size_t> begun{0};
    std::atomic<std::size_t> ended{0};
    const auto call = [&] {
        workInOrder(
            1000, GetParam(),
            [&](std::size_t i) {
                ++begun;
                if (i == 5) {
                    ++ended;
                    throw std::runtime_error("the fifth");
                }
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
                return ++ended;
            },
            [](std::size_t, std::size_t) {}, kNever);
    };
    EXPECT_EQ(refusal<std::runtime_error>(call), "the fifth");
    EXPECT_GE(begun, 6U);
    EXPECT_LE(begun, 5 + 2 * GetParam());
    EXPECT_EQ(ended, begun);  // no thread is left at work
}

TEST_P(OrderedWorkTest, ExceptionOfConsumeEndsTheWork) {
    std::atomic<std::size_t> begun{0};
    std::atomic<std::size_t> ended{0};
    std::vector<std::size_t> consumed;
    const auto call = [&] {
        workInOrder(
            1000, GetParam(),
            [&](std::size_t) {
                ++begun;
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
                return ++ended;
            },
            [&](std::size_t i, std::size_t) {
                if (i == 2) throw std::out_of_range("the disk is full");
                consumed.push_back(i);
            },
            kNever);
    };
    EXPECT_EQ(refusal<std::out_of_range>(call), "the disk is full");
    EXPECT_EQ(consumed, upTo(2));
    EXPECT_LE(begun, 2 + 2 * GetParam());
    EXPECT_EQ(ended, begun);
}

TEST_P(OrderedWorkTest, ExceptionOfConsumeGoesBeforeThoseOfLaterItems) {
    const auto call = [&] {
        workInOrder(
            100, GetParam(),
            [](std::size_t i) {
                if (i > 0) throw std::runtime_error("later");
                return i;
            },
            [](std::size_t, std::size_t) { throw std::runtime_error("first"); }, kNever);
    };
    EXPECT_EQ(refusal<std::runtime_error>(call), "first");
}

TEST_P(OrderedWorkTest, AfterStopThoseBegunAreConsumedAndCounted) {
    std::atomic<std::size_t> begun{0};
    std::vector<std::size_t> consumed;
    const std::size_t returned = workInOrder(
        1000, GetParam(),
        [&](std::size_t i) {
            ++begun;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            return i;
        },
        [&](std::size_t i, std::size_t) { consumed.push_back(i); }, [&] { return begun >= 10; });
    EXPECT_GE(begun, 10U);
    EXPECT_LE(begun, 10 + GetParam());  // a worker may be between the question and its item
    EXPECT_EQ(consumed, upTo(begun));
    EXPECT_EQ(returned, begun);
}

TEST_P(OrderedWorkTest, StopBeforeTheFirstItemLeavesNothingToDo) {
    const std::size_t returned = workInOrder(
        10, GetParam(),
        [](std::size_t i) {
            ADD_FAILURE() << "an item has begun";
            return i;
        },
        [](std::size_t, std::size_t) { ADD_FAILURE() << "an item is consumed"; },
        [] { return true; });
    EXPECT_EQ(returned, 0U);
}

TEST_P(OrderedWorkTest, StopDuringTheLastItemTakesNothingAway) {
    std::atomic<std::size_t> begun{0};
    const std::size_t returned = workInOrder(
        10, GetParam(), [&](std::size_t) { return ++begun; }, [](std::size_t, std::size_t) {},
        [&] { return begun == 10; });
    EXPECT_EQ(returned, 10U);
}

TEST_P(OrderedWorkTest, ResultsMayBeMovableOnly) {
    std::vector<std::unique_ptr<std::string>> results;
    workInOrder(
        20, GetParam(),
        [](std::size_t i) { return std::make_unique<std::string>(std::to_string(i)); },
        [&](std::size_t, std::unique_ptr<std::string>&& result) {
            results.push_back(std::move(result));
        },
        kNever);
    ASSERT_EQ(results.size(), 20U);
    EXPECT_EQ(*results.front(), "0");
    EXPECT_EQ(*results.back(), "19");
}

// 16 are more than there are items in some of the tests.
INSTANTIATE_TEST_SUITE_P(Workers, OrderedWorkTest, testing::Values(1U, 2U, 3U, 16U));

TEST(OrderedWorkTest, NothingNeedsNoWorkers) {
    const std::size_t returned = workInOrder(
        0, 0, [](std::size_t i) { return i; }, [](std::size_t, std::size_t) {}, kNever);
    EXPECT_EQ(returned, 0U);
}

}  // namespace
}  // namespace marlo::app
