// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/dispatch/Workers.h>
#include <MorvaneOperation/platform/xpc/ServedStream.h>

#include <atomic>
#include <exception>
#include <utility>

namespace morvane {
namespace {

/// How many threads wait a moment for more from a client, so that none has to be woken for it.
std::atomic<int> lingering = 0;

std::optional<std::size_t> receiveSoon(StreamSocket& socket, std::span<std::uint8_t> into) {
    const bool mayLinger = lingering.fetch_add(1) < limits::threadsThatLinger;
    const auto count =
        socket.receiveWithin(into, mayLinger ? limits::lingerTime : std::chrono::milliseconds(0));
    --lingering;
    return count;
}

}  // namespace

/// The turn of the thread that carries out a request.
class ServedStream::Turn final : public RequestTurn {
  public:
    Turn(ServedStream& stream, std::uint64_t number) : stream_(stream), number_(number) {}

    void isAsked() override { mayBePassed(true); }
    void hasBegun() override { mayBePassed(false); }
    /// Called when the request is finished. Returns whether this thread still has the turn.
    bool finish() {
        const std::lock_guard lock(stream_.mutex_);
        stream_.decide(number_);
        if (stream_.turn_ != number_)
            return false;
        stream_.since_.reset();
        return true;
    }

  private:
    void mayBePassed(bool isAsking) {
        const std::lock_guard lock(stream_.mutex_);
        if (stream_.turn_ != number_) {
            if (!isAsking)
                stream_.decideLater(number_);
            return;
        }
        if (!isAsking)
            stream_.parser_.release();  // The message is decoded by now.
        stream_.since_ = Clock::now();
        stream_.isAsking_ = isAsking;
        stream_.watchTurn(*stream_.since_ + limits::patience);
    }
    ServedStream& stream_;
    const std::uint64_t number_;
};

ServedStream::ServedStream(std::shared_ptr<StreamSocket> socket, std::shared_ptr<Outbox> outbox,
                           const ReceivedRequests& requests, std::shared_ptr<ClientAccount> account,
                           FrameParser::Limits limits, Connection connection)
    : socket_(std::move(socket)),
      outbox_(std::move(outbox)),
      requests_(requests),
      account_(std::move(account)),
      connection_(std::move(connection)),
      parser_(std::move(limits), this) {}

void ServedStream::readable() {
    if (account_->places.take(1)) {
        serve();
        return;
    }
    try {
        tryAgainLater();
    } catch (const std::exception&) {
        socket_->shutdown();
        end();
    }
}

void ServedStream::goOn() noexcept {
    if (account_->places.take(1)) {
        try {
            runOnWorker([self = shared_from_this()] { self->serve(); });
            return;
        } catch (const std::exception&) {
            account_->places.giveBack(1);
        }
    }
    try {
        tryAgainLater();
    } catch (const std::exception&) {
        endElsewhere();
    }
}

void ServedStream::tryAgainLater() {
    runAt(Clock::now() + limits::patience, [self = shared_from_this()] {
        // The end of a client that has disconnected is reported without a thread of its own.
        if (self->socket_->isOver())
            self->endElsewhere();
        else
            self->goOn();
    });
}

void ServedStream::endElsewhere() noexcept {
    socket_->shutdown();
    if (!endsElsewhere_.exchange(true))
        account_->ends->add(shared_from_this());
}

void ServedStream::serve() {
    std::uint64_t turn = 0;
    std::optional<Message> message;
    {
        const std::lock_guard lock(mutex_);
        turn = ++turn_;
        frameEnd_.reset();
        idleSince_.reset();
        since_.reset();
        message = std::exchange(parked_, std::nullopt);
    }
    // This is the request that the previous turn has left.
    outbox_->release();
    auto received = Received::bytes;
    bool heldBack = false;
    try {
        while (received == Received::bytes && !connection_.isInvalid()) {
            // A client that takes no replies cannot request more.
            if (!message && outbox_->waitsForPeer([this] {
                    return [self = shared_from_this()] { self->readable(); };
                })) {
                account_->places.giveBack(1);
                return;
            }
            if (!message)
                message = parser_.next();
            if (!message) {
                received = parser_.isBroken() ? Received::end : receive();
                continue;
            }
            if (parser_.hasMessageWaiting()) {
                outbox_->holdBack();
                heldBack = true;
            } else if (std::exchange(heldBack, false)) {
                outbox_->release();
            }
            const auto next = std::exchange(message, std::nullopt);
            if (next->kind != FrameKind::request) {
                connection_.handleReply(*next);
            } else if (!carryOut(*next, turn)) {
                account_->places.giveBack(1);
                return;
            }
        }
    } catch (const std::exception&) {
        received = Received::end;  // There is no memory for what the peer sends.
    }
    if (received == Received::nothing) {
        account_->places.giveBack(1);
        leave();
    } else {
        end();
        account_->places.giveBack(1);
    }
}

bool ServedStream::carryOut(const Message& message, std::uint64_t turn) {
    {
        const std::lock_guard lock(mutex_);
        if (undecided_ != 0) {
            parked_ = message;
            return false;
        }
    }
    Turn own(*this, turn);
    requests_.handle(message, outbox_, &own);
    return own.finish();
}

ServedStream::Received ServedStream::receive() {
    const auto deadline = parser_.deadline();
    // A client that sends a few bytes at a time always has a little more.
    if (deadline && Clock::now() >= *deadline)
        return Received::end;
    const auto count = receiveSoon(*socket_, parser_.room());
    if (!count)
        return Received::nothing;
    parser_.add(*count);
    return *count == 0 ? Received::end : Received::bytes;
}

void ServedStream::leave() {
    parser_.releaseBuffer();
    {
        const auto deadline = parser_.deadline();
        const std::lock_guard lock(mutex_);
        if (deadline)
            watchFrame(*deadline);
        else
            idleSince_ = Clock::now();
    }
    try {
        socket_->whenReadable([self = shared_from_this()] { self->readable(); });
    } catch (const std::exception&) {
        end();
    }
}

void ServedStream::watchFrame(Clock::time_point deadline) {
    try {
        frameEnd_.emplace(deadline, [weak = weak_from_this(), turn = turn_] {
            const auto self = weak.lock();
            if (!self)
                return;
            const std::lock_guard lock(self->mutex_);
            // The rest may have arrived while this was about to run.
            if (self->turn_ == turn)
                self->socket_->shutdown();  // The thread that this wakes reports the end.
        });
    } catch (const std::exception&) {
        socket_->shutdown();  // Nothing would notice that its time is over.
    }
}

std::optional<ServedStream::Clock::time_point> ServedStream::idleSince() {
    const std::lock_guard lock(mutex_);
    return outbox_->owesAnswers() ? std::nullopt : idleSince_;
}

void ServedStream::end() noexcept {
    {
        const std::lock_guard lock(mutex_);
        ++turn_;
        if (std::exchange(ended_, true))
            return;
    }
    connection_.ended();
}

void ServedStream::decide(std::uint64_t turn) {
    if (undecided_ != turn)
        return;
    undecided_ = 0;
    if (parked_)
        goOn();
}

void ServedStream::decideLater(std::uint64_t turn) {
    runAt(Clock::now() + limits::patience, [weak = weak_from_this(), turn] {
        if (const auto self = weak.lock()) {
            const std::lock_guard lock(self->mutex_);
            self->decide(turn);
        }
    });
}

void ServedStream::watchTurn(Clock::time_point time) {
    if (look_)
        return;
    try {
        look_.emplace(time, [weak = weak_from_this()] {
            if (const auto self = weak.lock())
                self->lookAtTurn();
        });
    } catch (const std::exception&) {
        // Without a timer, the requests of a client wait for each other.
    }
}

void ServedStream::lookAtTurn() {
    const std::lock_guard lock(mutex_);
    look_.reset();
    if (!since_)
        return;
    if (const auto due = *since_ + limits::patience; Clock::now() < due) {
        watchTurn(due);
        return;
    }
    if (isAsking_)
        undecided_ = turn_;
    since_.reset();
    ++turn_;
    goOn();
}

bool ServedStream::admits(std::uint64_t id, std::string_view selector) {
    return requests_.admits(id, selector, outbox_);
}

bool ServedStream::expects(std::uint64_t id) {
    return connection_.isReplyExpected(id);
}

void ServedStream::refuses(std::uint64_t id, const std::string& reason) {
    outbox_->refuse(id, reason);
}

}  // namespace morvane
