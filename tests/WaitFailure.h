// SPDX-License-Identifier: MIT
// A process whose waiting for descriptors fails.
#pragma once

#include <atomic>

namespace morvane {

/// Each epoll_wait() fails with ENOMEM while this is set. Stands in the test programs that are
/// built with WaitFailure.cpp, which takes the place of epoll_wait.
extern std::atomic<bool> noWaiting;

}  // namespace morvane
