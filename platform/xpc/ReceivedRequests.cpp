#include <MorvaneOperation/platform/archive/NSKeyedUnarchiver.h>
#include <MorvaneOperation/platform/xpc/ReceivedRequests.h>

#include <atomic>
#include <optional>
#include <string>
#include <utility>

namespace morvane {
namespace {

/// The way back of one request, while its stream lasts.
class ReplyPort final : public NSXPCReplyPort {
  public:
    /// Keeps the promise of an answer that was made to the outbox.
    ReplyPort(std::shared_ptr<Outbox> outbox, std::uint64_t id)
        : outbox_(std::move(outbox)), id_(id) {}

    ~ReplyPort() override {
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

  private:
    const std::shared_ptr<Outbox> outbox_;
    const std::uint64_t id_;
    std::atomic<bool> claimed_ = false;
};

}  // namespace

void ReceivedRequests::setObject(std::shared_ptr<void> object) {
    const std::lock_guard lock(mutex_);
    std::swap(object_, object);
}

std::shared_ptr<void> ReceivedRequests::object() const {
    const std::lock_guard lock(mutex_);
    return object_;
}

void ReceivedRequests::handle(const Message& message, const std::shared_ptr<Outbox>& outbox) const {
    if (!outbox->promiseAnswer()) {
        outbox->refuse(message.id,
                       "Too many requests wait for their replies; this one was not carried out.");
        return;
    }
    const auto port = std::make_shared<ReplyPort>(outbox, message.id);
    const auto refuse = [&](const std::string& reason) {
        if (port->claim())
            port->sendRefusal(reason);
    };
    const auto target = object();
    const auto index =
        interface ? interface->protocol().indexOfSelector(message.selector) : std::nullopt;
    if (!target || !index) {
        refuse("The peer has no message of that name.");
        return;
    }
    const auto& description = interface->protocol().messages[*index];
    try {
        if (const auto error = admission ? admission(description.selector) : nullptr) {
            description.endWithError(port, error);
            return;
        }
        NSKeyedUnarchiver coder(message.body, decoding);
        description.dispatch(target.get(), coder, interface->argumentClasses(*index), port);
    } catch (const std::exception& failure) {
        // The process stands, whatever a request makes its handler throw.
        refuse(failure.what());
    } catch (...) {
        refuse("The handler failed.");
    }
}

}  // namespace morvane
