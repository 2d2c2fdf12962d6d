// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVAuthorization.h>
#include <MorvaneOperation/MVFileRequest.h>
#include <MorvaneOperation/platform/xpc/NSXPCConnection.h>

#include <cstdio>
#include <future>
#include <iostream>
#include <string>
#include <tuple>

/// Sends each request of the protocol to the privileged helper without having asked for any right:
/// BareClient PATH. Prints a line for each: its selector, and the error's code (0 for none). With
/// "authorize" behind the path it asks for every right first, and sends all again for each line
/// that it reads; a line "authorize" has it ask for every right again before.
namespace {

using namespace morvane;

std::promise<std::int64_t> done;

void finish(const NSErrorRef& error) {
    done.set_value(error ? error->code() : 0);
}

void obtainEveryRight() {
    for (const auto* right : {MVRightGetFileAcl, MVRightGetFileAccess, MVRightSetFileAcl,
                              MVRightPropagateFileAcl, MVRightRenameFiles, MVRightGetFileSize}) {
        NSErrorRef error;
        if (!MVAuthorization::sharedAuthorization()->authorizeRight(right, &error))
            std::fprintf(stderr, "%s\n", error->localizedDescription().c_str());
    }
}

void sendEach(MVFileRequest& service, const NSURL& url) {
    const auto who = uuidOfPosixIdentity(CBPosixUser{0});
    const auto tell = [&](const char* selector, auto&& send) {
        done = {};
        auto answer = done.get_future();
        send();
        std::printf("%s %lld\n", selector, static_cast<long long>(answer.get()));
    };
    tell("getAclEntriesWithUrl:reply:",
         [&] { service.getAclEntriesWithUrl(url, [](auto, NSErrorRef error) { finish(error); }); });
    tell("getAclAccessWithUrl:uuid:reply:", [&] {
        service.getAclAccessWithUrl(url, who, [](auto, NSErrorRef error) { finish(error); });
    });
    tell("setAclEntries:url:reply:", [&] { service.setAclEntries({}, url, finish); });
    tell("propagateAclEntries:url:reply:", [&] { service.propagateAclEntries({}, url, finish); });
    tell("renameUrls:names:reply:", [&] {
        service.renameUrls({url}, {"taken"}, [](auto, auto, NSErrorRef error) { finish(error); });
    });
    tell("getSizesWithUrls:reply:",
         [&] { service.getSizesWithUrls({url}, [](auto, NSErrorRef error) { finish(error); }); });
    tell("getContentsOfDirectory:indexPath:reply:", [&] {
        service.getContentsOfDirectory(url, {}, [](auto, NSErrorRef error) { finish(error); });
    });
}

}  // namespace

int main(int argc, char** argv) {
    const bool authorizes = argc == 3 && argv[2] == std::string("authorize");
    if (argc != 2 && !authorizes)
        return 2;
    const auto url = NSURL::fileURLWithPath(argv[1]);
    if (authorizes)
        obtainEveryRight();
    const auto connection =
        NSXPCConnection::initWithMachServiceName(MVPrivilegedHelperName, NSXPCConnectionPrivileged);
    connection->setRemoteObjectInterface(NSXPCInterface::interfaceWithProtocol<MVFileRequest>());
    connection->resume();
    const auto service =
        connection->remoteObjectProxyWithErrorHandler<MVFileRequest>([](NSErrorRef error) {
            std::fprintf(stderr, "%s\n", error->localizedDescription().c_str());
            finish(error);
        });
    std::string line;
    do {
        if (line == "authorize")
            obtainEveryRight();
        sendEach(*service, url);
        std::fflush(stdout);
    } while (authorizes && std::getline(std::cin, line));
}
