#include <MorvaneOperation/platform/archive/NSKeyedUnarchiver.h>
#include <MorvaneOperation/platform/dispatch/Workers.h>
#include <MorvaneOperation/platform/xpc/ConnectionCore.h>
#include <MorvaneOperation/platform/xpc/Limits.h>

#include <utility>

namespace morvane {
namespace {

NSErrorRef connectionError(std::int64_t code, std::string text, NSErrorRef underlying = nullptr) {
    NSErrorUserInfo userInfo{{NSLocalizedDescriptionKey, std::move(text)}};
    if (underlying)
        userInfo.emplace(NSUnderlyingErrorKey, std::move(underlying));
    return NSError::errorWithDomain(NSCocoaErrorDomain, code, std::move(userInfo));
}

}  // namespace

NSXPCConnection::Core::Core(std::string name, std::unique_ptr<ServiceEndpoint> endpoint)
    : name_(std::move(name)), endpoint_(std::move(endpoint)) {
    processGeneration();  // a fork is noticed from now on
}

NSXPCConnection::Core::Core(std::string name, std::shared_ptr<StreamSocket> socket)
    : name_(std::move(name)), socket_(std::move(socket)) {
    processGeneration();
}

NSXPCConnection::Core::~Core() = default;

void NSXPCConnection::Core::setInterruptionHandler(Handler handler) {
    const std::lock_guard lock(mutex_);
    std::swap(interruptionHandler_, handler);
}

void NSXPCConnection::Core::setInvalidationHandler(Handler handler) {
    const std::lock_guard lock(mutex_);
    std::swap(invalidationHandler_, handler);
}

bool NSXPCConnection::Core::hasInvalidationHandler() const {
    const std::lock_guard lock(mutex_);
    return static_cast<bool>(invalidationHandler_);
}

PeerCredentials NSXPCConnection::Core::peer() const {
    const std::lock_guard lock(mutex_);
    return socket_ ? socket_->peer() : PeerCredentials{};
}

std::uint64_t NSXPCConnection::Core::peerStartTime() const {
    const std::lock_guard lock(mutex_);
    return socket_ ? socket_->peerStartTime() : 0;
}

NSErrorRef NSXPCConnection::Core::invalidError() const {
    return connectionError(
        NSXPCConnectionInvalid,
        "The connection to the service \"" + name_ + "\" is invalid; the request was not sent.",
        whyInvalid_);
}

void NSXPCConnection::Core::resume() {
    if (isForeign())
        return;
    std::function<void()> reading;
    std::shared_ptr<StreamSocket> stream;
    {
        const std::lock_guard lock(mutex_);
        if (state_ != State::configuring)
            return;
        state_ = State::idle;
        stream = socket_;
        if (stream)
            reading = useStream(stream);
    }
    if (reading)
        startReading(std::move(reading), *stream);
    sendDeferred();
}

bool NSXPCConnection::Core::isInUse() const {
    const std::lock_guard lock(mutex_);
    return state_ != State::configuring;
}

std::function<void()> NSXPCConnection::Core::useStream(std::shared_ptr<StreamSocket> socket) {
    socket_ = std::move(socket);
    outbox_ = std::make_shared<Outbox>(socket_);
    state_ = State::streaming;
    return [self = shared_from_this(), stream = socket_, outbox = outbox_] {
        self->read(stream, outbox);
    };
}

void NSXPCConnection::Core::sendRequest(std::size_t message, NSData archive,
                                        std::unique_ptr<NSXPCReplyReceiver> receiver) {
    NSErrorRef refused;
    if (isForeign()) {
        refused =
            connectionError(NSXPCConnectionInvalid,
                            "A connection cannot be used in a child process after fork(); the "
                            "request was not sent.");
        receiver->fail(std::move(refused));
        return;
    }
    std::shared_ptr<Outbox> outbox;
    std::uint64_t id = 0;
    {
        const std::lock_guard lock(mutex_);
        if (state_ == State::invalid || invalidated_) {
            refused = invalidError();
        } else if (mustWait() && deferred_.size() >= limits::requestsDeferred) {
            refused = connectionError(NSXPCConnectionInvalid,
                                      "Too many requests are waiting; this one was not sent.");
        } else if (mustWait()) {
            deferred_.push_back({message, std::move(archive), std::move(receiver)});
            return;
        } else if (state_ == State::idle) {
            deferred_.push_back({message, std::move(archive), std::move(receiver)});
            state_ = State::connecting;
        } else if (pending_.size() >= limits::requestsInFlight) {
            refused = connectionError(NSXPCConnectionInvalid,
                                      "Too many requests are in flight; this one was not sent.");
        } else {
            outbox = outbox_;
            id = pending_.add({message, std::move(receiver)});
        }
    }
    if (refused) {
        receiver->fail(std::move(refused));  // NOLINT(bugprone-use-after-move): moved only if kept
    } else if (outbox) {
        outbox->send(FrameKind::request, id, remoteInterface->protocol().messages[message].selector,
                     std::move(archive));  // NOLINT(bugprone-use-after-move): likewise
    } else {
        connect();
    }
}

void NSXPCConnection::Core::connect() {
    NSErrorRef reason;
    std::shared_ptr<StreamSocket> stream;
    try {
        stream = endpoint_->connect(&reason);
    } catch (const std::exception& failure) {
        reason = connectionError(NSXPCConnectionInvalid, failure.what());
    }
    std::deque<Deferred> waiting;
    std::function<void()> reading;
    {
        const std::lock_guard lock(mutex_);
        if (stream) {
            reading = useStream(stream);
        } else {
            if (!invalidated_.exchange(true))
                whyInvalid_ = std::move(reason);
            state_ = State::invalid;
            waiting.swap(deferred_);
        }
    }
    if (!stream) {
        startReportingInvalid(std::move(waiting));
        return;
    }
    // The reader waits already when the reply comes: it is woken by that alone.
    startReading(std::move(reading), *stream);
    sendDeferred();
}

void NSXPCConnection::Core::sendDeferred() {
    for (;;) {
        Deferred request;
        std::shared_ptr<Outbox> outbox;
        std::uint64_t id = 0;
        {
            const std::lock_guard lock(mutex_);
            if (deferred_.empty() || invalidated_)
                return;
            if (state_ == State::streaming) {
                request = std::move(deferred_.front());
                deferred_.pop_front();
                outbox = outbox_;
                id = pending_.add({request.message, std::move(request.receiver)});
            } else if (state_ == State::idle) {
                state_ = State::connecting;
            } else {
                return;  // whoever leaves this state comes here
            }
        }
        if (!outbox) {
            connect();
            return;
        }
        outbox->send(FrameKind::request, id,
                     remoteInterface->protocol().messages[request.message].selector,
                     std::move(request.archive));
    }
}

void NSXPCConnection::Core::invalidate() {
    if (isForeign())
        return;
    std::deque<Deferred> deferred;
    {
        const std::lock_guard lock(mutex_);
        if (invalidated_.exchange(true))
            return;
        if (state_ == State::streaming) {
            socket_->shutdown();  // its reader reports the end
            return;
        }
        if (state_ == State::connecting || state_ == State::reportingEnd)
            return;  // who does that sees it
        state_ = State::invalid;
        if (socket_)
            socket_->shutdown();
        deferred.swap(deferred_);
    }
    startReportingInvalid(std::move(deferred));
}

void NSXPCConnection::Core::handleReply(const Message& message) {
    PendingRequests::Request request;
    {
        const std::lock_guard lock(mutex_);
        auto found = pending_.take(message.id);
        if (!found)
            return;
        request = std::move(*found);
        endsWithoutAnswer_ = 0;
    }
    NSErrorRef refused;
    if (message.kind == FrameKind::refusal) {
        refused = connectionError(NSXPCConnectionReplyInvalid,
                                  "The service refused the request: " +
                                      std::string(message.body.begin(), message.body.end()));
    } else {
        try {
            NSKeyedUnarchiver coder(message.body, requests.decoding);
            request.receiver->decode(coder, remoteInterface->replyClasses(request.message));
        } catch (const NSXPCArgumentFailure& failure) {
            refused = connectionError(NSXPCConnectionReplyInvalid,
                                      std::string("The reply cannot be used. ") + failure.what(),
                                      failure.reason());
        } catch (const std::exception& failure) {
            refused = connectionError(NSXPCConnectionReplyInvalid,
                                      std::string("The reply cannot be used. ") + failure.what());
        }
    }
    if (refused) {
        request.receiver->fail(std::move(refused));
    } else {
        request.receiver->deliver();
    }
}

void NSXPCConnection::Core::streamEnded() {
    std::vector<PendingRequests::Request> pending;
    Handler interruption;
    bool staysValid = false;
    {
        const std::lock_guard lock(mutex_);
        state_ = State::reportingEnd;
        socket_.reset();
        outbox_.reset();
        pending = pending_.takeAll();
        staysValid = endpoint_ && !invalidated_;
        if (staysValid && ++endsWithoutAnswer_ >= limits::crashesWithoutAnswer) {
            staysValid = false;
            whyInvalid_ = connectionError(NSXPCConnectionInterrupted,
                                          "The service \"" + name_ + "\" keeps crashing.");
        }
        interruption = interruptionHandler_;
    }
    if (!pending.empty()) {
        const auto interrupted = connectionError(
            NSXPCConnectionInterrupted,
            "The service \"" + name_ +
                "\" went away before it answered; whether it has carried out the request is "
                "unknown.");
        for (auto& request : pending)
            request.receiver->fail(interrupted);
    }
    if (staysValid && interruption && !invalidated_)
        interruption();
    std::deque<Deferred> deferred;
    {
        const std::lock_guard lock(mutex_);
        staysValid = staysValid && !invalidated_;
        if (!staysValid) {
            invalidated_ = true;
            deferred.swap(deferred_);
        }
        state_ = staysValid ? State::idle : State::invalid;
    }
    if (!staysValid) {
        reportInvalid(std::move(deferred));
        return;
    }
    sendDeferred();
}

void NSXPCConnection::Core::startReportingInvalid(std::deque<Deferred> deferred) {
    const auto waiting = std::make_shared<std::deque<Deferred>>(std::move(deferred));
    const auto report = [self = shared_from_this(), waiting] {
        self->reportInvalid(std::move(*waiting));
    };
    try {
        runOnWorker(report);
    } catch (const std::exception&) {
        report();
    }
}

void NSXPCConnection::Core::reportInvalid(std::deque<Deferred> deferred) {
    if (!deferred.empty()) {
        const auto error = [&] {
            const std::lock_guard lock(mutex_);
            return invalidError();
        }();
        for (auto& request : deferred)
            request.receiver->fail(error);
    }
    {
        Handler handler;
        Handler interruption;
        const auto object = requests.object();  // often holds the connection
        requests.setObject(nullptr);
        {
            const std::lock_guard lock(mutex_);
            handler.swap(invalidationHandler_);
            interruption.swap(interruptionHandler_);
        }
        if (handler)
            handler();
        // All three go here, outside the lock and before a listener may end the process.
    }
    if (const auto end = std::exchange(onEnd, {}))
        end();
}

}  // namespace morvane
