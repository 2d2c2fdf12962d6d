// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "OrdinaryUser.h"
#include "PropagationTest.h"
#include "helpers/SilentMount.h"

namespace morvane {
namespace {

/// What somebody hands down who is not root.
using PropagationByAUser = PropagationTest;

TEST_F(PropagationByAUser, AFolderWithSetgidOfAnotherGroupIsNoFailureIfItHasItsListAlready) {
    chmod(outside_.c_str(), 0755);
    chmod(top_.c_str(), 0755);
    constexpr gid_t otherGroup = 1;
    for (const auto* const path :
         {"", "/file", "/program", "/sub", "/sub/file", "/sub/deep", "/sub/deep/file"})
        ASSERT_EQ(chown((top_ + path).c_str(), ordinaryUser, otherGroup), 0);
    ASSERT_EQ(chmod((top_ + "/sub").c_str(), 02755), 0);
    ASSERT_EQ(propagate(own()), nullptr);
    EXPECT_EQ(exitCodeOf([&] {
                  if (!becomeOrdinaryUser())
                      return 1;
                  return propagate(own()) ? 2 : 0;
              }),
              0);
    EXPECT_EQ(modeOf(top_ + "/sub"), 02755U);
}

TEST_F(PropagationByAUser, WhatCannotBeChangedIsCountedAndTheRestIsChanged) {
    ASSERT_EQ(chown(outside_.c_str(), ordinaryUser, ordinaryUser), 0);
    for (const auto* const path : {"", "/program", "/sub", "/sub/file", "/sub/deep"})
        ASSERT_EQ(chown((top_ + path).c_str(), ordinaryUser, ordinaryUser), 0);
    chmod(top_.c_str(), 0755);
    const auto code = exitCodeOf([&] {
        if (!becomeOrdinaryUser())
            return 1;
        const auto error = propagate(own());
        if (!error || error->domain() != NSPOSIXErrorDomain || error->code() != EPERM)
            return 2;
        const auto text = error->localizedDescription();
        if (!text.starts_with("2 items could not be changed, the others are; the first are "))
            return 3;
        if (text.find('"' + top_ + "/file\" (Operation not permitted)") == std::string::npos ||
            text.find('"' + top_ + "/sub/deep/file\" (Operation not permitted)") ==
                std::string::npos)
            return 4;
        return 0;
    });
    EXPECT_EQ(code, 0);
    EXPECT_EQ(modeOf(top_ + "/file"), 0600U);
    EXPECT_EQ(aclOf(top_ + "/file").owner, 0U);
    EXPECT_EQ(modeOf(top_ + "/sub/file"), 0644U);
    EXPECT_EQ(modeOf(top_ + "/sub/deep"), 0755U);
}

TEST_F(PropagationByAUser, OnlyTheFirstFailuresAreNamed) {
    ASSERT_EQ(chown(top_.c_str(), ordinaryUser, ordinaryUser), 0);
    chmod(outside_.c_str(), 0755);
    chmod(top_.c_str(), 0755);
    for (int i = 0; i != 10; ++i)
        makeFile(top_ + "/more" + std::to_string(i));
    const auto code = exitCodeOf([&] {
        if (!becomeOrdinaryUser())
            return 1;
        const auto text = propagate(own())->localizedDescription();
        std::size_t named = 0;
        for (auto at = text.find(" ("); at != std::string::npos; at = text.find(" (", at + 1))
            ++named;
        return named == 5 && text.starts_with("16 items could not") ? 0 : 2;
    });
    EXPECT_EQ(code, 0);
}

TEST_F(PropagationByAUser, AFolderThatCannotBeEnteredIsCountedOnceAndSaidToBeClosed) {
    ASSERT_EQ(chown(outside_.c_str(), ordinaryUser, ordinaryUser), 0);
    for (const auto* const path : {"", "/file", "/program"})
        ASSERT_EQ(chown((top_ + path).c_str(), ordinaryUser, ordinaryUser), 0);
    chmod(top_.c_str(), 0755);
    chmod((top_ + "/sub").c_str(), 0700);
    EXPECT_EQ(exitCodeOf([&] {
                  if (!becomeOrdinaryUser())
                      return 1;
                  const auto error = propagate(own());
                  if (!error || error->code() != EPERM)
                      return 2;
                  return error->localizedDescription() ==
                                 "1 item could not be changed or entered, and what is below it was "
                                 "not reached; the others are changed; the first is \"" +
                                     top_ + "/sub\" (Operation not permitted)"
                             ? 0
                             : 3;
              }),
              0);
    EXPECT_EQ(modeOf(top_ + "/file"), 0644U);
}

TEST_F(PropagationByAUser, AFolderThatItsNewListOpensIsEntered) {
    for (const auto* const path :
         {"", "/file", "/program", "/sub", "/sub/file", "/sub/deep", "/sub/deep/file"})
        ASSERT_EQ(chown((top_ + path).c_str(), ordinaryUser, ordinaryUser), 0);
    chmod(outside_.c_str(), 0755);
    chmod(top_.c_str(), 0750);
    chmod((top_ + "/sub").c_str(), 0000);
    chmod((top_ + "/file").c_str(), 0000);
    EXPECT_EQ(exitCodeOf([&] {
                  if (!becomeOrdinaryUser())
                      return 1;
                  return propagate(own()) ? 2 : 0;
              }),
              0);
    EXPECT_EQ(modeOf(top_ + "/file"), 0640U);
    EXPECT_EQ(modeOf(top_ + "/sub"), 0750U);
    EXPECT_EQ(modeOf(top_ + "/sub/deep/file"), 0640U);
}

}  // namespace
}  // namespace morvane
