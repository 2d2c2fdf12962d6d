// SPDX-License-Identifier: MIT
#include <MorvaneOperation/EntryTexts.h>
#include <MorvaneOperation/IdentityText.h>
#include <MorvaneOperation/MVAclEditor.h>
#include <MorvaneOperation/MVObservation.h>

#include <cstdlib>
#include <semaphore>
#include <thread>

#include "ClientTestSupport.h"
#include "platform/fake/FakeUserDatabase.h"

/// Lists that do not wait for the names in them.
namespace morvane {
namespace {

constexpr std::uint32_t aliceId = 4001000;

class ClientNames : public ClientTest {
  protected:
    ClientNames() {
        database->users = {{aliceId, "alice"}};
        database->groups = {};
        database->whenUserIsAsked = [directory = directory_, tester = std::this_thread::get_id()] {
            if (std::this_thread::get_id() == tester) {
                ++directory->waits;
                return;
            }
            directory->asked.release();
            directory->answers.acquire();
        };
    }
    ~ClientNames() override {
        answer();
        EXPECT_EQ(directory_->waits, 0) << "the main loop would wait";
    }

    /// Returns when the directory was asked for the first name.
    void waitUntilAsked() { directory_->asked.acquire(); }
    /// Has the directory answer, now and later.
    void answer() { directory_->answers.release(1000); }

    /// Of a new file that those have entries for.
    MVFileAcl readListOf(const std::vector<std::uint32_t>& users) {
        const auto path = makeFile("file" + std::to_string(++files_));
        for (const auto uid : users) {
            const auto command =
                "setfacl -m u:" + std::to_string(uid) + ":r '" + path.string() + "'";
            EXPECT_EQ(std::system(command.c_str()), 0);
        }
        return *read(path, {.namesLater = loop.executor()});
    }
    static std::shared_ptr<MVAclEntry> entryOf(const MVFileAcl& acl, std::uint32_t uid) {
        const auto uuid = uuidOfPosixIdentity(CBPosixUser{uid});
        return *std::find_if(acl.entries.begin(), acl.entries.end(),
                             [&](const auto& entry) { return entry->uuid() == uuid; });
    }
    static std::string textOf(const MVAclEntry& entry) { return identityText(entry).localized(); }

    FakeUserDatabaseInstallation database;

  private:
    struct Directory {
        std::counting_semaphore<> asked{0};
        std::counting_semaphore<> answers{0};
        int waits = 0;
    };
    const std::shared_ptr<Directory> directory_ = std::make_shared<Directory>();
    int files_ = 0;
};

TEST_F(ClientNames, ComeAfterAListThatASlowDirectoryWouldKeepWaiting) {
    const auto acl = readListOf({aliceId, aliceId + 1});
    const auto alice = entryOf(acl, aliceId);
    const auto unknown = entryOf(acl, aliceId + 1);
    EXPECT_FALSE(alice->identity());
    EXPECT_EQ(textOf(*alice), "uid 4001000");
    EXPECT_TRUE(acl.entries.back()->identity()) << "everyone is in no directory";

    const auto editor = MVAclEditor::init(acl);
    std::vector<std::pair<const MVAclEntry*, const NSKeyPath*>> told;
    editor->setObserver([&](const MVAclEntry& entry, const NSKeyPath& keyPath) {
        told.emplace_back(&entry, &keyPath);
    });
    answer();
    ASSERT_TRUE(loop.runUntil([&] { return !told.empty(); }));
    EXPECT_EQ(textOf(*alice), "user alice");
    EXPECT_FALSE(editor->isModified()) << "nobody has edited anything";
    EXPECT_FALSE(write(editor->acl()));
    EXPECT_EQ(textOf(*unknown), "uid 4001001");
    EXPECT_EQ(told, (decltype(told){{alice.get(), &MVAclEntry::identityKeyPath}}));
}

TEST_F(ClientNames, AreNotWaitedForByWhatIsShownOfTheirEntries) {
    const auto acl = readListOf({aliceId});
    const auto alice = entryOf(acl, aliceId);
    const auto editor = MVAclEditor::init(acl);
    int sensitive = 0;
    for (const auto& group : alice->permissions()) {
        for (const auto& box : group->childNodes())
            sensitive += editor->canSetBox(*alice, *box, true);
    }
    EXPECT_GT(sensitive, 0);
    EXPECT_LT(sensitive, 13);
    EXPECT_FALSE(permissionChoices(*alice, editor->list()).empty());
    EXPECT_FALSE(ruleChoices(*alice, editor->list()).empty());
    EXPECT_EQ(editor->letters(*alice), "r--");
    EXPECT_TRUE(editor->setPermissionGroup(alice, MVAclGroupRead));
    editor->setExecutionChosen(*alice, true);
    EXPECT_EQ(editor->letters(*alice), "r-x");
    EXPECT_EQ(editor->acl().entries.size(), acl.entries.size());
}

TEST_F(ClientNames, ThatAreKnownAtOnceComeWithTheList) {
    answer();
    EXPECT_EQ(textOf(*entryOf(readListOf({aliceId}), aliceId)), "user alice");
}

TEST_F(ClientNames, OfTheNearestListComeWithIt) {
    answer();
    auto acl = readListOf({aliceId});
    acl.entries.push_back(MVAclEntry::newEntryForDirectory(false));
    acl.entries.back()->setPermissionGroup(MVAclGroupAll);  // which a named user cannot have
    const auto losses = waitFor<Result<MVAclLosses>>(
        [&](auto completion) { client->lossesOfAcl(acl, {}, completion); });
    ASSERT_TRUE(losses);
    ASSERT_FALSE(losses->losses.empty());
    CBIdentityAuthority::defaultIdentityAuthority().setDatabase(
        std::make_shared<FakeUserDatabase>());  // which does not know her
    MVFileAcl nearest = acl;
    nearest.entries = losses->nearest;
    EXPECT_EQ(textOf(*entryOf(nearest, aliceId)), "user alice");
}

TEST_F(ClientNames, AreNotGivenToAnEntryThatIsForSomebodyElseMeanwhile) {
    const auto first = readListOf({aliceId});
    const auto alice = entryOf(first, aliceId);
    const auto eve =
        std::make_shared<CBIdentity>(uuidOfPosixIdentity(CBPosixUser{7}), "eve", false);
    alice->setIdentity(eve);
    answer();
    // What is looked up for a second list is looked up after what is for the first.
    const auto second = readListOf({aliceId});
    ASSERT_TRUE(loop.runUntil([&] { return entryOf(second, aliceId)->identity() != nullptr; }));
    EXPECT_EQ(alice->identity(), eve);
}

TEST_F(ClientNames, OfAListThatNobodyLooksAtAnyMoreAreNotLookedUp) {
    readListOf({aliceId, aliceId + 1, aliceId + 2});
    waitUntilAsked();  // for the owner
    answer();
    const auto next = readListOf({aliceId});
    ASSERT_TRUE(loop.runUntil([&] { return entryOf(next, aliceId)->identity() != nullptr; }));
    EXPECT_EQ(database->lookups, 3) << "the owner, the owning group and alice";
}

}  // namespace
}  // namespace morvane
