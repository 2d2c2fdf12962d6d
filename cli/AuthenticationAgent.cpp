#include "AuthenticationAgent.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string>

namespace morvane {

namespace {

constexpr const char* program = "/usr/bin/pkttyagent";
/// Is there where logins are sessions.
constexpr const char* sessions = "/run/systemd/seats";
/// By then it has registered, or it will not.
constexpr int readyMilliseconds = 5000;

}  // namespace

AuthenticationAgent::AuthenticationAgent() {
    int ready[2];
    if (access(program, X_OK) != 0 || pipe2(ready, O_CLOEXEC) != 0)
        return;
    constexpr int theirs = 3;
    const std::string process = std::to_string(getpid());
    const std::string notify = std::to_string(theirs);
    // A desktop's agent comes first. Without sessions there is none, and polkit, which would look
    // for one, asks no agent at all.
    const char* const fallback = access(sessions, F_OK) == 0 ? "--fallback" : nullptr;
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
