// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/linux/StandardStreams.h>
#include <MorvaneOperation/platform/security/ProcessRights.h>
#include <MorvaneOperation/platform/xpc/NSXPCListener.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <optional>
#include <stop_token>
#include <thread>

#include "Capabilities.h"
#include "FileRequestHandler.h"
#include "GuardedRequests.h"

/// The privileged helper: does file work as root for clients that hold the right to it. The service
/// manager starts it with its socket when the first client comes; it leaves when there has been
/// none for a while.
namespace {

using namespace morvane;

constexpr int usageError = 64;
constexpr int startError = 70;
constexpr std::uint32_t idleSeconds = 60;
constexpr timespec watchInterval{.tv_sec = 2, .tv_nsec = 0};
/// Work stops within a second or two; service managers wait for 90 seconds.
constexpr std::chrono::seconds timeToStop{5};

/// Has the client's requests carried out, each if this very process holds the right to it.
void serve(const std::shared_ptr<NSXPCConnection>& client,
           const std::shared_ptr<RequestJournal>& journal) {
    const std::weak_ptr<NSXPCConnection> weak = client;
    const RequestClient who{client->effectiveUserIdentifier().value(),
                            client->processIdentifier().value(),
                            client->accountableUserIdentifier().value()};
    FileRequestHandler::configure(client);
    client->setAdmission(admissionByRight(
        [weak](const char* right) {
            const auto held = weak.lock();
            const auto process = held ? held->processIdentifier() : std::nullopt;
            const auto user = held ? held->effectiveUserIdentifier() : std::nullopt;
            return process && user
                       ? rightOfProcess({*process, held->processStartTime(), *user}, right)
                       : RightState::notHeld;
        },
        journal, who));
    client->setExportedObject<MVFileRequest>(
        loggedRequests(FileRequestHandler::forPrivilegedClient(client), journal, who));
    client->resume();
}

/// Whether an upgrade has replaced the file of this program.
bool isReplaced() {
    struct stat status {};
    return stat("/proc/self/exe", &status) == 0 && status.st_nlink == 0;
}

/// SIGTERM, which every thread of this process leaves to the one that waits for it.
sigset_t blockedTermination() {
    sigset_t termination;
    sigemptyset(&termination);
    sigaddset(&termination, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &termination, nullptr);
    return termination;
}

/// Ends the process when the service manager asks for it: no client is served any more, work is
/// stopped, and the log says how far each request came. Work that the kernel holds, or that cannot
/// stop, is not waited for.
[[noreturn]] void leaveInOrder(NSXPCListener& listener, RequestJournal& journal) {
    listener.invalidate();  // The work takes this for its client's no.
    LongWork::shared()->stop();
    journal.close(timeToStop);
    // Threads may still work. They end with the process, and nothing is destroyed below them.
    std::_Exit(0);
}

/// Waits for the service manager's SIGTERM. Meanwhile ends the service after an upgrade, whoever is
/// connected, once no request has been worked on for a moment: time enough for the last reply. The
/// next request starts the new program.
void watch(const std::stop_token& end, const sigset_t& termination, NSXPCListener& listener,
           RequestJournal& journal) {
    std::optional<std::uint64_t> before;
    while (!end.stop_requested()) {
        if (sigtimedwait(&termination, nullptr, &watchInterval) == SIGTERM && !end.stop_requested())
            leaveInOrder(listener, journal);
        journal.tellLeftOut();
        if (!isReplaced())
            continue;
        const auto now = journal.begunWhileNoneRuns();
        if (now && now == before)
            listener.invalidate();
        before = now;
    }
}

}  // namespace

int main() {
    const auto termination = blockedTermination();  // before there is any other thread
    openMissingStandardStreams();
    NSErrorRef error;
    const auto listener = NSXPCListener::activatedListener(&error);
    if (!listener) {
        std::fprintf(stderr, "%s: %s\n", MVPrivilegedHelperName,
                     error->localizedDescription().c_str());
        return usageError;
    }
    umask(077);
    openlog("morvane-helper", LOG_PID, LOG_AUTHPRIV);
    if (const int code = keepNeededCapabilities()) {
        std::fprintf(stderr, "%s: privileges cannot be given up: %s\n", MVPrivilegedHelperName,
                     std::strerror(code));
        return startError;
    }
    // Whoever connects cannot take away what the questions need. Without it the first asks anew.
    connectToPolicy();
    listener->setIdleTimeout(idleSeconds);
    listener->holdClientProcesses();
    FileRequestHandler::outliveExceptions();
    const auto journal = std::make_shared<RequestJournal>(
        [](const std::string& line) { syslog(LOG_INFO, "%s", line.c_str()); });
    listener->setNewConnectionHandler([journal](const std::shared_ptr<NSXPCConnection>& client) {
        serve(client, journal);
        return true;
    });
    std::jthread watching(
        [&](const std::stop_token& end) { watch(end, termination, *listener, *journal); });
    const int status = listener->run();
    // A signal to the thread alone wakes it, unless the service manager's has done that.
    watching.request_stop();
    pthread_kill(watching.native_handle(), SIGTERM);
    watching.join();
    journal->close({});
    return status;
}
