// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/Export.h>

#include <exception>
#include <functional>
#include <string_view>
#include <utility>

namespace morvane {

/// What becomes of an exception that a callback of the host lets out on a thread of the library's:
/// the reply, error, interruption or invalidation handler of a connection, or a task of a queue.
/// Nobody above could catch it there.
///
///     NSSetUncaughtExceptionHandler([](const NSUncaughtException& uncaught) {
///         show(std::string(uncaught.callback) + " of " + std::string(uncaught.of));
///     });
///
/// It ends the callback, and with it the request's or the task's work; nothing else is called for
/// that request. The exception then goes to the handler that the host has set. If this returns, the
/// library goes on: the connection and the queue are as they were. The handler that is there from
/// the start says on standard error what was thrown and from which callback, and ends the process
/// with std::terminate().
///
/// Not meant here: a callback that runs inside a call of the host's throws to that caller, and what
/// an exported object throws goes to the peer, as the request's refusal.
struct NSUncaughtException {
    /// "reply", "error handler", "interruption handler", "invalidation handler" or "task".
    std::string_view callback;
    /// What it belongs to: the request's selector, the connection's service, or the queue's label.
    std::string_view of;
    std::exception_ptr exception;
};

using NSUncaughtExceptionHandler = std::function<void(const NSUncaughtException&)>;

/// Any thread. The handler may run on several threads at once, and must not throw. An empty one
/// puts back that of the start.
MORVANE_EXPORT void NSSetUncaughtExceptionHandler(NSUncaughtExceptionHandler handler);

/// Inside a catch clause.
MORVANE_EXPORT void reportUncaughtException(std::string_view callback,
                                            std::string_view of) noexcept;

/// Calls a callback of the host's where nobody could catch what it throws.
template <class Callback>
void callOut(std::string_view name, std::string_view of, Callback&& callback) noexcept {
    try {
        std::forward<Callback>(callback)();
    } catch (...) {
        reportUncaughtException(name, of);
    }
}

}  // namespace morvane
