// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/library_log.h"

#include <algorithm>
#include <new>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "marlo/gpu.h"

namespace marlo::app {
namespace {

thread_local std::string loggedErrors;

// What has failed, if `text` is the controller's line on a GPU. It calls want of GPU memory an
// information.
std::optional<std::string> gpuFailure(std::string_view text) {
    constexpr std::string_view kStart = "CudaException catch : ";
    constexpr std::string_view kEnd = ". Falling back to CPU code";
    if (!text.starts_with(kStart)) return std::nullopt;
    text.remove_prefix(kStart.size());
    if (text.ends_with(kEnd)) text.remove_suffix(kEnd.size());
    return std::string(text);
}

}  // namespace

LibraryLog::LibraryLog(Errors errors) : errors_(errors) {
    log::defaultLogSource().setSink([this](const log::Line& line) { take(line); });
}

LibraryLog::~LibraryLog() {
    log::defaultLogSource().setSink({});
}

void LibraryLog::take(const log::Line& line) {
    if (line.level >= log::Level::Error && errors_ == Errors::thrown) {
        if (!loggedErrors.empty()) loggedErrors += "; ";
        loggedErrors += line.text;
        return;
    }
    const std::optional<std::string> failure = gpuFailure(line.text);
    if (!failure && line.level < log::Level::Warning) return;
    std::string warning = failure ? gpuFailureText(*failure) : line.text;
    const std::lock_guard<std::mutex> lock(mutex_);
    // A failing GPU has the same line for each photograph, if with other numbers.
    if (failure && !gpuFailures_.insert(*failure).second) return;
    if (std::find(warnings_.begin(), warnings_.end(), warning) == warnings_.end()) {
        warnings_.push_back(std::move(warning));
    }
}

void LibraryLog::clearErrors() {
    loggedErrors.clear();
}

void LibraryLog::throwErrors() {
    if (loggedErrors.empty()) return;
    const std::string errors = std::exchange(loggedErrors, {});
    if (errors.find("bad_alloc") != std::string::npos) throw std::bad_alloc();
    throw std::runtime_error(errors);
}

void LibraryLog::sayWarnings(Progress& progress) {
    std::vector<std::string> warnings;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        warnings.swap(warnings_);
    }
    for (const std::string& warning : warnings) progress.warningOnce(warning);
}

}  // namespace marlo::app
