// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/linux/LinuxStreamSocket.h>
#include <MorvaneOperation/platform/linux/ReadinessWorkers.h>
#include <MorvaneOperation/platform/linux/SubordinateUsers.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <system_error>
#include <utility>

namespace morvane {
namespace {

/// The size of the send buffer in bytes; the system may allow less.
constexpr int largeRoom = 1 << 20;
constexpr int sendFlags = MSG_NOSIGNAL | MSG_DONTWAIT;

int millisecondsUntil(const StreamSocket::Deadline& deadline) {
    if (!deadline)
        return -1;
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(*deadline - std::chrono::steady_clock::now());
    return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, INT_MAX));
}

}  // namespace

NSErrorRef systemError(int code, const Phrase& what) {
    return NSError::errorWithDescription(NSPOSIXErrorDomain, code,
                                         phrase("%1: %2.", what, Phrase::ofSystemError(code)));
}

LinuxStreamSocket::LinuxStreamSocket(FileDescriptor socket, PeerProcess peer)
    : socket_(std::move(socket)), peerProcess_(std::move(peer)) {}

std::int64_t LinuxStreamSocket::accountableUser() const {
    const auto who = peer();
    return who ? SubordinateUsers::ofTheSystem().accountableFor(who->userIdentifier) : -1;
}

std::uint64_t LinuxStreamSocket::peerStartTime() const {
    const auto who = peer();
    return who ? peerProcess_.startTime(*who) : 0;
}

std::optional<PeerCredentials> LinuxStreamSocket::peer() const {
    ucred credentials{};
    socklen_t size = sizeof credentials;
    if (getsockopt(socket_.get(), SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0)
        return std::nullopt;
    return PeerCredentials{credentials.pid, credentials.uid, credentials.gid};
}

bool LinuxStreamSocket::waitForBytes(const Deadline& deadline) const {
    for (;;) {
        pollfd poll{socket_.get(), POLLIN, 0};
        const int ready = ::poll(&poll, 1, millisecondsUntil(deadline));
        if (ready > 0)
            return true;
        if (ready == 0 || errno != EINTR)
            return false;
    }
}

void LinuxStreamSocket::whenReadable(std::function<void()> reading) {
    runWhenReadable(socket_.get(), onceReady(std::move(reading)));
}

void LinuxStreamSocket::whenWritable(std::function<void()> sending) {
    runWhenWritable(socket_.get(), onceReady(std::move(sending)));
}

std::function<void(bool)> LinuxStreamSocket::onceReady(std::function<void()> task) {
    return [self = shared_from_this(), task = std::move(task)](bool alone) {
        if (alone)
            self->shutdown();
        task();
    };
}

/// Returns -1 with `errno` set on failure, and 0 at the end of the stream.
ssize_t LinuxStreamSocket::receiveOnce(std::span<std::uint8_t> into, int flags) const {
    iovec vector{into.data(), into.size()};
    // There is no room for ancillary data, so the kernel closes descriptors that the peer has sent
    // and reports that it did.
    msghdr message{};
    message.msg_iov = &vector;
    message.msg_iovlen = 1;
    const auto count = recvmsg(socket_.get(), &message, flags);
    return count > 0 && (message.msg_flags & MSG_CTRUNC) != 0 ? 0 : count;
}

std::size_t LinuxStreamSocket::receive(std::span<std::uint8_t> into, const Deadline& deadline) {
    for (;;) {
        if (deadline && !waitForBytes(deadline))
            return 0;
        const auto count = receiveOnce(into, 0);
        if (count >= 0)
            return static_cast<std::size_t>(count);
        if (errno != EINTR)
            return 0;
    }
}

std::optional<std::size_t> LinuxStreamSocket::receiveWithin(std::span<std::uint8_t> into,
                                                            std::chrono::milliseconds time) {
    if (time == receiveTime_)
        return receiveOrNothing(into, time.count() == 0 ? MSG_DONTWAIT : 0);
    // What comes first on a new stream is mostly here before the time for it is set.
    const auto count = receiveOrNothing(into, MSG_DONTWAIT);
    if (count || time.count() == 0 || !setReceiveTime(time))
        return count;
    return receiveOrNothing(into, 0);
}

bool LinuxStreamSocket::setReceiveTime(std::chrono::milliseconds time) {
    using std::chrono::microseconds;
    constexpr auto second = microseconds(std::chrono::seconds(1)).count();
    const auto all = microseconds(time).count();
    const timeval limit{all / second, all % second};
    if (setsockopt(socket_.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) != 0)
        return false;
    receiveTime_ = time;
    return true;
}

/// Receives; empty if nothing has come.
std::optional<std::size_t> LinuxStreamSocket::receiveOrNothing(std::span<std::uint8_t> into,
                                                               int flags) const {
    for (;;) {
        const auto count = receiveOnce(into, flags);
        if (count >= 0)
            return static_cast<std::size_t>(count);
        if (errno == EAGAIN)
            return std::nullopt;
        if (errno != EINTR)
            return 0;
    }
}

bool LinuxStreamSocket::isOver() const {
    pollfd poll{socket_.get(), 0, 0};
    return ::poll(&poll, 1, 0) > 0 && (poll.revents & (POLLHUP | POLLERR)) != 0;
}

std::optional<std::size_t> LinuxStreamSocket::send(std::span<const Bytes> pieces) {
    for (;;) {
        const auto sent = pieces.size() == 1
                              ? ::send(socket_.get(), pieces[0].data(), pieces[0].size(), sendFlags)
                              : sendSeveral(pieces);
        if (sent >= 0)
            return static_cast<std::size_t>(sent);
        if (errno == EAGAIN) {
            if (std::exchange(hasMoreRoom_, true))
                return 0;
            // With a larger buffer, a large message takes fewer switches between its reader and
            // this side.
            setsockopt(socket_.get(), SOL_SOCKET, SO_SNDBUF, &largeRoom, sizeof largeRoom);
        } else if (errno != EINTR) {
            return std::nullopt;
        }
    }
}

ssize_t LinuxStreamSocket::sendSeveral(std::span<const Bytes> pieces) const {
    constexpr std::size_t maxPieces = 128;
    std::array<iovec, maxPieces> vectors;
    const auto count = std::min(pieces.size(), maxPieces);
    for (std::size_t i = 0; i < count; ++i) {
        // sendmsg() does not write to what it sends.
        vectors[i] = {const_cast<std::uint8_t*>(pieces[i].data()), pieces[i].size()};
    }
    msghdr message{};
    message.msg_iov = vectors.data();
    message.msg_iovlen = count;
    return sendmsg(socket_.get(), &message, sendFlags);
}

void LinuxStreamSocket::shutdown() {
    ::shutdown(socket_.get(), SHUT_RDWR);
}

}  // namespace morvane
