// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVAclOrigin.h>
#include <MorvaneOperation/MVItemFailures.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <future>
#include <set>
#include <variant>
#include <vector>

#include "ClientTestSupport.h"
#include "OrdinaryUser.h"

/// Who does the work of an operation, and what the user is asked for it.
namespace morvane {
namespace {

using ClientPrivilege = ClientTest;

/// The file service runs as a user who can reach nothing in `locked`.
class ClientWhenRefused : public ClientTest {
  protected:
    ClientWhenRefused() {
        serveAsNobody();
        std::filesystem::create_directory(folder / "locked");
        for (int i = 0; i != items; ++i)
            makeFile("locked/" + std::to_string(i), 0644);
        std::filesystem::permissions(folder / "locked", std::filesystem::perms(0700));
    }

    /// What reading ten items brings.
    std::vector<Result<MVFileAcl>> readAll() {
        std::vector<Result<MVFileAcl>> answers;
        for (int i = 0; i != items; ++i) {
            const auto path = folder / "locked" / std::to_string(i);
            client->readAcl(NSURL::fileURLWithPath(path.string()),
                            {.privilege = MVPrivilege::whenRefused},
                            [&](Result<MVFileAcl> acl) { answers.push_back(std::move(acl)); });
        }
        EXPECT_TRUE(loop.runUntil([&] { return answers.size() == items; }));
        return answers;
    }

    static constexpr int items = 10;
};

/// What is immutable is nobody's to change, not even root's.
void setImmutable(const std::filesystem::path& folder, bool is) {
    const int opened = open(folder.c_str(), O_RDONLY | O_CLOEXEC);
    int flags = 0;
    EXPECT_EQ(ioctl(opened, FS_IOC_GETFLAGS, &flags), 0);
    flags = is ? flags | FS_IMMUTABLE_FL : flags & ~FS_IMMUTABLE_FL;
    EXPECT_EQ(ioctl(opened, FS_IOC_SETFLAGS, &flags), 0);
    close(opened);
}

/// A folder of 3,000 files, two of which the file service's user may not change.
class ClientPropagation : public ClientTest {
  protected:
    ClientPropagation() {
        serveAsNobody();
        std::filesystem::create_directory(tree_);
        for (int i = 0; i != files; ++i)
            chown(makeFile("tree/" + std::to_string(i)).c_str(), nobody, nobody);
        for (const auto& path : refused_)
            chown(makeFile("tree/" + path.filename().string()).c_str(), 0, 0);
        chown(tree_.c_str(), nobody, nobody);
    }

    /// Propagates, and notes the counts in `told_`.
    NSErrorRef propagate(MVPrivilege privilege = MVPrivilege::never) {
        const auto acl = read(tree_);
        return waitFor<NSErrorRef>([&](auto completion) {
            client->propagateAcl(
                *acl,
                {.privilege = privilege,
                 .itemCounts = [&](const MVItemCounts& counts) { told_.push_back(counts); }},
                completion);
        });
    }

    static constexpr unsigned nobody = 65534;
    static constexpr int files = 3000;
    const std::filesystem::path tree_ = folder / "tree";
    const std::vector<std::filesystem::path> refused_{tree_ / "not\nhis \xff", tree_ / "theirs"};
    std::vector<MVItemCounts> told_;
};

TEST_F(ClientPropagation, EachItemThatFailedComesAsAValueAndTheCountsOfAll) {
    const auto error = propagate();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), EPERM);
    const auto failures = failuresOfError(*error);
    EXPECT_EQ(failures.counts, (MVItemCounts{files, 2}));
    std::set<std::filesystem::path> paths;
    for (const auto& each : failures.errors) {
        EXPECT_EQ(each->domain(), NSPOSIXErrorDomain);
        EXPECT_EQ(each->code(), EPERM);
        EXPECT_EQ(each->localizedDescription(), "Operation not permitted");
        paths.insert(std::get<NSURL>(each->userInfo().at(NSURLErrorKey)).path());
    }
    EXPECT_EQ(paths, std::set<std::filesystem::path>(refused_.begin(), refused_.end()));
    ASSERT_FALSE(told_.empty());
    EXPECT_EQ(told_.back(), (MVItemCounts{files, 2}));
}

TEST_F(ClientPropagation, TheCountsOfOneThatSucceedsComeBeforeItsCompletion) {
    for (const auto& path : refused_)
        std::filesystem::remove(path);
    EXPECT_FALSE(propagate());
    ASSERT_FALSE(told_.empty());
    EXPECT_EQ(told_.back(), (MVItemCounts{files, 0}));
}

TEST_F(ClientPropagation, WhatTheHelperDoesAgainIsCountedAgain) {
    EXPECT_FALSE(propagate(MVPrivilege::whenRefused));
    ASSERT_FALSE(told_.empty());
    EXPECT_EQ(told_.back(), (MVItemCounts{files + 2, 0}));
}

TEST_F(ClientPropagation, AnItemThatNobodyMayChangeKeepsNoOtherFromTheHelper) {
    // A folder comes before what it has: it is what the error is about.
    const auto fixed = tree_ / "fixed";
    std::filesystem::create_directory(fixed);
    for (const auto& path : refused_)
        std::filesystem::rename(path, fixed / path.filename());
    setImmutable(fixed, true);
    const auto error = propagate(MVPrivilege::whenRefused);
    setImmutable(fixed, false);
    EXPECT_EQ(services->prompts, 1);
    ASSERT_TRUE(error);
    const auto failures = failuresOfError(*error);
    EXPECT_EQ(failures.counts, (MVItemCounts{files + 2, 1}));
    ASSERT_EQ(failures.errors.size(), 1u);
    EXPECT_EQ(std::get<NSURL>(failures.errors.front()->userInfo().at(NSURLErrorKey)).path(), fixed);
}

TEST_F(ClientPropagation, WhatFailedAtFirstIsStillToldIfTheRightIsRefused) {
    services->copyStatus = errAuthorizationDenied;
    const auto error = propagate(MVPrivilege::whenRefused);
    ASSERT_TRUE(error);
    EXPECT_EQ(refusalOfError(error), MVRefusal::denied);
    const auto failures = failuresOfError(*error);
    EXPECT_EQ(failures.counts, (MVItemCounts{files, 2}));
    EXPECT_EQ(failures.errors.size(), 2u);
}

TEST_F(ClientWhenRefused, TenItemsCostOnePrompt) {
    for (const auto& acl : readAll()) {
        ASSERT_TRUE(acl) << acl.error()->localizedDescription();
        EXPECT_EQ(acl->entries.size(), 3u);
    }
    EXPECT_EQ(services->prompts, 1);
}

TEST_F(ClientWhenRefused, ANoCountsForAllThatWasBegunBeforeAndIsAskedAboutAnew) {
    services->copyStatus = errAuthorizationCanceled;
    for (const auto& acl : readAll()) {
        ASSERT_FALSE(acl);
        EXPECT_EQ(refusalOfError(acl.error()), MVRefusal::cancelled);
        // The refusal that it was all about.
        const auto& underlying =
            std::get<NSErrorRef>(acl.error()->userInfo().at(NSUnderlyingErrorKey));
        EXPECT_EQ(underlying->code(), EACCES);
    }
    EXPECT_EQ(services->prompts, 1);
    services->copyStatus = 0;
    for (const auto& acl : readAll())
        EXPECT_TRUE(acl);
    EXPECT_EQ(services->prompts, 2);
}

TEST_F(ClientWhenRefused, DeniedCancelledAndNobodyToAskAreToldApart) {
    const std::map<OSStatus, MVRefusal> refusals{
        {errAuthorizationDenied, MVRefusal::denied},
        {errAuthorizationCanceled, MVRefusal::cancelled},
        {errAuthorizationInteractionNotAllowed, MVRefusal::nobodyToAsk},
        {errAuthorizationInternal, MVRefusal::none}};
    for (const auto& [status, refusal] : refusals) {
        services->copyStatus = status;
        const auto acl = read(folder / "locked/1", {.privilege = MVPrivilege::whenRefused});
        ASSERT_FALSE(acl);
        EXPECT_EQ(acl.error()->domain(), NSOSStatusErrorDomain);
        EXPECT_EQ(acl.error()->code(), status);
        EXPECT_EQ(refusalOfError(acl.error()), refusal);
    }
}

TEST_F(ClientWhenRefused, NothingIsAskedWhereTheUsersOwnRightsSuffice) {
    EXPECT_TRUE(read(makeFile("open"), {.privilege = MVPrivilege::whenRefused}));
    EXPECT_EQ(services->calls.size(), 0u);
}

TEST_F(ClientWhenRefused, NothingIsAskedWhereItIsNotWanted) {
    const auto acl = read(folder / "locked/1");
    ASSERT_FALSE(acl);
    EXPECT_EQ(acl.error()->code(), EACCES);
    EXPECT_EQ(services->calls.size(), 0u);
}

TEST_F(ClientWhenRefused, ARefusedListIsWrittenByTheHelper) {
    const auto acl = read(folder / "locked/1", {.privilege = MVPrivilege::whenRefused});
    ASSERT_TRUE(acl);
    setOthers(*acl, MVAclGroupNone);
    EXPECT_FALSE(write(*acl, {.privilege = MVPrivilege::whenRefused}));
    EXPECT_EQ(modeOf(folder / "locked/1"), 0640u);
}

TEST_F(ClientWhenRefused, OnlyTheItemsThatWereRefusedAreRenamedByTheHelper) {
    std::filesystem::create_directory(folder / "open");
    makeFile("open/a");
    std::filesystem::permissions(folder / "open", std::filesystem::perms(0777));
    const auto renames = waitFor<MVFileRenames>([&](auto completion) {
        client->rename({NSURL::fileURLWithPath((folder / "locked/1").string()),
                        NSURL::fileURLWithPath((folder / "open/a").string()),
                        NSURL::fileURLWithPath((folder / "open/missing").string())},
                       {"one", "b", "c"}, {.privilege = MVPrivilege::whenRefused}, completion);
    });
    EXPECT_EQ(renames.codes, (std::vector<std::int64_t>{0, 0, ENOENT}));
    // Of what is left, not of what was refused at first.
    ASSERT_TRUE(renames.error);
    EXPECT_EQ(renames.error->code(), ENOENT);
    EXPECT_EQ(std::get<NSURL>(renames.error->userInfo().at(NSURLErrorKey)),
              NSURL::fileURLWithPath((folder / "open/missing").string()));
    EXPECT_TRUE(std::filesystem::exists(folder / "locked/one"));
    EXPECT_TRUE(std::filesystem::exists(folder / "open/b"));
    EXPECT_EQ(services->prompts, 1);
}

TEST_F(ClientWhenRefused, WhatWasRenamedStaysKnownWhereTheRightIsRefused) {
    services->copyStatus = errAuthorizationDenied;
    std::filesystem::create_directory(folder / "open");
    makeFile("open/a");
    std::filesystem::permissions(folder / "open", std::filesystem::perms(0777));
    const auto renames = waitFor<MVFileRenames>([&](auto completion) {
        client->rename({NSURL::fileURLWithPath((folder / "locked/1").string()),
                        NSURL::fileURLWithPath((folder / "open/a").string())},
                       {"one", "b"}, {.privilege = MVPrivilege::whenRefused}, completion);
    });
    EXPECT_EQ(refusalOfError(renames.error), MVRefusal::denied);
    EXPECT_EQ(renames.codes, (std::vector<std::int64_t>{EACCES, 0}));
}

TEST_F(ClientWhenRefused, ItemsThatWaitedForTheNamesOfRefusedOnesAreRenamedWithThem) {
    const auto sticky = folder / "sticky";
    std::filesystem::create_directory(sticky);
    makeFile("sticky/a");
    makeFile("sticky/b");
    std::filesystem::permissions(sticky, std::filesystem::perms(01777));
    ASSERT_EQ(chown((sticky / "a").c_str(), ordinaryUser, ordinaryUser), 0);
    const auto renames = waitFor<MVFileRenames>([&](auto completion) {
        client->rename({NSURL::fileURLWithPath((sticky / "a").string()),
                        NSURL::fileURLWithPath((sticky / "b").string())},
                       {"b", "c"}, {.privilege = MVPrivilege::whenRefused}, completion);
    });
    EXPECT_EQ(renames.codes, (std::vector<std::int64_t>{0, 0}));
    EXPECT_FALSE(renames.error);
    EXPECT_FALSE(std::filesystem::exists(sticky / "a"));
    EXPECT_TRUE(std::filesystem::exists(sticky / "c"));
}

TEST_F(ClientPrivilege, WhatTheHelperFindsIsNamedByTheWayThatTheHostHasNamed) {
    std::filesystem::create_directory(folder / "real");
    std::filesystem::create_symlink("real", folder / "way");
    makeFile("real/file");
    const auto way = NSURL::fileURLWithPath((folder / "way").string());
    const auto file = way.URLByAppendingPathComponent("file");
    const auto inside = waitFor<Result<std::vector<NSURL>>>([&](auto completion) {
        client->contents(way, {.privilege = MVPrivilege::always}, completion);
    });
    ASSERT_TRUE(inside) << inside.error()->localizedDescription();
    EXPECT_EQ(*inside, std::vector{file});
    const auto renames = waitFor<MVFileRenames>([&](auto completion) {
        client->rename({file}, {"other"}, {.privilege = MVPrivilege::always}, completion);
    });
    EXPECT_FALSE(renames.error);
    EXPECT_EQ(renames.urls, std::vector{way.URLByAppendingPathComponent("other")});
}

TEST_F(ClientPrivilege, ARefusedInstallationOfTheHelperIsARefusal) {
    const auto refusal = [](std::string domain, std::int64_t code) {
        return refusalOfError(NSError::errorWithDomain(std::move(domain), code));
    };
    EXPECT_EQ(refusal(MVErrorDomainLaunchd, kSMErrorLaunchDeniedByUser), MVRefusal::cancelled);
    EXPECT_EQ(refusal(MVErrorDomainLaunchd, kSMErrorAuthorizationFailure), MVRefusal::denied);
    EXPECT_EQ(refusal(MVErrorDomainLaunchd, kSMErrorJobNotFound), MVRefusal::none);
    // Codes of the same number that mean something else.
    EXPECT_EQ(refusal(NSPOSIXErrorDomain, kSMErrorLaunchDeniedByUser), MVRefusal::none);
    EXPECT_EQ(refusalOfError(nullptr), MVRefusal::none);
}

TEST_F(ClientPrivilege, TheCallerDoesNotWaitWhileTheUserIsAskedAndMayCancelMeanwhile) {
    const auto file = makeFile("file", 0644);
    const auto acl = read(file);
    ASSERT_TRUE(acl);
    setOthers(*acl, MVAclGroupNone);
    std::promise<void> asked;
    std::promise<void> answered;
    services->whenAsked = [&, isFirst = true]() mutable {
        if (!std::exchange(isFirst, false))
            return;
        asked.set_value();
        answered.get_future().wait();
    };
    std::stop_source stop;
    const auto error = waitFor<NSErrorRef>([&](auto completion) {
        client->writeAcl(*acl, {.privilege = MVPrivilege::always, .stop = stop.get_token()},
                         completion);
        asked.get_future().wait();
        // What needs no right goes on meanwhile.
        bool isRead = false;
        client->readAcl(acl->url, {}, [&](const Result<MVFileAcl>&) { isRead = true; });
        EXPECT_TRUE(loop.runUntil([&] { return isRead; }));
        stop.request_stop();
    });
    expectCancelled(error);
    answered.set_value();
    // Asked for after the other, whose request would have been sent by then.
    EXPECT_TRUE(read(file, {.privilege = MVPrivilege::always}));
    EXPECT_EQ(modeOf(file), 0644u);
}

TEST_F(ClientPrivilege, AListThatWasReadThroughALinkIsNotReplacedOnceItHasChangedWhoeverWritesIt) {
    const auto file = makeFile("file", 0644);
    std::filesystem::create_symlink(file, folder / "link");
    for (const auto reads : {MVPrivilege::never, MVPrivilege::always}) {
        for (const auto writes : {MVPrivilege::never, MVPrivilege::always}) {
            std::filesystem::permissions(file, std::filesystem::perms(0644));
            const auto acl = read(folder / "link", {.privilege = reads});
            ASSERT_TRUE(acl);
            EXPECT_FALSE(write(*acl, {.privilege = writes}));
            std::filesystem::permissions(file, std::filesystem::perms(0600));
            const auto error = write(*acl, {.privilege = writes});
            ASSERT_TRUE(error);
            EXPECT_EQ(error->domain(), MVAclErrorDomain);
            EXPECT_EQ(error->code(), MVAclChanged);
        }
    }
}

TEST_F(ClientPrivilege, WhereTheRightsAreNotDefinedNothingIsAskedOrSent) {
    services->setStatus[MVRightGetFileAcl] = errAuthorizationDenied;
    const auto acl = read(makeFile("file"), {.privilege = MVPrivilege::always});
    ASSERT_FALSE(acl);
    EXPECT_EQ(acl.error()->domain(), NSOSStatusErrorDomain);
    EXPECT_EQ(acl.error()->code(), errAuthorizationInvalidSet);
    EXPECT_EQ(acl.error()->localizedDescription(),
              "The rights of this program are not defined on this system, and only root may "
              "define them.");
    EXPECT_EQ(services->prompts, 0);
}

}  // namespace
}  // namespace morvane
