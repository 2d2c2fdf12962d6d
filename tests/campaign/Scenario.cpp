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

/// A fixed run of a host: Scenario FOLDER. Sends every request of the protocol over two connections
/// to the file service, of which one says no when it is asked whether to go on, many of them at
/// once, and prints how they have ended. The exit status is 0 if each has ended
/// exactly once and a request that was made when nothing failed any more was answered; 1 if one has
/// ended twice, 2 if one never ended, 3 if the last one was not answered.
extern "C" {
__attribute__((weak)) void failingCallsBegin();
__attribute__((weak)) void failingCallsEnd();
}

namespace {

using namespace morvane;

constexpr std::size_t most = 128;
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
    explicit Responses(bool goesOn) : goesOn_(goesOn) {}
    void progressWithReply(NSXPCReply<bool> reply) override { reply(goesOn_); }
    void updateFileSizes(std::vector<std::shared_ptr<MVFileSizeItem>>,
                         NSXPCReply<bool> reply) override {
        reply(goesOn_);
    }

  private:
    const bool goesOn_;
};

/// What a run works on, made before anything fails; campaign.py makes the items.
struct Items {
    explicit Items(const std::string& path)
        : folder(NSURL::fileURLWithPath(path)),
          file(NSURL::fileURLWithPath(path + "/file")),
          one(NSURL::fileURLWithPath(path + "/one")),
          two(NSURL::fileURLWithPath(path + "/two")),
          tree(NSURL::fileURLWithPath(path + "/tree")),
          slow(NSURL::fileURLWithPath(path + "/slow-tree")),
          missing(NSURL::fileURLWithPath(path + "/missing")) {}

    const NSURL folder;
    const NSURL file;
    const NSURL one;
    const NSURL two;
    /// Folders, files, a hard link and a symbolic one.
    const NSURL tree;
    /// With an item that takes long enough for a question whether to go on.
    const NSURL slow;
    const NSURL missing;
    const std::vector<NSURL> several{slow, tree, missing};
    const std::vector<NSURL> slowAlone{slow};
    const std::vector<NSURL> fileAlone{file};
    const std::vector<NSURL> pair{one, two};
    const std::vector<NSURL> unfit{missing, tree};
    const std::vector<std::string> newName{"renamed"};
    const std::vector<std::string> swapped{"two", "one"};
    const std::vector<std::string> taken{"nothing", "slow-tree"};
};

std::shared_ptr<NSXPCConnection> connect(bool goesOn) {
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
    connection->setExportedObject<MVFileResponse>(std::make_shared<Responses>(goesOn));
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

void access(const std::shared_ptr<NSXPCConnection>& connection, const NSURL& url,
            const CBPosixIdentity& who) {
    request(connection, [&](MVFileRequest& service, std::size_t number) {
        service.getAclAccessWithUrl(url, uuidOfPosixIdentity(who),
                                    [number](auto, NSErrorRef) { ends.end(number, true); });
    });
}

/// Of everyone and of a user by name.
std::vector<std::shared_ptr<MVAclEntry>> someEntries(bool directory) {
    auto named = MVAclEntry::newEntryForDirectory(directory);
    named->setUuid(uuidOfPosixIdentity(CBPosixUser{1}));
    return {MVAclEntry::newEntryForDirectory(directory), std::move(named)};
}

void write(const std::shared_ptr<NSXPCConnection>& connection, const NSURL& url, bool directory) {
    request(connection, [&](MVFileRequest& service, std::size_t number) {
        service.setAclEntries(someEntries(directory), url,
                              [number](NSErrorRef) { ends.end(number, true); });
    });
}

void propagate(const std::shared_ptr<NSXPCConnection>& connection, const NSURL& url) {
    request(connection, [&](MVFileRequest& service, std::size_t number) {
        service.propagateAclEntries(someEntries(true), url,
                                    [number](NSErrorRef) { ends.end(number, true); });
    });
}

void rename(const std::shared_ptr<NSXPCConnection>& connection, const std::vector<NSURL>& urls,
            const std::vector<std::string>& names) {
    request(connection, [&](MVFileRequest& service, std::size_t number) {
        service.renameUrls(urls, names,
                           [number](auto, auto, NSErrorRef) { ends.end(number, true); });
    });
}

void sizes(const std::shared_ptr<NSXPCConnection>& connection, const std::vector<NSURL>& urls) {
    request(connection, [&](MVFileRequest& service, std::size_t number) {
        service.getSizesWithUrls(urls, [number](auto, NSErrorRef) { ends.end(number, true); });
    });
}

void contents(const std::shared_ptr<NSXPCConnection>& connection, const NSURL& url) {
    request(connection, [&](MVFileRequest& service, std::size_t number) {
        service.getContentsOfDirectory(url, {},
                                       [number](auto, NSErrorRef) { ends.end(number, true); });
    });
}

void everyRequest(const std::shared_ptr<NSXPCConnection>& connection,
                  const std::shared_ptr<NSXPCConnection>& stopping, const Items& items) {
    // Both at once, and what is behind them does not wait for them.
    sizes(connection, items.several);
    sizes(stopping, items.slowAlone);
    list(connection, items.file);
    access(connection, items.file, CBPosixUser{0});
    access(stopping, items.file, CBPosixGroup{1});
    access(connection, items.folder, CBEveryone{});
    write(connection, items.file, false);
    write(connection, items.tree, true);
    write(stopping, items.missing, false);
    list(connection, items.tree);
    propagate(connection, items.tree);
    propagate(stopping, items.slow);
    rename(connection, items.fileAlone, items.newName);
    rename(connection, items.pair, items.swapped);
    rename(stopping, items.unfit, items.taken);
    write(connection, items.one, false);
    write(stopping, items.two, false);
    access(connection, items.two, CBPosixGroup{1});
    access(stopping, items.tree, CBPosixUser{1});
    sizes(connection, items.pair);
    contents(connection, items.tree);
    contents(connection, items.folder);
    contents(stopping, items.missing);
    for (int i = 0; i != 4; ++i) {
        list(connection, items.folder);
        list(stopping, items.folder);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2)
        return 64;
    const Items items(argv[1]);
    // The C library itself ends a process that has no memory while it learns where users are noted.
    NSUserName();
    std::size_t duringFailures = 0;
    {
        const auto connection = connect(true);
        const auto stopping = connect(false);
        if (failingCallsBegin)
            failingCallsBegin();
        everyRequest(connection, stopping, items);
        duringFailures = made;
        const bool allEnded = ends.waitForAll(0, duringFailures);
        if (failingCallsEnd)
            failingCallsEnd();
        if (!allEnded) {
            std::printf("a request never ended\n");
            return 2;
        }
        list(connection, items.folder);
        list(stopping, items.folder);
        if (!ends.waitForAll(duringFailures, made)) {
            std::printf("a request behind the failures never ended\n");
            return 2;
        }
        connection->invalidate();
        stopping->invalidate();
    }
    const auto last = made.load();
    // A host whose connection has become invalid makes another one.
    const auto another = connect(true);
    list(another, items.folder);
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
