// SPDX-License-Identifier: MIT
#include <MorvaneOperation/PosixAclEntries.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "ChangeCommand.h"
#include "Failure.h"
#include "PropagateCommand.h"
#include "SaveCommand.h"
#include "TemporaryFolder.h"
#include "acl/AclTestSupport.h"

namespace morvane {
namespace {

/// A folder with a file in it, as the helper sees them; the user may look at them or not.
class PrivilegedChanges : public testing::Test {
  protected:
    PrivilegedChanges() {
        parts_.source = [](const NSURL& url) { return entriesOf(url); };
        parts_.sink = [this](const EntryList&, const NSURL& url) {
            written_.push_back(url.path());
            return refusal_;
        };
        parts_.contents = [this](const NSURL& url) -> Result<std::vector<NSURL>> {
            if (!mayLook_)
                return Failure{NSError::errorWithDomain(NSPOSIXErrorDomain, EACCES)};
            if (url.path() != "/nowhere/folder")
                return Failure{NSError::errorWithDomain(NSPOSIXErrorDomain, ENOTDIR)};
            return std::vector{NSURL::fileURLWithPath("/nowhere/folder/file")};
        };
        parts_.facts = [](const std::string&) { return std::optional<FileFacts>(); };
        parts_.goesOn = [this](const std::string& said) {
            asked_.push_back(said);
            return isWanted_;
        };
        parts_.undo = "morvane --privileged acl --undo";
    }

    static Result<EntryList> entriesOf(const NSURL& url) {
        const bool isFolder = url.path() == "/nowhere/folder";
        const PosixAcl acl{
            3000001, 3000002, isFolder, {PosixEverything, PosixRead, PosixRead, {}, {}, {}}, {}};
        auto entries = entriesOfPosixAcl(acl);
        const auto origin = MVAclOrigin::initWithValues(
            {url, isFolder, acl.owner, acl.group, MVAclStorage::posix, digestOf(acl)});
        for (const auto& entry : entries)
            entry->setOrigin(origin);
        return entries;
    }

    Outcome changeAll() {
        ChangeOptions options;
        options.paths = {"/nowhere/folder"};
        options.set = "u:4711:r";
        options.recursive = true;
        Journal journal(notes());
        return runChange(options, parts_, journal, Style(false));
    }
    Outcome propagate(bool yes = false) {
        Journal journal(notes());
        PropagateOptions options{"/nowhere/folder"};
        options.yes = yes;
        const auto propagated = [this](const EntryList& entries, const NSURL& url) {
            return Propagated{parts_.sink(entries, url), MVItemCounts{1, 0}};
        };
        return runPropagate(options, parts_, {propagated, parts_.source, parts_.goesOn}, journal);
    }

    std::filesystem::path notes() const { return folder_.path() / "morvane" / "undo"; }
    /// The endings of the notes that there are.
    std::multiset<std::string> endings() const {
        std::multiset<std::string> found;
        if (std::filesystem::exists(notes())) {
            for (const auto& each : std::filesystem::directory_iterator(notes()))
                found.insert(each.path().extension());
        }
        return found;
    }

    const acltest::World world_;
    const TemporaryFolder folder_;
    ChangeParts parts_;
    bool mayLook_ = true;
    bool isWanted_ = true;
    NSErrorRef refusal_;
    std::vector<std::string> asked_;
    std::vector<std::string> written_;
};

using Endings = std::multiset<std::string>;

TEST_F(PrivilegedChanges, OfATreeAreMadeOnlyAfterAYes) {
    isWanted_ = false;
    EXPECT_EQ(changeAll().exitCode, ExitInterrupted);
    EXPECT_EQ(asked_, std::vector<std::string>{
                          "The lists of 2 items are changed by the privileged helper."});
    EXPECT_EQ(written_, std::vector<std::string>());
    isWanted_ = true;
    const auto outcome = changeAll();
    EXPECT_EQ(outcome.exitCode, ExitSuccess) << outcome.message;
    EXPECT_EQ(outcome.output,
              "2 lists changed, 0 were so already. 'morvane --privileged acl --undo' takes it "
              "back.\n");
    EXPECT_EQ(endings(), Endings{".acl"});
}

TEST_F(PrivilegedChanges, OfWhatTheUserMayLookAtAreNoted) {
    const auto outcome = propagate();
    EXPECT_EQ(asked_, std::vector<std::string>{"1 file and 0 folders below '/nowhere/folder' get "
                                               "what they inherit of its list."});
    EXPECT_EQ(outcome.output,
              "1 item has what it inherits now. 'morvane --privileged acl --undo' takes the lists "
              "back.\n");
    EXPECT_EQ(endings(), Endings{".acl"});
}

TEST_F(PrivilegedChanges, OfWhatTheUserMayNotLookAtAreAskedForAndStandInTheNotes) {
    mayLook_ = false;
    isWanted_ = false;
    EXPECT_EQ(propagate().exitCode, ExitInterrupted);
    EXPECT_EQ(asked_, std::vector<std::string>{
                          "Everything below '/nowhere/folder' gets what it inherits of its list. "
                          "You may not look at it. '--undo' cannot take this back: what the lists "
                          "are could not be looked at."});
    EXPECT_EQ(endings(), Endings());
    EXPECT_EQ(propagate(true).output, "1 item has what it inherits now.\n");
    EXPECT_EQ(asked_.size(), 1U);
    // So that no older change is taken back in its place.
    EXPECT_EQ(endings(), Endings{".lost"});
}

TEST_F(PrivilegedChanges, ThatWereRefusedLeaveNoNotes) {
    refusal_ = NSError::errorWithDomain(NSOSStatusErrorDomain, -60005);
    EXPECT_EQ(propagate(true).exitCode, ExitFailure);
    mayLook_ = false;
    EXPECT_EQ(propagate(true).exitCode, ExitFailure);
    EXPECT_EQ(written_.size(), 2U);
    EXPECT_EQ(endings(), Endings());
}

class SavedLists : public PrivilegedChanges {};

TEST_F(SavedLists, AreNeverMoreThanCanBeRestored) {
    const auto file = folder_.path() / "saved";
    SaveOptions options{{"/nowhere/folder"}, file, true};
    EXPECT_EQ(runSave(options, parts_).exitCode, ExitSuccess);
    options.mostContent = std::filesystem::file_size(file);
    EXPECT_EQ(runSave(options, parts_).exitCode, ExitSuccess);
    std::filesystem::remove(file);
    --options.mostContent;
    const auto outcome = runSave(options, parts_);
    EXPECT_EQ(outcome.exitCode, ExitFailure);
    EXPECT_NE(outcome.message.find("which --restore does not read."), std::string::npos)
        << outcome.message;
    EXPECT_FALSE(std::filesystem::exists(file));
}

}  // namespace
}  // namespace morvane
