// SPDX-License-Identifier: MIT
// A library for LD_PRELOAD in whose process one kind of call fails, at its N-th use or from then
// on.
//
// environment: FAILING_CALL, the function's name; FAILING_AT, N; FAILING_FOR_GOOD, "1" if all that
// follow fail too; FAILING_PROGRAM, the end of the program's name (other programs are left alone);
// FAILING_MARK, a file that is made when the first call has failed. With FAILING_AT=0 nothing
// fails.
//
// An item whose name is "slow" takes half a second in each process that looks at it, so that a
// client is asked whether to go on.
//
// The program may call failingCallsBegin() and failingCallsEnd(), between which alone calls count;
// a program that does not is counted from its start on.
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <spawn.h>
#include <stddef.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
}

namespace {

struct Plan {
    const char* call = nullptr;
    long at = 0;
    bool forGood = false;
    const char* mark = nullptr;
};

Plan plan;
std::atomic<bool> counting = false;
std::atomic<long> calls = 0;

/// Before main(), so that nothing has to be looked up later.
__attribute__((constructor)) void readPlan() {
    const char* const program = getenv("FAILING_PROGRAM");
    const char* const at = getenv("FAILING_AT");
    plan.call = getenv("FAILING_CALL");
    plan.mark = getenv("FAILING_MARK");
    if (!program || !plan.call || !at)
        return;
    char name[4096];
    const auto length = readlink("/proc/self/exe", name, sizeof name - 1);
    if (length <= 0)
        return;
    name[length] = 0;
    const auto tail = strlen(program);
    if (static_cast<size_t>(length) < tail || strcmp(name + length - tail, program) != 0)
        return;
    plan.at = atol(at);
    const char* const forGood = getenv("FAILING_FOR_GOOD");
    plan.forGood = forGood && *forGood == '1';
    // A service that is started again is not struck again.
    if (!plan.forGood && plan.mark && access(plan.mark, F_OK) == 0)
        plan.at = 0;
    counting = !getenv("FAILING_WAITS");
}

bool fails(const char* call) {
    if (!counting.load(std::memory_order_relaxed) || plan.at == 0 || strcmp(call, plan.call) != 0)
        return false;
    const long now = ++calls;
    if (now < plan.at || (now > plan.at && !plan.forGood))
        return false;
    if (now == plan.at && plan.mark)
        syscall(SYS_close,
                syscall(SYS_openat, AT_FDCWD, plan.mark, O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
    return true;
}

template <class F>
F next(const char* name) {
    return reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

void failingCallsBegin() {
    counting = true;
}
void failingCallsEnd() {
    counting = false;
}

void* malloc(size_t size) {
    if (fails("malloc")) {
        errno = ENOMEM;
        return nullptr;
    }
    return __libc_malloc(size);
}
void* calloc(size_t count, size_t size) {
    if (fails("malloc")) {
        errno = ENOMEM;
        return nullptr;
    }
    return __libc_calloc(count, size);
}
void* realloc(void* old, size_t size) {
    if (fails("malloc")) {
        errno = ENOMEM;
        return nullptr;
    }
    return __libc_realloc(old, size);
}

// FAILING(result type, name, parameters, arguments, what it returns when it fails, its error)
#define FAILING(TYPE, NAME, PARAMETERS, ARGUMENTS, FAILURE, ERROR) \
    TYPE NAME PARAMETERS {                                         \
        static const auto real = next<TYPE(*) PARAMETERS>(#NAME);  \
        if (fails(#NAME)) {                                        \
            errno = ERROR;                                         \
            return FAILURE;                                        \
        }                                                          \
        return real ARGUMENTS;                                     \
    }

FAILING(ssize_t, read, (int fd, void* to, size_t size), (fd, to, size), -1, EIO)
FAILING(ssize_t, recvmsg, (int fd, msghdr* message, int flags), (fd, message, flags), -1,
        ECONNRESET)
FAILING(ssize_t, send, (int fd, const void* from, size_t size, int flags), (fd, from, size, flags),
        -1, ENOBUFS)
FAILING(ssize_t, sendmsg, (int fd, const msghdr* message, int flags), (fd, message, flags), -1,
        ENOBUFS)
FAILING(int, epoll_wait, (int fd, epoll_event* events, int most, int time),
        (fd, events, most, time), -1, EBADF)
FAILING(int, socketpair, (int domain, int type, int protocol, int* pair),
        (domain, type, protocol, pair), -1, EMFILE)
FAILING(int, accept4, (int fd, sockaddr* address, socklen_t* length, int flags),
        (fd, address, length, flags), -1, EMFILE)
FAILING(int, posix_spawn,
        (pid_t * child, const char* path, const posix_spawn_file_actions_t* actions,
         const posix_spawnattr_t* attributes, char* const* arguments, char* const* environment),
        (child, path, actions, attributes, arguments, environment), EAGAIN, EAGAIN)
FAILING(int, eventfd, (unsigned value, int flags), (value, flags), -1, EMFILE)
FAILING(int, pthread_create,
        (pthread_t * thread, const pthread_attr_t* attributes, void* (*start)(void*),
         void* argument),
        (thread, attributes, start, argument), EAGAIN, EAGAIN)
FAILING(ssize_t, getxattr, (const char* path, const char* name, void* value, size_t size),
        (path, name, value, size), -1, EIO)
FAILING(ssize_t, fgetxattr, (int fd, const char* name, void* value, size_t size),
        (fd, name, value, size), -1, EIO)
FAILING(int, setxattr,
        (const char* path, const char* name, const void* value, size_t size, int flags),
        (path, name, value, size, flags), -1, ENOSPC)
FAILING(int, fsetxattr, (int fd, const char* name, const void* value, size_t size, int flags),
        (fd, name, value, size, flags), -1, ENOSPC)
FAILING(void*, mmap, (void* at, size_t size, int protection, int flags, int fd, off_t offset),
        (at, size, protection, flags, fd, offset), MAP_FAILED, ENOMEM)

int statx(int fd, const char* path, int flags, unsigned mask, struct statx* status) {
    static const auto real = next<int (*)(int, const char*, int, unsigned, struct statx*)>("statx");
    static std::atomic<bool> wasSlow = false;
    if (strcmp(path, "slow") == 0 && !wasSlow.exchange(true))
        usleep(500000);
    if (fails("statx")) {
        errno = EIO;
        return -1;
    }
    return real(fd, path, flags, mask, status);
}

int openat(int fd, const char* path, int flags, ...) {
    static const auto real = next<int (*)(int, const char*, int, ...)>("openat");
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = va_arg(arguments, mode_t);
    va_end(arguments);
    if (fails("openat")) {
        errno = EMFILE;
        return -1;
    }
    return real(fd, path, flags, mode);
}

/// The calls that the C library does not name: openat2.
long syscall(long number, ...) noexcept {
    static const auto real = next<long (*)(long, ...)>("syscall");
    va_list list;
    va_start(list, number);
    long a[6];
    for (auto& each : a)
        each = va_arg(list, long);
    va_end(list);
    if (number == SYS_openat2 && fails("openat")) {
        errno = EMFILE;
        return -1;
    }
    return real(number, a[0], a[1], a[2], a[3], a[4], a[5]);
}

}  // extern "C"
