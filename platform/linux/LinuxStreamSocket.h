// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/linux/FileDescriptor.h>
#include <MorvaneOperation/platform/linux/PeerProcess.h>
#include <MorvaneOperation/platform/xpc/StreamSocket.h>

#include <functional>
#include <memory>
#include <span>

namespace morvane {

/// A stream over a connected Unix socket. Descriptors that the peer sends are never taken; a peer
/// that sends one has broken the rules.
class LinuxStreamSocket : public StreamSocket,
                          public std::enable_shared_from_this<LinuxStreamSocket> {
  public:
    /// A service passes the process that has connected as `peer`.
    explicit LinuxStreamSocket(FileDescriptor socket, PeerProcess peer = {});

    void whenReadable(std::function<void()> reading) override;
    void whenWritable(std::function<void()> sending) override;
    std::size_t receive(std::span<std::uint8_t> into, const Deadline& deadline) override;
    std::optional<std::size_t> receiveWithin(std::span<std::uint8_t> into,
                                             std::chrono::milliseconds time) override;
    bool isOver() const override;
    std::optional<std::size_t> send(std::span<const Bytes> pieces) override;
    void shutdown() override;
    std::optional<PeerCredentials> peer() const override;
    std::int64_t accountableUser() const override;
    std::uint64_t peerStartTime() const override;

  private:
    ssize_t sendSeveral(std::span<const Bytes> pieces) const;
    ssize_t receiveOnce(std::span<std::uint8_t> into, int flags) const;
    std::optional<std::size_t> receiveOrNothing(std::span<std::uint8_t> into, int flags) const;
    bool setReceiveTime(std::chrono::milliseconds time);
    bool waitForBytes(const Deadline& deadline) const;
    /// Wraps what is to be done once the socket is ready as a task that a descriptor's worker can
    /// run.
    std::function<void(bool alone)> onceReady(std::function<void()> task);

    const FileDescriptor socket_;
    const PeerProcess peerProcess_;
    /// How long a call that receives waits; 0 until that was set.
    std::chrono::milliseconds receiveTime_{0};
    /// Set once a message was too large for the buffer that sockets begin with.
    bool hasMoreRoom_ = false;
};

/// Returns a POSIX error with a sentence that says what could not be done.
NSErrorRef systemError(int code, const Phrase& what);

}  // namespace morvane
