// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSError.h>
#include <MorvaneOperation/platform/foundation/NSUncaughtException.h>
#include <MorvaneOperation/platform/xpc/NSXPCInterface.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace morvane {

/// Options of initWithMachServiceName().
enum NSXPCConnectionOptions : std::uint64_t {
    /// The service must be privileged: socket and peer process belong to root.
    NSXPCConnectionPrivileged = 4096,
};

/// A connection to another process over which messages of a protocol travel both ways.
///
///     auto connection = NSXPCConnection::initWithServiceName("io.github.me.FileService");
///     connection->setRemoteObjectInterface(NSXPCInterface::interfaceWithProtocol<MVFileRequest>());
///     connection->resume();
///     connection->remoteObjectProxyWithErrorHandler<MVFileRequest>(onError)
///         ->getAclEntriesWithUrl(url, [](auto entries, NSErrorRef error) { redraw(); });
///
/// The promise: every request that was accepted ends exactly once, in its reply or in its error
/// handler. A request is never sent twice. The error tells what is known: NSXPCConnectionInvalid
/// (it was not sent), NSXPCConnectionInterrupted (the peer went away, the outcome is unknown),
/// NSXPCConnectionReplyInvalid (the reply was refused by decoding, or the peer dropped it). A call
/// that throws (its arguments cannot be encoded, there is no memory for it) has accepted nothing,
/// and nothing else is called for it.
///
/// Order: the requests that one thread makes on one connection arrive in the order in which they
/// were made, from the first one on, also while another thread connects, and across a restart of
/// the service. Their replies come in the order of the service's choosing.
///
/// Ownership: the connection owns its interfaces, its exported object and its handlers. Proxies
/// hold their connection, and so does a request, once the connection is resumed, until it has
/// ended. Who lets go of the last reference ends the stream quietly: no handler runs for that; a
/// request that still waits for resume() ends in its error handler. Only invalidate() and the
/// system invalidate a connection.
///
/// Threads: configure on one thread, then resume; everything else may be called from any thread.
/// What is delivered to a host (replies, callbacks, the two handlers) runs one at a time on a
/// thread of the connection's choosing, never inside a call of the host's, under no lock that a
/// call would want; while one runs, nothing else is delivered, so it must not wait for another
/// message of the same connection. In a service a connection's requests may run beside each other
/// and beside its replies: see NSXPCListener.h. None of a request that was made before the
/// invalidation handler ran runs after it. What they throw goes where NSUncaughtException.h says,
/// which by default ends the process.
///
/// Failure: a named private service that crashes interrupts the connection (its interruption
/// handler runs) and is started again by the next request. The connection becomes invalid, for
/// good, when the service cannot be started, keeps crashing, or the well-known socket is gone or
/// not root's where it must be. Where the system is only short of memory, threads or descriptors,
/// the requests of the moment end with NSXPCConnectionInvalid, and the next one tries again. In a
/// child after fork() there is no thread: every request ends with NSXPCConnectionInvalid inside its
/// call, and nothing else is touched.
class MORVANE_EXPORT NSXPCConnection : public std::enable_shared_from_this<NSXPCConnection> {
  public:
    using Handler = std::function<void()>;
    using ErrorHandler = std::function<void(NSErrorRef)>;
    /// Returns null if the request with that selector may be carried out, otherwise the error for
    /// its reply.
    using Admission = std::function<NSErrorRef(std::string_view selector)>;

    // Both throw if the process can have no thread for its connections.

    /// A private service process of this application, named as the program in its libexec folder
    /// that is started on first use.
    static std::shared_ptr<NSXPCConnection> initWithServiceName(std::string name);
    /// A service that listens on the well-known socket of that name.
    static std::shared_ptr<NSXPCConnection> initWithMachServiceName(std::string name,
                                                                    std::uint64_t options);

    ~NSXPCConnection();
    NSXPCConnection(const NSXPCConnection&) = delete;
    NSXPCConnection& operator=(const NSXPCConnection&) = delete;

    const std::string& serviceName() const;

    void setRemoteObjectInterface(std::shared_ptr<NSXPCInterface> interface);
    const std::shared_ptr<NSXPCInterface>& remoteObjectInterface() const;
    void setExportedInterface(std::shared_ptr<NSXPCInterface> interface);
    const std::shared_ptr<NSXPCInterface>& exportedInterface() const;
    /// The object that receives the peer's messages; it must implement the exported interface's
    /// protocol P.
    template <class P>
    void setExportedObject(std::shared_ptr<P> object) {
        setExportedObject(std::shared_ptr<void>(object, static_cast<P*>(object.get())),
                          protocolDescription<P>());
    }
    /// Null if none is set.
    std::shared_ptr<void> exportedObject() const;

    /// Has `admission` decide on each of the peer's requests before any of its arguments is
    /// decoded. An error ends the request: its reply has that error, and nothing else. It is called
    /// for one request after the other, in the order in which they came. While it takes long for
    /// one, the peer's replies to requests of this side are still delivered, if they came before
    /// its next request: at that one, reading stops until the decision. To be called before
    /// resume().
    void setAdmission(Admission admission);

    /// Both handlers may be replaced, or removed with an empty one, at any time.
    void setInterruptionHandler(Handler handler);
    void setInvalidationHandler(Handler handler);
    bool hasInvalidationHandler() const;

    /// Starts delivery. Requests that are sent before this wait for it.
    void resume();
    /// Ends the connection for good: requests in flight end in their error handlers, then the
    /// invalidation handler runs. Returns at once.
    void invalidate();

    /// An object whose methods send messages. Throws NSInvalidArgumentException if P is not the
    /// remote interface's protocol.
    template <class P>
    std::shared_ptr<P> remoteObjectProxy() {
        return remoteObjectProxyWithErrorHandler<P>({});
    }
    template <class P>
    std::shared_ptr<P> remoteObjectProxyWithErrorHandler(ErrorHandler errorHandler) {
        return makeProxy<P>(proxyTarget(protocolDescription<P>(), std::move(errorHandler)));
    }

    /// The process at the other end; empty while there is none.
    std::optional<std::int64_t> processIdentifier() const;
    std::optional<std::int64_t> effectiveUserIdentifier() const;
    std::optional<std::int64_t> effectiveGroupIdentifier() const;
    /// The user to whom the resources of a listener's client are charged: the peer's own, or the
    /// one to whom the system has granted the peer's user id as a subordinate one.
    std::optional<std::int64_t> accountableUserIdentifier() const;
    /// When that process started, in the kernel's units, read while it was seen alive; 0 if it has
    /// gone, or unless NSXPCListener::holdClientProcesses() was called. Together with its
    /// identifier it names one process only.
    std::uint64_t processStartTime() const;

    class MORVANE_INTERNAL Core;
    explicit NSXPCConnection(std::shared_ptr<Core> core);

  private:
    void setExportedObject(std::shared_ptr<void> object, const NSXPCProtocolDescription& protocol);
    NSXPCProxyTarget proxyTarget(const NSXPCProtocolDescription& protocol,
                                 ErrorHandler errorHandler);

    std::shared_ptr<Core> core_;
};

}  // namespace morvane
