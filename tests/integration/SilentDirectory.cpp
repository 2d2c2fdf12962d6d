// SPDX-License-Identifier: MIT
// Preloaded into a program, stands for a directory of users on the network that does not answer:
// who enumerates the users waits for ever. That it has begun is written to standard error.
#include <pwd.h>
#include <unistd.h>

extern "C" struct passwd* getpwent() {
    constexpr char told[] = "enumerating\n";
    if (write(STDERR_FILENO, told, sizeof told - 1) < 0)
        return nullptr;
    for (;;)
        pause();
}
