// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "AclRequests.h"
#include "OrdinaryUser.h"
#include "RequestErrors.h"
#include "TemporaryFolder.h"

namespace morvane {
namespace {

const NSURL* urlOf(const NSErrorRef& error) {
    const auto found = error->userInfo().find(NSURLErrorKey);
    return found == error->userInfo().end() ? nullptr : std::get_if<NSURL>(&found->second);
}

void expectError(const NSErrorRef& error, std::int64_t code, const NSURL& url) {
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain(), NSPOSIXErrorDomain);
    EXPECT_EQ(error->code(), code);
    ASSERT_TRUE(urlOf(error));
    EXPECT_EQ(*urlOf(error), url);
}

TEST(AclRequests, ARealFileHasItsEntriesAndNoError) {
    const auto answer = aclEntriesOfUrl(NSURL::fileURLWithPath("/etc/passwd"));
    ASSERT_TRUE(answer);
    ASSERT_GE(answer->size(), 3U);
    EXPECT_EQ(answer->front()->uuid(), uuidOfPosixIdentity(CBPosixUser{0}));
}

TEST(AclRequests, AMissingItemIsAPosixErrorWithTheUrl) {
    const auto url = NSURL::fileURLWithPath("/etc/there-is-no-such-file");
    const auto answer = aclEntriesOfUrl(url);
    ASSERT_FALSE(answer);
    expectError(answer.error(), ENOENT, url);
    EXPECT_EQ(answer.error()->localizedDescription(), "No such file or directory");
}

TEST(AclRequests, AUrlOfSomethingElseThanAFileIsRefused) {
    const auto url = NSURL::URLWithString("https://example.org/x");
    ASSERT_TRUE(url);
    const auto answer = aclEntriesOfUrl(*url);
    expectError(answer.error(), EINVAL, *url);
    EXPECT_EQ(answer.error()->localizedDescription(),
              "Only files and folders have an access-control list.");
}

/// Items of root's that are to be changed for somebody else.
class AclRequestsOnBehalf : public testing::Test {
  protected:
    /// Writes the item's own list back to it.
    static NSErrorRef rewrite(const std::string& path, std::uint32_t user) {
        const auto url = NSURL::fileURLWithPath(path);
        const auto answer = aclEntriesOfUrl(url);
        EXPECT_TRUE(answer);
        return setAclEntriesOfUrl(*answer, url, PathRule{user});
    }

    const TemporaryFolder temporary_;
    const std::filesystem::path& folder_ = temporary_.path();
};

TEST_F(AclRequestsOnBehalf, OnlyFilesAndFoldersAreChanged) {
    std::ofstream(folder_ / "file");
    ASSERT_EQ(mkfifo((folder_ / "fifo").c_str(), 0600), 0);
    EXPECT_FALSE(rewrite(folder_ / "file", ordinaryUser));
    EXPECT_FALSE(rewrite(folder_, ordinaryUser));
    expectError(rewrite(folder_ / "fifo", ordinaryUser), EPERM,
                NSURL::fileURLWithPath((folder_ / "fifo").string()));
}

TEST_F(AclRequestsOnBehalf, AFileWithSeveralNamesIsChangedForItsOwnerOnly) {
    std::ofstream(folder_ / "file");
    std::filesystem::create_hard_link(folder_ / "file", folder_ / "other");
    expectError(rewrite(folder_ / "file", ordinaryUser), EMLINK,
                NSURL::fileURLWithPath((folder_ / "file").string()));
    EXPECT_FALSE(rewrite(folder_ / "file", getuid()));
}

class AclRequestsOfAFile : public AclRequestsOnBehalf {
  protected:
    AclRequestsOfAFile() {
        std::ofstream(folder_ / "file");
        chmod((folder_ / "file").c_str(), 0640);
    }

    const NSURL file_ = NSURL::fileURLWithPath((folder_ / "file").string());
};

TEST_F(AclRequestsOfAFile, EntriesTellWhatTheyWereReadFrom) {
    const auto answer = aclEntriesOfUrl(file_);
    ASSERT_EQ(answer->size(), 3U);
    const auto& item = (*answer)[2]->origin()->values();
    EXPECT_EQ(item.url, file_);
    EXPECT_FALSE(item.isDirectory);
    EXPECT_EQ(item.owner, getuid());
    EXPECT_EQ(item.group, getgid());
    EXPECT_EQ(item.digest.size(), 32U);
    EXPECT_TRUE((*aclEntriesOfUrl(NSURL::fileURLWithPath(folder_.string())))[0]
                    ->origin()
                    ->values()
                    .isDirectory);
}

TEST_F(AclRequestsOfAFile, AListThatHasChangedSinceItWasReadIsNotReplaced) {
    const auto answer = aclEntriesOfUrl(file_);
    chmod(file_.path().c_str(), 0600);
    const auto error = setAclEntriesOfUrl(*answer, file_);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->domain(), MVAclErrorDomain);
    EXPECT_EQ(error->code(), MVAclChanged);
    EXPECT_EQ(error->localizedDescription(), "The list has changed since it was read.");
    struct stat status {};
    stat(file_.path().c_str(), &status);
    EXPECT_EQ(status.st_mode & 0777, 0600U);
    // Read again it can be written.
    EXPECT_EQ(setAclEntriesOfUrl(*aclEntriesOfUrl(file_), file_), nullptr);
}

TEST_F(AclRequestsOfAFile, EntriesOfAnotherItemOrOfNoneAreWritten) {
    const auto copied = aclEntriesOfUrl(NSURL::fileURLWithPath("/etc/passwd"));
    ASSERT_TRUE(copied);
    EXPECT_EQ(setAclEntriesOfUrl(*copied, file_), nullptr);
    auto own = *aclEntriesOfUrl(file_);
    chmod(file_.path().c_str(), 0600);
    for (const auto& entry : own)
        entry->setOrigin(nullptr);
    EXPECT_EQ(setAclEntriesOfUrl(own, file_), nullptr);
}

}  // namespace
}  // namespace morvane
