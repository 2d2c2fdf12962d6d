// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/archive/NSKeyedUnarchiver.h>
#include <MorvaneOperation/platform/dispatch/Workers.h>
#include <MorvaneOperation/platform/foundation/NSUncaughtException.h>
#include <MorvaneOperation/platform/xpc/ConnectionCore.h>
#include <MorvaneOperation/platform/xpc/ConnectionErrors.h>
#include <MorvaneOperation/platform/xpc/ServedStream.h>

#include <cstdint>
#include <new>
#include <utility>

/// Reads the stream of a connection.
namespace morvane {
namespace {

/// These are shared by all connections for which no listener has set limits.
std::shared_ptr<ClientAccount> applicationsAccount() {
    return std::make_shared<ClientAccount>(
        ClientAccount::Limits{SIZE_MAX, limits::placesOfTheApplication});
}

}  // namespace

void NSXPCConnection::Core::startReading(std::function<void()> reading,
                                         StreamSocket& stream) noexcept {
    try {
        if (keepsNextTask()) {
            runOnWorker(std::move(reading));
        } else {
            stream.whenReadable(std::move(reading));
        }
        return;
    } catch (const std::exception&) {
        const std::lock_guard lock(mutex_);
        state_ = State::reportingEnd;
        refuseWaiting(shortageError());
        endsUnread_ = true;
    }
    startReporting();
}

std::function<void()> NSXPCConnection::Core::serving(const std::shared_ptr<StreamSocket>& socket,
                                                     const std::shared_ptr<Outbox>& outbox) {
    const auto self = shared_from_this();
    const auto stream = std::make_shared<ServedStream>(
        socket, outbox, requests, account ? account : applicationsAccount(), incoming,
        ServedStream::Connection{
            [self] { return self->invalidated_.load(); },
            [self](const Message& reply) { self->handleReply(reply); },
            [self](std::uint64_t id) {
                const std::lock_guard lock(self->mutex_);
                return self->inFlight_.contains(id);
            },
            [self, socket] { self->end(socket, true); },
        });
    const std::lock_guard lock(mutex_);
    served_ = stream;
    return [stream] { stream->readable(); };
}

bool NSXPCConnection::Core::isOver() const {
    std::shared_ptr<StreamSocket> socket;
    {
        const std::lock_guard lock(mutex_);
        socket = socket_;
    }
    return !socket || socket->isOver();
}

std::optional<std::chrono::steady_clock::time_point> NSXPCConnection::Core::idleSince() const {
    std::shared_ptr<ServedStream> served;
    {
        const std::lock_guard lock(mutex_);
        if (inFlight_.size() != 0 || !waiting_.empty())
            return std::nullopt;
        served = served_.lock();
    }
    return served ? served->idleSince() : std::nullopt;
}

void NSXPCConnection::Core::read(const std::shared_ptr<StreamSocket>& socket,
                                 const std::shared_ptr<Outbox>& outbox) {
    try {
        FrameReader reader(*socket, incoming);
        bool heldBack = false;
        while (!invalidated_) {
            const auto message = reader.next();
            if (!message || invalidated_)
                break;
            if (reader.hasMessageWaiting()) {
                outbox->holdBack();
                heldBack = true;
            } else if (std::exchange(heldBack, false)) {
                outbox->release();
            }
            if (message->kind == FrameKind::request) {
                const std::lock_guard turn(turn_);
                requests.handle(*message, outbox);
            } else {
                handleReply(*message);
            }
        }
    } catch (const std::bad_alloc&) {
        // There is no memory for what the peer sends.
    }
    end(socket, true);
}

void NSXPCConnection::Core::handleReply(const Message& message) {
    PendingRequests::Request request;
    {
        const std::lock_guard lock(mutex_);
        auto found = inFlight_.take(message.id);
        if (!found)
            return;
        request = std::move(*found);
        endsWithoutAnswer_ = 0;
    }
    NSErrorRef refused;
    try {
        refused = readReply(message, request);
    } catch (const std::exception&) {
        refused = unreadReplyError();
    }
    const std::lock_guard turn(turn_);
    if (refused)
        fail(request, refused);
    else
        callOut("reply", selectorOf(request), [&] { request.receiver->deliver(); });
}

NSErrorRef NSXPCConnection::Core::readReply(const Message& message,
                                            PendingRequests::Request& request) const {
    if (message.kind == FrameKind::refusal) {
        return connectionError(
            NSXPCConnectionReplyInvalid,
            phrase("The service refused the request: %1",
                   Phrase::received(std::string(message.body.begin(), message.body.end()))));
    }
    try {
        NSKeyedUnarchiver coder(message.body, requests.decoding);
        request.receiver->decode(coder, remoteInterface->replyClasses(request.message));
        return nullptr;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const NSXPCArgumentFailure& failure) {
        return connectionError(NSXPCConnectionReplyInvalid,
                               phrase("The reply cannot be used. %1", failure.what()),
                               failure.reason());
    } catch (const std::exception& failure) {
        return connectionError(NSXPCConnectionReplyInvalid,
                               phrase("The reply cannot be used. %1", failure.what()));
    }
}

}  // namespace morvane
