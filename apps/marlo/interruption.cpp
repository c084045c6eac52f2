// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/interruption.h"

#include <atomic>
#include <csignal>

namespace marlo::app {
namespace {

std::atomic<int> received = 0;
static_assert(std::atomic<int>::is_always_lock_free, "signal handlers may not wait");

void note(int signal) {
    int none = 0;
    received.compare_exchange_strong(none, signal);
    // The next one is the system's.
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
}

}  // namespace

void watchForInterruption() {
    struct sigaction action = {};
    action.sa_handler = note;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;  // calls to the system are not disturbed
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

int interruption() {
    return received;
}

void stopIfInterrupted() {
    if (interruption() != 0) throw Interrupted("interrupted");
}

}  // namespace marlo::app
