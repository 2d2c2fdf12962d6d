// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/linux/StandardStreams.h>
#include <MorvaneOperation/platform/xpc/NSXPCListener.h>

#include <cstdio>

#include "FileRequestHandler.h"

/// The file service: does its application's file work with the user's own rights. The application
/// starts it, and it leaves when the application closes the connection.
int main() {
    morvane::openMissingStandardStreams();
    constexpr int usageError = 64;
    morvane::NSErrorRef error;
    const auto listener = morvane::NSXPCListener::serviceListener(&error);
    if (!listener) {
        std::fprintf(stderr, "%s: %s\n", MVApplicationIdentifierPrefix ".FileService",
                     error->localizedDescription().c_str());
        return usageError;
    }
    morvane::FileRequestHandler::outliveExceptions();
    listener->setNewConnectionHandler([](const std::shared_ptr<morvane::NSXPCConnection>& client) {
        morvane::FileRequestHandler::serve(client);
        client->resume();
        return true;
    });
    return listener->run();
}
