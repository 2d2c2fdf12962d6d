// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/foundation/Phrase.h>
#include <MorvaneOperation/platform/xpc/Frame.h>
#include <MorvaneOperation/platform/xpc/Limits.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <future>

#include "platform/fake/FakeStreamSocket.h"

namespace morvane {
namespace {

using namespace std::chrono_literals;

void put(FakeStreamSocket& socket, const StreamSocket::Bytes& bytes) {
    const StreamSocket::Bytes pieces[] = {bytes};
    socket.send(pieces);
}

/// What a reader makes of these bytes, after which the stream ends.
std::optional<Message> readAfter(FrameReader& reader, FakeStreamSocket& far, const NSData& bytes) {
    put(far, bytes);
    far.shutdown();
    return reader.next();
}

bool isRefused(const NSData& bytes) {
    auto [near, far] = FakeStreamSocket::pair();
    FrameReader reader(*near);
    return !readAfter(reader, *far, bytes);
}

NSData frame(const FrameHeader& header, std::size_t payload) {
    const auto bytes = header.bytes();
    NSData data(bytes.begin(), bytes.end());
    data.resize(data.size() + payload, 'x');
    return data;
}

NSData goodFrame() {
    return frame({FrameKind::request, false, 3, 5, 7}, 5);
}

TEST(FrameReader, TellsSelectorAndBodyApart) {
    auto [near, far] = FakeStreamSocket::pair();
    FrameReader reader(*near);
    const auto message = readAfter(reader, *far, goodFrame());
    ASSERT_TRUE(message);
    EXPECT_EQ(message->kind, FrameKind::request);
    EXPECT_EQ(message->id, 7U);
    EXPECT_EQ(message->selector, "xxx");
    EXPECT_EQ(message->body.size(), 2U);
    EXPECT_FALSE(reader.next());
}

TEST(FrameReader, RefusesEveryByteOfAHeaderThatMustNotBeAsItIs) {
    for (const std::size_t at : {0, 1, 2, 3, 4, 5, 7, 11, 12, 13, 14, 15}) {
        auto bytes = goodFrame();
        bytes[at] = 0xff;
        EXPECT_TRUE(isRefused(bytes)) << at;
    }
}

TEST(FrameReader, RefusesAFrameThatEndsEarlyAtAnyByte) {
    const auto whole = goodFrame();
    for (std::size_t size = 0; size < whole.size(); ++size) {
        const auto end = whole.begin() + static_cast<std::ptrdiff_t>(size);
        EXPECT_TRUE(isRefused(NSData(whole.begin(), end))) << size;
    }
}

TEST(FrameReader, RefusesALengthOverTheLimitBeforeItsPayloadCame) {
    const FrameHeader header{FrameKind::request, false, 0, limits::frameSize + 1, 1};
    EXPECT_FALSE(FrameHeader::parse(header.bytes()));
    EXPECT_TRUE(isRefused(frame(header, limits::frameSize + 1)));
}

TEST(FrameReader, RefusesASelectorLongerThanItsPayload) {
    EXPECT_TRUE(isRefused(frame({FrameKind::request, false, 6, 5, 1}, 5)));
}

TEST(FrameReader, RefusesASelectorInAReply) {
    EXPECT_TRUE(isRefused(frame({FrameKind::reply, false, 1, 5, 1}, 5)));
}

TEST(FrameReader, RefusesARefusalThatIsLongOrOfSeveralFrames) {
    const auto text = static_cast<std::uint32_t>(limits::refusalText + 1);
    EXPECT_TRUE(isRefused(frame({FrameKind::refusal, false, 0, text, 1}, text)));
    EXPECT_TRUE(isRefused(frame({FrameKind::refusal, true, 0, 5, 1}, 5)));
}

TEST(FrameReader, PutsTheFramesOfAMessageTogether) {
    auto [near, far] = FakeStreamSocket::pair();
    FrameReader reader(*near);
    put(*far, frame({FrameKind::request, true, 2, 4, 9}, 4));
    const auto message = readAfter(reader, *far, frame({FrameKind::request, false, 0, 5, 9}, 5));
    ASSERT_TRUE(message);
    EXPECT_EQ(message->selector, "xx");
    EXPECT_EQ(message->body.size(), 7U);
}

TEST(FrameReader, RefusesAMessageInterruptedByAnother) {
    auto [near, far] = FakeStreamSocket::pair();
    FrameReader reader(*near);
    put(*far, frame({FrameKind::request, true, 2, 4, 9}, 4));
    EXPECT_FALSE(readAfter(reader, *far, frame({FrameKind::request, false, 0, 5, 10}, 5)));
}

TEST(FrameReader, RefusesASecondSelectorInOneMessage) {
    auto [near, far] = FakeStreamSocket::pair();
    FrameReader reader(*near);
    put(*far, frame({FrameKind::request, true, 2, 4, 9}, 4));
    EXPECT_FALSE(readAfter(reader, *far, frame({FrameKind::request, false, 1, 5, 9}, 5)));
}

/// Whether the reader ends although the stream, of which nothing more comes, stays open.
bool givesUp(FrameReader& reader, FakeStreamSocket& far) {
    auto message = std::async(std::launch::async, [&] { return reader.next().has_value(); });
    const bool hasEnded = message.wait_for(30s) == std::future_status::ready;
    far.shutdown();
    return !message.get() && hasEnded;
}

TEST(FrameReader, GivesUpOnAFrameThatTakesTooLong) {
    auto [near, far] = FakeStreamSocket::pair();
    FrameReader reader(*near, {.frameTime = 1ms});
    put(*far, NSData{'M'});
    EXPECT_TRUE(givesUp(reader, *far));
}

TEST(FrameReader, GivesUpOnALargePayloadThatTakesTooLong) {
    auto [near, far] = FakeStreamSocket::pair();
    FrameReader reader(*near, {.frameTime = 1ms});
    put(*far, frame({FrameKind::reply, false, 0, limits::frameSize, 1}, 10));
    EXPECT_TRUE(givesUp(reader, *far));
}

TEST(FrameReader, GivesUpOnAMessageWhoseNextFrameDoesNotCome) {
    auto [near, far] = FakeStreamSocket::pair();
    FrameReader reader(*near, {.frameTime = 1ms});
    put(*far, frame({FrameKind::request, true, 2, 4, 9}, 4));  // the stream stays open
    auto read = std::async(std::launch::async, [&] { return reader.next().has_value(); });
    EXPECT_EQ(read.wait_for(30s), std::future_status::ready) << "it waits without end";
    far->shutdown();
    EXPECT_FALSE(read.get());
}

TEST(FrameReader, GivesUpOnASenderThatTricklesAlthoughThereIsAlwaysAByte) {
    /// Has one byte more ready whenever it is asked.
    class Trickle final : public StreamSocket {
      public:
        NSData begin = frame({FrameKind::reply, false, 0, limits::frameSize, 1}, 0);
        std::size_t given = 0;

        std::size_t receive(std::span<std::uint8_t> into, const Deadline&) override {
            const bool isFirst = given == 0;
            const auto count = isFirst ? begin.size() : 1;
            std::copy_n(begin.begin(), count, into.begin());
            given += count;
            return count;
        }
        std::optional<std::size_t> send(std::span<const Bytes>) override { return std::nullopt; }
        void shutdown() override {}
        std::optional<PeerCredentials> peer() const override { return std::nullopt; }
    };
    Trickle socket;
    FrameReader reader(socket, {.frameTime = 1ms});
    EXPECT_FALSE(reader.next());
    EXPECT_LT(socket.given, FrameHeader::size + limits::frameSize);
}

TEST(FrameReader, RefusesAMessageOverTheLimitHoweverManyFramesItHas) {
    /// Sends large frames, each of which promises another, and ends only well over the limit.
    class Endless final : public StreamSocket {
      public:
        const NSData one =
            frame({FrameKind::reply, true, 0, limits::frameSize, 1}, limits::frameSize);
        const std::size_t end = one.size() * (limits::messageSize / limits::frameSize + 4);
        std::size_t given = 0;

        std::size_t receive(std::span<std::uint8_t> into, const Deadline&) override {
            const auto at = given % one.size();
            const auto count = given == end ? 0 : std::min(into.size(), one.size() - at);
            std::copy_n(one.begin() + static_cast<std::ptrdiff_t>(at), count, into.begin());
            given += count;
            return count;
        }
        std::optional<std::size_t> send(std::span<const Bytes>) override { return std::nullopt; }
        void shutdown() override {}
        std::optional<PeerCredentials> peer() const override { return std::nullopt; }
    };
    Endless socket;
    FrameReader reader(socket);
    EXPECT_FALSE(reader.next());
    EXPECT_GE(socket.given, limits::messageSize);
    EXPECT_LT(socket.given, limits::messageSize + 2 * limits::frameSize);
}

/// Admits what a test lets it admit, and keeps what it is told.
class KeptGate final : public FrameParser::Gate {
  public:
    bool isOpen = true;
    std::uint64_t expected = 0;
    std::vector<std::string> asked;
    std::vector<std::string> refused;

    bool admits(std::uint64_t id, std::string_view selector) override {
        asked.push_back(std::to_string(id) + " " + std::string(selector));
        return isOpen;
    }
    bool expects(std::uint64_t id) override { return id == expected; }
    void refuses(std::uint64_t id, const std::string& reason) override {
        refused.push_back(std::to_string(id) + " " + Phrase::received(reason).english());
    }
};

void feed(FrameParser& parser, const NSData& bytes) {
    for (std::size_t given = 0; given < bytes.size() && !parser.isBroken();) {
        const auto room = parser.room();
        const auto count = std::min(room.size(), bytes.size() - given);
        std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(given), count, room.begin());
        parser.add(count);
        given += count;
        EXPECT_TRUE(given == bytes.size() || !parser.next());
    }
}

/// A request of two frames, `size` bytes of payload in all.
NSData requestOf(std::uint64_t id, std::uint32_t size) {
    auto bytes = frame({FrameKind::request, true, 2, size / 2, id}, size / 2);
    const auto rest = frame({FrameKind::request, false, 0, size - size / 2, id}, size - size / 2);
    bytes.insert(bytes.end(), rest.begin(), rest.end());
    return bytes;
}

TEST(FrameParser, ReadsOverARequestThatIsLargerThanItsLimitAndGoesOn) {
    KeptGate gate;
    FrameParser parser({.messageSize = 10000, .bufferSize = 1000}, &gate);
    feed(parser, requestOf(5, 10000));
    EXPECT_TRUE(parser.next());
    feed(parser, requestOf(6, 10001));
    EXPECT_FALSE(parser.next());
    EXPECT_FALSE(parser.isBroken());
    EXPECT_EQ(gate.refused, std::vector<std::string>{"6 The request is larger than 10000 bytes; "
                                                     "ask for fewer items at a time."});
    feed(parser, requestOf(7, 2000));
    const auto message = parser.next();
    ASSERT_TRUE(message);
    EXPECT_EQ(message->id, 7U);
}

/// Replies of full frames and a shorter last one, of bytes that tell where they stand.
NSData replyOf(std::uint64_t id, std::uint32_t fullFrames) {
    NSData bytes;
    constexpr std::uint32_t rest = 1000;
    for (std::uint32_t i = 0; i <= fullFrames; ++i) {
        const auto size = i < fullFrames ? limits::frameSize : rest;
        const auto header = FrameHeader{FrameKind::reply, i < fullFrames, 0, size, id}.bytes();
        bytes.insert(bytes.end(), header.begin(), header.end());
        for (std::uint32_t k = 0; k < size; ++k)
            bytes.push_back(static_cast<std::uint8_t>(k / 251 + k + i));
    }
    return bytes;
}

TEST(FrameParser, ReadsRepliesOfAnySizeOneAfterTheOther) {
    FrameParser parser({});
    std::uint64_t id = 0;
    // In the heap, in large pages that grow twice, and in the heap again.
    for (const std::uint32_t frames : {0u, 1u, 20u, 0u, 9u, 2u}) {
        const auto bytes = replyOf(++id, frames);
        feed(parser, bytes);
        const auto message = parser.next();
        ASSERT_TRUE(message);
        EXPECT_EQ(message->id, id);
        NSData expected;
        for (std::size_t at = 0; at < bytes.size(); at += FrameHeader::size + limits::frameSize) {
            const auto* begin = bytes.data() + at + FrameHeader::size;
            const auto left = bytes.size() - at - FrameHeader::size;
            expected.insert(expected.end(), begin,
                            begin + std::min<std::size_t>(left, limits::frameSize));
        }
        ASSERT_EQ(message->body.size(), expected.size());
        EXPECT_EQ(std::memcmp(message->body.data(), expected.data(), expected.size()), 0);
    }
}

TEST(FrameParser, HoldsNothingOfALargeRequestThatIsNotAdmitted) {
    KeptGate gate;
    gate.isOpen = false;
    const auto shared = std::make_shared<SharedBudget>(4000);
    FrameParser parser({.bufferSize = 1000, .shared = shared}, &gate);
    // More than there is room for, had it been looked at.
    feed(parser, requestOf(5, 100000));
    EXPECT_FALSE(parser.next());
    EXPECT_EQ(gate.asked.size(), 1U);
    EXPECT_TRUE(gate.refused.empty());
    EXPECT_TRUE(shared->take(4000));
    shared->giveBack(4000);
    gate.isOpen = true;
    feed(parser, requestOf(6, 4000));
    ASSERT_TRUE(parser.next());
    EXPECT_FALSE(shared->take(1));
    parser.release();
    EXPECT_TRUE(shared->take(4000));
}

TEST(FrameParser, HoldsNothingOfALargeReplyThatNobodyWaitsFor) {
    KeptGate gate;
    gate.expected = 6;
    const auto shared = std::make_shared<SharedBudget>(4000);
    FrameParser parser({.bufferSize = 1000, .shared = shared}, &gate);
    feed(parser, frame({FrameKind::reply, true, 0, 3000, 5}, 3000));
    EXPECT_FALSE(parser.next());
    EXPECT_TRUE(shared->take(4000));
    shared->giveBack(4000);
    feed(parser, frame({FrameKind::reply, false, 0, 100000, 5}, 100000));
    EXPECT_FALSE(parser.next());
    EXPECT_FALSE(parser.isBroken());
    feed(parser, frame({FrameKind::reply, false, 0, 3000, 6}, 3000));
    const auto reply = parser.next();
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->id, 6U);
    EXPECT_TRUE(gate.asked.empty());
}

TEST(FrameParser, AsksAboutALargeRequestBeforeAnyOfItsArgumentsIsHere) {
    KeptGate gate;
    FrameParser parser({.bufferSize = 1000}, &gate);
    auto bytes = frame({FrameKind::request, false, 4, 50000, 9}, 4);
    feed(parser, bytes);
    EXPECT_FALSE(parser.next());
    ASSERT_EQ(gate.asked.size(), 1U);
    EXPECT_EQ(gate.asked.front().size(), std::string("9 abcd").size());
}

TEST(FrameParser, RefusesARequestWhileOthersHoldTheBytesThatTheyShare) {
    const auto shared = std::make_shared<SharedBudget>(15000);
    const FrameParser::Limits limits{.bufferSize = 1000, .shared = shared};
    KeptGate gate;
    FrameParser other(limits, &gate);
    {
        FrameParser one(limits);
        feed(one, requestOf(1, 10000));
        ASSERT_TRUE(one.next());
        feed(other, requestOf(2, 10000));
        EXPECT_FALSE(other.next());
        EXPECT_EQ(gate.refused,
                  std::vector<std::string>{"2 Too many large requests are being handled; ask "
                                           "again later."});
    }
    for (int i = 0; i < 3; ++i) {
        feed(other, requestOf(3, 10000));
        EXPECT_TRUE(other.next());
    }
}

TEST(FrameParser, BreaksAStreamWhoseReplyIsLargerThanItsLimit) {
    KeptGate gate;
    gate.expected = 5;
    FrameParser parser({.messageSize = 10000, .bufferSize = 1000}, &gate);
    feed(parser, frame({FrameKind::reply, false, 0, 10001, 5}, 0));
    EXPECT_FALSE(parser.next());
    EXPECT_TRUE(parser.isBroken());
}

TEST(FrameParser, GivesItsBufferBackBetweenMessages) {
    FrameParser parser({.bufferSize = 1000});
    feed(parser, goodFrame());
    EXPECT_TRUE(parser.next());
    parser.releaseBuffer();
    feed(parser, goodFrame());
    EXPECT_TRUE(parser.next());
}

TEST(FrameParser, TimesEachFrameAndNothingBetweenMessages) {
    FrameParser parser({.bufferSize = 1000});
    EXPECT_FALSE(parser.deadline());
    const auto bytes = requestOf(1, 4000);
    feed(parser, {bytes.begin(), bytes.begin() + 5});
    EXPECT_FALSE(parser.next());
    const auto first = parser.deadline();
    ASSERT_TRUE(first);
    EXPECT_EQ(parser.deadline(), first);
    // All of the first frame, and a bit of the second one's header.
    const auto end = bytes.begin() + FrameHeader::size + 2000 + 5;
    feed(parser, {bytes.begin() + 5, end});
    EXPECT_FALSE(parser.next());
    const auto second = parser.deadline();
    EXPECT_GT(second, first);
    feed(parser, {end, end + 5});
    EXPECT_FALSE(parser.next());
    EXPECT_EQ(parser.deadline(), second);
    feed(parser, {end + 5, bytes.end()});
    EXPECT_TRUE(parser.next());
    EXPECT_FALSE(parser.deadline());
}

TEST(FrameReader, KnowsWhetherTheNextMessageIsHereWhole) {
    auto [near, far] = FakeStreamSocket::pair();
    FrameReader reader(*near);
    auto bytes = goodFrame();
    const auto whole = goodFrame();
    bytes.insert(bytes.end(), whole.begin(), whole.end());
    bytes.insert(bytes.end(), whole.begin(), whole.end() - 1);
    put(*far, bytes);
    ASSERT_TRUE(reader.next());
    EXPECT_TRUE(reader.hasMessageWaiting());
    ASSERT_TRUE(reader.next());
    EXPECT_FALSE(reader.hasMessageWaiting());
}

}  // namespace
}  // namespace morvane
