// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/linux/FileDescriptor.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

struct sd_bus;
struct sd_bus_message;

/// Calls of the system's policy service over one connection to the system bus.
///
///     PolicyBus::shared().call(
///         "EnumerateActions", [](sd_bus_message* m) { return sd_bus_message_append(m, "s", ""); },
///         std::chrono::minutes(1), [&](sd_bus_message* answer) { ... });
///
/// Any thread; a call blocks until it is answered, and holds no other one up. A call makes no
/// thread and no descriptor: of those who wait, one listens for all. Only where the bus has gone
/// away is it connected to anew, in the place of the former connection. Where anything is not to be
/// had, the outcome is that nobody answers. Nothing here throws but what runs out of memory.
namespace morvane {

class PolicyBus {
  public:
    /// The process's own, which outlives static objects.
    static PolicyBus& shared();

    PolicyBus() = default;
    PolicyBus(const PolicyBus&) = delete;
    PolicyBus& operator=(const PolicyBus&) = delete;

    enum class Outcome {
        answered,
        /// The policy service itself answers with an error.
        refused,
        /// Nobody answers, or not in time.
        unreachable,
    };
    /// Writes a question's arguments, and reads its answer: negative on failure, as sd-bus does it.
    using Writer = std::function<int(sd_bus_message*)>;
    using Reader = std::function<void(sd_bus_message*)>;

    /// Connects ahead of the first call. False if there is no bus to connect to; a call then tries
    /// again.
    bool connect();
    /// Without a `limit` the answer is waited for without end. `read` runs on this thread, and only
    /// if the outcome is that it was answered.
    Outcome call(const char* method, const Writer& write,
                 std::optional<std::chrono::microseconds> limit, const Reader& read);

  private:
    struct Call;
    struct CloseBus {
        void operator()(sd_bus* bus) const;
    };

    bool isConnected();
    bool reconnect();
    bool listen(std::unique_lock<std::mutex>& lock);
    void drop();

    std::mutex mutex_;
    std::condition_variable turn_;
    std::unique_ptr<sd_bus, CloseBus> bus_;
    std::vector<Call*> calls_;
    /// Whether one of those who wait listens to the bus.
    bool isListening_ = false;
    /// Wakes who listens, when there is a new call.
    FileDescriptor wake_;
};

}  // namespace morvane
