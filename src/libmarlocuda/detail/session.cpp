// SPDX-License-Identifier: BSD-3-Clause
#include "libmarlocuda/detail/session.h"

#include <memory>

#include "libmarlocuda/detail/devices.h"

namespace marlo::gpu {
namespace {

thread_local std::unique_ptr<Session> session;

}  // namespace

Session& Session::ofThisThread() {
    const int device = deviceOfThisThread();
    if (!session || session->device_ != device) {
        session.reset();
        session.reset(new Session(device));
    }
    return *session;
}

void Session::endOfThisThread() noexcept {
    session.reset();
}

}  // namespace marlo::gpu
