// SPDX-License-Identifier: MIT
#include "PeerClients.h"

#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "Harness.h"
#include "PeerProtocol.h"

namespace bench {
namespace {

void require(bool good, const char* what) {
    if (!good)
        throw std::system_error(errno, std::generic_category(), what);
}

void requireBus(int result, const char* what) {
    if (result < 0)
        throw std::system_error(-result, std::generic_category(), what);
}

std::vector<int> socketPair() {
    std::vector<int> pair(2);
    require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair.data()) == 0, "socketpair");
    return pair;
}

sockaddr_un addressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        throw std::system_error(ENAMETOOLONG, std::generic_category(), path);
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return address;
}

void sendOne(int socket, const char* message) {
    require(send(socket, message, messageSize, MSG_NOSIGNAL) == ssize_t{messageSize}, "send");
}

void receiveOne(int socket, char* message) {
    require(recv(socket, message, messageSize, MSG_WAITALL) == ssize_t{messageSize}, "recv");
}

}  // namespace

Child::Child(const std::string& program, const char* mode, int descriptor) {
    constexpr int theirs = 3;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, descriptor, theirs);
    const auto path = std::string(MORVANE_BENCH_LIBEXEC "/") + program;
    char* const arguments[] = {const_cast<char*>(path.c_str()), const_cast<char*>(mode), nullptr};
    errno = posix_spawn(&process_, path.c_str(), &actions, nullptr, arguments, environ);
    posix_spawn_file_actions_destroy(&actions);
    require(errno == 0, path.c_str());
}

Child::~Child() {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
}

PeerStream::PeerStream(const char* mode) : PeerStream(mode, socketPair()) {}

PeerStream::PeerStream(const char* mode, std::vector<int> pair)
    : ours_(pair[0]), child_("bench_peer", mode, pair[1]) {
    close(pair[1]);
}

PeerStream::~PeerStream() {
    close(ours_);
}

double RawEcho::roundTrips(std::size_t count) {
    char message[messageSize] = {};
    return timed([&] {
        for (std::size_t i = 0; i < count; ++i) {
            sendOne(stream_.descriptor(), message);
            receiveOne(stream_.descriptor(), message);
        }
    });
}

double RawEcho::pipelined(std::size_t count, std::size_t outstanding) {
    const char message[messageSize] = {};
    std::vector<char> buffer(outstanding * messageSize);
    return timed([&] {
        std::size_t sent = 0;
        for (; sent < std::min(count, outstanding); ++sent)
            sendOne(stream_.descriptor(), message);
        std::size_t received = 0;
        while (received < count * messageSize) {
            const auto before = received / messageSize;
            const auto bytes = recv(stream_.descriptor(), buffer.data(), buffer.size(), 0);
            require(bytes > 0, "recv");
            received += static_cast<std::size_t>(bytes);
            const auto answered = received / messageSize - before;
            for (std::size_t i = 0; i < answered && sent < count; ++i, ++sent)
                sendOne(stream_.descriptor(), message);
        }
    });
}

BusEcho::BusEcho() {
    requireBus(sd_bus_new(&bus_), "sd_bus_new");
    // The bus closes the descriptor that it is given.
    const int descriptor = dup(stream_.descriptor());
    require(descriptor >= 0, "dup");
    requireBus(sd_bus_set_fd(bus_, descriptor, descriptor), "sd_bus_set_fd");
    requireBus(sd_bus_set_anonymous(bus_, 1), "sd_bus_set_anonymous");
    requireBus(sd_bus_start(bus_), "sd_bus_start");
}

BusEcho::~BusEcho() {
    sd_bus_close_unref(bus_);
}

double BusEcho::roundTrips(std::size_t count) {
    const char payload[messageSize] = {};
    return timed([&] {
        for (std::size_t i = 0; i < count; ++i) {
            sd_bus_message* call = nullptr;
            sd_bus_message* reply = nullptr;
            requireBus(
                sd_bus_message_new_method_call(bus_, &call, nullptr, busPath, busInterface, "Echo"),
                "sd_bus_message_new_method_call");
            requireBus(sd_bus_message_append_array(call, 'y', payload, sizeof payload), "append");
            requireBus(sd_bus_call(bus_, call, 0, nullptr, &reply), "sd_bus_call");
            const void* answer = nullptr;
            std::size_t size = 0;
            requireBus(sd_bus_message_read_array(reply, 'y', &answer, &size), "read");
            keep(answer);
            sd_bus_message_unref(reply);
            sd_bus_message_unref(call);
        }
    });
}

int listenAt(const std::string& path) {
    constexpr int backlog = 64;
    const auto address = addressOf(path);
    const int listening = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    require(listening >= 0, "socket");
    require(bind(listening, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0,
            "bind");
    require(listen(listening, backlog) == 0, "listen");
    return listening;
}

RawConnect::RawConnect(std::string path)
    : path_(std::move(path)),
      listening_(listenAt(path_)),
      child_("bench_peer", "accept", listening_) {
    close(listening_);
}

double RawConnect::connects(std::size_t count) {
    char message[messageSize] = {};
    const auto address = addressOf(path_);
    double time = 0;
    for (std::size_t i = 0; i < count; ++i) {
        int stream = -1;
        time += timed([&] {
            stream = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
            require(
                connect(stream, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0,
                "connect");
            sendOne(stream, message);
            receiveOne(stream, message);
        });
        close(stream);
    }
    return time;
}

}  // namespace bench
