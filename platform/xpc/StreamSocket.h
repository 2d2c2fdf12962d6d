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

/// The byte stream below a connection, and the ways to get one. The system supplies them, or a test
/// does.
namespace morvane {

/// The process at the other end, as the kernel reported it when the stream was made.
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
    /// Runs `reading` on another thread, once, as soon as there are bytes or the stream has ended,
    /// or earlier. If bytes cannot be waited for, it throws and does not run the task; if waiting
    /// fails later, the stream is ended first.
    virtual void whenReadable(std::function<void()> reading);
    /// Waits for bytes, until `deadline` if there is one. Returns how many came; 0 when the stream
    /// has ended, the deadline has passed, or the peer broke the rules (sent descriptors).
    virtual std::size_t receive(std::span<std::uint8_t> into, const Deadline& deadline) = 0;
    /// Waits for bytes for that long. Empty if none have come; 0 as above. A stream that does not
    /// support this waits without a limit.
    virtual std::optional<std::size_t> receiveWithin(std::span<std::uint8_t> into,
                                                     std::chrono::milliseconds time);
    /// Whether the peer has disconnected, or the stream was ended.
    virtual bool isOver() const { return false; }
    /// Sends as much of `pieces`, in their order, as can be sent at once. Returns the number of
    /// bytes; empty when the stream has ended.
    virtual std::optional<std::size_t> send(std::span<const Bytes> pieces) = 0;
    /// Runs `sending` on another thread, once, as soon as something can be sent or the stream has
    /// ended, or earlier. It fails as whenReadable() does. Only one task may wait at a time.
    virtual void whenWritable(std::function<void()> sending);
    /// Ends the stream in both directions and wakes the threads that wait for it.
    virtual void shutdown() = 0;
    /// Called once, after the stream has ended, to clean up.
    virtual void finish() {}
    /// The process at the other end; empty if the system does not report it. (No id means "nobody",
    /// as some mean "everybody".)
    virtual std::optional<PeerCredentials> peer() const = 0;
    /// The user who is responsible for what the peer does. This need not be the peer's own, as the
    /// system grants users thousands of subordinate ids. -1 if the system does not report it.
    virtual std::int64_t accountableUser() const;
    /// When the peer's process started, in the kernel's units; 0 if that could not be determined
    /// while it was alive.
    virtual std::uint64_t peerStartTime() const { return 0; }
};

/// Makes streams to a service, a new one after each that has ended.
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
    /// Has the clients' streams record when their processes started, see
    /// StreamSocket::peerStartTime(). To be called before start().
    virtual void holdPeerProcesses() {}
    /// Calls `task` on another thread when there is a client, then not again before waitForNext().
    /// If it is `alone`, no thread can be started to wait in its place, so that it must not serve
    /// the client. Throws std::system_error if there is no thread at all.
    virtual void start(std::function<void(bool alone)> task) = 0;
    /// The next client, or null if there is none.
    virtual std::shared_ptr<StreamSocket> accept() = 0;
    virtual void waitForNext() = 0;
    /// Stops listening. The task may still be running or about to run.
    virtual void stop() = 0;
};

// The Linux platform defines the functions below.

/// Starts the program `name` in the application's libexec folder for each stream.
std::unique_ptr<ServiceEndpoint> privateServiceEndpoint(std::string name);
/// Connects to the well-known socket of the service `name`. If `privileged`, the socket and the
/// process behind it must belong to root.
std::unique_ptr<ServiceEndpoint> wellKnownServiceEndpoint(std::string name, bool privileged);
/// The stream that the application gave this process, or an error if it gave none.
Result<std::shared_ptr<StreamSocket>> inheritedStream();
/// The listening socket that the service manager gave this process, or an error if it gave none.
Result<std::unique_ptr<StreamListener>> inheritedListener();
/// Returns how often this process and its ancestors were forked since one of them first called this
/// function.
unsigned processGeneration();

}  // namespace morvane
