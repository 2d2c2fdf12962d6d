// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVAuthorization.h>
#include <MorvaneOperation/MVFileRequest.h>
#include <MorvaneOperation/platform/xpc/NSXPCConnection.h>

#include <cstdio>
#include <future>
#include <iostream>
#include <set>
#include <string>
#include <string_view>

#include "EveryMessage.h"

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
    std::set<std::string_view> asked;
    for (const auto& message : MVFileRequestRights) {
        NSErrorRef error;
        if (!asked.insert(message.right).second)
            continue;
        if (!MVAuthorization::sharedAuthorization()->authorizeRight(message.right.data(), &error))
            std::fprintf(stderr, "%s\n", error->localizedDescription().c_str());
    }
}

void sendEach(MVFileRequest& service, const NSURL& url) {
    for (const auto& message : everyMessage()) {
        done = {};
        auto answer = done.get_future();
        message.send(service, {url, finish});
        std::printf("%s %lld\n", message.selector.data(), static_cast<long long>(answer.get()));
    }
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
