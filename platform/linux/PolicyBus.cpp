// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/linux/PolicyBus.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <ctime>
#include <memory>
#include <string_view>

namespace morvane {
namespace {

constexpr const char* policyName = "org.freedesktop.PolicyKit1";
constexpr const char* policyPath = "/org/freedesktop/PolicyKit1/Authority";
constexpr const char* policyInterface = "org.freedesktop.PolicyKit1.Authority";
constexpr std::string_view policyErrors = "org.freedesktop.PolicyKit1.Error.";

struct MessageUnref {
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using Message = std::unique_ptr<sd_bus_message, MessageUnref>;

struct SlotUnref {
    void operator()(sd_bus_slot* slot) const { sd_bus_slot_unref(slot); }
};

/// Converts a time of the monotonic clock in microseconds to a timeout for poll().
int millisecondsUntil(std::uint64_t time) {
    if (time == UINT64_MAX)
        return -1;
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const auto at = static_cast<std::uint64_t>(now.tv_sec) * 1000000 +
                    static_cast<std::uint64_t>(now.tv_nsec) / 1000;
    return time <= at
               ? 0
               : static_cast<int>(std::min<std::uint64_t>((time - at + 999) / 1000, INT_MAX));
}

}  // namespace

/// A call that waits for its answer, which stays null if none comes.
struct PolicyBus::Call {
    bool hasEnded = false;
    Message answer;

    static int end(sd_bus_message* answer, void* call, sd_bus_error*) {
        auto& ended = *static_cast<Call*>(call);
        ended.hasEnded = true;
        ended.answer.reset(sd_bus_message_ref(answer));
        return 1;
    }
};

void PolicyBus::CloseBus::operator()(sd_bus* bus) const {
    sd_bus_close_unref(bus);
}

PolicyBus& PolicyBus::shared() {
    static auto* const bus = new PolicyBus;
    return *bus;
}

bool PolicyBus::connect() {
    const std::lock_guard lock(mutex_);
    return isConnected() || reconnect();
}

/// The caller that receives notices by itself when the connection is lost.
bool PolicyBus::isConnected() {
    if (bus_ && !isListening_) {
        int processed = 1;
        while (processed > 0)
            processed = sd_bus_process(bus_.get(), nullptr);
        if (processed < 0)
            drop();
    }
    return bus_ != nullptr;
}

bool PolicyBus::reconnect() {
    if (!wake_)
        wake_ = FileDescriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!wake_)
        return false;
    sd_bus* opened = nullptr;
    if (sd_bus_open_system(&opened) >= 0) {
        bus_.reset(opened);
        // This returns once the bus has given the connection its unique name.
        const char* name = nullptr;
        if (sd_bus_get_unique_name(opened, &name) < 0)
            drop();
    }
    return bus_ != nullptr;
}

void PolicyBus::drop() {
    bus_.reset();
    for (auto* const call : calls_)
        call->hasEnded = true;
    turn_.notify_all();
}

/// Receives the next message from the bus, for all calls. Returns false if the connection is lost.
bool PolicyBus::listen(std::unique_lock<std::mutex>& lock) {
    isListening_ = true;
    int processed = sd_bus_process(bus_.get(), nullptr);
    if (processed == 0) {
        std::uint64_t until = UINT64_MAX;
        sd_bus_get_timeout(bus_.get(), &until);
        pollfd files[] = {
            {sd_bus_get_fd(bus_.get()), static_cast<short>(sd_bus_get_events(bus_.get())), 0},
            {wake_.get(), POLLIN, 0}};
        lock.unlock();
        ::poll(files, std::size(files), millisecondsUntil(until));
        lock.lock();
        if (eventfd_t count = 0; (files[1].revents & POLLIN) != 0)
            eventfd_read(wake_.get(), &count);
    }
    isListening_ = false;
    turn_.notify_all();
    return processed >= 0;
}

PolicyBus::Outcome PolicyBus::call(const char* method, const Writer& write,
                                   std::optional<std::chrono::microseconds> limit,
                                   const Reader& read) {
    // The reference counts of messages are not atomic: whoever touches a message holds this lock.
    std::unique_lock lock(mutex_);
    Call call;
    if (!isConnected() && !reconnect())
        return Outcome::unreachable;
    sd_bus_message* made = nullptr;
    if (sd_bus_message_new_method_call(bus_.get(), &made, policyName, policyPath, policyInterface,
                                       method) < 0)
        return Outcome::unreachable;
    const Message question(made);
    sd_bus_slot* slot = nullptr;
    const auto microseconds = limit ? static_cast<std::uint64_t>(limit->count()) : UINT64_MAX;
    if (write(made) < 0 ||
        sd_bus_call_async(bus_.get(), &slot, made, Call::end, &call, microseconds) < 0)
        return Outcome::unreachable;
    const std::unique_ptr<sd_bus_slot, SlotUnref> held(slot);
    calls_.push_back(&call);
    if (isListening_)
        eventfd_write(wake_.get(), 1);
    while (!call.hasEnded) {
        if (isListening_) {
            turn_.wait(lock);
        } else if (!listen(lock)) {
            drop();
        }
    }
    std::erase(calls_, &call);
    if (!call.answer)
        return Outcome::unreachable;
    if (const auto* const error = sd_bus_message_get_error(call.answer.get())) {
        return std::string_view(error->name).starts_with(policyErrors) ? Outcome::refused
                                                                       : Outcome::unreachable;
    }
    read(call.answer.get());
    return Outcome::answered;
}

}  // namespace morvane
