// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "OrdinaryUser.h"
#include "RenameTest.h"

namespace morvane {
namespace {

namespace fs = std::filesystem;
/// What becomes of the names where a call to the system fails or is the last.
using RenameFailures = RenameTest;

TEST_F(RenameFailures, ACircleThatCannotBeTakenBackIsToldAsItIs) {
    make({"a", "b", "c", "d"});
    int calls = 0;
    const auto answer = rename({{"a", "b"}, {"b", "c"}, {"c", "d"}, {"d", "a"}},
                               [&](int folder, const auto& from, const auto& to, unsigned flags) {
                                   return ++calls > 2 ? EIO : systemRename(folder, from, to, flags);
                               });
    EXPECT_EQ(answer.codes, (Codes{0, 0, EIO, EIO}));
    EXPECT_EQ(pathsOf(answer), (Names{"b", "c", "a", "d"}));
    EXPECT_EQ(contents(), (Contents{{"b", "a"}, {"c", "b"}, {"a", "c"}, {"d", "d"}}));
}

TEST_F(RenameFailures, AFileSystemThatCannotKeepWhatIsThereIsNotChanged) {
    make({"a", "b", "c"});
    std::vector<unsigned> flags;
    const auto answer = rename({{"a", "b"}, {"b", "a"}, {"c", "d"}},
                               [&](int, const auto&, const auto&, unsigned f) {
                                   flags.push_back(f);
                                   return EOPNOTSUPP;
                               });
    EXPECT_EQ(answer.codes, (Codes{EOPNOTSUPP, EOPNOTSUPP, EOPNOTSUPP}));
    EXPECT_EQ(flags, (std::vector<unsigned>{RENAME_NOREPLACE, RENAME_EXCHANGE}));
}

/// What a network mount says of a rename that must not overwrite.
int renameOnANetworkMount(int, const char*, const char*, unsigned) {
    return EINVAL;
}

TEST_F(RenameFailures, WhereTheRenameWouldOverwriteAFileIsLinkedToItsNewName) {
    make({"a", "b", "there"});
    fs::create_symlink("nowhere", path("link"));
    const auto answer =
        rename({{"a", "b"}, {"b", "\u00e4"}, {"link", "moved"}}, renameOnANetworkMount);
    EXPECT_EQ(answer.codes, (Codes{0, 0, 0}));
    EXPECT_EQ(fs::read_symlink(path("moved")), "nowhere");
    EXPECT_FALSE(fs::is_symlink(path("link")));
    fs::remove(path("moved"));
    EXPECT_EQ(contents(), (Contents{{"b", "a"}, {"\u00e4", "b"}, {"there", "there"}}));
    EXPECT_EQ(rename({{"b", "there"}}, renameOnANetworkMount).codes, (Codes{EEXIST}));
    EXPECT_EQ(contents(), (Contents{{"b", "a"}, {"\u00e4", "b"}, {"there", "there"}}));
    EXPECT_EQ(fs::hard_link_count(path("b")), 1U);
}

TEST_F(RenameFailures, AFileThatCannotLoseItsOldNameDoesNotGetTheNewOne) {
    make({"a"});
    fs::permissions(path("a"), fs::perms(0666));
    fs::permissions(folder_, fs::perms(01777));
    const auto answer = [&] {
        const AsOrdinaryUser user;
        return rename({{"a", "b"}}, renameOnANetworkMount);
    }();
    EXPECT_EQ(answer.codes, (Codes{EPERM}));
    EXPECT_EQ(contents(), (Contents{{"a", "a"}}));
}

TEST_F(RenameFailures, WhereTheRenameWouldOverwriteFoldersAndCirclesAreRefusedWithTheReason) {
    make({"a", "b", "c"});
    fs::create_directory(path("folder"));
    const auto textOf = [&](const std::vector<std::pair<std::string, std::string>>& pairs,
                            std::int64_t code) {
        const auto answer = rename(pairs, renameOnANetworkMount);
        EXPECT_EQ(answer.codes, Codes(pairs.size(), code));
        return answer.error->localizedDescription();
    };
    const std::string explained =
        "\" (This file system cannot rename folders, or let items change places, without the risk "
        "of overwriting what gets the new name at that moment.)";
    EXPECT_EQ(
        textOf({{"folder", "d"}}, EOPNOTSUPP),
        "1 of 1 items could not be renamed; the first is \"" + url("folder").path() + explained);
    EXPECT_EQ(textOf({{"a", "b"}, {"b", "a"}}, EOPNOTSUPP),
              "2 of 2 items could not be renamed; the first is \"" + url("a").path() + explained);
    // Here the name may be what it does not take.
    EXPECT_EQ(textOf({{"folder", "d:e"}}, EINVAL),
              "1 of 1 items could not be renamed; the first is \"" + url("folder").path() +
                  "\" (Invalid argument)");
    fs::remove(path("folder"));
    EXPECT_EQ(contents(), (Contents{{"a", "a"}, {"b", "b"}, {"c", "c"}}));
}

/// Runs the request in a process of its own, which is killed before (or after) its n-th call to the
/// system. Whether it was.
template <class Work>
bool killedAt(int n, bool after, Work work) {
    const auto child = fork();
    if (child == 0) {
        int calls = 0;
        work([&](int folder, const char* from, const char* to, unsigned flags) {
            const bool now = ++calls == n;
            if (now && !after)
                raise(SIGKILL);
            const int code = systemRename(folder, from, to, flags);
            if (now)
                raise(SIGKILL);
            return code;
        });
        _exit(0);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return WIFSIGNALED(status);
}

TEST_F(RenameFailures, AKillAtAnyCallLosesNoNameAndNoItem) {
    const Names all{"a", "b", "c", "d", "e", "f", "g"};
    for (const bool after : {false, true}) {
        bool killed = true;
        int n = 1;
        for (; killed; ++n) {
            fs::remove_all(folder_);
            fs::create_directory(folder_);
            make(all);
            killed = killedAt(n, after, [&](const RenameCall& call) {
                rename({{"a", "b"}, {"b", "c"}, {"c", "d"}, {"d", "a"}, {"e", "f"}, {"f", "x"}},
                       call);
            });
            std::vector<std::string> items;
            for (const auto& [name, item] : contents()) {
                items.push_back(item);
                EXPECT_TRUE(name == "x" || std::find(all.begin(), all.end(), name) != all.end())
                    << name << " was never asked for";
            }
            std::sort(items.begin(), items.end());
            EXPECT_EQ(items, all) << "killed at call " << n;
        }
        EXPECT_EQ(n, 7) << "five calls, and one run that ended";
    }
}

}  // namespace
}  // namespace morvane
