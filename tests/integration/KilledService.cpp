// SPDX-License-Identifier: MIT
// Stands in a service's place: runs the real one, and kills it as it enters the N-th system call
// since it began to work, that is since its first thread. Exits with 0 if it ended without having
// made as many.
//
// environment: KILLED_SERVICE, the real program; KILLED_AT, N; KILLED_MARK, a file that is made if
// the service was killed.
#include <fcntl.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace {

constexpr long syscallStop = SIGTRAP | 0x80;

bool entersCall(pid_t thread) {
    __ptrace_syscall_info info{};
    return ptrace(PTRACE_GET_SYSCALL_INFO, thread, sizeof info, &info) > 0 &&
           info.op == PTRACE_SYSCALL_INFO_ENTRY;
}

}  // namespace

int main(int, char** argv) {
    const char* const program = std::getenv("KILLED_SERVICE");
    const char* const mark = std::getenv("KILLED_MARK");
    const char* const at = std::getenv("KILLED_AT");
    if (!program || !mark || !at)
        return 2;
    const pid_t service = fork();
    if (service == 0) {
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        raise(SIGSTOP);
        execv(program, argv);
        _exit(127);
    }
    int status = 0;
    waitpid(service, &status, 0);
    ptrace(PTRACE_SETOPTIONS, service, nullptr,
           PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACECLONE | PTRACE_O_EXITKILL);
    ptrace(PTRACE_SYSCALL, service, nullptr, nullptr);
    bool works = false;
    long left = std::atol(at);
    for (pid_t thread = 0; (thread = waitpid(-1, &status, __WALL)) > 0;) {
        if (!WIFSTOPPED(status))
            continue;
        long signal = 0;
        if (status >> 16 == PTRACE_EVENT_CLONE) {
            works = true;
        } else if (WSTOPSIG(status) == syscallStop) {
            if (works && left > 0 && entersCall(thread) && --left == 0) {
                close(open(mark, O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
                kill(service, SIGKILL);
            }
        } else if (WSTOPSIG(status) != SIGSTOP && WSTOPSIG(status) != SIGTRAP) {
            signal = WSTOPSIG(status);
        }
        ptrace(PTRACE_SYSCALL, thread, nullptr, signal);
    }
    return left > 0 ? 0 : 1;
}
