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
/// A process id may be given away again. A kernel from 6.5 on hands out the process itself
/// (SO_PEERPIDFD), whenever it is asked. An older one tells the number alone: there the process
/// that has the number is held from the moment when this object was made, which is to be at once
/// after the connection. Any thread.
class PeerProcess {
  public:
    PeerProcess(const FileDescriptor& socket, const std::optional<PeerCredentials>& peer);

    /// When the process started, in the kernel's own units; 0 unless it is alive and for sure the
    /// one that has connected.
    std::uint64_t startTime(const FileDescriptor& socket, const PeerCredentials& peer) const;

  private:
    FileDescriptor held_;
    std::uint64_t heldSince_ = 0;
};

}  // namespace morvane
