// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/archive/NSKeyedArchiver.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>

#include "DirectoryRequests.h"
#include "TemporaryFolder.h"

namespace morvane {
namespace {

namespace fs = std::filesystem;

class DirectoryRequestsTest : public testing::Test {
  protected:
    void file(const std::string& name) const { std::ofstream(folder / name).flush(); }
    NSURL url(const std::string& name = {}) const {
        return NSURL::fileURLWithPath((folder / name).native());
    }

    const TemporaryFolder temporary;
    const fs::path& folder = temporary.path();
};

void expectError(const Result<std::vector<NSURL>>& answer, int code, const NSURL& url) {
    ASSERT_FALSE(answer);
    EXPECT_EQ(answer.error()->domain(), NSPOSIXErrorDomain);
    EXPECT_EQ(answer.error()->code(), code);
    EXPECT_EQ(std::get<NSURL>(answer.error()->userInfo().at(NSURLErrorKey)), url);
}

TEST_F(DirectoryRequestsTest, EndsWhenItIsNotToGoOn) {
    file("a");
    file("b");
    int asked = 0;
    expectError(contentsOfDirectory(url(), {}, limits::messageSize, [&] { return asked++ == 0; }),
                ECANCELED, url());
    EXPECT_EQ(asked, 2);
}

TEST_F(DirectoryRequestsTest, EachItemIsAUrlBelowTheFolder) {
    file("a b");
    file("\xff\n");
    fs::create_directory(folder / "sub");
    file("sub/deeper");
    const auto answer = contentsOfDirectory(url());
    ASSERT_TRUE(answer);
    std::set<std::string> paths;
    for (const auto& item : *answer)
        paths.insert(item.path());
    EXPECT_EQ(paths, (std::set<std::string>{folder / "a b", folder / "\xff\n", folder / "sub"}));
}

TEST_F(DirectoryRequestsTest, AnEmptyFolderIsAnEmptyList) {
    const auto answer = contentsOfDirectory(url());
    ASSERT_TRUE(answer);
    EXPECT_TRUE(answer->empty());
}

TEST_F(DirectoryRequestsTest, ALinkToAFolderIsFollowedButNotOnBehalfOfAnother) {
    fs::create_directory(folder / "real");
    file("real/file");
    fs::create_directory_symlink("real", folder / "link");
    EXPECT_EQ(contentsOfDirectory(url("link"))->at(0).path(), folder / "link/file");
    const PathRule rule{static_cast<std::uint32_t>(::getuid())};
    expectError(contentsOfDirectory(url("link"), rule), ELOOP, url("link"));
    EXPECT_EQ(contentsOfDirectory(url("real"), rule)->size(), 1U);
}

TEST_F(DirectoryRequestsTest, OnlyFoldersCanBeListed) {
    file("file");
    expectError(contentsOfDirectory(url("file")), ENOTDIR, url("file"));
    expectError(contentsOfDirectory(url("none")), ENOENT, url("none"));
    const auto remote = *NSURL::URLWithString("http://example.org/");
    const auto answer = contentsOfDirectory(remote);
    expectError(answer, EINVAL, remote);
    EXPECT_EQ(answer.error()->localizedDescription(), "Only folders can be listed.");
}

TEST_F(DirectoryRequestsTest, AListingThatDoesNotFitOneMessageIsAnErrorAndNotAPart) {
    for (int i = 0; i < 100; ++i)
        file(std::to_string(i));
    const auto answer = contentsOfDirectory(url(), {}, 4000);
    expectError(answer, EMSGSIZE, url());
    EXPECT_EQ(answer.error()->localizedDescription(),
              "The folder has more items than one answer can hold (4000 bytes).");
    EXPECT_EQ(contentsOfDirectory(url(), {}, 1 << 20)->size(), 100U);
}

TEST_F(DirectoryRequestsTest, WhatIsListedFitsItsMessage) {
    constexpr int items = 40000;
    for (int i = 0; i < items; ++i)
        fs::create_symlink("x", folder / std::to_string(i));
    const auto answer = contentsOfDirectory(url());
    ASSERT_EQ(answer->size(), std::size_t{items});
    NSKeyedArchiver archiver;
    archiver.encodeURLs(*answer, "0");
    const auto size = archiver.finishEncoding().size();
    expectError(contentsOfDirectory(url(), {}, size - 1), EMSGSIZE, url());
}

}  // namespace
}  // namespace morvane
