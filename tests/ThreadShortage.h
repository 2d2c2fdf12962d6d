// SPDX-License-Identifier: MIT
// A process that can have no more threads.
#pragma once

#include <atomic>

namespace morvane {

/// No thread can be had while this is set: each attempt to start one fails with EAGAIN. Stands in
/// the test programs that are built with ThreadShortage.cpp, which takes the place of
/// pthread_create.
extern std::atomic<bool> noThreads;

}  // namespace morvane
