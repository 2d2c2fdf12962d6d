// SPDX-License-Identifier: MIT
#include "AuthenticationAgent.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <systemd/sd-login.h>
#include <unistd.h>

#include <cerrno>
#include <string>

namespace morvane {

namespace {

constexpr const char* program = "/usr/bin/pkttyagent";
/// An agent that has not registered by then will not do so.
constexpr int readyMilliseconds = 5000;

/// Whether polkit finds a login session for this process: the one that it is in, or the one that
/// its user's services belong to. The library that tells it is loaded here: no other command needs
/// it, and it comes with five more.
bool isInSession() {
    void* const library = dlopen("libsystemd.so.0", RTLD_LAZY | RTLD_LOCAL);
    if (!library)
        return false;
    const auto find = [&](const char* name) { return dlsym(library, name); };
    const auto pidSession =
        reinterpret_cast<decltype(&sd_pid_get_session)>(find("sd_pid_get_session"));
    const auto pidOwner =
        reinterpret_cast<decltype(&sd_pid_get_owner_uid)>(find("sd_pid_get_owner_uid"));
    const auto userDisplay =
        reinterpret_cast<decltype(&sd_uid_get_display)>(find("sd_uid_get_display"));
    char* session = nullptr;
    uid_t user = 0;
    const bool found = pidSession && pidOwner && userDisplay &&
                       (pidSession(0, &session) >= 0 ||
                        (pidOwner(0, &user) >= 0 && userDisplay(user, &session) >= 0));
    free(session);
    return found;
}

/// Whether the agent finds a terminal: it takes only that of its session.
bool hasTerminal() {
    const int terminal = open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC);
    return terminal >= 0 && close(terminal) == 0;
}

}  // namespace

AuthenticationAgent::AuthenticationAgent() {
    int ready[2];
    if (!hasTerminal() || access(program, X_OK) != 0 || pipe2(ready, O_CLOEXEC) != 0)
        return;
    constexpr int theirs = 3;
    const std::string process = std::to_string(getpid());
    const std::string notify = std::to_string(theirs);
    // A session's own agent comes first. Outside of any session there is none, and polkit, which
    // would look for one, asks no fallback at all.
    const char* const fallback = isInSession() ? "--fallback" : nullptr;
    // It closes the descriptor when it has registered.
    const char* const arguments[] = {program,        "--process", process.c_str(), "--notify-fd",
                                     notify.c_str(), fallback,    nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ready[1], theirs);
    if (posix_spawn(&child_, program, &actions, nullptr, const_cast<char* const*>(arguments),
                    environ) != 0)
        child_ = -1;
    posix_spawn_file_actions_destroy(&actions);
    close(ready[1]);
    pollfd poll{ready[0], POLLIN, 0};
    while (child_ > 0 && ::poll(&poll, 1, readyMilliseconds) < 0 && errno == EINTR) {
    }
    close(ready[0]);
}

AuthenticationAgent::~AuthenticationAgent() {
    if (child_ <= 0)
        return;
    kill(child_, SIGTERM);
    while (waitpid(child_, nullptr, 0) < 0 && errno == EINTR) {
    }
}

}  // namespace morvane
