// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/progress.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>  // NOLINT(modernize-deprecated-headers): posix_openpt is POSIX
#include <unistd.h>

#include <chrono>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace marlo::app {
namespace {

using nlohmann::json;
using testing::MatchesRegex;

// Longer than the pause between two updates of a line on a terminal.
void waitForTheNextUpdate() {
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
}

std::vector<json> linesOf(const std::ostringstream& out) {
    std::istringstream text(out.str());
    std::vector<json> lines;
    for (std::string line; std::getline(text, line);) lines.push_back(json::parse(line));
    return lines;
}

TEST(DurationTextTest, IsSecondsBelowAMinute) {
    EXPECT_EQ(durationText(0.0), "0 s");
    EXPECT_EQ(durationText(0.5), "1 s");
    EXPECT_EQ(durationText(59.4), "59 s");
}

TEST(DurationTextTest, IsMinutesAndSecondsBelowAnHour) {
    EXPECT_EQ(durationText(59.5), "1 min 0 s");
    EXPECT_EQ(durationText(125.0), "2 min 5 s");
    EXPECT_EQ(durationText(3599.4), "59 min 59 s");
}

TEST(DurationTextTest, IsHoursAndMinutesFromAnHour) {
    EXPECT_EQ(durationText(3599.5), "1 h 0 min");
    EXPECT_EQ(durationText(4259.0), "1 h 10 min");
    EXPECT_EQ(durationText(360'000.0), "100 h 0 min");
}

TEST(ProgressFormTest, IsJsonIfWanted) {
    EXPECT_EQ(Progress::formFor(true, STDOUT_FILENO), Progress::Form::json);
}

TEST(ProgressFormTest, IsLinesInAPipe) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    EXPECT_EQ(Progress::formFor(false, ends[1]), Progress::Form::lines);
    close(ends[0]);
    close(ends[1]);
}

TEST(ProgressFormTest, IsALineInPlaceOnATerminal) {
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
    if (terminal < 0) GTEST_SKIP() << "no pseudo-terminals here";
    EXPECT_EQ(Progress::formFor(false, terminal), Progress::Form::terminal);
    close(terminal);
}

TEST(ProgressTest, LinesEndWithTheWholeTaskAndItsTime) {
    std::ostringstream out;
    Progress progress(out, Progress::Form::lines);
    progress.begin("extract", "photographs", 2);
    progress.advance();
    EXPECT_EQ(out.str(), "");  // too soon for a line
    progress.advance();
    progress.end();
    EXPECT_THAT(out.str(),
                MatchesRegex("extract: 2 of 2 photographs, [0-9.]+ a second, [0-9]+ s\n"));
}

TEST(ProgressTest, LinesHoldMessagesAsTheyAre) {
    std::ostringstream out;
    Progress progress(out, Progress::Form::lines);
    progress.message("two photographs");
    progress.warning("one is dark");
    progress.report("failed: a.jpg: is empty", {{"event", "failed"}});
    EXPECT_EQ(out.str(), "two photographs\nwarning: one is dark\nfailed: a.jpg: is empty\n");
}

TEST(ProgressTest, WhatIsToBeSaidOnceIsSaidOnce) {
    std::ostringstream out;
    Progress progress(out, Progress::Form::lines);
    for (int i = 0; i < 2; ++i) {
        progress.messageOnce("GPU: one");
        progress.warningOnce("it is slow");
        progress.warningOnce("it is hot");
    }
    EXPECT_EQ(out.str(), "GPU: one\nwarning: it is slow\nwarning: it is hot\n");
}

TEST(ProgressTest, TaskOfNothingSaysNothing) {
    std::ostringstream out;
    {
        Progress progress(out, Progress::Form::terminal);
        progress.begin("match", "pairs", 0);
        progress.end();
    }
    EXPECT_EQ(out.str(), "");
}

TEST(ProgressTest, EachTaskCountsAnew) {
    std::ostringstream out;
    Progress progress(out, Progress::Form::lines);
    progress.begin("extract", "photographs", 1);
    progress.advance();
    progress.end();
    progress.begin("match", "pairs", 1);
    progress.advance();
    progress.end();
    EXPECT_THAT(out.str(), MatchesRegex("extract: 1 of 1 photographs, .*\nmatch: 1 of 1 pairs, "
                                        ".*\n"));
}

TEST(ProgressTest, TerminalsGetOneLineThatIsRewrittenAndEnded) {
    std::ostringstream out;
    Progress progress(out, Progress::Form::terminal);
    progress.begin("match", "pairs", 2);
    waitForTheNextUpdate();
    progress.advance();
    progress.advance();
    progress.end();
    EXPECT_THAT(out.str(),
                MatchesRegex("\rmatch: 1 of 2 pairs, [0-9.]+ a second, [0-9]+ s left\033\\[K"
                             "\rmatch: 2 of 2 pairs, [0-9.]+ a second, [0-9]+ s\033\\[K\n"));
}

TEST(ProgressTest, MessagesGoAboveTheLineOfATerminal) {
    std::ostringstream out;
    Progress progress(out, Progress::Form::terminal);
    progress.begin("match", "pairs", 2);
    waitForTheNextUpdate();
    progress.advance();
    out.str("");
    progress.message("a and b are alike");
    EXPECT_EQ(out.str(), "\r\033[Ka and b are alike\n");
    progress.message("so are c and d");
    EXPECT_EQ(out.str(), "\r\033[Ka and b are alike\nso are c and d\n");
}

TEST(ProgressTest, LineOfATaskThatIsLeftIsEnded) {
    std::ostringstream out;
    {
        Progress progress(out, Progress::Form::terminal);
        progress.begin("match", "pairs", 2);
        waitForTheNextUpdate();
        progress.advance();
        out.str("");
    }
    EXPECT_EQ(out.str(), "\n");
}

TEST(ProgressTest, JsonHasAnObjectForEveryStep) {
    std::ostringstream out;
    Progress progress(out, Progress::Form::json);
    progress.begin("extract", "photographs", 2);
    progress.advance();
    progress.advance();
    progress.end();
    const std::vector<json> lines = linesOf(out);
    ASSERT_EQ(lines.size(), 2U);
    for (std::size_t i = 0; i < 2; ++i) {
        json line = lines[i];
        EXPECT_TRUE(line["seconds"].is_number());
        line.erase("seconds");
        EXPECT_EQ(
            line,
            json({{"event", "progress"}, {"task", "extract"}, {"done", i + 1}, {"total", 2}}));
    }
}

TEST(ProgressTest, JsonHasMessagesWarningsAndReportsAsEvents) {
    std::ostringstream out;
    Progress progress(out, Progress::Form::json);
    progress.message("two photographs");
    progress.warning("one is dark");
    progress.report("for people", {{"event", "summary"}, {"pairs", 3}});
    EXPECT_EQ(linesOf(out), (std::vector<json>{{{"event", "message"}, {"text", "two photographs"}},
                                               {{"event", "warning"}, {"text", "one is dark"}},
                                               {{"event", "summary"}, {"pairs", 3}}}));
}

TEST(ProgressTest, JsonStaysOnOneLineAndIsUtf8WhateverTheTextHolds) {
    std::ostringstream out;
    Progress progress(out, Progress::Form::json);
    progress.message("two\nlines of \"\xE9t\xE9\"");  // Latin-1
    EXPECT_EQ(linesOf(out),
              (std::vector<json>{{{"event", "message"},
                                  {"text", "two\nlines of \"\xEF\xBF\xBDt\xEF\xBF\xBD\""}}}));
}

}  // namespace
}  // namespace marlo::app
