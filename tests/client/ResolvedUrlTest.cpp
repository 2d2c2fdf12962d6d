// SPDX-License-Identifier: MIT
#include <MorvaneOperation/ResolvedUrl.h>
#include <gtest/gtest.h>
#include <sys/fsuid.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "OrdinaryUser.h"
#include "TemporaryFolder.h"

/// The paths under which the helper is asked for what a host has named otherwise.
namespace morvane {
namespace {

class ResolvedUrl : public testing::Test {
  protected:
    ResolvedUrl() {
        std::filesystem::permissions(folder, std::filesystem::perms(0755));
        std::filesystem::create_directories(folder / "real/inside");
        std::filesystem::create_symlink("real", folder / "way");
        std::filesystem::create_symlink("inside", folder / "real/last");
    }

    NSURL at(const std::string& path) const {
        return NSURL::fileURLWithPath((folder / path).string());
    }

    const TemporaryFolder temporary;
    const std::filesystem::path& folder = temporary.path();
};

TEST_F(ResolvedUrl, LinksAreFollowedOnTheWayAndAtItsEnd) {
    EXPECT_EQ(withoutLinks(at("way/last")), at("real/inside"));
    EXPECT_EQ(withoutLinks(at("way/missing")), at("real/missing"));
    EXPECT_EQ(withoutLinks(NSURL::fileURLWithPath("/")), NSURL::fileURLWithPath("/"));
}

TEST_F(ResolvedUrl, ALinkAtTheEndIsTheItemWhereThatIsMeant) {
    EXPECT_EQ(withoutLinksOnTheWay(at("way/last")), at("real/last"));
    EXPECT_EQ(withoutLinksOnTheWay(NSURL::fileURLWithPath("/")), NSURL::fileURLWithPath("/"));
}

TEST_F(ResolvedUrl, LinksBeforeAFolderThatMayNotBeEnteredAreFollowed) {
    std::filesystem::permissions(folder / "real", std::filesystem::perms(0700));
    // This thread's only.
    const auto former = setfsuid(ordinaryUser);
    const auto resolved = withoutLinks(at("way/last"));
    const auto onTheWay = withoutLinksOnTheWay(at("way/last/name"));
    setfsuid(static_cast<uid_t>(former));
    EXPECT_EQ(resolved, at("real/last"));
    EXPECT_EQ(onTheWay, at("real/last/name"));
}

TEST_F(ResolvedUrl, WhatIsInAFolderIsNamedAsThatWas) {
    EXPECT_EQ(movedTo(at("real/name"), at("real"), at("way")), at("way/name"));
    EXPECT_EQ(movedTo(at("other/name"), at("real"), at("way")), at("other/name"));
    EXPECT_EQ(folderOf(at("way/name")), at("way"));
}

}  // namespace
}  // namespace morvane
