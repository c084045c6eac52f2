// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/interruption.h"

#include <csignal>

namespace marlo::app {
namespace {

volatile std::sig_atomic_t received = 0;

void note(int signal) {
    received = signal;
}

}  // namespace

void watchForInterruption() {
    struct sigaction action = {};
    action.sa_handler = note;
    sigemptyset(&action.sa_mask);
    // After the first the system's own handling is back. Calls to the system are not disturbed.
    action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

int interruption() {
    return received;
}

}  // namespace marlo::app
