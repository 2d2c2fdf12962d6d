// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/xpc/NSXPCConnection.h>

#include <functional>
#include <memory>
#include <string>

namespace morvane {

class StreamListener;
namespace limits {
struct ClientLimits;
}

/// The service's end: gives the service one connection for each client.
///
///     auto listener = NSXPCListener::serviceListener();   // in a private service process
///     listener->setNewConnectionHandler([](const std::shared_ptr<NSXPCConnection>& connection) {
///         connection->setExportedInterface(NSXPCInterface::interfaceWithProtocol<MVFileRequest>());
///         connection->setExportedObject<MVFileRequest>(std::make_shared<FileService>(connection));
///         connection->resume();
///         return true;
///     });
///     const int exitStatus = listener->run();
///
/// The handler runs on a thread of the listener's choosing; a connection that it does not take
/// (the handler returns false, or throws) is closed. The listener keeps a connection that the
/// handler has resumed alive until it is invalid; whoever means to resume one later keeps it.
///
/// Threads: no thread waits for a client. The requests of one connection are begun in the order in
/// which they came, one after the other. If one has not returned after 50 ms, those behind it are
/// begun on other threads, so an exported object must be ready for calls on several threads. A
/// handler that may take long should return at once and reply later. Nothing more is read from a
/// client that has 64 KiB of replies or more to take.
class MORVANE_EXPORT NSXPCListener {
  public:
    using NewConnectionHandler = std::function<bool(const std::shared_ptr<NSXPCConnection>&)>;

    /// The one connection that the application made when it started this process. Null, with
    /// `*error` set, if this process was not started so.
    static std::shared_ptr<NSXPCListener> serviceListener(NSErrorRef* error = nullptr);
    /// A listening socket handed over by the service manager (LISTEN_FDS). Null, with `*error` set,
    /// if there is none.
    static std::shared_ptr<NSXPCListener> activatedListener(NSErrorRef* error = nullptr);

    ~NSXPCListener();
    NSXPCListener(const NSXPCListener&) = delete;
    NSXPCListener& operator=(const NSXPCListener&) = delete;

    void setNewConnectionHandler(NewConnectionHandler handler);
    /// run() returns when there has been no connection for this long; 0 (the default): never.
    void setIdleTimeout(std::uint32_t seconds);
    /// Holds each client's process from its connection on, so that
    /// NSXPCConnection::processStartTime() tells when it started: for a service that asks the
    /// system about its clients. It makes connecting dearer and takes one descriptor for each. Call
    /// it before run().
    void holdClientProcesses();
    /// Serves until the service is no longer needed: for a private service until the application
    /// closes the connection, otherwise until the idle timeout or invalidate(). Returns the
    /// process's exit status: 0, or 1 if a private service had no memory or thread to serve with.
    int run();
    void invalidate();

    /// Serves the clients of a listener that the platform or a test supplies.
    MORVANE_INTERNAL explicit NSXPCListener(std::unique_ptr<StreamListener> listener);
    MORVANE_INTERNAL NSXPCListener(std::unique_ptr<StreamListener> listener,
                                   const limits::ClientLimits& clients);
    class MORVANE_INTERNAL Core;
    explicit NSXPCListener(std::unique_ptr<Core> core);

  private:
    std::unique_ptr<Core> core_;
};

}  // namespace morvane
