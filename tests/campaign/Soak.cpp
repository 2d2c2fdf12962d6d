// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/xpc/NSXPCConnection.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "CountedProtocol.h"

/// Soak REQUESTS KILLS THREADS: sends so many requests from several threads on one connection while
/// its service is killed so often, and prints one line of JSON: how the requests have ended, what
/// came out of order, and what of descriptors, threads and memory was in use early and late. The
/// exit status is 1 if a request never ended, ended twice or came out of order.
namespace {

using namespace morvane;

/// Requests that a thread has outstanding.
constexpr long window = 32;
constexpr std::chrono::seconds patience{60};

std::atomic<long> answered = 0;
std::atomic<long> interrupted = 0;
std::atomic<long> invalid = 0;
std::atomic<long> doubled = 0;
std::atomic<long> disorder = 0;

struct Use {
    long descriptors = 0;
    long threads = 0;
    long kilobytes = 0;
};

Use useNow() {
    Use use;
    for (const auto& each : std::filesystem::directory_iterator("/proc/self/fd"))
        use.descriptors += each.exists() ? 1 : 1;
    for (const auto& each : std::filesystem::directory_iterator("/proc/self/task"))
        use.threads += each.exists() ? 1 : 1;
    long total = 0;
    std::ifstream("/proc/self/statm") >> total >> use.kilobytes;
    use.kilobytes *= sysconf(_SC_PAGESIZE) / 1024;
    return use;
}

/// The connection of the moment; a new one when the last has become invalid.
class Connections {
  public:
    std::shared_ptr<NSXPCConnection> current() {
        const std::lock_guard lock(mutex_);
        if (!connection_) {
            connection_ = NSXPCConnection::initWithServiceName("counting_service");
            connection_->setRemoteObjectInterface(NSXPCInterface::interfaceWithProtocol<Counted>());
            connection_->resume();
        }
        return connection_;
    }
    void drop(const std::shared_ptr<NSXPCConnection>& dropped) {
        std::shared_ptr<NSXPCConnection> old;
        const std::lock_guard lock(mutex_);
        if (connection_ == dropped)
            old.swap(connection_);
    }

  private:
    std::mutex mutex_;
    std::shared_ptr<NSXPCConnection> connection_;
};
Connections connections;

struct Sender {
    std::mutex mutex;
    std::condition_variable ended;
    long outstanding = 0;
    bool lost = false;
};

void send(Sender& sender, std::int64_t number, std::int64_t who) {
    struct Once {
        std::atomic<int> ends = 0;
    };
    const auto once = std::make_shared<Once>();
    const auto end = [&sender, once](std::atomic<long>& how) {
        if (once->ends++ != 0) {
            ++doubled;
            return;
        }
        ++how;
        const std::lock_guard lock(sender.mutex);
        --sender.outstanding;
        sender.ended.notify_all();
    };
    {
        const std::lock_guard lock(sender.mutex);
        ++sender.outstanding;
    }
    const auto connection = connections.current();
    const auto weak = std::weak_ptr(connection);
    connection
        ->remoteObjectProxyWithErrorHandler<Counted>([end, weak](NSErrorRef error) {
            const bool gone = error->code() == NSXPCConnectionInvalid;
            if (gone) {
                if (const auto dropped = weak.lock())
                    connections.drop(dropped);
            }
            end(gone ? invalid : interrupted);
        })
        ->count(number, who, [end](std::int64_t outOfOrder, NSErrorRef) {
            auto most = disorder.load();
            while (outOfOrder > most && !disorder.compare_exchange_weak(most, outOfOrder)) {
            }
            end(answered);
        });
}

void work(Sender& sender, std::int64_t who, long count) {
    for (long number = 1; number <= count; ++number) {
        {
            std::unique_lock lock(sender.mutex);
            if (!sender.ended.wait_for(lock, patience,
                                       [&] { return sender.outstanding < window; })) {
                sender.lost = true;
                return;
            }
        }
        send(sender, number, who);
    }
    std::unique_lock lock(sender.mutex);
    sender.lost = !sender.ended.wait_for(lock, patience, [&] { return sender.outstanding == 0; });
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4)
        return 64;
    const long requests = std::atol(argv[1]);
    const long kills = std::atol(argv[2]);
    const long threads = std::atol(argv[3]);
    const long each = requests / threads;
    std::vector<Sender> senders(static_cast<std::size_t>(threads));
    std::vector<std::thread> working;
    for (long i = 0; i != threads; ++i)
        working.emplace_back([&, i] { work(senders[static_cast<std::size_t>(i)], i, each); });
    const auto ended = [] { return answered + interrupted + invalid; };
    Use early;
    long killed = 0;
    long nextKill = 0;
    std::atomic<bool> done = false;
    std::thread killer([&] {
        while (!done && killed < kills) {
            if (ended() < nextKill) {
                std::this_thread::yield();
                continue;
            }
            const auto service = connections.current()->processIdentifier();
            if (service && kill(static_cast<pid_t>(*service), SIGKILL) == 0) {
                ++killed;
                nextKill = ended() + (each * threads - ended()) / (kills - killed + 1);
            }
            if (killed == kills / 10)
                early = useNow();
        }
    });
    for (auto& thread : working)
        thread.join();
    done = true;
    killer.join();
    const auto late = useNow();
    long lost = 0;
    for (auto& sender : senders)
        lost += sender.outstanding;
    std::printf(
        "{\"requests\": %ld, \"answered\": %ld, \"interrupted\": %ld, \"invalid\": %ld, \"never "
        "ended\": %ld, "
        "\"ended twice\": %ld, \"out of order\": %ld, \"kills\": %ld, "
        "\"descriptors\": [%ld, %ld], \"threads\": [%ld, %ld], \"kilobytes\": [%ld, %ld]}\n",
        each * threads, answered.load(), interrupted.load(), invalid.load(), lost, doubled.load(),
        disorder.load(), killed, early.descriptors, late.descriptors, early.threads, late.threads,
        early.kilobytes, late.kilobytes);
    return lost != 0 || doubled != 0 || disorder != 0 ? 1 : 0;
}
