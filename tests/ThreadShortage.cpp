// SPDX-License-Identifier: MIT
#include "ThreadShortage.h"

#include <dlfcn.h>
#include <pthread.h>

#include <cerrno>

namespace morvane {

std::atomic<bool> noThreads = false;

}  // namespace morvane

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*start)(void*), void* argument) {
    using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    // A sanitizer must hear of each thread. Where it is part of this program, not of a library
    // after it, its own pthread_create goes by this name.
    static void* const sanitized = dlsym(RTLD_DEFAULT, "__interceptor_pthread_create");
    static const auto create =
        reinterpret_cast<Create>(sanitized ? sanitized : dlsym(RTLD_NEXT, "pthread_create"));
    return morvane::noThreads ? EAGAIN : create(thread, attributes, start, argument);
}
