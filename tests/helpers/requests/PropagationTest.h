// SPDX-License-Identifier: MIT
// A tree whose list is handed down.
#pragma once

#include <MorvaneOperation/MVAclEntry.h>
#include <MorvaneOperation/platform/foundation/NSURL.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "AclRequests.h"
#include "OrdinaryUser.h"
#include "PosixAclReader.h"
#include "PropagateRequests.h"
#include "TemporaryFolder.h"

namespace morvane {

constexpr PosixRights r = PosixRead;
constexpr PosixRights none = PosixNothing;
constexpr PosixRights rw = PosixRead | PosixWrite;
constexpr PosixRights rx = PosixRead | PosixExecute;
constexpr PosixRights rwx = PosixEverything;
constexpr std::uint32_t alice = 30003;
constexpr std::uint32_t staff = 30005;
/// The interval of a request whose client is not there to be asked.
constexpr std::chrono::hours unasked{1};

using Entries = std::vector<std::shared_ptr<MVAclEntry>>;

inline PosixAcl aclOf(const std::string& path) {
    auto acl = readPosixAcl(path);
    EXPECT_TRUE(acl) << path;
    return *acl;
}

inline mode_t modeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
}

/// A folder `top` with the files "file" and "program" and the folder "sub", which has a file and a
/// folder with a file.
class PropagationTest : public testing::Test {
  protected:
    PropagationTest() {
        std::filesystem::create_directories(top_ + "/sub/deep");
        // Who is named after everyone has at least what everyone has.
        chmod(top_.c_str(), 0700);
        for (const auto* const file : {"/file", "/program", "/sub/file", "/sub/deep/file"})
            makeFile(top_ + file);
        chmod((top_ + "/program").c_str(), 0755);
    }

    static void makeFile(const std::string& path) {
        std::ofstream(path) << "text";
        ASSERT_EQ(chmod(path.c_str(), 0600), 0);
    }

    NSURL url() const { return NSURL::fileURLWithPath(top_); }
    Entries own() const {
        auto answer = aclEntriesOfUrl(url());
        EXPECT_TRUE(answer);
        return *answer;
    }
    NSErrorRef propagate(const Entries& entries, const PathRule& rule = {}) const {
        return propagateAclEntriesBelow(entries, url(), {}, rule, unasked);
    }
    Entries ownAnd(const std::shared_ptr<MVAclEntry>& more) const {
        auto entries = own();
        entries.push_back(more);
        return entries;
    }

    const TemporaryFolder temporary_;
    const std::string outside_ = temporary_.path();
    const std::string top_ = outside_ + "/top";
};

}  // namespace morvane
