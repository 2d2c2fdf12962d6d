// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/xpc/NSXPCProtocol.h>

#include <string>
#include <utility>
#include <vector>

/// The protocol that the tests and their service speak.
namespace morvane {

#define EchoMessages(MESSAGE)                                                                   \
    MESSAGE(echo, "echo:reply:", (std::string text, NSXPCReply<std::string, NSErrorRef> reply), \
            (std::move(text), std::move(reply)))                                                \
    MESSAGE(echoUrls, "echoUrls:reply:",                                                        \
            (std::vector<NSURL> urls, NSXPCReply<std::vector<NSURL>, NSErrorRef> reply),        \
            (std::move(urls), std::move(reply)))                                                \
    MESSAGE(echoData, "echoData:reply:", (NSData data, NSXPCReply<NSData> reply),               \
            (std::move(data), std::move(reply)))

class Echo {
  public:
    virtual ~Echo() = default;
    EchoMessages(NSXPC_DECLARE_MESSAGE)
};
NSXPC_PROTOCOL(Echo, EchoMessages)

}  // namespace morvane
