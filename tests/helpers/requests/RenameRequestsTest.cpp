// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <map>
#include <numeric>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "OrdinaryUser.h"
#include "RenameRequests.h"
#include "RenameTest.h"

namespace morvane {
namespace {

namespace fs = std::filesystem;
using RenameRequests = RenameTest;

TEST_F(RenameRequests, EachItemHasItsNewName) {
    make({"a", "b"});
    const auto answer = rename({{"a", "x"}, {"b", "y"}});
    EXPECT_FALSE(answer.error);
    EXPECT_EQ(answer.codes, (Codes{0, 0}));
    EXPECT_EQ(pathsOf(answer), (Names{"x", "y"}));
    EXPECT_EQ(contents(), (Contents{{"x", "a"}, {"y", "b"}}));
}

TEST_F(RenameRequests, TwoItemsSwapTheirNames) {
    make({"a", "b"});
    const auto answer = rename({{"a", "b"}, {"b", "a"}});
    EXPECT_FALSE(answer.error);
    EXPECT_EQ(pathsOf(answer), (Names{"b", "a"}));
    EXPECT_EQ(contents(), (Contents{{"a", "b"}, {"b", "a"}}));
}

TEST_F(RenameRequests, AChainIsRenamedFromItsEnd) {
    make({"1", "2", "3"});
    EXPECT_FALSE(rename({{"1", "2"}, {"2", "3"}, {"3", "4"}}).error);
    EXPECT_EQ(contents(), (Contents{{"2", "1"}, {"3", "2"}, {"4", "3"}}));
}

TEST_F(RenameRequests, AfterANoWhatIsLeftKeepsItsName) {
    make({"a", "b", "c", "x", "y"});
    int asked = 0;
    const auto answer = rename({{"a", "A"}, {"b", "B"}, {"c", "b"}, {"x", "y"}, {"y", "x"}},
                               systemRename, [&] { return asked++ == 0; });
    EXPECT_EQ(answer.codes, (Codes{0, ECANCELED, ECANCELED, ECANCELED, ECANCELED}));
    EXPECT_EQ(contents(), (Contents{{"A", "a"}, {"b", "b"}, {"c", "c"}, {"x", "x"}, {"y", "y"}}));
}

TEST_F(RenameRequests, NothingIsOverwritten) {
    make({"a", "b", "there"});
    const auto answer = rename({{"a", "there"}, {"b", "c"}});
    EXPECT_EQ(answer.codes, (Codes{EEXIST, 0}));
    EXPECT_EQ(pathsOf(answer), (Names{"a", "c"}));
    EXPECT_EQ(contents(), (Contents{{"a", "a"}, {"c", "b"}, {"there", "there"}}));
    ASSERT_TRUE(answer.error);
    EXPECT_EQ(answer.error->code(), EEXIST);
    EXPECT_EQ(answer.error->localizedDescription(),
              "1 of 2 items could not be renamed; the first is \"" + url("a").path() +
                  "\" (File exists)");
}

TEST_F(RenameRequests, WhoWaitsForANameThatIsNotGivenUpKeepsItsOwn) {
    make({"a", "b", "there"});
    EXPECT_EQ(rename({{"a", "b"}, {"b", "there"}}).codes, (Codes{EEXIST, EEXIST}));
    EXPECT_EQ(contents(), (Contents{{"a", "a"}, {"b", "b"}, {"there", "there"}}));
}

TEST_F(RenameRequests, AMissingItemInACircleLeavesAllUnderTheirOldNames) {
    make({"a", "b", "d"});
    const auto answer = rename({{"a", "b"}, {"b", "c"}, {"c", "d"}, {"d", "a"}});
    EXPECT_EQ(answer.codes, (Codes{ENOENT, ENOENT, ENOENT, ENOENT}));
    EXPECT_EQ(contents(), (Contents{{"a", "a"}, {"b", "b"}, {"d", "d"}}));
}

TEST_F(RenameRequests, AFolderAndWhatIsInItAreRenamedInOneRequest) {
    fs::create_directories(path("outer/inner"));
    make({"outer/inner/file", "outer/other"});
    const auto answer = rename({{"outer", "OUTER"},
                                {"outer/inner/file", "FILE"},
                                {"outer//inner/", "INNER"},
                                {"outer/./other", "OTHER"}});
    EXPECT_FALSE(answer.error);
    EXPECT_EQ(pathsOf(answer), (Names{"OUTER", "OUTER/INNER/FILE", "OUTER/INNER", "OUTER/OTHER"}));
    for (const auto& each : answer.urls)
        EXPECT_TRUE(fs::exists(each.path())) << each.path();
}

TEST_F(RenameRequests, FoldersThatSwapTakeWhatIsInThemAlong) {
    fs::create_directory(path("a"));
    fs::create_directory(path("b"));
    make({"a/x", "b/y"});
    const auto answer = rename({{"a", "b"}, {"b", "a"}, {"a/x", "X"}, {"b/y", "Y"}});
    EXPECT_FALSE(answer.error);
    EXPECT_EQ(pathsOf(answer), (Names{"b", "a", "b/X", "a/Y"}));
    for (const auto& each : answer.urls)
        EXPECT_TRUE(fs::exists(each.path())) << each.path();
}

TEST_F(RenameRequests, ALinkIsRenamedAndNotWhatItPointsTo) {
    make({"file"});
    fs::create_symlink("file", path("link"));
    EXPECT_FALSE(rename({{"link", "other"}}).error);
    EXPECT_TRUE(fs::is_symlink(path("other")));
    EXPECT_TRUE(fs::exists(path("file")));
}

TEST_F(RenameRequests, AMissingFolderIsToldOfEachItemInIt) {
    make({"a"});
    EXPECT_EQ(rename({{"none/x", "y"}, {"a", "b"}, {"none/z", "w"}}).codes,
              (Codes{ENOENT, 0, ENOENT}));
}

TEST_F(RenameRequests, TheRuleForRootFollowsNoLinkOnTheWay) {
    fs::create_directory(path("real"));
    fs::create_directory_symlink("real", path("link"));
    make({"real/a"});
    EXPECT_EQ(renameUrlsTo({url("link/a")}, {"b"}, PathRule{ordinaryUser}).codes, (Codes{ELOOP}));
    EXPECT_TRUE(fs::exists(path("real/a")));
}

TEST_F(RenameRequests, WhatMakesNoSenseIsRefusedBeforeAnythingChanges) {
    make({"a", "b"});
    const auto refusal = [&](const std::vector<NSURL>& urls, const std::vector<std::string>& to) {
        const auto answer = renameUrlsTo(urls, to);
        EXPECT_EQ(answer.codes, Codes(urls.size(), answer.error ? answer.error->code() : 0));
        EXPECT_EQ(answer.urls, urls);
        EXPECT_EQ(contents(), (Contents{{"a", "a"}, {"b", "b"}}));
        return answer.error ? answer.error->localizedDescription() : "nothing";
    };
    const auto a = url("a");
    const auto b = url("b");
    EXPECT_EQ(refusal({b, a}, {"x"}), "The request has 2 items but 1 names.");
    EXPECT_EQ(refusal({}, {"x"}), "The request has 0 items but 1 names.");
    EXPECT_EQ(refusal({b, a}, {"x", ""}), "A new name is empty.");
    EXPECT_EQ(refusal({b, a}, {"x", "."}),
              "\".\" names a folder's own place and cannot be given to an item.");
    EXPECT_EQ(refusal({b, a}, {"x", ".."}),
              "\"..\" names a folder's own place and cannot be given to an item.");
    EXPECT_EQ(refusal({b, a}, {"x", "y/z"}),
              "The new name \"y/z\" holds a slash; an item stays in its folder.");
    EXPECT_EQ(refusal({b, a}, {"x", std::string("y\0z", 3)}), "A new name holds a NUL character.");
    EXPECT_EQ(refusal({b, a}, {"x", std::string(256, 'y')}),
              "A new name has 256 bytes; a name has at most 255.");
    EXPECT_EQ(refusal({b, a}, {"x", "x"}),
              "Two items of one folder would both get the name \"x\".");
    const auto twice = "The item \"" + b.path() + "\" is named twice in the request.";
    EXPECT_EQ(refusal({b, b}, {"x", "y"}), twice);
    EXPECT_EQ(refusal({url("./b"), b}, {"x", "y"}), twice);
    EXPECT_EQ(refusal({b, NSURL::fileURLWithPath("/")}, {"x", "y"}),
              "The path does not end with the name of an item.");
    EXPECT_EQ(refusal({b, url("..")}, {"x", "y"}),
              "The path does not end with the name of an item.");
    EXPECT_EQ(refusal({b, *NSURL::URLWithString("https://example.org/a")}, {"x", "y"}),
              "Only files and folders can be renamed.");
    EXPECT_EQ(refusal(std::vector<NSURL>(100001, a), std::vector<std::string>(100001, "x")),
              "The request has 100001 items; one request renames at most 100000.");
}

TEST_F(RenameRequests, AUrlThroughALinkThatTheRequestBreaksIsToldByTheRealPath) {
    fs::create_directory(path("real"));
    fs::create_directory_symlink("real", path("link"));
    make({"real/a"});
    const auto answer = rename({{"link/a", "b"}, {"real", "moved"}});
    EXPECT_FALSE(answer.error);
    EXPECT_EQ(answer.urls, (std::vector{url("moved/b"), url("moved")}));
}

TEST_F(RenameRequests, AnEmptyRequestIsDone) {
    const auto answer = renameUrlsTo({}, {});
    EXPECT_FALSE(answer.error);
    EXPECT_TRUE(answer.urls.empty());
}

TEST_F(RenameRequests, ANameOf255BytesIsOne) {
    make({"a"});
    EXPECT_FALSE(rename({{"a", std::string(255, 'x')}}).error);
}

/// Some of the names "0".."19" among themselves, and to some that are new or taken by others.
std::vector<std::pair<std::string, std::string>> randomRequest(std::mt19937& random) {
    std::vector<int> from(20);
    std::iota(from.begin(), from.end(), 0);
    std::vector<int> to(24);
    std::iota(to.begin(), to.end(), 0);
    std::shuffle(from.begin(), from.end(), random);
    from.resize(random() % 21);
    // Half of the time a permutation, the rest anything.
    if (random() % 2 == 0)
        to = from;
    std::shuffle(to.begin(), to.end(), random);
    std::vector<std::pair<std::string, std::string>> request;
    for (std::size_t i = 0; i != from.size(); ++i)
        request.emplace_back(std::to_string(from[i]), std::to_string(to[i]));
    return request;
}

TEST_F(RenameRequests, RandomRequestsDoWhatAPlainModelDoes) {
    std::mt19937 random(5);
    Names all;
    for (int i = 0; i < 20; ++i)
        all.push_back(std::to_string(i));
    for (int round = 0; round < 500; ++round) {
        fs::remove_all(folder_);
        fs::create_directory(folder_);
        make(all);
        const auto request = randomRequest(random);
        // An item fails if its new name is that of one that is not asked for, or that fails.
        std::map<std::string, std::string> wanted(request.begin(), request.end());
        for (bool changed = true; changed;) {
            changed = false;
            for (auto each = wanted.begin(); each != wanted.end();) {
                const bool taken = std::stoi(each->second) < 20 && !wanted.contains(each->second);
                changed = changed || taken;
                each = taken ? wanted.erase(each) : std::next(each);
            }
        }
        Contents expected;
        for (const auto& name : all)
            expected[wanted.contains(name) ? wanted.at(name) : name] = name;
        const auto answer = rename(request);
        ASSERT_EQ(contents(), expected) << "round " << round;
        for (std::size_t i = 0; i != request.size(); ++i) {
            EXPECT_EQ(answer.codes[i] == 0, wanted.contains(request[i].first));
            EXPECT_EQ(answer.urls[i].lastPathComponent(),
                      answer.codes[i] == 0 ? request[i].second : request[i].first);
        }
    }
}

}  // namespace
}  // namespace morvane
