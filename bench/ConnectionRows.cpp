// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/xpc/NSXPCConnection.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "BenchProtocol.h"
#include "PeerClients.h"
#include "PeerProtocol.h"
#include "Rows.h"
#include "TemporaryFolder.h"

namespace bench {
namespace {

using namespace morvane;
using Clock = std::chrono::steady_clock;

class Callback final : public BenchCallback {
  public:
    void echoBack(NSData payload, NSXPCReply<NSData> reply) override { reply(std::move(payload)); }
};

std::shared_ptr<NSXPCInterface> benchInterface() {
    auto interface = NSXPCInterface::interfaceWithProtocol<Bench>();
    interface->setClasses({&NSArrayClass, &MVFileSizeItem::classObject()}, "itemsWithReply:", 0,
                          true);
    return interface;
}

/// What a run waits for. The service's end of a broken run ends ours with an exception.
class Outcome {
  public:
    void finish(double value = 0) {
        const auto promise = promise_;  // who waits may let go of this at once
        promise->set_value(value);
    }
    void fail(const NSErrorRef& error) {
        const auto promise = promise_;
        promise->set_exception(
            std::make_exception_ptr(std::runtime_error(error->localizedDescription())));
    }
    double wait() { return promise_->get_future().get(); }

  private:
    std::shared_ptr<std::promise<double>> promise_ = std::make_shared<std::promise<double>>();
};

/// A connection to the private service, which is started with it.
class Client {
  public:
    Client() {
        setenv("MORVANE_LIBEXEC_DIR", MORVANE_BENCH_LIBEXEC, 1);
        connection_ = NSXPCConnection::initWithServiceName(serviceName);
        connection_->setRemoteObjectInterface(benchInterface());
        connection_->setExportedInterface(NSXPCInterface::interfaceWithProtocol<BenchCallback>());
        connection_->setExportedObject<BenchCallback>(std::make_shared<Callback>());
        connection_->resume();
    }
    ~Client() { connection_->invalidate(); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    /// `count` echoes, `outstanding` at a time; the next is sent from a reply's callback.
    double echoes(std::size_t count, std::size_t outstanding) {
        // Callbacks come one at a time; the first messages are not counted in `toSend`.
        struct Run {
            std::shared_ptr<Bench> service;
            NSData payload = NSData(messageSize, 'x');
            std::size_t toSend = 0;
            std::size_t toCome = 0;
            Outcome outcome;

            void send() {
                service->echo(payload, [this](const NSData&) {
                    if (--toCome == 0) {
                        outcome.finish();
                    } else if (toSend != 0) {
                        --toSend;
                        send();
                    }
                });
            }
        } run;
        const auto first = std::min(count, outstanding);
        run.service = proxy(run.outcome);
        run.toCome = count;
        run.toSend = count - first;
        return timed([&] {
            for (std::size_t i = 0; i < first; ++i)
                run.send();
            run.outcome.wait();
        });
    }

    double callbacks(std::size_t count) {
        Outcome outcome;
        proxy(outcome)->callBack(static_cast<std::int64_t>(count), [&](std::int64_t nanoseconds) {
            outcome.finish(static_cast<double>(nanoseconds));
        });
        return outcome.wait();
    }

    /// From the request to the reply callback with the live objects, whose array the service has
    /// ready. That this thread is woken after it does not count.
    double items(std::size_t count) {
        Outcome prepared;
        proxy(prepared)->prepareItems(static_cast<std::int64_t>(count),
                                      [&](bool) { prepared.finish(); });
        prepared.wait();
        Outcome outcome;
        const auto service = proxy(outcome);
        SizeItems received;
        const auto start = Clock::now();
        service->items([&](SizeItems items) {
            received = std::move(items);
            outcome.finish(std::chrono::duration<double, std::nano>(Clock::now() - start).count());
        });
        const double time = outcome.wait();
        if (received.size() != count)
            throw std::runtime_error("not all items came");
        return time;
    }

    /// The same with data of that many bytes. `mostMemory`: what the service had for it, in bytes.
    double data(std::size_t size, double& mostMemory) {
        Outcome prepared;
        proxy(prepared)->prepareData(static_cast<std::int64_t>(size),
                                     [&](bool) { prepared.finish(); });
        prepared.wait();
        Outcome outcome;
        const auto service = proxy(outcome);
        NSData received;
        const auto start = Clock::now();
        service->data([&](NSData data) {
            received = std::move(data);
            outcome.finish(std::chrono::duration<double, std::nano>(Clock::now() - start).count());
        });
        const double time = outcome.wait();
        if (received.size() != size)
            throw std::runtime_error("not all data came");
        Outcome most;
        proxy(most)->mostMemory(
            [&](std::int64_t bytes) { most.finish(static_cast<double>(bytes)); });
        mostMemory = most.wait();
        return time;
    }

  private:
    std::shared_ptr<Bench> proxy(Outcome& outcome) {
        return connection_->remoteObjectProxyWithErrorHandler<Bench>(
            [&outcome](const NSErrorRef& error) { outcome.fail(error); });
    }

    std::shared_ptr<NSXPCConnection> connection_;
};

/// The bench's service behind a well-known socket.
class ListeningService {
  public:
    ListeningService() { setenv("MORVANE_RUNTIME_DIR", folder.path().c_str(), 1); }
    const morvane::TemporaryFolder folder;

  private:
    struct Listening {
        explicit Listening(const std::string& path) : descriptor(listenAt(path)) {}
        ~Listening() { close(descriptor); }
        const int descriptor;
    };
    const Listening listening_{folder.path() / (std::string(serviceName) + ".sock")};

  public:
    const Child process{serviceName, "activated", listening_.descriptor};
};

/// What a process takes.
struct Usage {
    double threads = 0;
    double descriptors = 0;
    double bytes = 0;
};

Usage usageOf(pid_t process) {
    const std::string folder = "/proc/" + std::to_string(process);
    Usage usage;
    std::ifstream status(folder + "/status");
    for (std::string word; status >> word;) {
        if (word == "Threads:")
            status >> usage.threads;
        if (word == "VmRSS:" && status >> usage.bytes)
            usage.bytes *= 1024;
    }
    const std::filesystem::directory_iterator descriptors(folder + "/fd");
    usage.descriptors = static_cast<double>(std::distance(begin(descriptors), end(descriptors)));
    return usage;
}

/// A new connection to the well-known socket until the callback with its first reply, each time.
/// As with the round trips it does not count that this thread is woken after it; nor does the
/// connection's end, which is waited for until nothing of the connection is left.
double connectsToService(std::size_t count) {
    double time = 0;
    for (std::size_t i = 0; i < count; ++i) {
        Outcome reply;
        Outcome end;
        const auto start = Clock::now();
        auto connection = NSXPCConnection::initWithMachServiceName(serviceName, 0);
        // What the connection holds goes after its socket.
        const auto interface = benchInterface();
        connection->setRemoteObjectInterface(
            {interface.get(), [interface, end](auto*) mutable { end.finish(); }});
        connection->resume();
        connection
            ->remoteObjectProxyWithErrorHandler<Bench>(
                [&](const NSErrorRef& error) { reply.fail(error); })
            ->echo(NSData(messageSize, 'x'), [&](const NSData&) {
                reply.finish(
                    std::chrono::duration<double, std::nano>(Clock::now() - start).count());
            });
        time += reply.wait();
        connection->invalidate();
        connection.reset();
        end.wait();
    }
    return time;
}

}  // namespace

Lines roundTrip64(const Options& options) {
    Client client;
    RawEcho raw;
    BusEcho bus;
    return compare(
        {.row = "round-trip-64",
         .ours = {"", [&](std::size_t count) { return client.echoes(count, 1); }},
         .peers = {{"raw socket", [&](std::size_t count) { return raw.roundTrips(count); }},
                   {"sd-bus", [&](std::size_t count) { return bus.roundTrips(count); }}},
         .required = Requirement::atMostTimes(1.5),
         .limit = {},
         .note = {}},
        options);
}

Lines callback64(const Options& options) {
    Client client;
    RawEcho raw;
    BusEcho bus;
    return compare(
        {.row = "callback-64",
         .ours = {"", [&](std::size_t count) { return client.callbacks(count); }},
         .peers = {{"raw socket", [&](std::size_t count) { return raw.roundTrips(count); }},
                   {"sd-bus", [&](std::size_t count) { return bus.roundTrips(count); }}},
         .required = Requirement::atMostTimes(1.5),
         .limit = {},
         .note = {}},
        options);
}

Lines pipelined64(const Options& options) {
    constexpr std::size_t outstanding = 64;
    Client client;
    RawEcho raw;
    return compare(
        {.row = "pipelined-64",
         .ours = {"", [&](std::size_t count) { return client.echoes(count, outstanding); }},
         .peers = {{"raw socket",
                    [&](std::size_t count) { return raw.pipelined(count, outstanding); }}},
         .required = Requirement::timesFaster(1),
         .limit = {},
         .asRate = true,
         .note = {}},
        options);
}

Lines connectFirstReply(const Options& options) {
    const ListeningService service;
    RawConnect raw(service.folder.path() / "raw.sock");
    return compare(
        {.row = "connect-first-reply",
         .ours = {"", connectsToService},
         .peers = {{"raw socket", [&](std::size_t count) { return raw.connects(count); }}},
         .required = Requirement::atMostTimes(2),
         .limit = {},
         .note = {}},
        options);
}

Lines reply64m(const Options& options) {
    constexpr std::size_t size = std::size_t{64} << 20;
    constexpr double limit = static_cast<double>(size) / 200e6 * 1e9;  // 200 MB a second
    constexpr double mostTimes = 1.3;
    Client client;
    std::vector<double> memory;
    auto lines = compare({.row = "reply-64m",
                          .ours = {"",
                                   [&](std::size_t count) {
                                       double time = 0;
                                       for (std::size_t i = 0; i < count; ++i)
                                           time += client.data(size, memory.emplace_back());
                                       return time;
                                   }},
                          .peers = {},
                          .required = Requirement::atMostTimes(1),
                          .limit = limit,
                          .note = "64 MB of data"},
                         options);
    Line most;
    most.row = "reply-64m-memory";
    most.isBytes = true;
    most.ours = summarize(memory);
    most.peerName = "the reply";
    most.peer = Summary{size, size, size};
    for (auto& bytes : memory)
        bytes /= static_cast<double>(size);
    most.ratio = summarize(memory);
    most.required = Requirement::atMostTimes(mostTimes);
    most.note = "most memory of the service";
    lines.push_back(std::move(most));
    return lines;
}

Lines idleClients1000(const Options&) {
    constexpr std::size_t clients = 1000;
    constexpr double threads = 16;  // those of a single client that is busy
    constexpr double otherDescriptors = 16;
    constexpr double bytesEach = 4096;
    rlimit files{};
    getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = files.rlim_max;  // of the service, too
    setrlimit(RLIMIT_NOFILE, &files);
    const ListeningService service;
    std::vector<std::shared_ptr<NSXPCConnection>> connections;
    const auto connect = [&] {
        Outcome reply;
        const auto connection = NSXPCConnection::initWithMachServiceName(serviceName, 0);
        connection->setRemoteObjectInterface(benchInterface());
        connection->resume();
        connection
            ->remoteObjectProxyWithErrorHandler<Bench>(
                [&](const NSErrorRef& error) { reply.fail(error); })
            ->echo(NSData(messageSize, 'x'), [&](const NSData&) { reply.finish(); });
        reply.wait();
        connections.push_back(connection);
    };
    connect();  // what the first one costs is the service's own
    const auto before = usageOf(service.process.process());
    while (connections.size() <= clients)
        connect();
    // No thread lingers with a client any more.
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    const auto after = usageOf(service.process.process());
    for (const auto& connection : connections)
        connection->invalidate();
    return {countedLine("idle-clients-1000", after.threads, "threads", threads),
            countedLine("idle-clients-1000", after.descriptors, "descriptors",
                        clients + otherDescriptors),
            countedLine("idle-clients-1000",
                        (after.bytes - before.bytes) / static_cast<double>(clients),
                        "bytes for each", bytesEach)};
}

Lines items100k(const Options& options) {
    constexpr std::size_t items = 100000;
    constexpr double limit = 10e6;
    Client client;
    return compare({.row = "items-100k",
                    .ours = {"",
                             [&](std::size_t count) {
                                 double time = 0;
                                 for (std::size_t i = 0; i < count; ++i)
                                     time += client.items(items);
                                 return time;
                             }},
                    .peers = {},
                    .required = Requirement::atMostTimes(1),
                    .limit = limit,
                    .note = {}},
                   options);
}

}  // namespace bench
