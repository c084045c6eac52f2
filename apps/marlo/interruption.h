// SPDX-License-Identifier: BSD-3-Clause
#pragma once

namespace marlo::app {

/// From now on Ctrl-C and SIGTERM are noted instead of ending the process, so that work in hand can
/// be finished and written. A second one ends it at once.
void watchForInterruption();

/// The signal that has come, SIGINT or SIGTERM; 0 if none has.
int interruption();

}  // namespace marlo::app
