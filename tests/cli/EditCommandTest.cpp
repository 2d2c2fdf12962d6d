// SPDX-License-Identifier: MIT
#include <MorvaneOperation/EntryLosses.h>
#include <MorvaneOperation/PosixAclEntries.h>
#include <MorvaneOperation/PosixAclReduction.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "EditCommand.h"
#include "ListEdit.h"
#include "acl/AclTestSupport.h"

namespace morvane {
namespace {

constexpr std::uint32_t itemOwner = 4801;
constexpr std::uint32_t itemGroup = 4802;

/// A service with one file, whose list another program changes between reading and writing.
class Editing : public testing::Test {
  protected:
    Editing() {
        acl_ = {itemOwner,
                itemGroup,
                false,
                {PosixRead | PosixWrite, PosixRead, PosixNothing, {}, {}, {}},
                {}};
        acl_.access.mask = PosixRead | PosixWrite;
        acl_.access.users = {{4803, PosixRead | PosixWrite}, {4804, PosixRead | PosixWrite}};
    }

    AclSource source() {
        return [this](const NSURL& url) {
            ++read_;
            auto entries = entriesOfPosixAcl(acl_);
            for (const auto& entry : entries)
                entry->setOrigin(originNow(url));
            return Result<EntryList>(std::move(entries));
        };
    }
    AclSink sink() {
        return [this](const EntryList& entries, const NSURL& url) -> NSErrorRef {
            if (!others_.empty()) {
                others_.front()(acl_);
                others_.erase(others_.begin());
            }
            for (const auto& entry : entries) {
                EXPECT_NE(entry->origin(), nullptr) << "of a new entry, too";
                if (entry->origin() && entry->origin()->values() != originNow(url)->values())
                    return NSError::errorWithDomain(MVAclErrorDomain, MVAclChanged, {});
            }
            const auto wanted = reduceToPosixAcl(entries, PosixAclTarget::of(acl_));
            if (!wanted.losses.empty() && !entries.empty())
                return errorOfLosses(wanted.losses, entries, url);
            acl_ = wanted.acl;
            return nullptr;
        };
    }
    Outcome run(std::optional<std::string> script, const AclInteraction& interaction = nullptr) {
        EditOptions options;
        options.path = "/item";
        options.script = std::move(script);
        return runAclEdit(options, source(), sink(), nullptr, interaction, Style(false));
    }
    PosixRights rightsOf(std::uint32_t uid) {
        for (const auto& user : acl_.access.users) {
            if (user.id == uid)
                return acl_.access.counting(user.rights);
        }
        return PosixNothing;
    }
    std::shared_ptr<const MVAclOrigin> originNow(const NSURL& url) const {
        return MVAclOrigin::initWithValues(
            {url, false, itemOwner, itemGroup, MVAclStorage::posix, digestOf(acl_)});
    }

    acltest::World world_;
    PosixAcl acl_;
    int read_ = 0;
    /// What other programs do before each write.
    std::vector<std::function<void(PosixAcl&)>> others_;
};

const char* const madeMeanwhile =
    "morvane: another program has changed the list meanwhile; the edit was made on what it is "
    "now.\n";

TEST_F(Editing, DoesAScriptToTheListThatAnotherProgramHasMadeMeanwhile) {
    others_ = {[](PosixAcl& acl) { acl.access.users[1].rights = PosixRead; }};
    const auto outcome = run("entry 2; permissions read; add user:4805; permissions read");
    EXPECT_EQ(outcome.exitCode, ExitSuccess);
    EXPECT_EQ(outcome.message, madeMeanwhile);
    EXPECT_EQ(rightsOf(4803), PosixRead);
    EXPECT_EQ(rightsOf(4804), PosixRead) << "as the other program has it";
    EXPECT_EQ(rightsOf(4805), PosixRead);
}

TEST_F(Editing, FindsTheEntryOfAScriptThoughAnotherHasItsNumberNow) {
    others_ = {[](PosixAcl& acl) {
        acl.access.users.insert(acl.access.users.begin(), {4800, PosixRead | PosixWrite});
    }};
    EXPECT_EQ(run("entry 2; permissions read").message, madeMeanwhile);
    EXPECT_EQ(rightsOf(4800), PosixRead | PosixWrite);
    EXPECT_EQ(rightsOf(4803), PosixRead);
}

TEST_F(Editing, RemovesAnEntryFromTheListThatAnotherProgramHasMade) {
    others_ = {[](PosixAcl& acl) { acl.access.users[1].rights = PosixRead; }};
    EXPECT_EQ(run("entry 2; remove").message, madeMeanwhile);
    ASSERT_EQ(acl_.access.users.size(), 1u);
    EXPECT_EQ(acl_.access.users[0].id, 4804u);
}

TEST_F(Editing, SaysOfAnEntryThatTheScriptHasRemovedThatItIsGone) {
    const auto outcome = run("entry 2; remove; entry 2; deny");
    EXPECT_EQ(outcome.exitCode, ExitUsage);
    EXPECT_EQ(outcome.message,
              "morvane: the edit script, command 3: entry 2 was removed.\n  Nothing was changed.\n"
              "  'morvane help edit' tells the commands of an edit.\n");
    EXPECT_NE(rightsOf(4803), PosixNothing);
}

TEST_F(Editing, RefusesAScriptThatChangesWhatAnotherProgramHasChanged) {
    others_ = {[](PosixAcl& acl) { acl.access.users[0].rights = PosixRead; }};
    const auto outcome = run("entry 2; permissions write; entry 3; permissions read");
    EXPECT_EQ(outcome.exitCode, ExitFailure);
    EXPECT_EQ(outcome.message,
              "morvane: cannot change the access-control list of '/item': another program has "
              "changed the list meanwhile, and in it what the script changes: entry 2 (uid "
              "4803).\n  Nothing was changed. Look at the list, and edit it as it is now.\n");
    EXPECT_EQ(rightsOf(4803), PosixRead);
    EXPECT_EQ(rightsOf(4804), PosixRead | PosixWrite) << "all of it or nothing";
}

TEST_F(Editing, GivesUpOnAListThatNeverStaysAsItIs) {
    for (int i = 0; i != 8; ++i)
        others_.emplace_back([=](PosixAcl& acl) {
            acl.access.users[1].rights = i % 2 == 0 ? PosixRead : PosixWrite;
        });
    const auto outcome = run("add user:4805");
    EXPECT_EQ(outcome.exitCode, ExitFailure);
    EXPECT_EQ(outcome.message,
              "morvane: cannot change the access-control list of '/item': other programs change it "
              "again and again.\n  Nothing was changed. Look at the list, and edit it as it is "
              "now.\n");
    EXPECT_EQ(rightsOf(4805), PosixNothing);
}

TEST_F(Editing, OffersTheEditByHandOnTheListThatAnotherProgramHasMade) {
    others_ = {[](PosixAcl& acl) {
        acl.access.users[0].rights = PosixRead;
        acl.access.users.push_back({4806, PosixRead});
    }};
    Problem told;
    const auto outcome = run(std::nullopt, [&](AclEditor& editor, const EditSession& session) {
        const auto& save = session.save;
        EXPECT_EQ(editor.choosePermissions(1, "write"), std::nullopt);
        EXPECT_EQ(editor.choosePermissions(2, "read"), std::nullopt);
        EXPECT_EQ(editor.add("user:4805"), std::nullopt);
        told = save(false);
        EXPECT_EQ(rightsOf(4805), PosixNothing) << "nothing is written before it was looked at";
        EXPECT_EQ(editor.entries().size(), 7u);
        EXPECT_EQ(editor.entries()[1]->permissionGroup(), MVAclGroupCustom) << "as it is now";
        EXPECT_EQ(editor.entries()[2]->permissionGroup(), MVAclGroupRead) << "as it was edited";
        EXPECT_EQ(session.changes(),
                  (std::vector<std::string>{
                      "- uid 4804  Allow  rw-  Custom (part of Read, part of Write)  This item",
                      "+ uid 4804  Allow  r--  Read  This item",
                      "+ uid 4805  Allow  rw-  Read and Write  This item"}))
            << "beside what the list is by then";
        return save(false) == std::nullopt;
    });
    EXPECT_EQ(told,
              "Another program has changed the list. Your changes are made on what it is now, but "
              "not that of entry 2 (uid 4803), which is no longer what it was: look at it, and "
              "save again.");
    EXPECT_EQ(outcome.exitCode, ExitSuccess);
    EXPECT_EQ(rightsOf(4803), PosixRead);
    EXPECT_EQ(rightsOf(4804), PosixRead);
    EXPECT_EQ(rightsOf(4805), PosixRead | PosixWrite);
    EXPECT_EQ(rightsOf(4806), PosixRead);
}

TEST_F(Editing, TellsWhatIsChangedByBoxesWhereTheLinesSayTooLittle) {
    const auto entries = entriesOfPosixAcl(acl_);
    const ListEdit edit(entries);
    AclEditor editor(edit.shown(), [](Problem&) { return false; });
    EXPECT_EQ(edit.changes(editor), std::vector<std::string>());
    EXPECT_EQ(editor.setBox(1, "Read Data", BoxChange::off), std::nullopt);
    EXPECT_EQ(editor.setBox(1, "Read Data", BoxChange::on), std::nullopt);
    EXPECT_EQ(edit.changes(editor), std::vector<std::string>()) << "as it was";
    EXPECT_EQ(editor.setBox(1, "Read Attributes", BoxChange::off), std::nullopt);
    EXPECT_EQ(editor.remove(2), std::nullopt);
    EXPECT_EQ(edit.changes(editor),
              (std::vector<std::string>{
                  "  uid 4803  Allow  rw-  Custom (part of Read, part of Write)  This item",
                  "      [ ] Read Attributes",
                  "- uid 4804  Allow  rw-  Custom (part of Read, part of Write)  This item"}));
}

TEST_F(Editing, ReadsTheListOnceIfNobodyElseChangesIt) {
    const auto outcome = run("add user:4805; permissions read");
    EXPECT_EQ(outcome.message, "");
    EXPECT_EQ(read_, 2) << "and once after it was written";
}

TEST_F(Editing, PutsAnEntryThatIsADenialNowBeforeAllThatAllow) {
    const auto entries = entriesOfPosixAcl(acl_);
    const auto last = entries.back();
    const AclEditor editor(entries, nullptr);
    EXPECT_EQ(editor.entriesToWrite(), entries) << "unchanged ones stay in place";
    last->setTag(MVAclTagDeny);
    const auto denying = editor.entriesToWrite();
    ASSERT_EQ(denying.size(), entries.size());
    EXPECT_EQ(denying.front(), last);
    last->setTag(MVAclTagAllow);
    EXPECT_EQ(editor.entriesToWrite(), entries) << "it is what it was";
}

TEST_F(Editing, PutsAnEntryThatIsForAnotherNowWhereANewOneComes) {
    const auto entries = entriesOfPosixAcl(acl_);
    const auto first = entries.front();
    const AclEditor editor(entries, nullptr);
    first->setUuid(uuidOfPosixIdentity(CBPosixUser{4805}));
    EXPECT_EQ(editor.entriesToWrite().back(), first);
}

TEST_F(Editing, PutsADenialFirstInTheListThatAnotherProgramHasMade) {
    const auto entries = entriesOfPosixAcl(acl_);
    const auto denied = entries[2];
    ListEdit edit(entries);
    AclEditor editor(edit.read(), nullptr);
    denied->setTag(MVAclTagDeny);
    acl_.access.users[0].rights = PosixRead;
    EXPECT_TRUE(edit.replay(editor, entriesOfPosixAcl(acl_)).empty());
    EXPECT_EQ(edit.toWrite(editor).front(), denied);
}

TEST_F(Editing, CountsTheEntriesOfTheServicesRefusalAsTheyAreShown) {
    const auto outcome = run("add user:4805; deny; entry 2; on Delete");
    EXPECT_EQ(outcome.exitCode, ExitFailure);
    EXPECT_NE(outcome.message.find("entry 2 (allow uid 4803)"), std::string::npos)
        << outcome.message;
    EXPECT_NE(outcome.message.find("entry 6 (deny uid 4805)"), std::string::npos)
        << outcome.message;
}

TEST_F(Editing, GivesTheExecutionThatIsSwitchedOnByItselfThoughReadIsOnAsAWholeThen) {
    const std::pair<const char*, PosixRights> scripts[] = {
        {R"(entry 2; permissions read)", PosixRead},
        {R"(entry 2; permissions read; on "Execute File")", PosixRead | PosixExecute},
        {R"(entry 2; on "Execute File")", PosixRead | PosixWrite | PosixExecute},
        {R"(entry 2; on "Execute File"; permissions read)", PosixRead},
        {R"(entry 2; on "Execute File"; off Read; on Read; off Write)", PosixRead},
        {R"(entry 2; off "Read Data"; on "Read Data"; off Write)", PosixRead},
    };
    const auto before = acl_;
    for (const auto& [script, rights] : scripts) {
        acl_ = before;
        const auto outcome = run(script);
        EXPECT_EQ(outcome.message, "") << script;
        EXPECT_EQ(rightsOf(4803), rights) << script;
        EXPECT_EQ(rightsOf(4804), PosixRead | PosixWrite) << script;
    }
}

TEST_F(Editing, CountsTheEntryWhoseExecutionIsSwitchedOnAsItIsShown) {
    const auto outcome = run(R"(entry 2; on "Execute File"; on Delete)");
    EXPECT_EQ(outcome.exitCode, ExitFailure);
    EXPECT_NE(outcome.message.find("entry 2 (allow uid 4803): \"Delete\""), std::string::npos)
        << outcome.message;
}

/// On a network mount, where a list may have no entry of the owner's.
TEST_F(Editing, RemovesNoEntryThatAnotherProgramHasChangedThoughNoneIsLeftToTellIt) {
    const auto namedUsers = [&](const NSURL&) {
        if (++read_ == 2)
            acl_.access.users[1].rights = PosixRead;
        auto entries = entriesOfPosixAcl(acl_);
        std::erase_if(entries, [](const auto& entry) { return !entry->isAcl(); });
        return Result<EntryList>(std::move(entries));
    };
    bool isWritten = false;
    const auto sink = [&](const EntryList&, const NSURL&) -> NSErrorRef {
        isWritten = true;
        return nullptr;
    };
    EditOptions options;
    options.path = "/item";
    options.script = "entry 1; remove; entry 2; remove";
    const auto outcome = runAclEdit(options, namedUsers, sink, nullptr, nullptr, Style(false));
    EXPECT_FALSE(isWritten);
    EXPECT_EQ(outcome.exitCode, ExitFailure);
    EXPECT_EQ(outcome.message,
              "morvane: cannot change the access-control list of '/item': another program has "
              "changed the list meanwhile, and in it what the script changes: entry 2 (uid "
              "4804).\n  Nothing was changed. Look at the list, and edit it as it is now.\n");
}

}  // namespace
}  // namespace morvane
