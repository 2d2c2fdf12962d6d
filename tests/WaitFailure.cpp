// SPDX-License-Identifier: MIT
#include "WaitFailure.h"

#include <dlfcn.h>
#include <sys/epoll.h>

#include <cerrno>

namespace morvane {

std::atomic<bool> noWaiting = false;

}  // namespace morvane

extern "C" int epoll_wait(int epoll, epoll_event* events, int most, int milliseconds) {
    using Wait = int (*)(int, epoll_event*, int, int);
    // As for ThreadShortage.cpp.
    static void* const sanitized = dlsym(RTLD_DEFAULT, "__interceptor_epoll_wait");
    static const auto wait =
        reinterpret_cast<Wait>(sanitized ? sanitized : dlsym(RTLD_NEXT, "epoll_wait"));
    if (morvane::noWaiting) {
        errno = ENOMEM;
        return -1;
    }
    return wait(epoll, events, most, milliseconds);
}
