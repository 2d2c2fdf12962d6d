// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVConnectResponder.h>
#include <MorvaneOperation/MVFileRequest.h>
#include <MorvaneOperation/platform/dispatch/DispatchQueue.h>
#include <MorvaneOperation/platform/xpc/NSXPCConnection.h>

#include <concepts>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

namespace morvane {

inline constexpr const char* MVAbstractClassCreation = "MVAbstractClassCreation";
inline constexpr const char* MVAbstractMethodNotOverridden = "MVAbstractMethodNotOverridden";

/// The host's way to the file services. Abstract: a host derives from it, says which classes may be
/// decoded from each message, and answers the callbacks.
///
///     class Connector : public MVConnector {
///       public:
///         using MVConnector::MVConnector;
///         static const NSClass& classObject() {
///             static const NSClass c{"Connector", &MVConnector::classObject(), nullptr};
///             return c;
///         }
///         const NSClass& objectClass() const override { return classObject(); }
///         EncodableClasses remoteEncodableClasses() override {
///             return {{"getAclEntriesWithUrl:reply:", {&NSArrayClass, &MVAclEntry::classObject(),
///                                                      &MVTreeNode::classObject(),
///                                                      &MVAclPermission::classObject()}}};
///         }
///         EncodableClasses exportedEncodableClasses() override { return {}; }
///         void progressWithReply(NSXPCReply<bool> reply) override { reply(true); }
///         void updateFileSizes(std::vector<std::shared_ptr<MVFileSizeItem>> sizes,
///                              NSXPCReply<bool> reply) override {
///             reply(true);
///         }
///     };
///     auto connector = MVConnector::init<Connector>();
///     connector->connection()
///         ->remoteObjectProxyWithErrorHandler<MVFileRequest>(onError)
///         ->getAclEntriesWithUrl(url, [](auto entries, NSErrorRef error) { redraw(); });
///
/// For privileged work, call getAuthConnectionForRight() with the right of the request (see
/// MVFileRequest.h); once its reply brings no error, send the request through authConnection():
///
///     connector->getAuthConnectionForRight(MVRightGetFileAcl, [](NSErrorRef error) {
///         const auto helper = connector->authConnection();
///         if (error || !helper)
///             return show(error);
///         helper->remoteObjectProxyWithErrorHandler<MVFileRequest>(onError)
///             ->getAclEntriesWithUrl(url, [](auto entries, NSErrorRef error) { redraw(); });
///     });
///
/// Check both the error and the connection, and read the connection only once. It may be null
/// although there is no error, for two reasons: the rights could not be defined, so that nobody
/// could be asked and there was no error to pass on; or the connection has ended between the reply
/// and its use, and was forgotten.
///
/// Creation: only by init() or initWithQueueLabel(), which the compiler enforces. A subclass
/// inherits the constructor, or passes its own `Creation` on, and names itself with a classObject()
/// and an objectClass() of its own.
///
/// Ownership: a connector owns its connections, queue and responder; the responder and the
/// connections' handlers hold it weakly. Its destruction invalidates both connections. A connection
/// that is replaced by another is released, not invalidated: requests in flight on it end as usual.
///
/// Threads: no lock is held while anything is built or called. Read connection() on one thread at a
/// time: two first reads at once may each build one. A connection is stored in its property before
/// it is configured, so that another thread may see it without its interfaces: share it between
/// threads only after the call that built it has returned. The privileged connection is built, and
/// connections are reset after an invalidation, on `queue`. Callbacks of the services arrive on a
/// thread of the connection's choosing. getAuthConnectionForRight() blocks its caller while the
/// system asks the user.
///
/// The two tables are read anew for each connection: once for their keys, then once more for each
/// key; for the file service on the thread that calls connection(), for the privileged helper on
/// `queue`. Both must always return the same table.
///
/// Failure: an invalidated connection is forgotten, one line is logged, and the next use connects
/// again; requests in flight are not repeated. A table that names a message which the protocol does
/// not have, or gives classes to "progressWithReply:", is a programming error, as is one that is
/// not overridden: NSException, after the connection was stored. For the file service it reaches
/// the reader of connection(), and the next read returns that connection as it is, unconfigured.
/// For the privileged helper nobody could catch it on `queue`, so that it goes where
/// NSUncaughtException.h says.
class MORVANE_EXPORT MVConnector : public NSObject,
                                   public MVFileResponse,
                                   public std::enable_shared_from_this<MVConnector> {
  public:
    /// Maps a selector to the classes that argument 0 may hold: argument 0 of the reply for the
    /// requests, of the message itself for the callbacks.
    using EncodableClasses = std::map<std::string, NSClassSet>;
    using AuthReply = std::function<void(NSErrorRef)>;

    static const NSClass& classObject();
    const NSClass& objectClass() const override { return classObject(); }

    /// What only the factories below can make: a permission to construct.
    class Creation {
        friend class MVConnector;
        explicit Creation() = default;
    };

    /// A new connector of class T, constructed from a Creation and `arguments`. `queueLabel` may be
    /// null. Throws NSException "MVAbstractClassCreation" for a class of the name of MVConnector
    /// itself.
    template <std::derived_from<MVConnector> T = MVConnector, class... Arguments>
    static std::shared_ptr<T> initWithQueueLabel(const char* queueLabel, Arguments&&... arguments) {
        static_assert(namesItself<T>(),
                      "A subclass of MVConnector needs a classObject() and an objectClass() of its "
                      "own.");
        refuseAbstractClass(T::classObject());
        auto connector = std::make_shared<T>(Creation(), std::forward<Arguments>(arguments)...);
        connector->prepare(queueLabel);
        return connector;
    }
    template <std::derived_from<MVConnector> T = MVConnector>
    static std::shared_ptr<T> init() {
        return initWithQueueLabel<T>(nullptr);
    }

    explicit MVConnector(Creation);
    ~MVConnector() override;

    /// The connection to the file service, made and resumed when first read.
    std::shared_ptr<NSXPCConnection> connection();
    void setConnection(std::shared_ptr<NSXPCConnection> connection);
    /// The connection to the privileged helper; null until getAuthConnectionForRight() has built
    /// it.
    std::shared_ptr<NSXPCConnection> authConnection() const;
    void setAuthConnection(std::shared_ptr<NSXPCConnection> connection);
    const std::shared_ptr<DispatchQueue>& queue() const;
    void setQueue(std::shared_ptr<DispatchQueue> queue);
    const std::shared_ptr<MVConnectResponder>& responder() const;
    void setResponder(std::shared_ptr<MVConnectResponder> responder);

    /// Obtains the right (its full name), asking the user if need be, and then makes sure that
    /// there is a privileged connection. The reply runs on the caller's thread, before this
    /// returns, if the right is refused (with the error, if there is one), the connection is there
    /// already, or `queue` cannot get a thread (with the error EAGAIN) or memory (ENOMEM);
    /// otherwise on `queue`. It carries no connection: read authConnection(), and check whether it
    /// is null.
    void getAuthConnectionForRight(const char* right, AuthReply reply);

    // To be overridden; each throws NSException "MVAbstractMethodNotOverridden".
    virtual EncodableClasses remoteEncodableClasses();
    virtual EncodableClasses exportedEncodableClasses();
    void progressWithReply(NSXPCReply<bool> reply) override;
    void updateFileSizes(std::vector<std::shared_ptr<MVFileSizeItem>> sizes,
                         NSXPCReply<bool> reply) override;

  private:
    template <const NSClass& (*)()>
    struct Naming {};
    template <class Declarer>
    static Declarer declarerOf(const NSClass& (Declarer::*)() const);
    template <class T>
    static consteval bool namesItself() {
        return std::is_same_v<T, MVConnector> ||
               (std::is_same_v<decltype(declarerOf(&T::objectClass)), T> &&
                !std::is_same_v<Naming<&T::classObject>, Naming<&MVConnector::classObject>>);
    }

    static void refuseAbstractClass(const NSClass& c);
    void prepare(const char* queueLabel);
    void configure(NSXPCConnection& connection);
    void buildAuthConnection();
    void connectionInvalidated();
    void authConnectionInvalidated();
    void submitReset(const DispatchQueue::Task& reset);

    // Behind a pointer: the size of this class is part of each program that derives from it.
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace morvane
