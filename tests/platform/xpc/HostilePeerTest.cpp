// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/linux/LinuxStreamSocket.h>
#include <MorvaneOperation/platform/xpc/Limits.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <set>
#include <thread>

#include "RawRequests.h"
#include "XpcTestSupport.h"

namespace morvane {
namespace {

using namespace std::chrono_literals;

constexpr int watchdogMilliseconds = 30000;

/// Both ends of a real stream; the peer's is a raw descriptor.
struct RealStream {
    RealStream() {
        int pair[2] = {-1, -1};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
        stream = std::make_shared<LinuxStreamSocket>(FileDescriptor(pair[0]));
        peer = FileDescriptor(pair[1]);
    }
    std::shared_ptr<LinuxStreamSocket> stream;
    FileDescriptor peer;
};

/// A service's connection to a peer that is a raw descriptor.
struct ServedPeer : RealStream {
    ServedPeer() {
        connection = std::make_shared<NSXPCConnection>(
            std::make_shared<NSXPCConnection::Core>("client", stream));
        connection->setExportedInterface(NSXPCInterface::interfaceWithProtocol<Echo>());
        connection->setExportedObject<Echo>(service);
        connection->setInvalidationHandler([done = invalidated] { done->set_value(); });
    }

    void send(const NSData& bytes) const {
        EXPECT_EQ(::send(peer.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
    }

    std::shared_ptr<EchoService> service = std::make_shared<EchoService>();
    std::shared_ptr<NSXPCConnection> connection;
    /// Not only this object's: its handler may still be at it when a test ends.
    std::shared_ptr<std::promise<void>> invalidated = std::make_shared<std::promise<void>>();
};

/// Sends `bytes` with as many copies of `descriptor` as a message may carry.
bool sendDescriptors(int socket, NSData bytes, int descriptor) {
    constexpr std::size_t most = 253;
    std::array<int, most> descriptors;
    descriptors.fill(descriptor);
    iovec vector{bytes.data(), bytes.size()};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof descriptors)> control{};
    msghdr message{};
    message.msg_iov = &vector;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    auto* const header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof descriptors);
    std::memcpy(CMSG_DATA(header), descriptors.data(), sizeof descriptors);
    return sendmsg(socket, &message, MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

std::set<std::string> openDescriptors() {
    std::set<std::string> open;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        open.insert(entry.path().filename());
    return open;
}

TEST(HostilePeer, NoneOfAFloodOfDescriptorsIsOpenedHere) {
    const RealStream pair;
    const auto before = openDescriptors();
    constexpr int messages = 16;
    for (int i = 0; i < messages; ++i) {
        // The kernel lets an ordinary user have only so many on their way at a time.
        ASSERT_TRUE(sendDescriptors(pair.peer.get(), NSData{'M'}, pair.peer.get()));
        std::array<std::uint8_t, 64> into{};
        EXPECT_EQ(pair.stream->receive(into, {}), 0U);
        // An earlier test's connection may still be closing its own.
        const auto after = openDescriptors();
        EXPECT_TRUE(std::includes(before.begin(), before.end(), after.begin(), after.end()));
    }
}

TEST(HostilePeer, AFloodOfDescriptorsEndsTheConnectionBeforeItsRequestIsLookedAt) {
    ServedPeer served;
    bool asked = false;
    served.service->onEcho = [&](auto, auto reply) {
        asked = true;
        reply({}, nullptr);
    };
    served.connection->resume();
    ASSERT_TRUE(sendDescriptors(served.peer.get(), echoRequest("x"), served.peer.get()));
    await(served.invalidated->get_future());
    EXPECT_FALSE(asked);
    std::array<std::uint8_t, 64> into{};
    EXPECT_EQ(recv(served.peer.get(), into.data(), into.size(), 0), 0);
}

TEST(HostilePeer, ASlowSenderIsCutOffAtTheTimeOfAWholeFrame) {
    const RealStream pair;
    FrameReader reader(*pair.stream, {.frameTime = 20ms});
    // The next byte goes out as soon as the last was taken; all of them would take far longer.
    std::size_t sent = 0;
    std::thread trickle([&] {
        FrameHeader header;
        header.payloadLength = limits::frameSize;
        const auto begin = header.bytes();
        int small = 1;
        setsockopt(pair.peer.get(), SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
        for (;;) {
            const std::uint8_t byte = sent < begin.size() ? begin[sent] : 0;
            if (send(pair.peer.get(), &byte, 1, MSG_NOSIGNAL) != 1)
                return;
            ++sent;
        }
    });
    EXPECT_FALSE(reader.next());
    pair.stream->shutdown();
    trickle.join();
    EXPECT_GT(sent, 0U);
    EXPECT_LT(sent, FrameHeader::size + limits::frameSize);
}

TEST(HostilePeer, AClientThatNeverReadsIsCutOff) {
    const RealStream pair;
    const auto outbox = std::make_shared<Outbox>(pair.stream, Outbox::Limits{4 << 20, 1ms});
    outbox->send(FrameKind::reply, 1, {}, NSData(2 << 20, 'x'));
    // Nothing is read before the stream has ended.
    pollfd end{pair.peer.get(), POLLRDHUP, 0};
    ASSERT_EQ(poll(&end, 1, watchdogMilliseconds), 1);
    std::size_t received = 0;
    std::array<std::uint8_t, 4096> into{};
    for (ssize_t count = 1; count > 0; received += static_cast<std::size_t>(count))
        count = recv(pair.peer.get(), into.data(), into.size(), 0);
    EXPECT_LT(received, std::size_t{2} << 20);
}

TEST(HostilePeer, AClientThatLeavesDuringItsRequestIsReportedAndTheLateReplyGoesNowhere) {
    ServedPeer served;
    std::promise<NSXPCReply<std::string, NSErrorRef>> asked;
    served.service->onEcho = [&](auto, auto reply) { asked.set_value(std::move(reply)); };
    served.connection->resume();
    served.send(echoRequest("x"));
    const auto reply = await(asked.get_future());
    served.peer = FileDescriptor();
    await(served.invalidated->get_future());
    reply("late", nullptr);
    EXPECT_EQ(served.connection->exportedObject(), nullptr);
}

TEST(HostilePeer, ARequestThatBreaksOffNeverReachesItsHandler) {
    const auto request = echoRequest("x");
    for (std::size_t length = 1; length < request.size(); ++length) {
        ServedPeer served;
        bool asked = false;
        served.service->onEcho = [&](auto, auto reply) {
            asked = true;
            reply({}, nullptr);
        };
        served.connection->resume();
        served.send(NSData(request.begin(), request.begin() + static_cast<std::ptrdiff_t>(length)));
        served.peer = FileDescriptor();
        await(served.invalidated->get_future());
        EXPECT_FALSE(asked) << length;
    }
}

}  // namespace
}  // namespace morvane
