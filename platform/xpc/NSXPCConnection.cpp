// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/dispatch/Workers.h>
#include <MorvaneOperation/platform/foundation/NSException.h>
#include <MorvaneOperation/platform/xpc/ConnectionCore.h>

#include <utility>

namespace morvane {
namespace {

/// Sends the messages of a proxy, and keeps the connection.
class ProxySink final : public NSXPCRequestSink {
  public:
    ProxySink(std::shared_ptr<NSXPCConnection> connection,
              std::shared_ptr<NSXPCConnection::Core> core)
        : connection_(std::move(connection)), core_(std::move(core)) {}

    void sendRequest(std::size_t message, NSData archive,
                     std::unique_ptr<NSXPCReplyReceiver> receiver) override {
        core_->sendRequest(message, std::move(archive), std::move(receiver), connection_);
    }

  private:
    const std::shared_ptr<NSXPCConnection> connection_;
    const std::shared_ptr<NSXPCConnection::Core> core_;
};

}  // namespace

NSXPCArgumentFailure::NSXPCArgumentFailure(std::size_t argument, const NSArchiveFailure& reason)
    : reason_(reason.error()),
      what_("Argument " + std::to_string(argument) + " was refused by decoding. " + reason.what()) {
}
NSXPCArgumentFailure::~NSXPCArgumentFailure() = default;
NSXPCReplyPort::~NSXPCReplyPort() = default;
NSXPCReplyReceiver::~NSXPCReplyReceiver() = default;
NSXPCRequestSink::~NSXPCRequestSink() = default;
StreamSocket::~StreamSocket() = default;

void StreamSocket::whenReadable(std::function<void()> reading) {
    runOnWorker(std::move(reading));
}

void StreamSocket::whenWritable(std::function<void()> sending) {
    runOnWorker(std::move(sending));
}

std::optional<std::size_t> StreamSocket::receiveWithin(std::span<std::uint8_t> into,
                                                       std::chrono::milliseconds) {
    return receive(into, {});
}

std::int64_t StreamSocket::accountableUser() const {
    const auto who = peer();
    return who ? who->userIdentifier : -1;
}

ServiceEndpoint::~ServiceEndpoint() = default;
StreamListener::~StreamListener() = default;

std::shared_ptr<NSXPCConnection> NSXPCConnection::initWithServiceName(std::string name) {
    auto endpoint = privateServiceEndpoint(name);
    return std::make_shared<NSXPCConnection>(
        std::make_shared<Core>(std::move(name), std::move(endpoint)));
}

std::shared_ptr<NSXPCConnection> NSXPCConnection::initWithMachServiceName(std::string name,
                                                                          std::uint64_t options) {
    auto endpoint = wellKnownServiceEndpoint(name, (options & NSXPCConnectionPrivileged) != 0);
    return std::make_shared<NSXPCConnection>(
        std::make_shared<Core>(std::move(name), std::move(endpoint)));
}

NSXPCConnection::NSXPCConnection(std::shared_ptr<Core> core) : core_(std::move(core)) {}

NSXPCConnection::~NSXPCConnection() {
    core_->letGo();
}

const std::string& NSXPCConnection::serviceName() const {
    return core_->name();
}

void NSXPCConnection::setRemoteObjectInterface(std::shared_ptr<NSXPCInterface> interface) {
    core_->remoteInterface = std::move(interface);
}

const std::shared_ptr<NSXPCInterface>& NSXPCConnection::remoteObjectInterface() const {
    return core_->remoteInterface;
}

void NSXPCConnection::setExportedInterface(std::shared_ptr<NSXPCInterface> interface) {
    core_->requests.interface = std::move(interface);
}

const std::shared_ptr<NSXPCInterface>& NSXPCConnection::exportedInterface() const {
    return core_->requests.interface;
}

void NSXPCConnection::setExportedObject(std::shared_ptr<void> object,
                                        const NSXPCProtocolDescription& protocol) {
    if (object && core_->requests.interface &&
        !core_->requests.interface->protocol().isSameProtocol(protocol)) {
        throw NSException(NSInvalidArgumentException,
                          "The exported object implements " + std::string(protocol.name) +
                              ", but the exported interface is of " +
                              std::string(core_->requests.interface->protocol().name) + ".");
    }
    core_->requests.setObject(std::move(object));
}

std::shared_ptr<void> NSXPCConnection::exportedObject() const {
    return core_->requests.object();
}

void NSXPCConnection::setAdmission(Admission admission) {
    core_->requests.admission = std::move(admission);
}

void NSXPCConnection::setInterruptionHandler(Handler handler) {
    core_->setInterruptionHandler(std::move(handler));
}

void NSXPCConnection::setInvalidationHandler(Handler handler) {
    core_->setInvalidationHandler(std::move(handler));
}

bool NSXPCConnection::hasInvalidationHandler() const {
    return core_->hasInvalidationHandler();
}

void NSXPCConnection::resume() {
    core_->resume(shared_from_this());
}

void NSXPCConnection::invalidate() {
    core_->invalidate();
}

NSXPCProxyTarget NSXPCConnection::proxyTarget(const NSXPCProtocolDescription& protocol,
                                              ErrorHandler errorHandler) {
    if (!core_->remoteInterface || !core_->remoteInterface->protocol().isSameProtocol(protocol)) {
        throw NSException(
            NSInvalidArgumentException,
            "The connection's remote interface is not of " + std::string(protocol.name) + ".");
    }
    return {std::make_shared<ProxySink>(shared_from_this(), core_), std::move(errorHandler)};
}

std::optional<std::int64_t> NSXPCConnection::processIdentifier() const {
    const auto peer = core_->peer();
    return peer ? std::optional(peer->processIdentifier) : std::nullopt;
}

std::optional<std::int64_t> NSXPCConnection::effectiveUserIdentifier() const {
    const auto peer = core_->peer();
    return peer ? std::optional(peer->userIdentifier) : std::nullopt;
}

std::optional<std::int64_t> NSXPCConnection::accountableUserIdentifier() const {
    return core_->account ? std::optional(core_->account->user) : effectiveUserIdentifier();
}

std::optional<std::int64_t> NSXPCConnection::effectiveGroupIdentifier() const {
    const auto peer = core_->peer();
    return peer ? std::optional(peer->groupIdentifier) : std::nullopt;
}

std::uint64_t NSXPCConnection::processStartTime() const {
    return core_->peerStartTime();
}

}  // namespace morvane
