// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/xpc/Limits.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <string>

#include "LongWork.h"

namespace morvane {
namespace {

/// A number of the unit's, which may end with a G for that many GiB; 0 if the unit has none.
std::uint64_t setting(const std::string& name) {
    std::ifstream unit(MORVANE_HELPER_UNIT);
    for (std::string line; std::getline(unit, line);) {
        if (!line.starts_with(name + "="))
            continue;
        const auto value = line.substr(name.size() + 1);
        std::size_t digits = 0;
        const auto number = std::stoull(value, &digits);
        return value.substr(digits) == "G" ? number << 30 : number;
    }
    return 0;
}

TEST(HelperUnit, AllowsWellMoreThanTheHelperAllowsItsClients) {
    // Who has gone may still be there, as often as there may be clients.
    constexpr std::uint64_t clients = 2 * limits::ClientLimits().all;
    constexpr std::uint64_t jobs = LongWork::Limits().all;
    // One that works on each request and one that asks its client; of a job two walk.
    constexpr auto threads = 2 * limits::placesOfAllUsers + 3 * jobs;
    EXPECT_GE(setting("TasksMax"), threads * 3 / 2);
    // A client's stream, its process, and on an older kernel that one's status; a walk has some 60.
    constexpr auto descriptors = 3 * clients + 64 * jobs;
    EXPECT_GE(setting("LimitNOFILE"), descriptors * 3 / 2);
    constexpr auto memory = limits::memoryOfAllUsers + clients * 2 * limits::clientBufferSize;
    EXPECT_GE(setting("MemoryMax"), memory * 5 / 4);
}

}  // namespace
}  // namespace morvane
