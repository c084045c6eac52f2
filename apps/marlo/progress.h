// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <chrono>
#include <cstddef>
#include <iosfwd>
#include <nlohmann/json_fwd.hpp>
#include <set>
#include <string>

namespace marlo::app {

/// Tells people, or a program that reads JSON, how a command gets on. Used from one thread.
///
/// People get one line on `out` with rate and time left, rewritten in place on a terminal and
/// written anew every five seconds elsewhere; messages go above it. With JSON each event is one
/// object on a line of `out`: {"event": "progress", "task": ..., "done": ..., "total": ...,
/// "seconds": ...}, {"event": "warning", "text": ...}, and whatever report() is given.
class Progress {
public:
    enum class Form { terminal, lines, json };
    /// The form that suits: JSON if wanted, else by whether `descriptor` is a terminal.
    static Form formFor(bool json, int descriptor);

    Progress(std::ostream& out, Form form);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// Begins a task of `total` steps, such as "extract" of 12 "photographs".
    void begin(const std::string& task, const std::string& unit, std::size_t total);
    void advance();
    /// Ends the line of the task.
    void end();

    /// A line for people, {"event": "message", "text": ...} for programs.
    void message(const std::string& text);
    void warning(const std::string& text);
    /// The same, but nothing if this has been said already.
    void messageOnce(const std::string& text);
    void warningOnce(const std::string& text);
    /// A photograph or a pair that could not be used, and why.
    void failed(const std::string& name, const std::string& reason);
    /// A result: `text` for people, `event` for programs.
    void report(const std::string& text, const nlohmann::json& event);

private:
    using Clock = std::chrono::steady_clock;

    void show(bool last);

    std::ostream& out_;
    Form form_;
    std::string task_;
    std::string unit_;
    std::size_t total_ = 0;
    std::size_t done_ = 0;
    bool lineShown_ = false;
    std::set<std::string> saidOnce_;
    Clock::time_point start_;
    Clock::time_point lastShown_;
};

/// "3 s", "2 min 5 s", "1 h 10 min".
std::string durationText(double seconds);

}  // namespace marlo::app
