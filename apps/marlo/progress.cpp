// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/progress.h"

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <ostream>

namespace marlo::app {
namespace {

constexpr std::chrono::seconds kBetweenLines{5};
constexpr std::chrono::milliseconds kBetweenUpdates{100};

}  // namespace

std::string durationText(double seconds) {
    const auto whole = static_cast<long long>(std::llround(seconds));
    if (whole < 60) return std::to_string(whole) + " s";
    if (whole < 3600)
        return std::to_string(whole / 60) + " min " + std::to_string(whole % 60) + " s";
    return std::to_string(whole / 3600) + " h " + std::to_string(whole % 3600 / 60) + " min";
}

Progress::Form Progress::formFor(bool json, int descriptor) {
    if (json) return Form::json;
    return isatty(descriptor) == 1 ? Form::terminal : Form::lines;
}

Progress::Progress(std::ostream& out, Form form) : out_(out), form_(form) {}

Progress::~Progress() {
    if (lineShown_) out_ << std::endl;
}

void Progress::begin(const std::string& task, const std::string& unit, std::size_t total) {
    task_ = task;
    unit_ = unit;
    total_ = total;
    done_ = 0;
    start_ = Clock::now();
    lastShown_ = start_;
}

void Progress::advance() {
    ++done_;
    show(done_ == total_);
}

void Progress::end() {
    if (lineShown_) out_ << std::endl;
    lineShown_ = false;
}

void Progress::message(const std::string& text) {
    report(text, {{"event", "message"}, {"text", text}});
}

void Progress::warning(const std::string& text) {
    report("warning: " + text, {{"event", "warning"}, {"text", text}});
}

void Progress::messageOnce(const std::string& text) {
    if (saidOnce_.insert(text).second) message(text);
}

void Progress::warningOnce(const std::string& text) {
    if (saidOnce_.insert(text).second) warning(text);
}

void Progress::failed(const std::string& name, const std::string& reason) {
    report("failed: " + name + ": " + reason,
           {{"event", "failed"}, {"name", name}, {"reason", reason}});
}

void Progress::report(const std::string& text, const nlohmann::json& event) {
    if (form_ == Form::json) {
        // Names of files need not be UTF-8.
        out_ << event.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << std::endl;
        return;
    }
    if (lineShown_) out_ << "\r\033[K";
    lineShown_ = false;
    out_ << text << std::endl;
}

void Progress::show(bool last) {
    const Clock::time_point now = Clock::now();
    const double seconds = std::chrono::duration<double>(now - start_).count();
    if (form_ == Form::json) {
        report("", {{"event", "progress"},
                    {"task", task_},
                    {"done", done_},
                    {"total", total_},
                    {"seconds", seconds}});
        return;
    }
    const auto pause = now - lastShown_;
    if (!last && (form_ == Form::terminal ? pause < kBetweenUpdates : pause < kBetweenLines))
        return;
    lastShown_ = now;
    const double rate = seconds > 0.0 ? static_cast<double>(done_) / seconds : 0.0;
    char rateText[32];
    std::snprintf(rateText, sizeof rateText, rate < 10.0 ? "%.2f" : "%.0f", rate);
    std::string line = task_ + ": " + std::to_string(done_) + " of " + std::to_string(total_) +
                       ' ' + unit_ + ", " + rateText + " a second";
    if (last) {
        line += ", " + durationText(seconds);
    } else if (rate > 0.0) {
        line += ", " + durationText(static_cast<double>(total_ - done_) / rate) + " left";
    }
    if (form_ == Form::terminal) {
        out_ << '\r' << line << "\033[K" << std::flush;
        lineShown_ = true;
        if (last) end();
    } else {
        out_ << line << std::endl;
    }
}

}  // namespace marlo::app
