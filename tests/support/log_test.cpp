// SPDX-License-Identifier: BSD-3-Clause
#include "support/log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <locale>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace marlo::log {
namespace {

using testing::ElementsAre;

// A source of its own whose sink keeps the texts.
class LogTest : public testing::Test {
protected:
    LogTest() {
        source.setSink([this](const Line& line) { texts.push_back(line.text); });
    }

    LogSource source;
    std::vector<std::string> texts;
};

struct Unprintable {
    bool* printed;
    friend std::ostream& operator<<(std::ostream& out, const Unprintable& value) {
        *value.printed = true;
        return out;
    }
};

struct CommaAsDecimalPoint : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

TEST_F(LogTest, StreamerWritesOneLineWhenItEnds) {
    {
        LogStreamer line(source, Level::Information);
        line << "kept " << 3 << " of ";
        line << 7U << QString::fromUtf8(" \xC3\xA4pfel") << ' ' << 0.25F;
        EXPECT_THAT(texts, ElementsAre());
    }
    EXPECT_THAT(texts, ElementsAre("kept 3 of 7 \xC3\xA4pfel 0.25"));
}

TEST_F(LogTest, SinkReceivesEveryPartOfTheLine) {
    Line received;
    source.setSink([&received](const Line& line) { received = line; });
    LogStreamer(source, Level::Warning, QStringLiteral("category"), {"some_file", 42}) << "text";
    EXPECT_EQ(received.level, Level::Warning);
    EXPECT_EQ(received.category, QStringLiteral("category"));
    EXPECT_EQ(received.position.file, "some_file");
    EXPECT_EQ(received.position.line, 42);
    EXPECT_EQ(received.text, "text");
}

TEST_F(LogTest, LineWithoutCategoryAndPositionHasEmptyOnes) {
    Line received{Level::Error, QStringLiteral("x"), {"x", 1}, "x"};
    source.setSink([&received](const Line& line) { received = line; });
    LogStreamer(source, Level::Detail) << "";
    EXPECT_TRUE(received.category.isEmpty());
    EXPECT_EQ(received.position.file, "");
    EXPECT_EQ(received.position.line, 0);
    EXPECT_EQ(received.text, "");
}

TEST_F(LogTest, LevelsHaveTheStatedNumbers) {
    EXPECT_EQ(static_cast<int>(Level::Information), 2);
    EXPECT_EQ(static_cast<int>(Level::Detail), 3);
    EXPECT_EQ(static_cast<int>(Level::Warning), 6);
    EXPECT_EQ(static_cast<int>(Level::Error), 7);
}

TEST_F(LogTest, EveryLevelPassesAtFirst) {
    EXPECT_EQ(static_cast<int>(source.threshold()), 0);
    LogStreamer(source, static_cast<Level>(0)) << "lowest";
    EXPECT_THAT(texts, ElementsAre("lowest"));
}

TEST_F(LogTest, ThresholdItselfPassesAndLowerLevelsDoNot) {
    source.setThreshold(Level::Warning);
    EXPECT_TRUE(source.isEnabled(Level::Warning));
    EXPECT_FALSE(source.isEnabled(static_cast<Level>(5)));
    LogStreamer(source, Level::Detail) << "detail";
    LogStreamer(source, Level::Warning) << "warning";
    LogStreamer(source, Level::Error) << "error";
    source.write({Level::Information, {}, {}, "direct"});
    EXPECT_THAT(texts, ElementsAre("warning", "error"));
}

TEST_F(LogTest, TextOfADisabledLineIsNotMade) {
    source.setThreshold(Level::Error);
    bool printed = false;
    LogStreamer(source, Level::Warning) << Unprintable{&printed};
    EXPECT_FALSE(printed);
}

TEST_F(LogTest, NumbersDoNotDependOnTheLocale) {
    const std::locale before =
        std::locale::global(std::locale(std::locale::classic(), new CommaAsDecimalPoint));
    LogStreamer(source, Level::Information) << 1234567 << ' ' << 0.5;
    std::locale::global(before);
    EXPECT_THAT(texts, ElementsAre("1234567 0.5"));
}

TEST_F(LogTest, WhatASinkThrowsIsDropped) {
    source.setSink([](const Line&) { throw std::runtime_error("sink"); });
    EXPECT_NO_THROW(LogStreamer(source, Level::Error) << "text");
}

TEST_F(LogTest, SinkMayWriteToTheLog) {
    source.setSink([this](const Line& line) {
        texts.push_back(line.text);
        if (line.text == "first") {
            LogStreamer(source, Level::Information) << "second";
        }
    });
    LogStreamer(source, Level::Information) << "first";
    EXPECT_THAT(texts, ElementsAre("first", "second"));
}

TEST_F(LogTest, SinkThatAlwaysLogsIsCutOff) {
    source.setSink([this](const Line& line) {
        texts.push_back(line.text);
        LogStreamer(source, Level::Information) << line.text << "+";
    });
    LogStreamer(source, Level::Information) << "x";
    EXPECT_THAT(texts, testing::SizeIs(8));
    EXPECT_EQ(texts.back(), "x+++++++");
    LogStreamer(source, Level::Information) << "again";
    EXPECT_THAT(texts, testing::SizeIs(16));
}

TEST_F(LogTest, NestingIsCountedRightAfterASinkHasThrown) {
    source.setSink([](const Line&) { throw std::runtime_error("sink"); });
    for (int i = 0; i < 20; ++i) {
        LogStreamer(source, Level::Information) << "dropped";
    }
    source.setSink([this](const Line& line) { texts.push_back(line.text); });
    LogStreamer(source, Level::Information) << "delivered";
    EXPECT_THAT(texts, ElementsAre("delivered"));
}

TEST_F(LogTest, SinkMayReplaceItself) {
    const auto owned = std::make_shared<std::string>("still alive");
    source.setSink([this, owned](const Line&) {
        source.setSink([this](const Line& line) { texts.push_back("new " + line.text); });
        texts.push_back(*owned);
    });
    LogStreamer(source, Level::Information) << "one";
    LogStreamer(source, Level::Information) << "two";
    EXPECT_THAT(texts, ElementsAre("still alive", "new two"));
}

TEST_F(LogTest, LinesOfManyThreadsStayWholeAndNoneIsLost) {
    constexpr int kThreads = 8;
    constexpr int kLines = 200;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([this, thread] {
            for (int line = 0; line < kLines; ++line) {
                LogStreamer(source, Level::Information) << "thread " << thread << " line " << line;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::vector<std::string> expected;
    for (int thread = 0; thread < kThreads; ++thread) {
        for (int line = 0; line < kLines; ++line) {
            expected.push_back("thread " + std::to_string(thread) + " line " +
                               std::to_string(line));
        }
    }
    EXPECT_THAT(texts, testing::UnorderedElementsAreArray(expected));
}

TEST_F(LogTest, SinkCanBeReplacedWhileOtherThreadsWrite) {
    std::thread writer([this] {
        for (int i = 0; i < 500; ++i) {
            LogStreamer(source, Level::Information) << "line";
        }
    });
    int counted = 0;
    for (int i = 0; i < 50; ++i) {
        // The old sink's counter is gone as soon as setSink() returns.
        const auto counter = std::make_unique<int>(0);
        source.setSink([raw = counter.get()](const Line&) { ++*raw; });
        source.setSink([this](const Line& line) { texts.push_back(line.text); });
        counted += *counter;
    }
    writer.join();
    EXPECT_EQ(static_cast<int>(texts.size()) + counted, 500);
}

TEST(DefaultSinkTest, WritesWarningsAndErrorsToStandardError) {
    LogSource source;
    testing::internal::CaptureStderr();
    LogStreamer(source, Level::Warning) << "look here";
    LogStreamer(source, Level::Error, {}, {"some_file", 12}) << "it failed";
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "libfeatures warning: look here\n"
              "libfeatures error [some_file:12]: it failed\n");
}

TEST(DefaultSinkTest, DropsInformationAndDetail) {
    LogSource source;
    testing::internal::CaptureStderr();
    LogStreamer(source, Level::Information) << "information";
    LogStreamer(source, Level::Detail) << "detail";
    LogStreamer(source, static_cast<Level>(5)) << "just below a warning";
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(DefaultSinkTest, ComesBackWhenTheSinkIsTakenAway) {
    LogSource source;
    source.setSink([](const Line&) {});
    source.setSink({});
    testing::internal::CaptureStderr();
    LogStreamer(source, Level::Error) << "back";
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "libfeatures error: back\n");
}

TEST(DefaultLogSourceTest, IsOneForTheProcess) {
    LogSource* other = nullptr;
    std::thread([&other] { other = &defaultLogSource(); }).join();
    EXPECT_EQ(other, &defaultLogSource());
}

}  // namespace
}  // namespace marlo::log
