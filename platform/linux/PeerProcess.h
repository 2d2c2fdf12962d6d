// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/linux/FileDescriptor.h>
#include <MorvaneOperation/platform/xpc/StreamSocket.h>

#include <cstdint>
#include <optional>

namespace morvane {

/// When a process has started, in the kernel's own units; 0 if there is none.
std::uint64_t startTimeOfProcess(std::int64_t pid);

/// The process that has connected a socket, so that no other is taken for it.
///
/// A process id may be given away again. So the process itself is held, from the moment when this
/// object was made: the one that a kernel from 6.5 on hands out (SO_PEERPIDFD), or, of an older
/// kernel, the one that has the number then, which is to be at once after the connection. While
/// that one is alive nobody else has its number. Any thread.
class PeerProcess {
  public:
    /// Of a socket whose peer is not asked about.
    PeerProcess() = default;
    /// Needs two descriptors, or three on an older kernel, and keeps all but one.
    explicit PeerProcess(const FileDescriptor& socket);

    /// Whether that failed for want of descriptors or memory.
    bool isMissed() const { return isMissed_; }
    /// When the process started, in the kernel's own units; 0 unless it is alive and for sure the
    /// one that has connected. Needs no descriptor.
    std::uint64_t startTime(const PeerCredentials& peer) const;

  private:
    void hold(const FileDescriptor& socket, const PeerCredentials& peer);

    FileDescriptor process_;
    /// Of an older kernel: what the system tells of the process.
    FileDescriptor status_;
    std::uint64_t startTime_ = 0;
    bool isMissed_ = false;
};

}  // namespace morvane
