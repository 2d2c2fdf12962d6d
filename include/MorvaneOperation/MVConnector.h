#pragma once

#include <MorvaneOperation/MVConnectResponder.h>
#include <MorvaneOperation/MVFileRequest.h>
#include <MorvaneOperation/platform/dispatch/DispatchQueue.h>
#include <MorvaneOperation/platform/xpc/NSXPCConnection.h>

#include <concepts>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

/// The host's way to the file services. Abstract: a host derives from it, says which classes may be
/// decoded from each message, and answers the callbacks.
///
///     class Connector : public MVConnector {
///       public:
///         static const NSClass& classObject();
///         const NSClass& objectClass() const override { return classObject(); }
///         EncodableClasses remoteEncodableClasses() override {
///             return {{"getAclEntriesWithUrl:reply:", {&NSArrayClass, &MVAclEntry::classObject(),
///                                                      &MVTreeNode::classObject(),
///                                                      &MVAclPermission::classObject()}}};
///         }
///         EncodableClasses exportedEncodableClasses() override { return {}; }
///         void progressWithReply(NSXPCReply<bool> reply) override { reply(!cancelled); }
///         ...
///     };
///     auto connector = MVConnector::init<Connector>();
///     connector->connection()->remoteObjectProxyWithErrorHandler<MVFileRequest>(onError)->...
///
/// For privileged work, call getAuthConnectionForRight() with the right of the request (see
/// MVFileRequest.h); once its reply brings no error, send the request through authConnection().
///
/// Ownership: a connector owns its connections, queue and responder; the responder and the
/// connections' handlers hold it weakly. Its end invalidates both connections.
///
/// Threads: no lock is held while anything is built or called. Read connection() on one thread at a
/// time: two first reads at once may each build one. The privileged connection is built,
/// and connections are reset after an invalidation, on `queue`. Callbacks of the services arrive on
/// a thread of the connection's choosing. getAuthConnectionForRight() blocks its caller while the
/// system asks the user.
///
/// Failure: an invalidated connection is forgotten, one line is logged, and the next use connects
/// again; requests in flight are not repeated.
namespace morvane {

inline constexpr const char* MVAbstractClassCreation = "MVAbstractClassCreation";
inline constexpr const char* MVAbstractMethodNotOverridden = "MVAbstractMethodNotOverridden";

class MORVANE_EXPORT MVConnector : public NSObject,
                                   public MVFileResponse,
                                   public std::enable_shared_from_this<MVConnector> {
  public:
    /// Selector to the classes that argument 0 may hold: of the reply for the requests, of the
    /// message itself for the callbacks.
    using EncodableClasses = std::map<std::string, NSClassSet>;
    using AuthReply = std::function<void(NSErrorRef)>;

    static const NSClass& classObject();
    const NSClass& objectClass() const override { return classObject(); }

    /// A new connector of class T. `queueLabel` may be null. Throws NSException
    /// "MVAbstractClassCreation" for a class of the name of MVConnector itself.
    template <std::derived_from<MVConnector> T = MVConnector, class... Arguments>
    static std::shared_ptr<T> initWithQueueLabel(const char* queueLabel, Arguments&&... arguments) {
        refuseAbstractClass(T::classObject());
        auto connector = std::make_shared<T>(std::forward<Arguments>(arguments)...);
        connector->prepare(queueLabel);
        return connector;
    }
    template <std::derived_from<MVConnector> T = MVConnector>
    static std::shared_ptr<T> init() {
        return initWithQueueLabel<T>(nullptr);
    }

    ~MVConnector() override;

    /// The connection to the file service, made and resumed when first read.
    std::shared_ptr<NSXPCConnection> connection();
    void setConnection(std::shared_ptr<NSXPCConnection> connection);
    /// The connection to the privileged helper; null until getAuthConnectionForRight() has built
    /// it.
    std::shared_ptr<NSXPCConnection> authConnection() const { return load(authConnection_); }
    void setAuthConnection(std::shared_ptr<NSXPCConnection> connection);
    const std::shared_ptr<DispatchQueue>& queue() const { return queue_; }
    void setQueue(std::shared_ptr<DispatchQueue> queue) { queue_ = std::move(queue); }
    const std::shared_ptr<MVConnectResponder>& responder() const { return responder_; }
    void setResponder(std::shared_ptr<MVConnectResponder> responder) {
        responder_ = std::move(responder);
    }

    /// Obtains the right (its full name), asking the user if need be, and then makes sure that
    /// there is a privileged connection. The reply runs on the caller's thread, before this
    /// returns, if the right is refused (with the error), the connection is there already, or
    /// `queue` can have no thread (with the error EAGAIN); otherwise on `queue`.
    void getAuthConnectionForRight(const char* right, AuthReply reply);

    // To be overridden; each throws NSException "MVAbstractMethodNotOverridden".
    virtual EncodableClasses remoteEncodableClasses();
    virtual EncodableClasses exportedEncodableClasses();
    void progressWithReply(NSXPCReply<bool> reply) override;
    void updateFileSizes(std::vector<std::shared_ptr<MVFileSizeItem>> sizes,
                         NSXPCReply<bool> reply) override;

    /// Use init<T>().
    MVConnector();

  private:
    static void refuseAbstractClass(const NSClass& c);
    void prepare(const char* queueLabel);
    void configure(NSXPCConnection& connection);
    void buildAuthConnection();
    void connectionInvalidated();
    void authConnectionInvalidated();
    void submitReset(const DispatchQueue::Task& reset);

    using Property = std::shared_ptr<NSXPCConnection>;
    Property load(const Property& property) const;
    void store(Property& property, Property connection);

    /// Keeps the two pointers whole between threads; nothing else.
    mutable std::mutex properties_;
    Property connection_;
    std::shared_ptr<DispatchQueue> queue_;
    Property authConnection_;
    std::shared_ptr<MVConnectResponder> responder_;
};

}  // namespace morvane
