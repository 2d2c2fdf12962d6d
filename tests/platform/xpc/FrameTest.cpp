#include <MorvaneOperation/platform/xpc/Frame.h>
#include <MorvaneOperation/platform/xpc/Limits.h>
#include <gtest/gtest.h>

#include <chrono>
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
        bool waitUntilWritable(const Deadline&) override { return false; }
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
        bool waitUntilWritable(const Deadline&) override { return false; }
        void shutdown() override {}
        std::optional<PeerCredentials> peer() const override { return std::nullopt; }
    };
    Endless socket;
    FrameReader reader(socket);
    EXPECT_FALSE(reader.next());
    EXPECT_GE(socket.given, limits::messageSize);
    EXPECT_LT(socket.given, limits::messageSize + 2 * limits::frameSize);
}

/// A request of two frames, 4,000 and 6,000 bytes of payload.
void putRequest(FakeStreamSocket& socket, std::uint64_t id) {
    put(socket, frame({FrameKind::request, true, 0, 4000, id}, 4000));
    put(socket, frame({FrameKind::request, false, 0, 6000, id}, 6000));
}

TEST(FrameReader, RefusesARequestLargerThanItsOwnLimit) {
    for (const bool fits : {true, false}) {
        auto [near, far] = FakeStreamSocket::pair();
        FrameReader reader(*near, {.messageSize = fits ? 10000U : 9999U});
        putRequest(*far, 5);
        EXPECT_EQ(reader.next().has_value(), fits);
        ASSERT_EQ(reader.refused().has_value(), !fits);
        if (fits)
            continue;
        EXPECT_EQ(reader.refused()->id, 5U);
        EXPECT_EQ(reader.refused()->reason,
                  "The request is larger than 9999 bytes; ask for fewer items at a time.");
    }
}

TEST(FrameReader, RefusesARequestWhileOthersHoldTheBytesThatTheyShare) {
    const auto shared = std::make_shared<SharedBytes>(15000);
    auto [near, far] = FakeStreamSocket::pair();
    auto [otherNear, otherFar] = FakeStreamSocket::pair();
    auto [thirdNear, thirdFar] = FakeStreamSocket::pair();
    std::optional<FrameReader> reader;
    reader.emplace(*near, FrameReader::Limits{.shared = shared});
    putRequest(*far, 1);
    ASSERT_TRUE(reader->next());

    FrameReader other(*otherNear, {.shared = shared});
    putRequest(*otherFar, 2);
    EXPECT_FALSE(other.next());
    ASSERT_TRUE(other.refused());
    EXPECT_EQ(other.refused()->reason,
              "Too many large requests of this user are being handled; ask again later.");
    EXPECT_FALSE(other.next());  // gives back what it had of the request

    reader.reset();
    FrameReader third(*thirdNear, {.shared = shared});
    for (int i = 0; i < 3; ++i) {
        putRequest(*thirdFar, 3);
        EXPECT_TRUE(third.next());
    }
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
