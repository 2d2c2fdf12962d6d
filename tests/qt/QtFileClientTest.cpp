// SPDX-License-Identifier: MIT
#include <MorvaneOperation/qt/MorvaneAclModel.h>
#include <MorvaneOperation/qt/MorvaneIdentityModel.h>
#include <unistd.h>

#include <QAbstractItemModelTester>
#include <QCoreApplication>
#include <QPointer>
#include <algorithm>
#include <cerrno>
#include <semaphore>

#include "QtTestSupport.h"
#include "platform/fake/FakeUserDatabase.h"

/// What the operations bring, on real files and by real services.
namespace morvane {
namespace {

using QtFileClient = QtClientTest;

TEST_F(QtFileClient, AListIsReadEditedAndWritten) {
    const auto file = makeFile("file", 0644);
    const auto acl = read(file);
    ASSERT_EQ(acl.entries.size(), 3u);
    acl.entries.back()->setPermissionGroup(MVAclGroupNone);
    EXPECT_FALSE(done(client.writeAcl(acl))->error());
    EXPECT_EQ(modeOf(file), 0640u);
}

TEST_F(QtFileClient, AListMayComeBeforeTheNamesInIt) {
    const auto answers = std::make_shared<std::counting_semaphore<>>(0);
    const FakeUserDatabaseInstallation database;
    database->users = {{getuid(), "alice"}};
    database->whenUserIsAsked = [answers] { answers->acquire(); };
    client.setNamesLater(true);
    MorvaneAclModel model;
    model.setAcl(read(makeFile("file")));
    const auto owner = model.index(0, MorvaneAclModel::WhoColumn);
    EXPECT_EQ(owner.data(), QString("uid %1 (owner)").arg(getuid()));
    QSignalSpy told(&model, &QAbstractItemModel::dataChanged);
    answers->release(1000);
    ASSERT_TRUE(told.wait(watchdogInMs));
    EXPECT_EQ(owner.data(), "user alice (owner)");
}

TEST_F(QtFileClient, AnOperationDeletesItselfAfterItHasFinished) {
    const QPointer reading = done(client.readAcl(urlOf(makeFile("file"))));
    ASSERT_TRUE(reading);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_FALSE(reading);
}

TEST_F(QtFileClient, AnOperationMayBeDeletedByTheSlotThatHearsOfItsEnd) {
    QPointer<MorvaneFileOperation> reading = client.readAcl(urlOf(makeFile("file")));
    QEventLoop loop;
    QObject::connect(reading, &MorvaneFileOperation::finished, [&] {
        delete reading;
        loop.quit();
    });
    loop.exec();
    EXPECT_FALSE(reading);
}

TEST_F(QtFileClient, AnErrorSaysWhatHappened) {
    const auto* const reading = done(client.readAcl(urlOf(folder / "no")));
    ASSERT_TRUE(reading->error());
    EXPECT_EQ(reading->error().error()->code(), ENOENT);
    EXPECT_EQ(reading->error().text(), "No such file or directory");
    EXPECT_EQ(reading->error().refusal(), MorvaneError::NotRefused);
    EXPECT_FALSE(reading->hasAnswer());
    EXPECT_THROW(reading->answer(), std::bad_optional_access);
}

TEST_F(QtFileClient, WhatIsNoUrlAndWhoIsNobodyEndsAnOperationWithAnError) {
    const auto isInvalid = [](const MorvaneFileOperation* operation, const QString& text) {
        EXPECT_EQ(operation->error().error()->domain(), NSPOSIXErrorDomain);
        EXPECT_EQ(operation->error().error()->code(), EINVAL);
        EXPECT_EQ(operation->error().text(), text);
    };
    const QString noUrl("\"some/file\" is not the URL of a file or folder.");
    const QUrl relative("some/file");
    isInvalid(done(client.readAcl(relative)), noUrl);
    isInvalid(done(client.contents(relative)), noUrl);
    isInvalid(done(client.sizes({urlOf(folder), relative})), noUrl);
    isInvalid(done(client.rename({relative, urlOf(folder)}, {"a", "b"})), noUrl);
    isInvalid(done(client.effectiveAccess(relative, MorvaneIdentity::everyone())), noUrl);
    isInvalid(done(client.effectiveAccess(urlOf(folder), {})),
              "It was not said whose access is wanted.");
}

TEST_F(QtFileClient, AListThatHasChangedSinceItWasReadIsNotReplaced) {
    const auto file = makeFile("file", 0644);
    const auto acl = read(file);
    std::filesystem::permissions(file, std::filesystem::perms(0600));
    const auto* const writing = done(client.writeAcl(acl));
    EXPECT_TRUE(writing->error().isListChanged());
    EXPECT_EQ(modeOf(file), 0600u);
}

TEST_F(QtFileClient, LossesAreToldBeforeAndWithTheRefusal) {
    auto acl = read(makeFile("file", 0644));
    const auto entry = MVAclEntry::newEntryForDirectory(false);
    entry->setUuid(uuidOfPosixIdentity(CBPosixUser{54321}));
    entry->setPermissionGroup(MVAclGroupAll);
    acl.entries.push_back(entry);
    const auto* const asking = done(client.lossesOfAcl(acl));
    ASSERT_FALSE(asking->error());
    const auto lost = asking->answer();
    ASSERT_EQ(lost.losses.size(), 1u);
    EXPECT_EQ(lost.losses.front().box, "Administration");
    ASSERT_EQ(lost.texts.size(), 1);
    EXPECT_TRUE(acl.list->losses(lost.nearest).empty());
    const auto* const writing = done(client.writeAcl(acl));
    EXPECT_EQ(writing->error().losses(), lost.texts);
    EXPECT_EQ(writing->error().losses().front().section('"', 0, 1),
              "allow uid 54321: \"Administration");
}

TEST_F(QtFileClient, AnEntryThatIsNullIsRefusedInTheCall) {
    const MVFileAcl acl{NSURL::fileURLWithPath(folder.string()), {nullptr}};
    EXPECT_THROW(client.writeAcl(acl), std::invalid_argument);
    EXPECT_TRUE(client.children().isEmpty());
}

TEST_F(QtFileClient, FoldersAreListedCountedAndPropagated) {
    const auto sub = folder / "sub";
    std::filesystem::create_directory(sub);
    const auto below = makeFile("sub/below", 0600);
    EXPECT_EQ(done(client.contents(urlOf(sub)))->answer(), QList{urlOf(below)});
    EXPECT_EQ(done(client.sizes({urlOf(below), urlOf(sub)}))->answer(), (QList<qint64>{4, 4}));
    std::filesystem::permissions(sub, std::filesystem::perms(0755));
    EXPECT_FALSE(done(client.propagateAcl(read(sub)))->error());
    EXPECT_EQ(modeOf(below), 0644u);
}

TEST_F(QtFileClient, APropagationTellsWhatItHasDoneAndEachItemThatFailed) {
    constexpr int files = 3000;
    constexpr unsigned nobody = 65534;
    const auto tree = folder / "tree";
    std::filesystem::create_directory(tree);
    for (int i = 0; i != files; ++i)
        makeFile("tree/" + std::to_string(i), 0600);
    const auto counted = [&](MorvaneFileOperation* propagating) {
        QSignalSpy told(propagating, &MorvaneFileOperation::itemsCounted);
        done(propagating);
        EXPECT_GT(told.count(), 0);
        return propagating;
    };
    const auto* const first = counted(client.propagateAcl(read(tree)));
    EXPECT_FALSE(first->error());
    EXPECT_EQ(first->itemsDone(), files);
    EXPECT_EQ(first->itemsFailed(), 0);
    EXPECT_TRUE(first->error().failures().isEmpty());

    // Somebody else's service, who may change the files that are theirs.
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root, to become another user";
    std::filesystem::copy_file(MORVANE_FILE_SERVICE, folder / "service");
    std::filesystem::permissions(folder / "service", std::filesystem::perms(0755));
    std::filesystem::remove(services / MVFileServiceName);
    std::ofstream(services / MVFileServiceName)
        << "#!/bin/sh\nexec setpriv --reuid=65534 --regid=65534 --clear-groups '"
        << (folder / "service").string() << "'\n";
    std::filesystem::permissions(services / MVFileServiceName, std::filesystem::perms(0755));
    const auto odd = tree / "\xff %41";
    std::ofstream(odd) << "text";
    for (const auto& path : std::filesystem::directory_iterator(tree)) {
        if (path != odd) {
            ASSERT_EQ(chown(path.path().c_str(), nobody, nobody), 0);
        }
    }
    ASSERT_EQ(chown(tree.c_str(), nobody, nobody), 0);
    MorvaneFileClient other;
    const auto* const second = counted(other.propagateAcl(read(tree)));
    EXPECT_EQ(second->error().error()->code(), EPERM);
    EXPECT_EQ(second->itemsDone(), files);
    EXPECT_EQ(second->itemsFailed(), 1);
    const auto failures = second->error().failures();
    ASSERT_EQ(failures.size(), 1);
    EXPECT_EQ(failures.front().url, urlOf(odd));
    EXPECT_EQ(failures.front().code, EPERM);
    EXPECT_EQ(failures.front().text, "Operation not permitted");
}

TEST_F(QtFileClient, NamesThatAreNotUtf8ComeThroughUrls) {
    const auto sub = folder / "sub";
    std::filesystem::create_directory(sub);
    const auto odd = makeFile("sub/\xff %41", 0600);
    const auto urls = done(client.contents(urlOf(sub)))->answer();
    ASSERT_EQ(urls.size(), 1);
    const auto* const renaming = done(client.rename(urls, {"ü %41"}));
    EXPECT_FALSE(renaming->error()) << renaming->error().text().toStdString();
    EXPECT_EQ(renaming->answer().urls,
              QList{QUrl::fromLocalFile(QString::fromStdString((sub / "ü %41").string()))});
    EXPECT_EQ(renaming->answer().codes, QList{0});
    EXPECT_TRUE(std::filesystem::exists(sub / "ü %41"));
}

TEST_F(QtFileClient, AccessIsTold) {
    const auto file = makeFile("file", 0604);
    const auto* const asking =
        done(client.effectiveAccess(urlOf(file), MorvaneIdentity::user("daemon")));
    ASSERT_FALSE(asking->error()) << asking->error().text().toStdString();
    ASSERT_GE(asking->answer().size(), 2u);
    EXPECT_NE(MVTreeNode::stateOf(*asking->answer()[0]), MVStateOff);
    EXPECT_EQ(MVTreeNode::stateOf(*asking->answer()[1]), MVStateOff);
}

TEST_F(QtFileClient, WhomAnEntryCanBeForIsFoundByAPartOfTheName) {
    const auto found = done(client.identities("daemo"))->answer();
    ASSERT_GE(found.size(), 2);
    EXPECT_TRUE(found.contains(MorvaneIdentity::user("daemon")));
    EXPECT_TRUE(found.contains(MorvaneIdentity::group("daemon")));
    EXPECT_EQ(found.front().name(), "daemon");
    EXPECT_EQ(MorvaneIdentity::user("daemon").text(), "user daemon");
    EXPECT_FALSE(MorvaneIdentity::user("nobody of that name"));
    EXPECT_TRUE(MorvaneIdentity::creatorGroup().isGroup());
}

TEST_F(QtFileClient, WhoIsFoundIsShownForTheTextThatWasTypedLast) {
    MorvaneIdentityModel found(&client);
    QAbstractItemModelTester tester(&found, QAbstractItemModelTester::FailureReportingMode::Fatal);
    QSignalSpy reset(&found, &QAbstractItemModel::modelReset);
    for (const auto* const text : {"d", "da", "daemon"})
        found.setText(text);
    ASSERT_TRUE(reset.wait(watchdogInMs));
    EXPECT_EQ(reset.size(), 1);
    ASSERT_GE(found.rowCount(), 2);
    EXPECT_EQ(found.index(0).data(), "user daemon");
    EXPECT_EQ(found.index(1).data(Qt::EditRole), "daemon");
    EXPECT_EQ(found.identity(1), MorvaneIdentity::group("daemon"));
    EXPECT_FALSE(found.identity(found.rowCount()));
    found.setText("nobody of that name");
    ASSERT_TRUE(reset.wait(watchdogInMs));
    EXPECT_EQ(found.rowCount(), 0);
}

/// The sizes of "/N" are N bytes so far, until the client says no.
class QtLongWork : public QtClientTest {
  protected:
    QtLongWork() { serve(MORVANE_ASKING_SERVICE); }
};

TEST_F(QtLongWork, TwoOperationsTellTheirOwnProgressAndAreCancelledEachByItself) {
    auto* const first = client.sizes({QUrl("file:///1")});
    auto* const second = client.sizes({QUrl("file:///2")});
    QSignalSpy ofFirst(first, &MorvaneFileOperation::progress);
    QSignalSpy ofSecond(second, &MorvaneFileOperation::progress);
    QSignalSpy secondFinished(second, &MorvaneFileOperation::finished);
    while (ofFirst.empty() || ofSecond.empty())
        ASSERT_TRUE((ofFirst.empty() ? ofFirst : ofSecond).wait(watchdogInMs));
    EXPECT_EQ(ofFirst.front().front().value<QList<qint64>>(), QList<qint64>{1});
    EXPECT_EQ(ofSecond.front().front().value<QList<qint64>>(), QList<qint64>{2});
    first->cancel();
    done(first);
    EXPECT_TRUE(first->error().isCancellation());
    // What was counted by then.
    EXPECT_EQ(first->answer(), QList<qint64>{1});
    EXPECT_TRUE(secondFinished.empty());
    second->cancel();
    done(second);
    EXPECT_EQ(secondFinished.size(), 1);
}

TEST_F(QtLongWork, WhoDeletesAnOperationHearsNoMoreOfItAndTheServiceIsToldToStop) {
    auto* const counting = client.sizes({QUrl("file:///1")});
    QSignalSpy progress(counting, &MorvaneFileOperation::progress);
    QSignalSpy finished(counting, &MorvaneFileOperation::finished);
    ASSERT_TRUE(progress.wait(watchdogInMs));
    delete counting;
    // All connections that long work may have are free again.
    QList<MorvaneFileOperation*> others;
    for (std::size_t i = 1; i != MVFileClient::mostConnections; ++i)
        others << client.sizes({QUrl("file:///3")});
    for (auto* const other : others) {
        QSignalSpy begun(other, &MorvaneFileOperation::progress);
        ASSERT_TRUE(begun.wait(watchdogInMs));
    }
    EXPECT_TRUE(finished.empty());
}

TEST_F(QtLongWork, TheEndOfAClientEndsItsOperations) {
    auto other = std::make_unique<MorvaneFileClient>();
    const QPointer counting = other->sizes({QUrl("file:///1")});
    QSignalSpy progress(counting, &MorvaneFileOperation::progress);
    QSignalSpy finished(counting, &MorvaneFileOperation::finished);
    ASSERT_TRUE(progress.wait(watchdogInMs));
    other.reset();
    EXPECT_FALSE(counting);
    // What it has still posted comes to nobody.
    EXPECT_FALSE(done(client.contents(QUrl("file:///")))->error());
    EXPECT_TRUE(finished.empty());
}

}  // namespace
}  // namespace morvane
