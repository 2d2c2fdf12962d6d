// SPDX-License-Identifier: MIT
#include <MorvaneOperation/IdentityText.h>
#include <gtest/gtest.h>

#include "EditHistory.h"
#include "platform/fake/FakeUserDatabase.h"

namespace morvane {
namespace {

TEST(EditHistory, AnEntryIsAgainForSomebodyWhomTheSystemDoesNotKnow) {
    const FakeUserDatabaseInstallation database;
    const auto entry = MVAclEntry::newEntryForDirectory(false);
    const auto stranger = uuidOfPosixIdentity(CBPosixUser{4001});
    entry->setIdentity(nullptr);
    entry->setUuid(stranger);
    const auto editor = MVAclEditor::init({NSURL::fileURLWithPath("/nowhere"), {entry}});
    EditHistory history(*editor);
    entry->setIdentity(
        CBIdentity::identityWithName("bob", CBIdentityAuthority::defaultIdentityAuthority()));
    history.record();
    ASSERT_TRUE(history.undo());
    EXPECT_EQ(entry->uuid(), stranger);
    EXPECT_EQ(identityText(*entry).localized(), "uid 4001");
    ASSERT_TRUE(history.redo());
    EXPECT_EQ(identityText(*entry).localized(), "user bob");
}

TEST(EditHistory, AnEntryWithoutAUuidIsAgainWithoutOne) {
    const auto entry = MVAclEntry::init();
    const auto editor = MVAclEditor::init({NSURL::fileURLWithPath("/nowhere"), {entry}});
    EditHistory history(*editor);
    entry->setUuid(uuidOfPosixIdentity(CBPosixUser{4001}));
    history.record();
    ASSERT_TRUE(history.undo());
    EXPECT_FALSE(entry->uuid());
    EXPECT_EQ(identityText(*entry).localized(), "everyone");
}

}  // namespace
}  // namespace morvane
