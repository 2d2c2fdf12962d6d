// SPDX-License-Identifier: MIT
// The user whom tests become; they need root for it.
#pragma once

#include <grp.h>
#include <gtest/gtest.h>
#include <sys/types.h>
#include <unistd.h>

namespace morvane {

/// Nobody: who owns nothing, and whose group has no members.
constexpr uid_t ordinaryUser = 65534;

/// Whether the process is that user from now on, for good.
inline bool becomeOrdinaryUser() {
    return setgroups(0, nullptr) == 0 && setgid(ordinaryUser) == 0 && setuid(ordinaryUser) == 0;
}

/// Until this ends, what the process does is done by that user.
class AsOrdinaryUser {
  public:
    AsOrdinaryUser() {
        EXPECT_EQ(setegid(ordinaryUser), 0);
        EXPECT_EQ(seteuid(ordinaryUser), 0);
    }
    ~AsOrdinaryUser() {
        EXPECT_EQ(seteuid(0), 0);
        EXPECT_EQ(setegid(0), 0);
    }
    AsOrdinaryUser(const AsOrdinaryUser&) = delete;
    AsOrdinaryUser& operator=(const AsOrdinaryUser&) = delete;
};

}  // namespace morvane
