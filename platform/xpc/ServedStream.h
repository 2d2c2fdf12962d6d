// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/dispatch/Clock.h>
#include <MorvaneOperation/platform/dispatch/Workers.h>
#include <MorvaneOperation/platform/xpc/ClientAccount.h>
#include <MorvaneOperation/platform/xpc/ReceivedRequests.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

namespace morvane {

/// A service's end of a client's stream. No thread waits for the client: the stream itself wakes
/// one when bytes have arrived, and that thread reads, decodes and carries out one request after
/// the other. It has "the turn". If a request takes longer than limits::patience, another thread
/// takes the turn over and goes on with the requests behind it.
class ServedStream final : public LastingTask,
                           public std::enable_shared_from_this<ServedStream>,
                           private FrameParser::Gate {
  public:
    /// What the stream reports to its connection, apart from requests.
    struct Connection {
        std::function<bool()> isInvalid;
        std::function<void(const Message&)> handleReply;
        /// Whether a request of that number waits for its reply.
        std::function<bool(std::uint64_t id)> isReplyExpected;
        /// Called once, when the stream has ended.
        std::function<void()> ended;
    };

    ServedStream(std::shared_ptr<StreamSocket> socket, std::shared_ptr<Outbox> outbox,
                 const ReceivedRequests& requests, std::shared_ptr<ClientAccount> account,
                 FrameParser::Limits limits, Connection connection);

    /// Called when bytes have arrived, or may have. Reads and serves for as long as there are more.
    void readable();
    using Clock = std::chrono::steady_clock;
    /// Since when the client has been idle; empty while a request, or a part of one, has not been
    /// answered.
    std::optional<Clock::time_point> idleSince();

  private:
    class Turn;

    /// Serves on this thread, which counts towards the user's limit.
    void serve();
    /// Handles one message; returns whether this thread still has the turn afterwards.
    bool carryOut(const Message& message, std::uint64_t turn);
    /// Waits a moment for more bytes.
    enum class Received : std::uint8_t { bytes, nothing, end };
    Received receive();
    void leave();
    void end() noexcept;
    /// Has another thread go on that counts towards the user's limit, now or as soon as one is
    /// available.
    void goOn() noexcept;
    void tryAgainLater();
    /// Reports the end on the thread that the user's connections share for this.
    void endElsewhere() noexcept;
    void run() noexcept override { end(); }
    /// Called when the handler of a request whose turn was taken over has begun: the requests
    /// behind it go on. That happens later, so that this handler begins before theirs unless it
    /// takes long.
    void decide(std::uint64_t turn);
    void decideLater(std::uint64_t turn);
    void watchTurn(Clock::time_point time);
    void lookAtTurn();
    void watchFrame(Clock::time_point deadline);

    bool admits(std::uint64_t id, std::string_view selector) override;
    bool expects(std::uint64_t id) override;
    void refuses(std::uint64_t id, const std::string& reason) override;

    const std::shared_ptr<StreamSocket> socket_;
    const std::shared_ptr<Outbox> outbox_;
    const ReceivedRequests& requests_;
    const std::shared_ptr<ClientAccount> account_;
    const Connection connection_;
    /// Only the thread that has the turn uses the parser.
    FrameParser parser_;

    std::mutex mutex_;
    std::uint64_t turn_ = 0;
    /// Since when that thread has been busy with a request for which others need not wait.
    std::optional<Clock::time_point> since_;
    /// Whether the right to that request is still being checked.
    bool isAsking_ = false;
    /// The timer that checks whether the turn is to be taken over.
    std::optional<ClockTask> look_;
    /// The turn that was taken over while the right was being checked; the requests behind it have
    /// to wait.
    std::uint64_t undecided_ = 0;
    /// The first of those requests, for the next turn.
    std::optional<Message> parked_;
    /// Ends the stream when a message that is partly here is overdue while no thread has the turn.
    std::optional<ClockTask> frameEnd_;
    /// Set while no thread has the turn and no message is partly here.
    std::optional<Clock::time_point> idleSince_;
    bool ended_ = false;
    std::atomic<bool> endsElsewhere_ = false;
};

}  // namespace morvane
