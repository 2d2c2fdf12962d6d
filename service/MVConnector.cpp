// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVAuthorization.h>
#include <MorvaneOperation/MVConnector.h>
#include <MorvaneOperation/platform/foundation/NSException.h>
#include <MorvaneOperation/platform/host/Log.h>

#include <cerrno>
#include <mutex>
#include <new>
#include <system_error>
#include <utility>

namespace morvane {
namespace {

[[noreturn]] void notOverridden(const MVConnector& connector, const char* selector) {
    throw NSException(MVAbstractMethodNotOverridden,
                      "Subclass " + std::string(connector.objectClass().name) +
                          " must override method -[MVConnector " + selector +
                          "] of the base class MVConnector.");
}

/// Declares the classes of argument 0 of each message that the table names. The table is read once
/// for its keys, and then again for the classes of each key.
template <class Table>
void apply(NSXPCInterface& interface, bool ofReply, Table table) {
    for (const auto& [selector, classes] : table()) {
        interface.setClasses(table().at(selector), selector, 0, ofReply);
    }
}

}  // namespace

struct MVConnector::State {
    using Property = std::shared_ptr<NSXPCConnection>;

    Property load(const Property& property) const {
        const std::lock_guard lock(properties);
        return property;
    }
    void store(Property& property, Property value) {
        const std::lock_guard lock(properties);
        property.swap(value);
    }

    /// Guards the two pointers, and nothing else.
    mutable std::mutex properties;
    Property connection;
    std::shared_ptr<DispatchQueue> queue;
    Property authConnection;
    std::shared_ptr<MVConnectResponder> responder;
};

const NSClass& MVConnector::classObject() {
    static const NSClass c{"MVConnector", &NSObject::classObject(), nullptr};
    return c;
}

MVConnector::MVConnector(Creation) : state_(std::make_unique<State>()) {}

MVConnector::~MVConnector() {
    if (state_->connection)
        state_->connection->invalidate();
    if (state_->authConnection)
        state_->authConnection->invalidate();
}

void MVConnector::refuseAbstractClass(const NSClass& c) {
    // By name, not by identity: a class that takes this one's name is as abstract.
    if (c.name != MVConnector::classObject().name)
        return;
    throw NSException(MVAbstractClassCreation, "An instance of the abstract class " +
                                                   std::string(c.name) + " cannot be created.");
}

void MVConnector::prepare(const char* queueLabel) {
    state_->queue = DispatchQueue::serialQueue(queueLabel);
    state_->responder = std::make_shared<MVConnectResponder>();
    state_->responder->setConnector(weak_from_this());
}

std::shared_ptr<NSXPCConnection> MVConnector::connection() {
    if (auto held = state_->load(state_->connection))
        return held;
    auto built = NSXPCConnection::initWithServiceName(MVFileServiceName);
    state_->store(state_->connection, built);
    configure(*built);
    built->setInvalidationHandler([weak = weak_from_this()] {
        if (const auto self = weak.lock())
            self->connectionInvalidated();
    });
    built->resume();
    return built;
}

void MVConnector::setConnection(std::shared_ptr<NSXPCConnection> connection) {
    state_->store(state_->connection, std::move(connection));
}

void MVConnector::setAuthConnection(std::shared_ptr<NSXPCConnection> connection) {
    state_->store(state_->authConnection, std::move(connection));
}

void MVConnector::configure(NSXPCConnection& connection) {
    const auto remote = NSXPCInterface::interfaceWithProtocol<MVFileRequest>();
    apply(*remote, true, [this] { return remoteEncodableClasses(); });
    connection.setRemoteObjectInterface(remote);
    const bool counts = dynamic_cast<MVItemProgress*>(this) != nullptr;
    const auto exported = counts ? NSXPCInterface::interfaceWithProtocol<MVCountedResponse>()
                                 : NSXPCInterface::interfaceWithProtocol<MVFileResponse>();
    apply(*exported, false, [this] { return exportedEncodableClasses(); });
    connection.setExportedInterface(exported);
    if (counts)
        connection.setExportedObject<MVCountedResponse>(state_->responder);
    else
        connection.setExportedObject<MVFileResponse>(state_->responder);
}

// Both act on what the property holds now, which need not be the connection that has ended.

void MVConnector::connectionInvalidated() {
    connection()->setInvalidationHandler({});
    submitReset([self = shared_from_this()] {
        self->setConnection(nullptr);
        logLine("Permissions connection invalidated!");
    });
}

void MVConnector::authConnectionInvalidated() {
    if (const auto held = authConnection())
        held->setInvalidationHandler({});
    submitReset([self = shared_from_this()] {
        self->setAuthConnection(nullptr);
        logLine("Permissions privileged connection invalidated!");
    });
}

void MVConnector::submitReset(const DispatchQueue::Task& reset) {
    try {
        state_->queue->async(reset);
    } catch (const std::exception&) {
        // There is no thread or no memory, and no caller could do anything about it: the reset runs
        // here instead.
        reset();
    }
}

void MVConnector::getAuthConnectionForRight(const char* right, AuthReply reply) {
    NSErrorRef error;
    const auto authorization = MVAuthorization::sharedAuthorization();
    if (!authorization || !authorization->authorizeRight(right, &error)) {
        reply(error);
        return;
    }
    if (authConnection()) {
        reply(nullptr);
        return;
    }
    try {
        state_->queue->async([self = shared_from_this(), reply] {
            self->buildAuthConnection();
            reply(nullptr);
        });
    } catch (const std::system_error& failure) {
        error = NSError::errorWithDomain(NSPOSIXErrorDomain, failure.code().value());
    } catch (const std::bad_alloc&) {
        error = NSError::errorWithDomain(NSPOSIXErrorDomain, ENOMEM);
    }
    if (error)
        reply(error);
}

void MVConnector::buildAuthConnection() {
    // Built without a second look: of two calls close together the later replaces the former.
    const auto built =
        NSXPCConnection::initWithMachServiceName(MVPrivilegedHelperName, NSXPCConnectionPrivileged);
    state_->store(state_->authConnection, built);
    configure(*built);
    built->setInvalidationHandler([weak = weak_from_this()] {
        if (const auto self = weak.lock())
            self->authConnectionInvalidated();
    });
    built->resume();
}

MVConnector::EncodableClasses MVConnector::remoteEncodableClasses() {
    notOverridden(*this, "remoteEncodableClasses");
}

MVConnector::EncodableClasses MVConnector::exportedEncodableClasses() {
    notOverridden(*this, "exportedEncodableClasses");
}

void MVConnector::progressWithReply(NSXPCReply<bool>) {
    notOverridden(*this, "progressWithReply:");
}

void MVConnector::updateFileSizes(std::vector<std::shared_ptr<MVFileSizeItem>>, NSXPCReply<bool>) {
    notOverridden(*this, "updateFileSizes:reply:");
}

std::shared_ptr<NSXPCConnection> MVConnector::authConnection() const {
    return state_->load(state_->authConnection);
}

const std::shared_ptr<DispatchQueue>& MVConnector::queue() const {
    return state_->queue;
}

void MVConnector::setQueue(std::shared_ptr<DispatchQueue> queue) {
    state_->queue = std::move(queue);
}

const std::shared_ptr<MVConnectResponder>& MVConnector::responder() const {
    return state_->responder;
}

void MVConnector::setResponder(std::shared_ptr<MVConnectResponder> responder) {
    state_->responder = std::move(responder);
}

}  // namespace morvane
