// SPDX-License-Identifier: MIT
#include <sys/socket.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "PeerProtocol.h"

// The other ends of the peers. Their socket is descriptor 3:
//   echo    a connected stream: what comes in goes out, each message by itself
//   accept  a listening socket: the same for one client after the other
//   bus     a connected stream that speaks D-Bus without a daemon
namespace bench {
namespace {

constexpr int descriptor = 3;

void echo(int stream) {
    char buffer[64 * messageSize];
    for (;;) {
        const auto received = recv(stream, buffer, sizeof buffer, 0);
        if (received <= 0)
            return;
        const auto count = static_cast<std::size_t>(received);
        for (std::size_t at = 0; at < count; at += messageSize) {
            if (send(stream, buffer + at, std::min(messageSize, count - at), MSG_NOSIGNAL) < 0)
                return;
        }
    }
}

void acceptAll() {
    for (;;) {
        const int client = accept4(descriptor, nullptr, nullptr, SOCK_CLOEXEC);
        if (client < 0)
            return;
        echo(client);
        close(client);
    }
}

int echoMethod(sd_bus_message* message, void*, sd_bus_error*) {
    const void* payload = nullptr;
    std::size_t size = 0;
    int result = sd_bus_message_read_array(message, 'y', &payload, &size);
    if (result < 0)
        return result;
    sd_bus_message* reply = nullptr;
    result = sd_bus_message_new_method_return(message, &reply);
    if (result >= 0)
        result = sd_bus_message_append_array(reply, 'y', payload, size);
    if (result >= 0)
        result = sd_bus_send(nullptr, reply, nullptr);
    sd_bus_message_unref(reply);
    return result;
}

int serveBus() {
    static const sd_bus_vtable methods[] = {
        SD_BUS_VTABLE_START(0),
        SD_BUS_METHOD("Echo", "ay", "ay", echoMethod, SD_BUS_VTABLE_UNPRIVILEGED),
        SD_BUS_VTABLE_END,
    };
    sd_bus* bus = nullptr;
    sd_id128_t id{};
    int result = sd_bus_new(&bus);
    if (result >= 0)
        result = sd_id128_randomize(&id);
    if (result >= 0)
        result = sd_bus_set_fd(bus, descriptor, descriptor);
    if (result >= 0)
        result = sd_bus_set_server(bus, 1, id);
    if (result >= 0)
        result = sd_bus_set_anonymous(bus, 1);
    if (result >= 0)
        result = sd_bus_start(bus);
    if (result >= 0)
        result = sd_bus_add_object_vtable(bus, nullptr, busPath, busInterface, methods, nullptr);
    while (result >= 0) {
        result = sd_bus_process(bus, nullptr);
        if (result == 0)
            result = sd_bus_wait(bus, UINT64_MAX);
    }
    sd_bus_unref(bus);
    return result == -ECONNRESET || result == -ENOTCONN ? 0 : 1;
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    const char* const mode = argc > 1 ? argv[1] : "";
    if (std::strcmp(mode, "echo") == 0) {
        bench::echo(bench::descriptor);
    } else if (std::strcmp(mode, "accept") == 0) {
        bench::acceptAll();
    } else if (std::strcmp(mode, "bus") == 0) {
        return bench::serveBus();
    } else {
        std::fputs("bench_peer: the measuring program starts this one\n", stderr);
        return 64;
    }
    return 0;
}
