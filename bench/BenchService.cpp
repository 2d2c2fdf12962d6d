// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/xpc/Limits.h>
#include <MorvaneOperation/platform/xpc/NSXPCListener.h>
#include <MorvaneOperation/platform/xpc/StreamSocket.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <utility>

#include "BenchProtocol.h"

namespace bench {
namespace {

using namespace morvane;
using Clock = std::chrono::steady_clock;

/// Calls the client back until it has done so often enough.
class CallbackRun : public std::enable_shared_from_this<CallbackRun> {
  public:
    CallbackRun(std::shared_ptr<BenchCallback> client, std::int64_t count,
                NSXPCReply<std::int64_t> reply)
        : client_(std::move(client)), left_(count), reply_(std::move(reply)) {}

    void next() {
        client_->echoBack(payload_, [self = shared_from_this()](const NSData&) {
            if (--self->left_ > 0) {
                self->next();
            } else {
                self->reply_(std::chrono::nanoseconds(Clock::now() - self->start_).count());
            }
        });
    }

  private:
    const NSData payload_ = NSData(64, 'x');
    const Clock::time_point start_ = Clock::now();
    const std::shared_ptr<BenchCallback> client_;
    std::int64_t left_;
    const NSXPCReply<std::int64_t> reply_;
};

class Service final : public Bench {
  public:
    explicit Service(std::shared_ptr<BenchCallback> client) : client_(std::move(client)) {}

    void echo(NSData payload, NSXPCReply<NSData> reply) override { reply(std::move(payload)); }
    void callBack(std::int64_t count, NSXPCReply<std::int64_t> reply) override {
        std::make_shared<CallbackRun>(client_, count, std::move(reply))->next();
    }
    void prepareItems(std::int64_t count, NSXPCReply<bool> reply) override {
        while (items_.size() < static_cast<std::size_t>(count)) {
            constexpr std::int64_t someSize = 977;
            items_.push_back(
                MVFileSizeItem::initWithSize(someSize * static_cast<std::int64_t>(items_.size())));
        }
        items_.resize(static_cast<std::size_t>(count));
        prepared_ = items_;
        reply(true);
    }
    void items(NSXPCReply<SizeItems> reply) override { reply(std::exchange(prepared_, {})); }
    void prepareData(std::int64_t size, NSXPCReply<bool> reply) override {
        std::ofstream("/proc/self/clear_refs") << "5";  // the most memory is counted from here on
        data_ = NSData(static_cast<std::size_t>(size), 'x');
        reply(true);
    }
    void data(NSXPCReply<NSData> reply) override { reply(std::exchange(data_, {})); }
    void mostMemory(NSXPCReply<std::int64_t> reply) override {
        std::ifstream status("/proc/self/status");
        std::string name;
        std::int64_t kilobytes = 0;
        while (status >> name && name != "VmHWM:") {
        }
        status >> kilobytes;
        reply(kilobytes * 1024);
    }

  private:
    const std::shared_ptr<BenchCallback> client_;
    SizeItems items_;
    SizeItems prepared_;
    NSData data_;
};

}  // namespace
}  // namespace bench

/// "activated": a listening socket is descriptor 3; otherwise a private service.
int main(int argc, char** argv) {
    using namespace bench;
    constexpr int usageError = 64;
    morvane::NSErrorRef error;
    std::shared_ptr<morvane::NSXPCListener> listener;
    if (argc > 1 && std::strcmp(argv[1], "activated") == 0) {
        setenv("LISTEN_FDS", "1", 1);
        setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
        // All clients are one user's here.
        constexpr std::size_t clients = 2048;
        if (auto socket = morvane::inheritedListener()) {
            listener = std::make_shared<morvane::NSXPCListener>(
                *std::move(socket),
                morvane::limits::ClientLimits{.all = clients, .ofOneUser = clients, .kept = 0});
        } else {
            error = socket.error();
        }
    } else {
        listener = morvane::NSXPCListener::serviceListener(&error);
    }
    if (!listener) {
        std::fprintf(stderr, "bench_service: %s\n", error->localizedDescription().c_str());
        return usageError;
    }
    listener->setNewConnectionHandler([](const std::shared_ptr<morvane::NSXPCConnection>& client) {
        client->setRemoteObjectInterface(
            morvane::NSXPCInterface::interfaceWithProtocol<BenchCallback>());
        client->setExportedInterface(morvane::NSXPCInterface::interfaceWithProtocol<Bench>());
        client->setExportedObject<Bench>(
            std::make_shared<Service>(client->remoteObjectProxy<BenchCallback>()));
        client->resume();
        return true;
    });
    return listener->run();
}
