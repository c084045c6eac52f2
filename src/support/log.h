// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QString>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <utility>

#include "libfeatures/features_export.h"

/// The library's log. The library writes lines; the host decides what happens to them:
///
///     marlo::log::defaultLogSource().setSink([](const marlo::log::Line& line) {
///         hostLog(static_cast<int>(line.level), line.text);
///     });
namespace marlo::log {

/// Levels in use. A host may use other numbers for its own lines.
enum class Level : int {
    Information = 2,
    Detail = 3,
    Warning = 6,
    Error = 7,
};

/// A position in the source that identifies a message. It belongs to the message, not to the file
/// as it stands: a line keeps its number when the code around it moves.
struct FileAndLine {
    FileAndLine() = default;
    FileAndLine(std::string fileName, int lineNumber)
        : file(std::move(fileName)), line(lineNumber) {}

    std::string file;  ///< source file name without directory; empty: no position
    int line = 0;
};

/// One finished line of the log.
struct Line {
    Level level = Level::Information;
    QString category;  ///< always empty in lines of this library
    FileAndLine position;
    std::string text;  ///< UTF-8; a line break inside it comes from what was printed
};

/// Where lines go in and a sink takes them out. All operations may be called from any thread.
class FEATURES_EXPORT LogSource {
public:
    /// Takes one line. Calls never overlap, so a sink needs no lock of its own and lines of
    /// different threads do not mix: every writer waits for the sink, which should be quick and
    /// must not wait for another thread that may log. A sink may itself write to the log and is
    /// then called again for that line, up to 8 lines deep; deeper lines are dropped. So is what it
    /// throws: logging never changes a result.
    using Sink = std::function<void(const Line&)>;

    LogSource();
    LogSource(const LogSource&) = delete;
    LogSource& operator=(const LogSource&) = delete;
    ~LogSource();

    /// Replaces the sink; an empty function brings the default sink back, which writes warnings
    /// and everything above to standard error and drops the rest. When this returns, the old sink
    /// is not running in another thread and will not be called again.
    void setSink(Sink sink);

    /// Lines below this level are dropped before their text is made. At first every line passes.
    void setThreshold(Level threshold) noexcept;
    [[nodiscard]] Level threshold() const noexcept;
    [[nodiscard]] bool isEnabled(Level level) const noexcept;

    /// Hands a line to the sink if its level is enabled.
    void write(const Line& line) noexcept;

private:
    struct State;
    std::unique_ptr<State> state_;
};

/// The log of this library: one for the process, never destroyed.
FEATURES_EXPORT LogSource& defaultLogSource();

/// Collects one line from `<<` and writes it when it goes out of scope:
///
///     log::LogStreamer(log::defaultLogSource(), log::Level::Detail) << "kept " << n;
///
/// Numbers are written in the "C" locale whatever the host has set. Where the level is not enabled
/// the operands are not formatted.
class FEATURES_EXPORT LogStreamer {
public:
    explicit LogStreamer(LogSource& source, Level level, const QString& category = {},
                         FileAndLine position = {});
    LogStreamer(const LogStreamer&) = delete;
    LogStreamer& operator=(const LogStreamer&) = delete;
    ~LogStreamer();

    LogStreamer& operator<<(const QString& text);

    /// Anything that std::ostream can print.
    template <typename T>
    LogStreamer& operator<<(const T& value) {
        if (std::ostream* const out = stream()) {
            *out << value;
        }
        return *this;
    }

private:
    std::ostream* stream() noexcept;  // null where the level is not enabled

    struct Pending;
    std::unique_ptr<Pending> pending_;
};

}  // namespace marlo::log
