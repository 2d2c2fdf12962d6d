// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVAuthorization.h>

#include <atomic>
#include <memory>
#include <mutex>

namespace morvane {

/// What the process knows of its authorization. Tests replace it to start afresh.
struct AuthorizationState {
    std::once_flag once;
    std::mutex mutex;
    std::shared_ptr<MVAuthorization> shared;
    std::atomic<bool> helperInstalled = false;

    static AuthorizationState& current();
    static void startAnew();
};

}  // namespace morvane
