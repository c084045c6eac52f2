// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <stdexcept>

namespace marlo::app {

/// From now on Ctrl-C and SIGTERM are noted instead of ending the process, so that work in hand can
/// be finished and written. A second one ends it at once.
void watchForInterruption();

/// The signal that has come, SIGINT or SIGTERM; 0 if none has.
int interruption();

/// Work has been given up because a signal has come.
class Interrupted : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// @throws Interrupted if a signal has come.
void stopIfInterrupted();

}  // namespace marlo::app
