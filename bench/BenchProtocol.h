// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVFileSizeItem.h>
#include <MorvaneOperation/platform/xpc/NSXPCProtocol.h>

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

/// What the measuring program asks of the service, and the service of it.
namespace bench {

using morvane::NSData;
using morvane::NSXPCReply;
using SizeItems = std::vector<std::shared_ptr<morvane::MVFileSizeItem>>;

inline constexpr const char* serviceName = "io.github.morvaneoperation.BenchService";

#define BenchMessages(MESSAGE)                                                                    \
    /* The payload again. */                                                                      \
    MESSAGE(echo, "echo:reply:", (NSData payload, NSXPCReply<NSData> reply),                      \
            (std::move(payload), std::move(reply)))                                               \
    /* Calls the client back `count` times, one after the other; how many nanoseconds it took. */ \
    MESSAGE(callBack, "callBack:reply:", (std::int64_t count, NSXPCReply<std::int64_t> reply),    \
            (count, std::move(reply)))                                                            \
    /* Makes the array that the next items() hands over. */                                       \
    MESSAGE(prepareItems, "prepareItems:reply:", (std::int64_t count, NSXPCReply<bool> reply),    \
            (count, std::move(reply)))                                                            \
    MESSAGE(items, "itemsWithReply:", (NSXPCReply<SizeItems> reply), (std::move(reply)))          \
    /* Makes the data that the next data() hands over. */                                         \
    MESSAGE(prepareData, "prepareData:reply:", (std::int64_t size, NSXPCReply<bool> reply),       \
            (size, std::move(reply)))                                                             \
    MESSAGE(data, "dataWithReply:", (NSXPCReply<NSData> reply), (std::move(reply)))               \
    /* The most memory that the service had since prepareData(), in bytes. */                     \
    MESSAGE(mostMemory, "mostMemoryWithReply:", (NSXPCReply<std::int64_t> reply),                 \
            (std::move(reply)))

class Bench {
  public:
    virtual ~Bench() = default;
    BenchMessages(NSXPC_DECLARE_MESSAGE)
};
NSXPC_PROTOCOL(Bench, BenchMessages)

#define BenchCallbackMessages(MESSAGE)                                               \
    MESSAGE(echoBack, "echoBack:reply:", (NSData payload, NSXPCReply<NSData> reply), \
            (std::move(payload), std::move(reply)))

class BenchCallback {
  public:
    virtual ~BenchCallback() = default;
    BenchCallbackMessages(NSXPC_DECLARE_MESSAGE)
};
NSXPC_PROTOCOL(BenchCallback, BenchCallbackMessages)

}  // namespace bench
