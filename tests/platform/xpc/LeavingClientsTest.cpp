// SPDX-License-Identifier: MIT
#include <chrono>
#include <condition_variable>
#include <future>
#include <mutex>
#include <thread>

#include "MemoryShortage.h"
#include "XpcTestSupport.h"

/// What stays of clients that have left: whoever connects and leaves, again and again, must not
/// fill the memory of the service.
namespace morvane {
namespace {

constexpr int clientsThatLeave = 50;

/// Tells how often it was waited for.
class WatchedSocket final : public FakeStreamSocket {
  public:
    explicit WatchedSocket(const std::pair<std::shared_ptr<Pipe>, std::shared_ptr<Pipe>>& pipes)
        : FakeStreamSocket(pipes.first, pipes.second) {}

    void whenReadable(std::function<void()> reading) override {
        FakeStreamSocket::whenReadable(std::move(reading));
        const std::lock_guard lock(mutex_);
        ++waits_;
        changed_.notify_all();
    }
    bool waitUntilWaitedFor(int times) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, watchdog, [&] { return waits_ >= times; });
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    int waits_ = 0;
};

/// Sends the beginning of a frame, is waited for, and leaves.
void knock() {
    const auto to = std::make_shared<FakeStreamSocket::Pipe>();
    const auto from = std::make_shared<FakeStreamSocket::Pipe>();
    const auto near = std::make_shared<FakeStreamSocket>(from, to);
    const auto far = std::make_shared<WatchedSocket>(std::pair(to, from));
    const auto core = std::make_shared<NSXPCConnection::Core>("client", far);
    core->incoming.frameTime = std::chrono::hours(1);
    const auto connection = std::make_shared<NSXPCConnection>(core);
    std::promise<void> ended;
    connection->setExportedInterface(NSXPCInterface::interfaceWithProtocol<Echo>());
    connection->setExportedObject<Echo>(std::make_shared<EchoService>());
    connection->setInvalidationHandler([&] { ended.set_value(); });
    connection->resume();
    const std::vector<std::uint8_t> beginning = {'M', 'V', 'X', '1', 1, 0};
    const StreamSocket::Bytes bytes(beginning);
    near->send({&bytes, 1});
    // For the first byte, then for the rest.
    EXPECT_TRUE(far->waitUntilWaitedFor(2));
    near->shutdown();
    EXPECT_EQ(ended.get_future().wait_for(watchdog), std::future_status::ready);
}

TEST(LeavingClients, NothingOfThemStaysUntilTheTimeOfTheirFramesIsOver) {
    knock();  // what is made once is there
    const auto before = allocationsHeld();
    for (int i = 0; i < clientsThatLeave; ++i)
        knock();
    // Some threads more may be idle; of each client less than one allocation has stayed.
    const auto end = std::chrono::steady_clock::now() + watchdog;
    while (allocationsHeld() >= before + clientsThatLeave && std::chrono::steady_clock::now() < end)
        std::this_thread::yield();
    EXPECT_LT(allocationsHeld(), before + clientsThatLeave);
}

/// Takes nothing.
class FullSocket final : public StreamSocket {
  public:
    std::size_t receive(std::span<std::uint8_t>, const Deadline&) override { return 0; }
    std::optional<std::size_t> send(std::span<const Bytes>) override {
        return ended_ ? std::nullopt : std::optional<std::size_t>(0);
    }
    void whenWritable(std::function<void()> sending) override { sending_ = std::move(sending); }
    void shutdown() override {
        ended_ = true;
        if (const auto sending = std::exchange(sending_, nullptr))
            sending();
    }
    std::optional<PeerCredentials> peer() const override { return std::nullopt; }

  private:
    std::function<void()> sending_;
    bool ended_ = false;
};

void owe() {
    const auto socket = std::make_shared<FullSocket>();
    const auto outbox =
        std::make_shared<Outbox>(socket, Outbox::Limits{.frameTime = std::chrono::hours(1)});
    outbox->send(FrameKind::reply, 1, {}, NSData(10, 'x'));
    socket->shutdown();
}

TEST(LeavingClients, NothingOfWhatTheyAreOwedStaysUntilItsTimeIsOver) {
    owe();
    const auto before = allocationsHeld();
    for (int i = 0; i < clientsThatLeave; ++i)
        owe();
    EXPECT_LT(allocationsHeld(), before + clientsThatLeave);
}

}  // namespace
}  // namespace morvane
