// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "marlo/progress.h"
#include "support/log.h"

namespace marlo::app {

/// Takes the lines of the library's log while it lives; one at a time. Warnings are for the user,
/// and so is a failure of the GPU, whose work the CPU does then. Errors are thrown by the thread
/// that they come from, or said as warnings.
class LibraryLog {
public:
    enum class Errors { thrown, said };

    explicit LibraryLog(Errors errors);
    /// Gives the log back to its default sink.
    ~LibraryLog();
    LibraryLog(const LibraryLog&) = delete;
    LibraryLog& operator=(const LibraryLog&) = delete;

    /// Forgets the errors of this thread.
    static void clearErrors();
    /// Throws the errors of this thread, if there are any, and forgets them: the controller logs
    /// failures of its plug-ins instead of throwing them.
    /// @throws std::bad_alloc if one was for want of memory, std::runtime_error otherwise.
    static void throwErrors();

    /// Says the warnings that have come from any thread, each once for a command.
    void sayWarnings(Progress& progress);

private:
    void take(const log::Line& line);

    Errors errors_;
    std::mutex mutex_;
    std::vector<std::string> warnings_;  // not said yet
    std::set<std::string> gpuFailures_;  // that there has been a warning for
};

}  // namespace marlo::app
