// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/foundation/NSUncaughtException.h>

#include <cstdio>
#include <memory>
#include <mutex>

namespace morvane {
namespace {

void sayAndTerminate(const NSUncaughtException& uncaught) {
    const auto tell = [&](const char* what) {
        std::fprintf(stderr, "MorvaneOperation: the %.*s of \"%.*s\" has thrown an exception: %s\n",
                     static_cast<int>(uncaught.callback.size()), uncaught.callback.data(),
                     static_cast<int>(uncaught.of.size()), uncaught.of.data(), what);
    };
    // Ended inside the catch clause: a terminate handler can still see what was thrown.
    try {
        std::rethrow_exception(uncaught.exception);
    } catch (const std::exception& exception) {
        tell(exception.what());
        std::terminate();
    } catch (...) {
        tell("not a std::exception");
        std::terminate();
    }
}

struct HandlerInUse {
    std::mutex mutex;
    std::shared_ptr<const NSUncaughtExceptionHandler> handler;
};

HandlerInUse& inUse() {
    static auto* const shared = new HandlerInUse;  // callbacks may outlive every static object
    return *shared;
}

}  // namespace

void NSSetUncaughtExceptionHandler(NSUncaughtExceptionHandler handler) {
    auto shared =
        handler ? std::make_shared<const NSUncaughtExceptionHandler>(std::move(handler)) : nullptr;
    const std::lock_guard lock(inUse().mutex);
    inUse().handler.swap(shared);
}

void reportUncaughtException(std::string_view callback, std::string_view of) noexcept {
    const NSUncaughtException uncaught{callback, of, std::current_exception()};
    const auto handler = [] {
        const std::lock_guard lock(inUse().mutex);
        return inUse().handler;
    }();
    if (handler)
        (*handler)(uncaught);
    else
        sayAndTerminate(uncaught);
}

}  // namespace morvane
