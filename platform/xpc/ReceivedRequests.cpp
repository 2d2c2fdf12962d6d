// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/archive/NSKeyedUnarchiver.h>
#include <MorvaneOperation/platform/foundation/Phrase.h>
#include <MorvaneOperation/platform/xpc/ReceivedRequests.h>

#include <atomic>
#include <new>
#include <optional>
#include <string>
#include <utility>

namespace morvane {

/// Sends the answer to one request, if its stream still exists.
class ReceivedRequests::Port final : public NSXPCReplyPort {
  public:
    /// Sends the answer for which the outbox has reserved a place.
    Port(std::shared_ptr<Outbox> outbox, std::uint64_t id, std::shared_ptr<SharedBudget> memory)
        : outbox_(std::move(outbox)), id_(id), memory_(std::move(memory)) {}

    ~Port() override {
        if (!claimed_.load(std::memory_order_relaxed) && claim())
            sendRefusal(translatable("The service dropped the request without a reply."));
        if (memory_)
            memory_->giveBack(counted_);
    }

    bool claim() override {
        const bool isFirst = !claimed_.exchange(true);
        // This comes before the peer gets the answer, as it may send its next request at once.
        if (isFirst)
            outbox_->keepPromise();
        return isFirst;
    }
    void sendReply(NSDataPieces archive) override {
        outbox_->send(FrameKind::reply, id_, {}, std::move(archive));
    }
    void sendRefusal(std::string_view reason) override { outbox_->refuse(id_, reason); }
    void refuse(std::string_view reason) {
        if (claim())
            sendRefusal(reason);
    }
    /// The request will get another port.
    void withdraw() { claim(); }
    /// Charges the most that the request may take. Returns false if that exceeds the limit.
    bool count(const NSDecodingBudget& most) {
        if (memory_ && !memory_->take(memoryOf(most)))
            return false;
        counted_ = memory_ ? memoryOf(most) : 0;
        return true;
    }
    /// Notes the decoder, whose unused budget is given back once the arguments are decoded, and the
    /// turn, which is then notified.
    void decodes(const NSKeyedUnarchiver* coder, RequestTurn* turn) {
        coder_ = coder;
        turn_ = turn;
    }
    void willCallObject() override {
        if (const auto* const coder = std::exchange(coder_, nullptr))
            giveBack(coder->budgetLeft());
        if (auto* const turn = std::exchange(turn_, nullptr))
            turn->hasBegun();
    }

  private:
    static std::size_t memoryOf(const NSDecodingBudget& budget) {
        return static_cast<std::size_t>(budget.bytes + budget.objects * limits::decodedObject);
    }
    void giveBack(const NSDecodingBudget& unused) {
        if (!memory_)
            return;
        memory_->giveBack(memoryOf(unused));
        counted_ -= memoryOf(unused);
    }

    const std::shared_ptr<Outbox> outbox_;
    const std::uint64_t id_;
    std::atomic<bool> claimed_ = false;
    const std::shared_ptr<SharedBudget> memory_;
    std::size_t counted_ = 0;
    const NSKeyedUnarchiver* coder_ = nullptr;
    RequestTurn* turn_ = nullptr;
};

namespace {

constexpr const char* noRoom =
    translatable("Too many large requests are being handled; ask again later.");
constexpr const char* unknownMessage = translatable("The peer has no message of that name.");

/// Whatever a request makes its handler throw, the process goes on.
template <class Port, class Work>
void attempt(Port& port, Work&& work) {
    try {
        work();
    } catch (const std::bad_alloc&) {
        port.refuse(translatable("There is no memory for the request now; ask again later."));
    } catch (const std::exception& failure) {
        port.refuse(failure.what());
    } catch (...) {
        port.refuse(translatable("The handler failed."));
    }
}

}  // namespace

std::shared_ptr<ReceivedRequests::Port> ReceivedRequests::accept(
    std::uint64_t id, const std::shared_ptr<Outbox>& outbox) const {
    if (outbox->promiseAnswer())
        return std::make_shared<Port>(outbox, id, memory);
    outbox->refuse(
        id,
        translatable("Too many requests wait for their replies; this one was not carried out."));
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
        const auto most = NSDecodingBudget::forArchiveOfSize(body.size(), decoding);
        if (!port->count(most)) {
            port->refuse(noRoom);
            return;
        }
        NSKeyedUnarchiver coder(body, decoding);
        port->decodes(&coder, turn);
        description.dispatch(target.get(), coder, interface->argumentClasses(*index), port);
    });
    port->decodes(nullptr, nullptr);
}

}  // namespace morvane
