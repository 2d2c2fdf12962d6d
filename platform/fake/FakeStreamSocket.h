// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/dispatch/Workers.h>
#include <MorvaneOperation/platform/xpc/StreamSocket.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

namespace morvane {

/// One end of a stream in memory, which a test can make tear: it may pass on only a few bytes at a
/// time, and end after any number of bytes.
class FakeStreamSocket : public StreamSocket {
  public:
    using Data = std::vector<std::uint8_t>;

    /// Two ends of one stream.
    static std::pair<std::shared_ptr<FakeStreamSocket>, std::shared_ptr<FakeStreamSocket>> pair() {
        auto one = std::make_shared<Pipe>();
        auto other = std::make_shared<Pipe>();
        return {std::make_shared<FakeStreamSocket>(one, other),
                std::make_shared<FakeStreamSocket>(other, one)};
    }

    struct Pipe {
        std::mutex mutex;
        std::condition_variable changed;
        Data bytes;
        bool ended = false;
        /// What may still pass; then the stream ends.
        std::size_t budget = SIZE_MAX;
    };

    FakeStreamSocket(std::shared_ptr<Pipe> in, std::shared_ptr<Pipe> out)
        : in_(std::move(in)), out_(std::move(out)) {}

    /// After this many more bytes of what this end sends, the stream ends both ways.
    void endAfterSending(std::size_t bytes) {
        const std::lock_guard lock(out_->mutex);
        out_->budget = bytes;
    }
    /// How much one receive() and one send() pass on at most; a send() of none says "later".
    std::size_t receiveAtMost = SIZE_MAX;
    std::size_t sendAtMost = SIZE_MAX;

    std::size_t receive(std::span<std::uint8_t> into, const Deadline& deadline) override {
        std::unique_lock lock(in_->mutex);
        const auto ready = [&] { return !in_->bytes.empty() || in_->ended; };
        if (!deadline) {
            in_->changed.wait(lock, ready);
        } else if (!in_->changed.wait_until(lock, *deadline, ready)) {
            return 0;
        }
        return take(into);
    }
    std::optional<std::size_t> receiveWithin(std::span<std::uint8_t> into,
                                             std::chrono::milliseconds time) override {
        std::unique_lock lock(in_->mutex);
        if (!in_->changed.wait_for(lock, time, [&] { return !in_->bytes.empty() || in_->ended; }))
            return std::nullopt;
        return take(into);
    }
    void whenReadable(std::function<void()> reading) override {
        runOnWorker([in = in_, reading = std::move(reading)] {
            {
                std::unique_lock lock(in->mutex);
                in->changed.wait(lock, [&] { return !in->bytes.empty() || in->ended; });
            }
            reading();
        });
    }
    bool isOver() const override {
        const std::lock_guard lock(in_->mutex);
        return in_->ended;
    }

    /// Waits until the other end has received all that this one sent; false if it does not in time.
    bool waitUntilReceived(std::chrono::milliseconds atMost) {
        std::unique_lock lock(out_->mutex);
        return out_->changed.wait_for(lock, atMost, [&] { return out_->bytes.empty(); });
    }

    std::optional<std::size_t> send(std::span<const Bytes> pieces) override {
        bool end = false;
        std::size_t sent = 0;
        {
            const std::lock_guard lock(out_->mutex);
            if (out_->ended)
                return std::nullopt;
            std::size_t room = sendAtMost;
            for (const auto& piece : pieces) {
                const auto count = std::min({piece.size(), room, out_->budget});
                out_->bytes.insert(out_->bytes.end(), piece.begin(),
                                   piece.begin() + static_cast<std::ptrdiff_t>(count));
                room -= count;
                if (out_->budget != SIZE_MAX)
                    out_->budget -= count;
                sent += count;
            }
            end = out_->budget == 0;
            out_->changed.notify_all();
        }
        if (end)
            shutdown();
        return sent;
    }

    void shutdown() override {
        for (const auto& pipe : {in_, out_}) {
            const std::lock_guard lock(pipe->mutex);
            pipe->ended = true;
            pipe->changed.notify_all();
        }
    }

    std::optional<PeerCredentials> peer() const override { return credentials; }
    PeerCredentials credentials{1, 0, 0};
    std::int64_t accountableUser() const override {
        return accountable.value_or(credentials.userIdentifier);
    }
    std::optional<std::int64_t> accountable;

  private:
    /// Under the lock.
    std::size_t take(std::span<std::uint8_t> into) {
        const auto count = std::min({into.size(), in_->bytes.size(), receiveAtMost});
        std::copy_n(in_->bytes.begin(), count, into.begin());
        in_->bytes.erase(in_->bytes.begin(),
                         in_->bytes.begin() + static_cast<std::ptrdiff_t>(count));
        in_->changed.notify_all();
        return count;
    }

    const std::shared_ptr<Pipe> in_;
    const std::shared_ptr<Pipe> out_;
};

/// A listener that a test supplies with clients, from any thread.
class FakeStreamListener final : public StreamListener {
  public:
    struct Clients {
        std::mutex mutex;
        std::deque<std::shared_ptr<StreamSocket>> waiting;
        std::function<void(bool alone)> task;
        bool isWatched = false;
        /// What the task is told.
        bool alone = false;

        /// The client's end of a new stream of this user's.
        std::shared_ptr<FakeStreamSocket> connect(std::int64_t user,
                                                  std::optional<std::int64_t> accountable = {}) {
            auto [near, far] = FakeStreamSocket::pair();
            far->credentials.userIdentifier = user;
            far->accountable = accountable;
            const std::lock_guard lock(mutex);
            waiting.push_back(far);
            wake();
            return near;
        }
        /// Under the lock.
        void wake() {
            if (!isWatched || waiting.empty() || !task)
                return;
            isWatched = false;
            runOnWorker([task = task, alone = alone] { task(alone); });
        }
    };

    explicit FakeStreamListener(std::shared_ptr<Clients> clients) : clients_(std::move(clients)) {}

    void start(std::function<void(bool alone)> task) override {
        {
            const std::lock_guard lock(clients_->mutex);
            clients_->task = std::move(task);
        }
        waitForNext();
    }
    std::shared_ptr<StreamSocket> accept() override {
        const std::lock_guard lock(clients_->mutex);
        if (clients_->waiting.empty())
            return nullptr;
        const auto client = std::move(clients_->waiting.front());
        clients_->waiting.pop_front();
        return client;
    }
    void waitForNext() override {
        const std::lock_guard lock(clients_->mutex);
        clients_->isWatched = true;
        clients_->wake();
    }
    void stop() override {
        const std::lock_guard lock(clients_->mutex);
        clients_->task = nullptr;
    }

  private:
    const std::shared_ptr<Clients> clients_;
};

/// A service that a test supplies: `accept` gets the far end of each new stream.
class FakeServiceEndpoint final : public ServiceEndpoint {
  public:
    using Accept = std::function<bool(const std::shared_ptr<FakeStreamSocket>& farEnd)>;

    explicit FakeServiceEndpoint(Accept accept) : accept_(std::move(accept)) {}

    Result<std::shared_ptr<StreamSocket>> connect() override {
        auto [near, far] = FakeStreamSocket::pair();
        if (accept_(far))
            return near;
        return Failure{NSError::errorWithDomain(NSPOSIXErrorDomain, 2)};
    }

  private:
    const Accept accept_;
};

}  // namespace morvane
