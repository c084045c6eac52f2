// SPDX-License-Identifier: BSD-3-Clause
#include "support/log.h"

#include <atomic>
#include <cstdio>
#include <locale>
#include <mutex>
#include <sstream>
#include <utility>

namespace marlo::log {
namespace {

// Enough for a sink that reports its own trouble; ends one that logs at every line.
constexpr int kMostNestedLines = 8;

class NestingGuard {
public:
    explicit NestingGuard(int& nesting) : nesting_(nesting) { ++nesting_; }
    NestingGuard(const NestingGuard&) = delete;
    NestingGuard& operator=(const NestingGuard&) = delete;
    ~NestingGuard() { --nesting_; }

private:
    int& nesting_;
};

std::string levelName(Level level) {
    switch (level) {
        case Level::Information:
            return "information";
        case Level::Detail:
            return "detail";
        case Level::Warning:
            return "warning";
        case Level::Error:
            return "error";
    }
    return "level " + std::to_string(static_cast<int>(level));
}

void writeToStandardError(const Line& line) {
    if (line.level < Level::Warning) {
        return;
    }
    std::string text = "libfeatures " + levelName(line.level);
    if (!line.position.file.empty()) {
        text += " [" + line.position.file + ':' + std::to_string(line.position.line) + ']';
    }
    text += ": " + line.text + '\n';
    // One call, so that the line stays whole among what other code prints.
    std::fwrite(text.data(), 1, text.size(), stderr);
}

}  // namespace

struct LogSource::State {
    std::atomic<Level> threshold{static_cast<Level>(0)};
    std::recursive_mutex mutex;  // recursive: a sink may write to the log
    int nesting = 0;             // how many calls of the sink are under way, all in one thread
    std::shared_ptr<const Sink> sink = std::make_shared<const Sink>(writeToStandardError);
};

LogSource::LogSource() : state_(std::make_unique<State>()) {}

LogSource::~LogSource() = default;

void LogSource::setSink(Sink sink) {
    auto next = std::make_shared<const Sink>(sink ? std::move(sink) : Sink(writeToStandardError));
    // The old sink is destroyed after the lock is gone: its destructor is the host's code.
    const std::lock_guard lock(state_->mutex);
    state_->sink.swap(next);
}

void LogSource::setThreshold(Level threshold) noexcept {
    state_->threshold = threshold;
}

Level LogSource::threshold() const noexcept {
    return state_->threshold;
}

bool LogSource::isEnabled(Level level) const noexcept {
    return level >= threshold();
}

void LogSource::write(const Line& line) noexcept {
    if (!isEnabled(line.level)) {
        return;
    }
    try {
        const std::lock_guard lock(state_->mutex);
        if (state_->nesting >= kMostNestedLines) {
            return;
        }
        const NestingGuard guard(state_->nesting);
        // A copy keeps a sink alive that replaces itself.
        const std::shared_ptr<const Sink> sink = state_->sink;
        (*sink)(line);
    } catch (...) {
        // Dropped by contract: a line that cannot be delivered must not end the caller's work.
        return;
    }
}

LogSource& defaultLogSource() {
    // Not destroyed, so that destructors of the host's static objects may still log.
    static LogSource* const source = new LogSource;
    return *source;
}

struct LogStreamer::Pending {
    LogSource& source;
    Line line;
    std::ostringstream text;
};

LogStreamer::LogStreamer(LogSource& source, Level level, const QString& category,
                         FileAndLine position) {
    if (source.isEnabled(level)) {
        pending_.reset(new Pending{source, {level, category, std::move(position), {}}, {}});
        pending_->text.imbue(std::locale::classic());
    }
}

LogStreamer::~LogStreamer() {
    if (!pending_) {
        return;
    }
    try {
        pending_->line.text = pending_->text.str();
    } catch (...) {
        return;  // no memory for the line; see LogSource::write()
    }
    pending_->source.write(pending_->line);
}

LogStreamer& LogStreamer::operator<<(const QString& text) {
    if (std::ostream* const out = stream()) {
        *out << text.toStdString();
    }
    return *this;
}

std::ostream* LogStreamer::stream() noexcept {
    return pending_ ? &pending_->text : nullptr;
}

}  // namespace marlo::log
