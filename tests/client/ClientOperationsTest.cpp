// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVAclOrigin.h>

#include <atomic>

#include "ClientTestSupport.h"
#include "platform/fake/FakeMainLoop.h"

/// What the operations of a client bring, where and how often.
namespace morvane {
namespace {

using ClientOperations = ClientTest;

TEST_F(ClientOperations, AListIsReadEditedAndWritten) {
    const auto file = makeFile("file", 0644);
    const auto acl = read(file);
    ASSERT_TRUE(acl) << acl.error()->localizedDescription();
    ASSERT_EQ(acl->entries.size(), 3u);
    ASSERT_TRUE(acl->origin);
    EXPECT_EQ(acl->origin->values().url, NSURL::fileURLWithPath(file.string()));
    EXPECT_TRUE(acl->list);
    setOthers(*acl, MVAclGroupNone);
    EXPECT_FALSE(write(*acl));
    EXPECT_EQ(modeOf(file), 0640u);
}

TEST_F(ClientOperations, AListThatHasChangedSinceItWasReadIsNotReplaced) {
    const auto file = makeFile("file", 0644);
    auto acl = read(file);
    ASSERT_TRUE(acl);
    std::filesystem::permissions(file, std::filesystem::perms(0600));
    // Also if all of its entries are new.
    for (const auto& entry : acl->entries)
        entry->setOrigin(nullptr);
    const auto error = write(*acl);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain(), MVAclErrorDomain);
    EXPECT_EQ(error->code(), MVAclChanged);
    EXPECT_EQ(modeOf(file), 0600u);
}

TEST_F(ClientOperations, WhatIsWrittenIsWhatTheEntriesWereInTheCall) {
    const auto file = makeFile("file", 0644);
    const auto acl = read(file);
    ASSERT_TRUE(acl);
    setOthers(*acl, MVAclGroupNone);
    const auto error = waitFor<NSErrorRef>([&](auto completion) {
        client->writeAcl(*acl, {}, completion);
        setOthers(*acl, MVAclGroupReadWrite);
    });
    EXPECT_FALSE(error);
    EXPECT_EQ(modeOf(file), 0640u);
}

TEST_F(ClientOperations, ANullEntryIsRefusedInTheCall) {
    MVFileAcl acl{NSURL::fileURLWithPath(folder.string()), {nullptr}};
    EXPECT_THROW(client->writeAcl(acl, {}, [](NSErrorRef) { ADD_FAILURE(); }),
                 std::invalid_argument);
    EXPECT_EQ(connectors(), 0);
}

TEST_F(ClientOperations, WhatAListWouldLoseIsToldWithTheNearestOne) {
    const auto acl = read(makeFile("file", 0644));
    ASSERT_TRUE(acl);
    auto wanted = *acl;
    const auto entry = MVAclEntry::newEntryForDirectory(false);
    entry->setUuid(uuidOfPosixIdentity(CBPosixUser{54321}));
    entry->setPermissionGroup(MVAclGroupAll);
    wanted.entries.insert(wanted.entries.begin() + 1, entry);
    const auto losses = waitFor<Result<MVAclLosses>>(
        [&](auto completion) { client->lossesOfAcl(wanted, {}, completion); });
    ASSERT_TRUE(losses) << losses.error()->localizedDescription();
    ASSERT_EQ(losses->losses.size(), 1u);
    EXPECT_EQ(losses->losses[0].entry, 1u);
    EXPECT_EQ(losses->losses[0].box, "Administration");
    EXPECT_EQ(losses->losses[0].who, "allow uid 54321");
    EXPECT_TRUE(acl->list->losses(losses->nearest).empty());
    const auto unknown = waitFor<Result<MVAclLosses>>([&](auto completion) {
        client->lossesOfAcl({wanted.url, wanted.entries}, {}, completion);
    });
    ASSERT_FALSE(unknown);
    EXPECT_EQ(unknown.error()->code(), ENOTSUP);
}

TEST_F(ClientOperations, FoldersAreListedCountedAndPropagated) {
    const auto inside = makeFile("inside", 0600);
    const auto url = NSURL::fileURLWithPath(folder.string());
    const auto names = waitFor<Result<std::vector<NSURL>>>(
        [&](auto completion) { client->contents(url, {}, completion); });
    ASSERT_TRUE(names);
    EXPECT_EQ(names->size(), 2u);
    const auto sizes = waitFor<MVFileSizes>([&](auto completion) {
        client->sizes({NSURL::fileURLWithPath(inside.string())}, {}, completion);
    });
    EXPECT_FALSE(sizes.error);
    ASSERT_EQ(sizes.items.size(), 1u);
    EXPECT_EQ(sizes.items[0]->size(), 4);
    const auto sub = folder / "sub";
    std::filesystem::create_directory(sub);
    const auto below = makeFile("sub/below", 0600);
    const auto acl = read(sub);
    ASSERT_TRUE(acl);
    EXPECT_FALSE(
        waitFor<NSErrorRef>([&](auto completion) { client->propagateAcl(*acl, {}, completion); }));
    EXPECT_EQ(modeOf(below), 0644u);
}

TEST_F(ClientOperations, ItemsAreRenamedAndAccessIsTold) {
    const auto file = makeFile("old");
    const auto renames = waitFor<MVFileRenames>([&](auto completion) {
        client->rename({NSURL::fileURLWithPath(file.string())}, {"new"}, {}, completion);
    });
    EXPECT_FALSE(renames.error);
    EXPECT_EQ(renames.codes, std::vector<std::int64_t>{0});
    EXPECT_TRUE(std::filesystem::exists(folder / "new"));
    const auto nobody = uuidOfPosixIdentity(CBEveryone{});
    const auto access =
        waitFor<Result<std::vector<std::shared_ptr<MVTreeNode>>>>([&](auto completion) {
            client->effectiveAccess(renames.urls.at(0), nobody, {}, completion);
        });
    ASSERT_TRUE(access) << access.error()->localizedDescription();
    EXPECT_EQ(access->size(), 3u);
}

TEST_F(ClientOperations, ANewNameThatIsNotUtf8IsRefusedByName) {
    const auto file = makeFile("old");
    const auto renames = waitFor<MVFileRenames>([&](auto completion) {
        client->rename({NSURL::fileURLWithPath(file.string())}, {"new\xff"}, {}, completion);
    });
    ASSERT_TRUE(renames.error);
    EXPECT_EQ(renames.error->domain(), NSPOSIXErrorDomain);
    EXPECT_EQ(renames.error->code(), EINVAL);
    EXPECT_EQ(renames.error->localizedDescription(),
              "The new name \"new\ufffd\" is not UTF-8. Choose one that is.");
    EXPECT_TRUE(std::filesystem::exists(file));
}

TEST_F(ClientOperations, AnErrorOfTheServiceIsTheCompletions) {
    const auto acl = read(folder / "missing");
    ASSERT_FALSE(acl);
    EXPECT_EQ(acl.error()->domain(), NSPOSIXErrorDomain);
    EXPECT_EQ(acl.error()->code(), ENOENT);
    EXPECT_EQ(refusalOfError(acl.error()), MVRefusal::none);
}

TEST_F(ClientOperations, AServiceThatCannotBeStartedEndsEachOperationOnce) {
    serve("/nowhere");
    for (int i = 0; i != 3; ++i) {
        const auto acl = read(folder);
        ASSERT_FALSE(acl);
        EXPECT_EQ(acl.error()->domain(), NSCocoaErrorDomain);
        EXPECT_EQ(acl.error()->code(), NSXPCConnectionInvalid);
    }
}

TEST_F(ClientOperations, AHostThatMakesNoConnectorIsTold) {
    const auto other = MVFileClient::init(loop.executor(), [] { return nullptr; });
    const auto error = waitFor<Result<MVFileAcl>>([&](auto completion) {
                           other->readAcl(NSURL::fileURLWithPath("/"), {}, completion);
                       }).error();
    EXPECT_EQ(error->localizedDescription(), "the host has made no connector");
}

/// Notes on which threads it is destroyed.
struct Held {
    std::atomic<int>* elsewhere;
    std::thread::id here = std::this_thread::get_id();
    explicit Held(std::atomic<int>* count) : elsewhere(count) {}
    ~Held() { *elsewhere += std::this_thread::get_id() == here ? 0 : 1; }
};

TEST_F(ClientOperations, WhatTheHostHasGivenIsDestroyedOnItsOwnThread) {
    std::atomic<int> elsewhere = 0;
    const auto url = NSURL::fileURLWithPath(makeFile("file").string());
    const auto held = [&] { return std::make_shared<Held>(&elsewhere); };
    const auto acl = read(folder / "file");
    ASSERT_TRUE(acl);
    int come = 0;
    for (int i = 0; i != 20; ++i) {
        client->sizes({url}, {.progress = [a = held()](const auto&) {}},
                      [&, a = held()](const MVFileSizes&) { ++come; });
        client->lossesOfAcl(*acl, {}, [&, a = held()](const Result<MVAclLosses>&) { ++come; });
    }
    EXPECT_TRUE(loop.runUntil([&] { return come == 40; }));
    client.reset();
    EXPECT_EQ(elsewhere, 0);
}

TEST_F(ClientOperations, WithoutAnExecutorCompletionsComeOnTheMainQueue) {
    const FakeMainLoopInstallation mainLoop;
    std::atomic<int> come = 0;
    const auto other = MVFileClient::init();
    other->readAcl(NSURL::fileURLWithPath(folder.string()), {},
                   [&](const Result<MVFileAcl>& acl) { come += acl ? 1 : 100; });
    while (mainLoop->waiting() == 0)
        std::this_thread::yield();
    EXPECT_EQ(come, 0);
    mainLoop->turn();
    EXPECT_EQ(come, 1);
}

TEST_F(ClientOperations, ManyFromSeveralThreadsEachCompleteOnceOnFewConnections) {
    constexpr int threads = 4;
    constexpr int each = 50;
    makeFile("file");
    const auto url = NSURL::fileURLWithPath((folder / "file").string());
    int come = 0;
    std::vector<std::thread> callers;
    for (int i = 0; i != threads; ++i) {
        callers.emplace_back([&] {
            for (int j = 0; j != each; ++j) {
                client->readAcl(url, {}, [&](const Result<MVFileAcl>& acl) {
                    EXPECT_TRUE(acl);
                    ++come;
                });
            }
        });
    }
    for (auto& caller : callers)
        caller.join();
    EXPECT_TRUE(loop.runUntil([&] { return come == threads * each; }));
    // And nothing comes twice.
    EXPECT_TRUE(read(folder / "file"));
    EXPECT_EQ(come, threads * each);
}

}  // namespace
}  // namespace morvane
