// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/xpc/ConnectionCore.h>
#include <MorvaneOperation/platform/xpc/ConnectionErrors.h>
#include <MorvaneOperation/platform/xpc/Limits.h>

#include <utility>

/// How a connection is configured and how it sends.
namespace morvane {
NSXPCConnection::Core::Core(std::string name, std::unique_ptr<ServiceEndpoint> endpoint)
    : name_(std::move(name)), endpoint_(std::move(endpoint)), endErrors_(endErrors(name_)) {
    processGeneration();  // From now on a fork is noticed.
    if (!isForeign())
        keepReserveWorker();
}

NSXPCConnection::Core::Core(std::string name, std::shared_ptr<StreamSocket> socket)
    : name_(std::move(name)), endErrors_(endErrors(name_)), socket_(std::move(socket)) {
    processGeneration();
    if (!isForeign())
        keepReserveWorker();
}

NSXPCConnection::Core::~Core() = default;

void NSXPCConnection::Core::setInterruptionHandler(Handler handler) {
    auto shared = handler ? std::make_shared<const Handler>(std::move(handler)) : nullptr;
    const std::lock_guard lock(mutex_);
    interruptionHandler_.swap(shared);
}

void NSXPCConnection::Core::setInvalidationHandler(Handler handler) {
    const std::lock_guard lock(mutex_);
    std::swap(invalidationHandler_, handler);
}

bool NSXPCConnection::Core::hasInvalidationHandler() const {
    const std::lock_guard lock(mutex_);
    return static_cast<bool>(invalidationHandler_);
}

std::optional<PeerCredentials> NSXPCConnection::Core::peer() const {
    const std::lock_guard lock(mutex_);
    return socket_ ? socket_->peer() : std::nullopt;
}

std::uint64_t NSXPCConnection::Core::peerStartTime() const {
    const std::lock_guard lock(mutex_);
    return socket_ ? socket_->peerStartTime() : 0;
}

bool NSXPCConnection::Core::isInUse() const {
    const std::lock_guard lock(mutex_);
    return state_ != State::configuring;
}

NSErrorRef NSXPCConnection::Core::whyRefused() const noexcept {
    if (whyInvalid_) {
        try {
            return invalidError(name_, whyInvalid_);
        } catch (const std::exception&) {
            // The reason is left out.
        }
    }
    return endErrors_->invalid;
}

std::string_view NSXPCConnection::Core::selectorOf(const PendingRequests::Request& request) const {
    return remoteInterface->protocol().messages[request.message].selector;
}

void NSXPCConnection::Core::resume(const std::shared_ptr<NSXPCConnection>& owner) {
    if (isForeign())
        return;
    std::shared_ptr<StreamSocket> stream;
    std::shared_ptr<Outbox> outbox;
    std::function<void()> reading;
    if (!endpoint_) {
        const std::lock_guard lock(mutex_);
        stream = socket_;
    }
    if (stream) {
        outbox = std::make_shared<Outbox>(stream, Outbox::Limits{.shared = requests.memory});
        reading = reader(stream, outbox);
    }
    {
        const std::lock_guard lock(mutex_);
        if (state_ != State::configuring)
            return;
        for (auto& waiting : waiting_)
            waiting.request.owner = owner;
        outbox_ = outbox;
        state_ = stream ? State::catchingUp : waiting_.empty() ? State::idle : State::connecting;
        if (state_ == State::idle)
            return;
    }
    if (stream) {
        startReading(std::move(reading), *stream);
        catchUp(outbox);
    } else {
        connect();
    }
}

NSErrorRef NSXPCConnection::Core::refusal() const {
    if (state_ == State::invalid || invalidated_)
        return whyRefused();
    const bool flows = state_ == State::streaming || state_ == State::catchingUp;
    const auto most = flows ? limits::requestsInFlight : limits::requestsDeferred;
    if (waiting_.size() + inFlight_.size() < most)
        return nullptr;
    return connectionError(NSXPCConnectionInvalid,
                           flows ? phrase("Too many requests are in flight; this one was not sent.")
                                 : phrase("Too many requests are waiting; this one was not sent."));
}

void NSXPCConnection::Core::sendRequest(std::size_t message, NSData archive,
                                        std::unique_ptr<NSXPCReplyReceiver> receiver,
                                        std::shared_ptr<NSXPCConnection> owner) {
    if (isForeign()) {
        receiver->fail(connectionError(
            NSXPCConnectionInvalid,
            phrase("A connection cannot be used in a child process after fork(); the "
                   "request was not sent.")));
        return;
    }
    PendingRequests::Request request{message, std::move(receiver), std::move(owner)};
    std::shared_ptr<Outbox> outbox;
    std::uint64_t id = 0;
    bool isRefused = false;
    {
        const std::lock_guard lock(mutex_);
        if (auto error = refusal()) {
            refused_.push_back({std::move(request), {}, std::move(error)});
            isRefused = true;
        } else if (state_ == State::streaming) {
            id = inFlight_.add(std::move(request));
            outbox = outbox_;
        } else {
            auto& waiting = waiting_.emplace_back();
            waiting.request = std::move(request);
            waiting.archive = std::move(archive);
            if (state_ == State::configuring)
                waiting.request.owner.reset();  // The connection may never be resumed.
            if (state_ != State::idle)
                return;
            state_ = State::connecting;
        }
    }
    if (outbox) {
        outbox->send(
            FrameKind::request, id, remoteInterface->protocol().messages[message].selector,
            std::move(archive));  // NOLINT(bugprone-use-after-move): moved only if it waits
    } else if (isRefused) {
        startReporting();
    } else {
        connect();
    }
}

std::function<void()> NSXPCConnection::Core::reader(std::shared_ptr<StreamSocket> stream,
                                                    std::shared_ptr<Outbox> outbox) {
    if (!endpoint_)
        return serving(stream, outbox);
    return [self = shared_from_this(), stream = std::move(stream), outbox = std::move(outbox)] {
        self->read(stream, outbox);
    };
}

void NSXPCConnection::Core::connect() {
    std::shared_ptr<StreamSocket> stream;
    std::shared_ptr<Outbox> outbox;
    std::function<void()> reading;
    NSErrorRef reason;
    NSErrorRef notNow = shortageError();
    try {
        auto answer = endpoint_->connect();
        if (answer) {
            stream = *std::move(answer);
            outbox = std::make_shared<Outbox>(stream);
            reading = reader(stream, outbox);
        } else {
            reason = answer.error();
            if (isShortage(reason))
                notNow = connectionError(
                    NSXPCConnectionInvalid,
                    phrase("The service \"%1\" cannot be had now; the request was not sent.",
                           name_),
                    reason);
        }
    } catch (const std::exception&) {
        reason = shortageError();
    }
    bool connected = false;
    {
        const std::lock_guard lock(mutex_);
        connected = reading && !invalidated_;
        if (connected) {
            socket_ = stream;
            outbox_ = outbox;
            state_ = State::catchingUp;
        } else {
            cannotConnect(std::move(stream), std::move(reason), notNow);
        }
    }
    if (!connected) {
        startReporting();
        return;
    }
    // The reader already waits when the reply arrives, so that only the reply wakes it.
    startReading(std::move(reading), *stream);  // NOLINT(bugprone-use-after-move): not moved here
    catchUp(outbox);
}

void NSXPCConnection::Core::cannotConnect(std::shared_ptr<StreamSocket> stream, NSErrorRef reason,
                                          const NSErrorRef& notNow) {
    if (!invalidated_ && !stream && !isShortage(reason)) {
        whyInvalid_ = std::move(reason);
        invalidated_ = true;
    }
    if (!invalidated_)
        refuseWaiting(notNow);
    endsUnread_ = invalidated_ || stream;
    state_ = endsUnread_ ? State::reportingEnd : State::idle;
    socket_ = std::move(stream);
}

void NSXPCConnection::Core::catchUp(const std::shared_ptr<Outbox>& outbox) {
    for (;;) {
        WaitingRequests next;
        std::uint64_t id = 0;
        {
            const std::lock_guard lock(mutex_);
            // The thread that ends the stream or the connection also ends the requests that still
            // wait.
            if (state_ != State::catchingUp || outbox_ != outbox || invalidated_)
                return;
            if (waiting_.empty()) {
                state_ = State::streaming;
                return;
            }
            next.splice(next.end(), waiting_, waiting_.begin());
            try {
                id = inFlight_.add(std::move(next.front().request));
            } catch (const std::bad_alloc&) {
                next.front().error = shortageError();
                refused_.splice(refused_.end(), next);
            }
        }
        if (next.empty()) {
            startReporting();
        } else {
            auto& sent = next.front();
            outbox->send(FrameKind::request, id, selectorOf(sent.request), std::move(sent.archive));
        }
    }
}

void NSXPCConnection::Core::letGo() {
    if (isForeign())
        return;
    Handler invalidation;
    std::shared_ptr<const Handler> interruption;
    {
        const std::lock_guard lock(mutex_);
        if (invalidated_)
            return;  // The invalidation is reported, even if nobody holds the connection.
        invalidation.swap(invalidationHandler_);
        interruption.swap(interruptionHandler_);
    }
    invalidate();
}

void NSXPCConnection::Core::invalidate() {
    if (isForeign())
        return;
    {
        const std::lock_guard lock(mutex_);
        if (invalidated_.exchange(true))
            return;
        switch (state_) {
            case State::catchingUp:
            case State::streaming:
                socket_->shutdown();  // The reader of the stream reports the end.
                return;
            case State::connecting:
            case State::reportingEnd:
            case State::invalid:
                return;  // The thread that is doing this notices it.
            case State::configuring:
            case State::idle:
                state_ = State::reportingEnd;
                endsUnread_ = true;
        }
    }
    startReporting();
}

}  // namespace morvane
