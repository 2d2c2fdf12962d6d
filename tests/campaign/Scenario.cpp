// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVFileRequest.h>
#include <MorvaneOperation/MVFileResponse.h>
#include <MorvaneOperation/platform/identity/CBIdentityAuthority.h>
#include <MorvaneOperation/platform/xpc/NSXPCConnection.h>

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <exception>
#include <mutex>
#include <string>

/// A fixed run of a host: Scenario FOLDER. Sends every request of the protocol to the file service,
/// some of them at once, and prints how they have ended. The exit status is 0 if each has ended
/// exactly once and a request that was made when nothing failed any more was answered; 1 if one has
/// ended twice, 2 if one never ended, 3 if the last one was not answered.
extern "C" {
__attribute__((weak)) void failingCallsBegin();
__attribute__((weak)) void failingCallsEnd();
}

namespace {

using namespace morvane;

constexpr std::size_t most = 64;
constexpr std::chrono::seconds patience{20};

/// How often each request has ended; nothing here allocates.
struct Ends {
    std::mutex mutex;
    std::condition_variable changed;
    std::array<unsigned, most> count{};
    std::array<bool, most> answered{};

    void end(std::size_t number, bool withAnswer) {
        const std::lock_guard lock(mutex);
        ++count[number];
        answered[number] = answered[number] || withAnswer;
        changed.notify_all();
    }
    bool waitForAll(std::size_t first, std::size_t last) {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, patience, [&] {
            for (auto i = first; i != last; ++i) {
                if (count[i] == 0)
                    return false;
            }
            return true;
        });
    }
};
Ends ends;
std::atomic<std::size_t> made = 0;

class Responses final : public MVFileResponse {
  public:
    void progressWithReply(NSXPCReply<bool> reply) override { reply(true); }
    void updateFileSizes(std::vector<std::shared_ptr<MVFileSizeItem>>,
                         NSXPCReply<bool> reply) override {
        reply(true);
    }
};

std::shared_ptr<NSXPCConnection> connect() {
    const NSClassSet entries{&NSArrayClass, &MVAclEntry::classObject(), &MVTreeNode::classObject(),
                             &MVAclPermission::classObject()};
    const auto requests = NSXPCInterface::interfaceWithProtocol<MVFileRequest>();
    requests->setClasses(entries, "getAclEntriesWithUrl:reply:", 0, true);
    requests->setClasses(entries, "getAclAccessWithUrl:uuid:reply:", 0, true);
    requests->setClasses({&NSArrayClass, &MVFileSizeItem::classObject()},
                         "getSizesWithUrls:reply:", 0, true);
    requests->setClasses({&NSArrayClass, &NSURLClass}, "getContentsOfDirectory:indexPath:reply:", 0,
                         true);
    const auto responses = NSXPCInterface::interfaceWithProtocol<MVFileResponse>();
    responses->setClasses({&NSArrayClass, &MVFileSizeItem::classObject()},
                          "updateFileSizes:reply:", 0, false);
    auto connection = NSXPCConnection::initWithServiceName(MVFileServiceName);
    connection->setRemoteObjectInterface(requests);
    connection->setExportedInterface(responses);
    connection->setExportedObject<MVFileResponse>(std::make_shared<Responses>());
    connection->resume();
    return connection;
}

/// One request; an exception at the call is its end too: it was not made.
template <class Send>
void request(const std::shared_ptr<NSXPCConnection>& connection, const Send& send) {
    const auto number = made++;
    try {
        const auto service = connection->remoteObjectProxyWithErrorHandler<MVFileRequest>(
            [number](NSErrorRef) { ends.end(number, false); });
        send(*service, number);
    } catch (const std::exception&) {
        ends.end(number, false);
    }
}

void list(const std::shared_ptr<NSXPCConnection>& connection, const NSURL& url) {
    request(connection, [&](MVFileRequest& service, std::size_t number) {
        service.getAclEntriesWithUrl(url, [number](auto, NSErrorRef) { ends.end(number, true); });
    });
}

void everyRequest(const std::shared_ptr<NSXPCConnection>& connection, const NSURL& folder,
                  const NSURL& file) {
    const auto with = [&](const auto& send) { request(connection, send); };
    list(connection, file);
    with([&](MVFileRequest& service, std::size_t number) {
        service.getAclAccessWithUrl(file, uuidOfPosixIdentity(CBPosixUser{0}),
                                    [number](auto, NSErrorRef) { ends.end(number, true); });
    });
    with([&](MVFileRequest& service, std::size_t number) {
        service.setAclEntries({MVAclEntry::newEntryForDirectory(false)}, file,
                              [number](NSErrorRef) { ends.end(number, true); });
    });
    with([&](MVFileRequest& service, std::size_t number) {
        service.propagateAclEntries({MVAclEntry::newEntryForDirectory(true)}, folder,
                                    [number](NSErrorRef) { ends.end(number, true); });
    });
    with([&](MVFileRequest& service, std::size_t number) {
        service.renameUrls({file}, {"renamed"},
                           [number](auto, auto, NSErrorRef) { ends.end(number, true); });
    });
    with([&](MVFileRequest& service, std::size_t number) {
        service.getSizesWithUrls({folder}, [number](auto, NSErrorRef) { ends.end(number, true); });
    });
    with([&](MVFileRequest& service, std::size_t number) {
        service.getContentsOfDirectory(folder, {},
                                       [number](auto, NSErrorRef) { ends.end(number, true); });
    });
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2)
        return 64;
    const auto folder = NSURL::fileURLWithPath(argv[1]);
    const auto file = NSURL::fileURLWithPath(std::string(argv[1]) + "/file");
    // The C library itself ends a process that has no memory while it learns where users are noted.
    NSUserName();
    std::size_t duringFailures = 0;
    {
        auto connection = connect();
        if (failingCallsBegin)
            failingCallsBegin();
        everyRequest(connection, folder, file);
        for (int i = 0; i != 8; ++i)
            list(connection, folder);
        duringFailures = made;
        const bool allEnded = ends.waitForAll(0, duringFailures);
        if (failingCallsEnd)
            failingCallsEnd();
        if (!allEnded) {
            std::printf("a request never ended\n");
            return 2;
        }
        list(connection, folder);
        if (!ends.waitForAll(duringFailures, made)) {
            std::printf("a request behind the failures never ended\n");
            return 2;
        }
        connection->invalidate();
    }
    const auto last = made.load();
    // A host whose connection has become invalid makes another one.
    const auto another = connect();
    list(another, folder);
    if (!ends.waitForAll(last, last + 1) || !ends.answered[last]) {
        std::printf("the next request was not answered\n");
        return 3;
    }
    for (std::size_t i = 0; i != made; ++i) {
        if (ends.count[i] != 1) {
            std::printf("request %zu has ended %u times\n", i, ends.count[i]);
            return 1;
        }
    }
    return 0;
}
