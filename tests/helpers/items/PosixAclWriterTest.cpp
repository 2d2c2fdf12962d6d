// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "OrdinaryUser.h"
#include "PosixAclReader.h"
#include "PosixAclWriter.h"
#include "TemporaryFolder.h"

namespace morvane {
namespace {

constexpr PosixRights r = PosixRead;
constexpr PosixRights none = PosixNothing;
constexpr PosixRights rw = PosixRead | PosixWrite;
constexpr PosixRights rwx = PosixEverything;

class PosixAclWriter : public testing::Test {
  protected:
    PosixAclWriter() {
        std::ofstream(file_) << "text";
        chmod(file_.c_str(), 0640);
    }

    static PosixAcl read(const std::string& path) {
        auto acl = readPosixAcl(path);
        EXPECT_TRUE(acl);
        return *acl;
    }
    static mode_t modeOf(const std::string& path) {
        struct stat status {};
        stat(path.c_str(), &status);
        return status.st_mode & 07777;
    }
    static int write(const std::string& path, const PosixList& access,
                     const std::optional<PosixList>& defaults = std::nullopt) {
        const auto old = read(path);
        auto acl = old;
        acl.access = access;
        acl.defaults = defaults;
        return writePosixAcl(path, old, acl);
    }
    static int writeAsOrdinaryUser(const std::string& path, const PosixList& access) {
        const AsOrdinaryUser user;
        return write(path, access);
    }

    const TemporaryFolder temporary_;
    const std::string folder_ = temporary_.path();
    const std::string file_ = folder_ + "/file";
};

const PosixList named{rw, none, none, rwx, {{4711, rwx}, {4712, r}}, {{4713, r}}};

TEST_F(PosixAclWriter, WhatIsWrittenIsWhatIsRead) {
    EXPECT_EQ(write(file_, named), 0);
    EXPECT_EQ(read(file_).access, named);
    EXPECT_EQ(write(folder_, named, named), 0);
    EXPECT_EQ(read(folder_).access, named);
    EXPECT_EQ(read(folder_).defaults, named);
}

TEST_F(PosixAclWriter, ABaseAloneIsTheMode) {
    EXPECT_EQ(write(file_, named), 0);
    EXPECT_EQ(write(file_, {rw, r, none, {}, {}, {}}), 0);
    EXPECT_EQ(modeOf(file_), 0640U);
}

TEST_F(PosixAclWriter, TheDefaultListCanBeTakenAway) {
    EXPECT_EQ(write(folder_, named, named), 0);
    EXPECT_EQ(write(folder_, named), 0);
    EXPECT_EQ(read(folder_).defaults, std::nullopt);
}

TEST_F(PosixAclWriter, SetuidSetgidAndStickySurvive) {
    chmod(file_.c_str(), 07640);
    EXPECT_EQ(write(file_, named), 0);
    EXPECT_EQ(modeOf(file_) & 07000, 07000U);
    EXPECT_EQ(write(file_, {rwx, r, r, {}, {}, {}}), 0);
    EXPECT_EQ(modeOf(file_), 07744U);
}

TEST_F(PosixAclWriter, AListThatIsThereIsNotWritten) {
    EXPECT_EQ(write(file_, named), 0);
    struct stat before {};
    struct stat after {};
    stat(file_.c_str(), &before);
    EXPECT_EQ(write(file_, named), 0);
    stat(file_.c_str(), &after);
    EXPECT_EQ(before.st_ctim.tv_sec, after.st_ctim.tv_sec);
    EXPECT_EQ(before.st_ctim.tv_nsec, after.st_ctim.tv_nsec);
}

TEST_F(PosixAclWriter, AFileThatHasNoDefaultListKeepsItsOldOneAfterTheFailure) {
    EXPECT_EQ(write(file_, named), 0);
    EXPECT_NE(write(file_, {rw, r, none, {}, {}, {}}, named), 0);
    EXPECT_EQ(read(file_).access, named);
}

TEST_F(PosixAclWriter, WhoeverMayNotChangeTheItemIsToldSoAndTheListStays) {
    ASSERT_EQ(geteuid(), 0U) << "the tests of lists run as root";
    chmod(folder_.c_str(), 0755);
    const int code = writeAsOrdinaryUser(file_, named);
    EXPECT_EQ(code, EPERM);
    EXPECT_EQ(read(file_).access, (PosixList{rw, r, none, {}, {}, {}}));
}

TEST_F(PosixAclWriter, AnOwnerOutsideTheGroupOfASetgidItemIsRefusedInsteadOfLosingIt) {
    chmod(folder_.c_str(), 0755);
    ASSERT_EQ(chown(file_.c_str(), ordinaryUser, 4711), 0);
    chmod(file_.c_str(), 02770);
    const int code = writeAsOrdinaryUser(file_, named);
    EXPECT_EQ(code, EPERM);
    EXPECT_EQ(modeOf(file_), 02770U);
}

}  // namespace
}  // namespace morvane
