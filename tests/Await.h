// SPDX-License-Identifier: MIT
// Waiting for what another thread does.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <future>

namespace morvane {

/// What a test waits for comes sooner, unless it never comes.
constexpr std::chrono::seconds watchdog{30};

/// Returns the value; ends the program with a failure if it has not come by then.
template <class T>
T await(std::future<T> future) {
    if (future.wait_for(watchdog) != std::future_status::ready) {
        ADD_FAILURE() << "nothing happened";
        std::abort();
    }
    return future.get();
}

}  // namespace morvane
