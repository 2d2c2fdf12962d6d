// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/dispatch/Workers.h>
#include <MorvaneOperation/platform/foundation/Phrase.h>
#include <MorvaneOperation/platform/xpc/Outbox.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <utility>

#include "platform/fake/FakeStreamSocket.h"

namespace morvane {
namespace {

using namespace std::chrono_literals;

/// Takes what a test lets it take.
class ScriptedSocket final : public StreamSocket {
  public:
    /// Bytes that one send() takes; every second one takes none.
    std::size_t trickle = 0;
    std::atomic<std::size_t> taken = 0;
    std::atomic<std::size_t> sends = 0;
    bool takesAll = false;

    std::size_t receive(std::span<std::uint8_t>, const Deadline&) override { return 0; }
    std::optional<std::size_t> send(std::span<const Bytes> pieces) override {
        std::size_t all = 0;
        for (const auto& piece : pieces)
            all += piece.size();
        const bool isOdd = sends++ % 2 != 0;
        const auto count = takesAll ? all : isOdd ? 0 : std::min(trickle, all);
        taken += count;
        return count;
    }
    void whenWritable(std::function<void()> sending) override {
        const std::lock_guard lock(mutex_);
        if (trickle != 0 || ended_)
            runOnWorker(std::move(sending));
        else
            sending_ = std::move(sending);
    }
    void shutdown() override {
        const std::lock_guard lock(mutex_);
        ended_ = true;
        changed_.notify_all();
        if (const auto sending = std::exchange(sending_, nullptr))
            runOnWorker(sending);
    }
    std::optional<PeerCredentials> peer() const override { return std::nullopt; }

    bool waitUntilShutDown() {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, 30s, [&] { return ended_; });
    }
    bool isShutDown() {
        const std::lock_guard lock(mutex_);
        return ended_;
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::function<void()> sending_;
    bool ended_ = false;
};

NSData bytes(std::size_t count) {
    return NSData(count, 'x');
}

TEST(Outbox, CutsAReaderOffThatNeverReads) {
    const auto socket = std::make_shared<ScriptedSocket>();
    const auto outbox = std::make_shared<Outbox>(socket, Outbox::Limits{1 << 20, 1ms});
    outbox->send(FrameKind::reply, 1, {}, bytes(10));
    EXPECT_TRUE(socket->waitUntilShutDown());
}

TEST(Outbox, CutsAReaderOffThatTricklesAlthoughItAlwaysGetsOn) {
    const auto socket = std::make_shared<ScriptedSocket>();
    socket->trickle = 1;
    const auto outbox = std::make_shared<Outbox>(socket, Outbox::Limits{1 << 24, 20ms});
    outbox->send(FrameKind::reply, 1, {}, bytes(limits::frameSize));
    EXPECT_TRUE(socket->waitUntilShutDown());
    EXPECT_GT(socket->taken, 0U);
    EXPECT_LT(socket->taken, limits::frameSize);
}

TEST(Outbox, GivesEachFrameOfAMessageItsOwnTime) {
    const auto socket = std::make_shared<ScriptedSocket>();
    socket->trickle = limits::frameSize / 4;
    const auto outbox = std::make_shared<Outbox>(socket, Outbox::Limits{1 << 24, 30s});
    outbox->send(FrameKind::reply, 1, {}, bytes(3 * limits::frameSize));
    const auto end = std::chrono::steady_clock::now() + 30s;
    while (socket->taken != 3 * (limits::frameSize + FrameHeader::size)) {
        ASSERT_LT(std::chrono::steady_clock::now(), end);
        std::this_thread::yield();
    }
    EXPECT_FALSE(socket->isShutDown());
}

TEST(Outbox, HoldsNoMoreBytesThanItsLimit) {
    const auto socket = std::make_shared<ScriptedSocket>();
    const auto outbox = std::make_shared<Outbox>(socket, Outbox::Limits{1000, 30s});
    outbox->send(FrameKind::reply, 1, {}, bytes(500));
    EXPECT_FALSE(socket->isShutDown());
    outbox->send(FrameKind::request, 2, "a:", bytes(500));
    EXPECT_TRUE(socket->isShutDown());
}

TEST(Outbox, RefusesAMessageOverTheLimit) {
    const auto socket = std::make_shared<ScriptedSocket>();
    socket->takesAll = true;
    const auto outbox = std::make_shared<Outbox>(socket);
    outbox->send(FrameKind::request, 1, {}, bytes(limits::messageSize + 1));
    EXPECT_TRUE(socket->isShutDown());
    EXPECT_EQ(socket->taken, 0U);
}

std::string refusalOn(FakeStreamSocket& stream) {
    FrameReader reader(stream);
    const auto message = reader.next();
    return message && message->kind == FrameKind::refusal
               ? Phrase::received(std::string(message->body.begin(), message->body.end())).english()
               : "no refusal";
}

TEST(Outbox, AReplyOverTheLimitEndsItsOwnRequestOnly) {
    const auto [near, far] = FakeStreamSocket::pair();
    const auto outbox = std::make_shared<Outbox>(far);
    outbox->send(FrameKind::reply, 1, {}, bytes(limits::messageSize + 1));
    EXPECT_EQ(refusalOn(*near),
              "The reply is larger than 268435456 bytes; ask for fewer items at a time.");
    outbox->send(FrameKind::reply, 2, {}, bytes(10));
    FrameReader reader(*near);
    const auto message = reader.next();
    ASSERT_TRUE(message);
    EXPECT_EQ(message->id, 2U);
}

TEST(Outbox, WhatWaitsCountsAgainstTheSharedBudgetUntilItIsSent) {
    const auto shared = std::make_shared<SharedBudget>(150000);
    const auto [near, far] = FakeStreamSocket::pair();
    {
        const auto socket = std::make_shared<ScriptedSocket>();
        const auto outbox =
            std::make_shared<Outbox>(socket, Outbox::Limits{.frameTime = 30s, .shared = shared});
        outbox->send(FrameKind::reply, 1, {}, bytes(100000));
        EXPECT_FALSE(shared->take(60000));
        const auto other = std::make_shared<Outbox>(far, Outbox::Limits{.shared = shared});
        other->send(FrameKind::reply, 2, {}, bytes(100000));
        EXPECT_EQ(refusalOn(*near), "Requests and replies take too much memory; ask again later.");
        // What is taken at once does not count for longer.
        for (std::uint64_t id = 3; id < 13; ++id)
            other->send(FrameKind::reply, id, {}, bytes(20000));
        socket->shutdown();
        outbox->send(FrameKind::request, 20, {}, bytes(limits::messageSize + 1));
    }
    EXPECT_TRUE(shared->take(150000));
}

TEST(SharedBudget, TakesFromTheWholeAsWellOrNothingAtAll) {
    const auto whole = std::make_shared<SharedBudget>(100);
    SharedBudget one(80, whole);
    SharedBudget other(80, whole);
    EXPECT_TRUE(one.take(60));
    EXPECT_FALSE(other.take(50));
    EXPECT_TRUE(other.take(40));
    EXPECT_FALSE(one.take(10));
    other.giveBack(40);
    EXPECT_FALSE(one.take(30));
    EXPECT_TRUE(one.take(20));
    one.giveBack(80);
    EXPECT_TRUE(whole->take(100));
}

/// Keeps what it takes.
class KeepingSocket final : public StreamSocket {
  public:
    NSData sent;

    std::size_t receive(std::span<std::uint8_t>, const Deadline&) override { return 0; }
    std::optional<std::size_t> send(std::span<const Bytes> pieces) override {
        const auto before = sent.size();
        for (const auto& piece : pieces)
            sent.insert(sent.end(), piece.begin(), piece.end());
        return sent.size() - before;
    }
    void shutdown() override {}
    std::optional<PeerCredentials> peer() const override { return std::nullopt; }
};

TEST(Outbox, SendsABodyInPiecesAsItWouldInOne) {
    const auto sent = [](const NSDataPieces& body) {
        const auto socket = std::make_shared<KeepingSocket>();
        const auto outbox = std::make_shared<Outbox>(socket);
        outbox->send(FrameKind::request, 1, "selector", body);
        return socket->sent;
    };
    for (const std::size_t size : {std::size_t{10}, std::size_t{70000},
                                   std::size_t{limits::frameSize}, std::size_t{5000000}}) {
        NSDataPieces pieces(NSData(100, 'a'));
        pieces.others = {NSData(size, 'b'), NSData(), NSData(1, 'c'), NSData(size + 1, 'd')};
        auto whole = pieces.first;
        for (const auto& piece : pieces.others)
            whole.insert(whole.end(), piece.begin(), piece.end());
        EXPECT_EQ(sent(pieces), sent(whole));
        EXPECT_GT(sent(pieces).size(), whole.size());
    }
}

TEST(Outbox, SendsAtOnceWhenNothingIsInTheWay) {
    const auto socket = std::make_shared<ScriptedSocket>();
    socket->takesAll = true;
    const auto outbox = std::make_shared<Outbox>(socket);
    outbox->send(FrameKind::reply, 1, {}, bytes(10));
    EXPECT_EQ(socket->taken, FrameHeader::size + 10);
    EXPECT_EQ(socket->sends, 1U);
}

TEST(Outbox, SendsWhatWasHeldBackInOneGo) {
    const auto socket = std::make_shared<ScriptedSocket>();
    socket->takesAll = true;
    const auto outbox = std::make_shared<Outbox>(socket);
    outbox->holdBack();
    for (std::uint64_t id = 1; id <= 64; ++id)
        outbox->send(FrameKind::reply, id, {}, bytes(100));
    EXPECT_EQ(socket->sends, 0U);
    outbox->release();
    EXPECT_EQ(socket->sends, 1U);
    EXPECT_EQ(socket->taken, 64 * (FrameHeader::size + 100));
}

TEST(Outbox, HoldsBackOnlyWhatTheHoldingThreadSends) {
    const auto socket = std::make_shared<ScriptedSocket>();
    socket->takesAll = true;
    const auto outbox = std::make_shared<Outbox>(socket);
    outbox->holdBack();
    std::thread([&] { outbox->send(FrameKind::request, 1, "a:", bytes(10)); }).join();
    EXPECT_EQ(socket->taken, FrameHeader::size + 12);
}

}  // namespace
}  // namespace morvane
