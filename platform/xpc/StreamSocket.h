// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/Result.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>

/// The byte stream under a connection, and the ways to get one. Supplied by the system, or by a
/// test.
namespace morvane {

/// Who is at the other end, as the kernel told when the stream was made.
struct PeerCredentials {
    std::int64_t processIdentifier;
    std::int64_t userIdentifier;
    std::int64_t groupIdentifier;
};

/// A connected stream. receive() is for one thread, send() for one at a time, shutdown() for any.
class StreamSocket {
  public:
    using Deadline = std::optional<std::chrono::steady_clock::time_point>;
    using Bytes = std::span<const std::uint8_t>;

    virtual ~StreamSocket();
    /// Runs `reading` on another thread, once, as soon as there are bytes or the stream has ended;
    /// maybe earlier. Throws, and does not run it, if nothing can wait for bytes now; ends the
    /// stream first if that is so later.
    virtual void whenReadable(std::function<void()> reading);
    /// Waits for bytes, until `deadline` if there is one. Returns how many came; 0 when the stream
    /// has ended, the deadline has passed, or the peer broke the rules (sent descriptors).
    virtual std::size_t receive(std::span<std::uint8_t> into, const Deadline& deadline) = 0;
    /// Waits for bytes for that long. Empty if none have come; 0 as above. A stream that cannot
    /// tell waits without end.
    virtual std::optional<std::size_t> receiveWithin(std::span<std::uint8_t> into,
                                                     std::chrono::milliseconds time);
    /// Whether the peer has gone, or the stream was ended.
    virtual bool isOver() const { return false; }
    /// Sends what can be sent at once of `pieces`, in their order. Returns how much; empty when the
    /// stream has ended.
    virtual std::optional<std::size_t> send(std::span<const Bytes> pieces) = 0;
    /// Runs `sending` on another thread, once, as soon as something can be sent or the stream has
    /// ended; maybe earlier. Fails as whenReadable() does. One that waits at a time.
    virtual void whenWritable(std::function<void()> sending);
    /// Ends the stream both ways; wakes who waits.
    virtual void shutdown() = 0;
    /// Called once, after the stream has ended: what there is to clear up behind it.
    virtual void finish() {}
    /// Empty if the system does not say. (No number stands for nobody: some mean everybody.)
    virtual std::optional<PeerCredentials> peer() const = 0;
    /// The user who answers for what the peer does, who need not be the peer's own: user numbers
    /// are lent by the thousand. -1 if the system does not say.
    virtual std::int64_t accountableUser() const;
    /// When the peer's process started, in the kernel's units; 0 if that could not be told while it
    /// was alive.
    virtual std::uint64_t peerStartTime() const { return 0; }
};

/// Streams to a service; asked again after each end of one.
class ServiceEndpoint {
  public:
    virtual ~ServiceEndpoint();
    /// A new stream, or why the service cannot be reached.
    virtual Result<std::shared_ptr<StreamSocket>> connect() = 0;
};

/// Waits for clients.
class StreamListener {
  public:
    virtual ~StreamListener();
    /// Before start(): the clients' streams are to tell when their processes started, see
    /// StreamSocket::peerStartTime().
    virtual void holdPeerProcesses() {}
    /// Calls `task` on another thread when there is a client, then not again before waitForNext().
    /// It is told whether it is alone: no thread can be had that would wait in its place, so that
    /// it must not serve the client. Throws std::system_error if there is no thread at all.
    virtual void start(std::function<void(bool alone)> task) = 0;
    /// The next client, or null if there is none.
    virtual std::shared_ptr<StreamSocket> accept() = 0;
    virtual void waitForNext() = 0;
    /// The task may still be running, or about to.
    virtual void stop() = 0;
};

// Defined by the Linux platform.

/// The program `name` in the application's libexec folder, started for each stream.
std::unique_ptr<ServiceEndpoint> privateServiceEndpoint(std::string name);
/// The well-known socket of the service `name`; `privileged`: it and its process must be root's.
std::unique_ptr<ServiceEndpoint> wellKnownServiceEndpoint(std::string name, bool privileged);
/// The stream that the application gave this process, or an error if it gave none.
Result<std::shared_ptr<StreamSocket>> inheritedStream();
/// The listening socket that the service manager gave this process, or an error if it gave none.
Result<std::unique_ptr<StreamListener>> inheritedListener();
/// How often this process was forked off another since that one first asked.
unsigned processGeneration();

}  // namespace morvane
