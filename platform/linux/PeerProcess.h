// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/linux/FileDescriptor.h>
#include <MorvaneOperation/platform/xpc/StreamSocket.h>

#include <cstdint>
#include <optional>

namespace morvane {

/// When a process started, in the kernel's own units; 0 if there is no such process.
std::uint64_t startTimeOfProcess(std::int64_t pid);

/// The process that has connected a socket, held so that no other process can be taken for it.
///
/// The kernel may give a process id to another process later. So this object holds the process
/// itself from the moment when it is made: the one that a kernel from 6.5 on reports (SO_PEERPIDFD)
/// or, on an older kernel, the one that has the id at that moment, which should be right after the
/// connection. While that process is alive, no other one has its id. The object may be used on any
/// thread.
class PeerProcess {
  public:
    /// Holds nothing, for a socket whose peer does not matter.
    PeerProcess() = default;
    /// It needs two descriptors, or three on an older kernel, and keeps all but one.
    explicit PeerProcess(const FileDescriptor& socket);

    /// Whether the process could not be held because descriptors or memory ran out.
    bool isMissed() const { return isMissed_; }
    /// When the process started, in the kernel's own units; 0 unless it is alive and certainly the
    /// one that has connected. This needs no descriptor.
    std::uint64_t startTime(const PeerCredentials& peer) const;

  private:
    void hold(const FileDescriptor& socket, const PeerCredentials& peer);

    FileDescriptor process_;
    /// On an older kernel, what the system reports about the process.
    FileDescriptor status_;
    std::uint64_t startTime_ = 0;
    bool isMissed_ = false;
};

}  // namespace morvane
