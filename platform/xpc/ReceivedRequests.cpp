#include <MorvaneOperation/platform/archive/NSKeyedUnarchiver.h>
#include <MorvaneOperation/platform/xpc/ReceivedRequests.h>

#include <atomic>
#include <optional>
#include <string>
#include <utility>

namespace morvane {

/// The way back of one request, while its stream lasts.
class ReceivedRequests::Port final : public NSXPCReplyPort {
  public:
    /// Keeps the promise of an answer that was made to the outbox.
    Port(std::shared_ptr<Outbox> outbox, std::uint64_t id) : outbox_(std::move(outbox)), id_(id) {}

    ~Port() override {
        if (!claimed_.load(std::memory_order_relaxed) && claim())
            sendRefusal("The service dropped the request without a reply.");
    }

    bool claim() override {
        const bool isFirst = !claimed_.exchange(true);
        // Before the peer can know: it may send its next request at once.
        if (isFirst)
            outbox_->keepPromise();
        return isFirst;
    }
    void sendReply(NSData archive) override {
        outbox_->send(FrameKind::reply, id_, {}, std::move(archive));
    }
    void sendRefusal(std::string_view reason) override { outbox_->refuse(id_, reason); }
    void refuse(std::string_view reason) {
        if (claim())
            sendRefusal(reason);
    }
    /// There will be another port for the request.
    void withdraw() { claim(); }
    /// Tells `turn` once the arguments are decoded.
    void tell(RequestTurn* turn) { turn_ = turn; }
    void willCallObject() override {
        if (auto* const turn = std::exchange(turn_, nullptr))
            turn->hasBegun();
    }

  private:
    const std::shared_ptr<Outbox> outbox_;
    const std::uint64_t id_;
    std::atomic<bool> claimed_ = false;
    RequestTurn* turn_ = nullptr;
};

namespace {

constexpr const char* unknownMessage = "The peer has no message of that name.";

/// The process stands, whatever a request makes its handler throw.
template <class Port, class Work>
void attempt(Port& port, Work&& work) {
    try {
        work();
    } catch (const std::exception& failure) {
        port.refuse(failure.what());
    } catch (...) {
        port.refuse("The handler failed.");
    }
}

}  // namespace

std::shared_ptr<ReceivedRequests::Port> ReceivedRequests::accept(
    std::uint64_t id, const std::shared_ptr<Outbox>& outbox) {
    if (outbox->promiseAnswer())
        return std::make_shared<Port>(outbox, id);
    outbox->refuse(id, "Too many requests wait for their replies; this one was not carried out.");
    return nullptr;
}

void ReceivedRequests::setObject(std::shared_ptr<void> object) {
    const std::lock_guard lock(mutex_);
    std::swap(object_, object);
}

std::shared_ptr<void> ReceivedRequests::object() const {
    const std::lock_guard lock(mutex_);
    return object_;
}

std::optional<std::size_t> ReceivedRequests::indexOf(std::string_view selector) const {
    return interface ? interface->protocol().indexOfSelector(selector) : std::nullopt;
}

bool ReceivedRequests::asks(const NSXPCMessageDescription& message,
                            const std::shared_ptr<Port>& port) const {
    const auto error = admission(message.selector);
    if (error)
        message.endWithError(port, error);
    return !error;
}

bool ReceivedRequests::admits(std::uint64_t id, std::string_view selector,
                              const std::shared_ptr<Outbox>& outbox) const {
    const auto port = accept(id, outbox);
    if (!port)
        return false;
    bool isAdmitted = false;
    attempt(*port, [&] {
        const auto index = indexOf(selector);
        if (!index)
            port->refuse(unknownMessage);
        else
            isAdmitted = !admission || asks(interface->protocol().messages[*index], port);
    });
    if (isAdmitted)
        port->withdraw();
    return isAdmitted;
}

void ReceivedRequests::handle(const Message& message, const std::shared_ptr<Outbox>& outbox,
                              RequestTurn* turn) const {
    const auto port = accept(message.id, outbox);
    if (!port)
        return;
    attempt(*port, [&] {
        const auto target = object();
        const auto index = indexOf(message.selector);
        if (!target || !index) {
            port->refuse(unknownMessage);
            return;
        }
        const auto& description = interface->protocol().messages[*index];
        NSDataView body = message.body;
        NSData own;
        if (admission && !message.wasAdmitted) {
            own.assign(body.begin(), body.end());
            body = own;
            if (turn)
                turn->isAsked();
            if (!asks(description, port))
                return;
        }
        port->tell(turn);
        NSKeyedUnarchiver coder(body, decoding);
        description.dispatch(target.get(), coder, interface->argumentClasses(*index), port);
    });
    port->tell(nullptr);
}

}  // namespace morvane
