#include <MorvaneOperation/MVAuthorization.h>
#include <MorvaneOperation/MVConnector.h>
#include <MorvaneOperation/platform/foundation/NSException.h>
#include <MorvaneOperation/platform/host/Log.h>

#include <cerrno>
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

const NSClass& MVConnector::classObject() {
    static const NSClass c{"MVConnector", &NSObject::classObject(), nullptr};
    return c;
}

MVConnector::MVConnector(Creation) {}

MVConnector::~MVConnector() {
    if (connection_)
        connection_->invalidate();
    if (authConnection_)
        authConnection_->invalidate();
}

void MVConnector::refuseAbstractClass(const NSClass& c) {
    // By name, not by identity: a class that takes this one's name is as abstract.
    if (c.name != MVConnector::classObject().name)
        return;
    throw NSException(MVAbstractClassCreation, "An instance of the abstract class " +
                                                   std::string(c.name) + " cannot be created.");
}

void MVConnector::prepare(const char* queueLabel) {
    queue_ = DispatchQueue::serialQueue(queueLabel);
    responder_ = std::make_shared<MVConnectResponder>();
    responder_->setConnector(weak_from_this());
}

MVConnector::Property MVConnector::load(const Property& property) const {
    const std::lock_guard lock(properties_);
    return property;
}

void MVConnector::store(Property& property, Property connection) {
    const std::lock_guard lock(properties_);
    property.swap(connection);
}

std::shared_ptr<NSXPCConnection> MVConnector::connection() {
    if (auto held = load(connection_))
        return held;
    auto built = NSXPCConnection::initWithServiceName(MVFileServiceName);
    store(connection_, built);
    configure(*built);
    built->setInvalidationHandler([weak = weak_from_this()] {
        if (const auto self = weak.lock())
            self->connectionInvalidated();
    });
    built->resume();
    return built;
}

void MVConnector::setConnection(std::shared_ptr<NSXPCConnection> connection) {
    store(connection_, std::move(connection));
}

void MVConnector::setAuthConnection(std::shared_ptr<NSXPCConnection> connection) {
    store(authConnection_, std::move(connection));
}

void MVConnector::configure(NSXPCConnection& connection) {
    const auto remote = NSXPCInterface::interfaceWithProtocol<MVFileRequest>();
    apply(*remote, true, [this] { return remoteEncodableClasses(); });
    connection.setRemoteObjectInterface(remote);
    const auto exported = NSXPCInterface::interfaceWithProtocol<MVFileResponse>();
    apply(*exported, false, [this] { return exportedEncodableClasses(); });
    connection.setExportedInterface(exported);
    connection.setExportedObject<MVFileResponse>(responder_);
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
        queue_->async(reset);
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
        queue_->async([self = shared_from_this(), reply] {
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
    store(authConnection_, built);
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

}  // namespace morvane
