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
/// Calls may be made on any thread; each blocks until it is answered and delays no other one. A
/// call needs no thread and no descriptor of its own: one of the callers that wait receives the
/// messages for all. If the connection to the bus was lost, the next call makes a new one in its
/// place. If any resource is missing, the outcome is that nobody answers. Only running out of
/// memory throws.
namespace morvane {

class PolicyBus {
  public:
    /// The one of this process, which outlives static objects.
    static PolicyBus& shared();

    PolicyBus() = default;
    PolicyBus(const PolicyBus&) = delete;
    PolicyBus& operator=(const PolicyBus&) = delete;

    enum class Outcome {
        answered,
        /// The policy service itself answered with an error.
        refused,
        /// No answer came, or not in time.
        unreachable,
    };
    /// Functions that write the arguments of a question and read its answer; they return a negative
    /// number on failure, as those of sd-bus do.
    using Writer = std::function<int(sd_bus_message*)>;
    using Reader = std::function<void(sd_bus_message*)>;

    /// Connects before the first call. Returns false if there is no bus to connect to; the next
    /// call then tries again.
    bool connect();
    /// Without a `limit` the call waits for the answer without end. `read` runs on this thread, and
    /// only if an answer came.
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
    /// Whether one of the waiting callers receives messages from the bus.
    bool isListening_ = false;
    /// Wakes the caller that receives, when there is a new call.
    FileDescriptor wake_;
};

}  // namespace morvane
