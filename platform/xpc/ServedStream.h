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
/// one when something has come, and that one reads, decodes and carries out one request after the
/// other. It has the turn. Where a request takes longer than limits::patience, another thread
/// takes the turn over and goes on with what is behind it.
class ServedStream final : public LastingTask,
                           public std::enable_shared_from_this<ServedStream>,
                           private FrameParser::Gate {
  public:
    /// The connection, as far as it is none of a request's business.
    struct Connection {
        std::function<bool()> isInvalid;
        std::function<void(const Message&)> handleReply;
        /// Called once.
        std::function<void()> ended;
    };

    ServedStream(std::shared_ptr<StreamSocket> socket, std::shared_ptr<Outbox> outbox,
                 const ReceivedRequests& requests, std::shared_ptr<ClientAccount> account,
                 FrameParser::Limits limits, Connection connection);

    /// Something has come, or may have: reads and serves for as long as there is more.
    void readable();
    using Clock = std::chrono::steady_clock;
    /// Empty while there is a request that has not been answered, or a part of one.
    std::optional<Clock::time_point> idleSince();

  private:
    class Turn;

    /// On this thread, which has a place.
    void serve();
    /// Whether this thread still has the turn after that.
    bool carryOut(const Message& message, std::uint64_t turn);
    /// Waits for bytes, for a moment at most.
    enum class Received : std::uint8_t { bytes, nothing, end };
    Received receive();
    void leave();
    void end() noexcept;
    /// Has a thread with a place of its own go on, now or when there are both.
    void goOn() noexcept;
    void tryAgainLater();
    /// On the thread that its user's connections have for that.
    void endElsewhere() noexcept;
    void run() noexcept override { end(); }
    /// The request of this turn, which was taken over, has been begun: those behind it go on.
    /// Later, so that its handler comes before theirs unless it takes long.
    void decide(std::uint64_t turn);
    void decideLater(std::uint64_t turn);
    void watchTurn(Clock::time_point time);
    void lookAtTurn();
    void watchFrame(Clock::time_point deadline);

    bool admits(std::uint64_t id, std::string_view selector) override;
    void refuses(std::uint64_t id, const std::string& reason) override;

    const std::shared_ptr<StreamSocket> socket_;
    const std::shared_ptr<Outbox> outbox_;
    const ReceivedRequests& requests_;
    const std::shared_ptr<ClientAccount> account_;
    const Connection connection_;
    /// Of who has the turn.
    FrameParser parser_;

    std::mutex mutex_;
    std::uint64_t turn_ = 0;
    /// Since when the one who has the turn is with a request that others need not wait for.
    std::optional<Clock::time_point> since_;
    /// That request's right is still being asked for.
    bool isAsking_ = false;
    /// Looks at the turn.
    std::optional<ClockTask> look_;
    /// Whose turn was taken over while it was asking; the requests behind it have to wait.
    std::uint64_t undecided_ = 0;
    /// The first of those, for the next turn.
    std::optional<Message> parked_;
    /// Ends the stream when what is half here is due, while nobody has the turn.
    std::optional<ClockTask> frameEnd_;
    /// While nobody has the turn and nothing is half here.
    std::optional<Clock::time_point> idleSince_;
    bool ended_ = false;
    std::atomic<bool> endsElsewhere_ = false;
};

}  // namespace morvane
