// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/linux/FileDescriptor.h>
#include <sys/un.h>

#include <chrono>

namespace morvane {

/// Connects a blocking stream socket, waiting no longer than `time` for a listener whose backlog is
/// full. Returns 0 or an errno value, which is ETIMEDOUT if nobody accepted in time. It may be
/// called on any thread.
int connectWithin(std::chrono::milliseconds time, const FileDescriptor& socket,
                  const sockaddr_un& address);

}  // namespace morvane
