// SPDX-License-Identifier: BSD-3-Clause
#include "utilities/captured_log.h"

namespace marlo::test {
namespace {

std::string printed(const log::Line& line) {
    std::string text = std::to_string(static_cast<int>(line.level)) + " [";
    if (!line.position.file.empty() || line.position.line != 0) {
        text += line.position.file + ":" + std::to_string(line.position.line);
    }
    return text + "] " + line.category.toStdString() + "|" + line.text;
}

}  // namespace

CapturedLog::CapturedLog() {
    log::defaultLogSource().setSink(
        [this](const log::Line& line) { lines_.push_back(printed(line)); });
}

CapturedLog::~CapturedLog() {
    log::defaultLogSource().setSink({});
}

}  // namespace marlo::test
