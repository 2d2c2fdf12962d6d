#include <MorvaneOperation/platform/linux/StandardStreams.h>
#include <MorvaneOperation/platform/security/ProcessRights.h>
#include <MorvaneOperation/platform/xpc/NSXPCListener.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <mutex>
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
constexpr std::chrono::seconds upgradeInterval{2};

/// Has the client's requests carried out, each if this very process holds the right to it.
void serve(const std::shared_ptr<NSXPCConnection>& client,
           const std::shared_ptr<RequestsAtWork>& work) {
    const std::weak_ptr<NSXPCConnection> weak = client;
    const auto who = "uid " + std::to_string(client->effectiveUserIdentifier().value()) + " pid " +
                     std::to_string(client->processIdentifier().value()) + ": ";
    const auto log = [who](const std::string& line) {
        syslog(LOG_INFO, "%s%s", who.c_str(), line.c_str());
    };
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
        log));
    client->setExportedObject<MVFileRequest>(
        loggedRequests(FileRequestHandler::forPrivilegedClient(client), log, work));
    client->resume();
}

/// Whether an upgrade has put another program in the place of this one.
bool isReplaced() {
    struct stat status {};
    return stat("/proc/self/exe", &status) == 0 && status.st_nlink == 0;
}

/// Ends the service after an upgrade, whoever is connected, once no request has been worked on for
/// a moment: time enough for the last reply. The next request starts the new program.
void leaveAfterUpgrade(const std::stop_token& end, NSXPCListener& listener,
                       const RequestsAtWork& work) {
    std::mutex mutex;
    std::condition_variable_any ended;
    std::unique_lock lock(mutex);
    std::optional<std::uint64_t> before;
    while (!ended.wait_for(lock, end, upgradeInterval, [&] { return end.stop_requested(); })) {
        if (!isReplaced())
            continue;
        const auto now = work.begunWhileNoneRuns();
        if (now && now == before) {
            listener.invalidate();
            return;
        }
        before = now;
    }
}

}  // namespace

int main() {
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
    FileRequestHandler::outliveExceptions();
    const auto work = std::make_shared<RequestsAtWork>();
    listener->setNewConnectionHandler([work](const std::shared_ptr<NSXPCConnection>& client) {
        serve(client, work);
        return true;
    });
    const std::jthread watch(
        [&](const std::stop_token& end) { leaveAfterUpgrade(end, *listener, *work); });
    return listener->run();
}
