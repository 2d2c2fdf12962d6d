// Preloaded into a program, sets its monotonic clock forward by the seconds that a file tells.
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>

extern "C" __attribute__((visibility("default"))) int clock_gettime(clockid_t clock,
                                                                    timespec* time) noexcept {
    using Function = int(clockid_t, timespec*);
    static auto* const real = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, "clock_gettime"));
    const int result = real(clock, time);
    if (result != 0 || clock != CLOCK_MONOTONIC)
        return result;
    char text[16] = {};
    const int file = open("/run/morvane-test-clock", O_RDONLY | O_CLOEXEC);
    if (file >= 0) {
        if (read(file, text, sizeof text - 1) > 0)
            time->tv_sec += std::atoi(text);
        close(file);
    }
    return result;
}
