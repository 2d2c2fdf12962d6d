// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/foundation/NSUncaughtException.h>
#include <MorvaneOperation/platform/xpc/ConnectionCore.h>
#include <MorvaneOperation/platform/xpc/ConnectionErrors.h>
#include <MorvaneOperation/platform/xpc/Limits.h>

#include <utility>

/// Ends requests that get no reply, and connections. Nothing here needs memory, or runs inside a
/// call that the host makes.
namespace morvane {
namespace {

/// Returns null if there is no memory for it.
NSErrorRef keepsCrashingError(const std::string& service) noexcept {
    try {
        return connectionError(NSXPCConnectionInterrupted,
                               phrase("The service \"%1\" keeps crashing.", service));
    } catch (const std::exception&) {
        return nullptr;
    }
}

}  // namespace

void NSXPCConnection::Core::refuseWaiting(const NSErrorRef& error) noexcept {
    for (auto& waiting : waiting_)
        waiting.error = error;
    refused_.splice(refused_.end(), waiting_);
}

void NSXPCConnection::Core::fail(PendingRequests::Request& request,
                                 const NSErrorRef& error) const noexcept {
    callOut("error handler", selectorOf(request), [&] { request.receiver->fail(error); });
}

void NSXPCConnection::Core::startReporting() noexcept {
    {
        const std::lock_guard lock(mutex_);
        if (std::exchange(reporting_, true))
            return;
    }
    runLasting(shared_from_this());
}

void NSXPCConnection::Core::run() noexcept {
    for (;;) {
        WaitingRequests refused;
        std::shared_ptr<StreamSocket> stream;
        bool ends = false;
        {
            const std::lock_guard lock(mutex_);
            refused.swap(refused_);
            ends = std::exchange(endsUnread_, false);
            if (ends)
                stream = socket_;
            if (refused.empty() && !ends) {
                reporting_ = false;
                return;
            }
        }
        {
            const std::lock_guard turn(turn_);
            for (auto& waiting : refused)
                fail(waiting.request, waiting.error);
        }
        if (ends)
            end(stream, false);
    }
}

void NSXPCConnection::Core::end(const std::shared_ptr<StreamSocket>& stream,
                                bool wasRead) noexcept {
    if (stream)
        stream->shutdown();
    reportEnd(wasRead);
    if (stream)
        stream->finish();
}

void NSXPCConnection::Core::reportEnd(bool wasRead) noexcept {
    bool connects = false;
    {
        const std::lock_guard turn(turn_);
        std::vector<PendingRequests::Entry> ended;
        std::shared_ptr<StreamSocket> stream;
        std::shared_ptr<Outbox> outbox;
        std::shared_ptr<const Handler> interruption;
        {
            const std::lock_guard lock(mutex_);
            state_ = State::reportingEnd;
            stream.swap(socket_);
            outbox.swap(outbox_);
            ended = inFlight_.takeAll();
            if (!endpoint_)
                invalidated_ = true;
            if (wasRead && !invalidated_ && ++endsWithoutAnswer_ >= limits::crashesWithoutAnswer) {
                invalidated_ = true;
                whyInvalid_ = keepsCrashingError(name_);
            }
            if (wasRead && !invalidated_)
                interruption = interruptionHandler_;
        }
        for (auto& [id, request] : ended) {
            if (id != 0)
                fail(request, endErrors_->interrupted);
        }
        if (interruption && !invalidated_)
            callOut("interruption handler", name_, *interruption);

        for (;;) {
            WaitingRequests refused;
            {
                const std::lock_guard lock(mutex_);
                if (!invalidated_) {
                    connects = !waiting_.empty();
                    state_ = connects ? State::connecting : State::idle;
                    break;
                }
                refuseWaiting(whyRefused());
                refused.swap(refused_);
                if (refused.empty())
                    state_ = State::invalid;
            }
            if (refused.empty()) {
                reportInvalidation();
                break;
            }
            for (auto& waiting : refused)
                fail(waiting.request, waiting.error);
        }
    }
    if (connects)
        connect();
}

void NSXPCConnection::Core::reportInvalidation() noexcept {
    {
        Handler handler;
        std::shared_ptr<const Handler> interruption;
        const auto object = requests.object();  // The exported object often holds the connection.
        requests.setObject(nullptr);
        {
            const std::lock_guard lock(mutex_);
            handler.swap(invalidationHandler_);
            interruption.swap(interruptionHandler_);
        }
        if (handler)
            callOut("invalidation handler", name_, handler);
        // All three are destroyed here, without the lock and before a listener may end the process.
    }
    if (const auto ended = std::exchange(onEnd, {}))
        ended();
}

}  // namespace morvane
