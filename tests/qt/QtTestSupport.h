// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVAclOrigin.h>
#include <MorvaneOperation/MVServiceNames.h>
#include <MorvaneOperation/PosixAclEntries.h>
#include <MorvaneOperation/qt/MorvaneFileClient.h>
#include <gtest/gtest.h>

#include <QSignalSpy>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "Await.h"
#include "TemporaryFolder.h"

namespace morvane {

constexpr int watchdogInMs = std::chrono::milliseconds(watchdog).count();

/// A client with the services of a folder.
class QtClientTest : public testing::Test {
  protected:
    QtClientTest() {
        std::filesystem::permissions(folder, std::filesystem::perms(0755));
        std::filesystem::create_directory(services);
        setenv("MORVANE_LIBEXEC_DIR", services.c_str(), 1);
        serve(MORVANE_FILE_SERVICE);
    }
    ~QtClientTest() override { unsetenv("MORVANE_LIBEXEC_DIR"); }

    void serve(const std::string& program) {
        std::filesystem::remove(services / MVFileServiceName);
        std::filesystem::create_symlink(program, services / MVFileServiceName);
    }

    /// The operation, which has finished.
    template <class Operation>
    static Operation* done(Operation* operation) {
        QSignalSpy finished(operation, &MorvaneFileOperation::finished);
        EXPECT_FALSE(operation->isFinished()) << "inside the call";
        if (!finished.wait(watchdogInMs)) {
            ADD_FAILURE() << "it did not finish";
            std::abort();
        }
        EXPECT_TRUE(operation->isFinished());
        return operation;
    }
    MVFileAcl read(const std::filesystem::path& path) {
        const auto* const reading = done(client.readAcl(urlOf(path)));
        EXPECT_FALSE(reading->error()) << reading->error().text().toStdString();
        return reading->answer();
    }
    static QUrl urlOf(const std::filesystem::path& path) {
        return QUrl::fromEncoded(
            QByteArray::fromStdString(NSURL::fileURLWithPath(path.string()).absoluteString()));
    }

    std::filesystem::path makeFile(const std::string& name, unsigned mode = 0644) {
        auto path = folder / name;
        std::ofstream(path) << "text";
        std::filesystem::permissions(path, std::filesystem::perms(mode));
        return path;
    }
    static unsigned modeOf(const std::filesystem::path& path) {
        return static_cast<unsigned>(std::filesystem::status(path).permissions()) & 0777;
    }

    TemporaryFolder made;
    const std::filesystem::path folder = made.path();
    const std::filesystem::path services = folder / "services";
    MorvaneFileClient client;
};

/// The list of an item whose owner and group nobody has, and which exists nowhere.
inline MVFileAcl listOf(MVAclStorage storage, bool isFolder) {
    constexpr std::uint32_t owner = 3000001;
    constexpr std::uint32_t group = 3000002;
    const auto url = NSURL::fileURLWithPath("/nowhere/item");
    const auto origin = MVAclOrigin::initWithValues({url, isFolder, owner, group, storage, "now"});
    MVFileAcl acl{url, {}, origin};
    if (storage == MVAclStorage::nfs4) {
        for (const auto tag : {MVAclTagDeny, MVAclTagAllow, MVAclTagAllow}) {
            auto entry = MVAclEntry::newEntryForDirectory(isFolder);
            entry->setIdentity(tag == MVAclTagDeny ? MorvaneIdentity::user("daemon").identity()
                                                   : MorvaneIdentity::everyone().identity());
            entry->setTag(tag);
            acl.entries.push_back(std::move(entry));
        }
        acl.entries.back()->setInherited(true);
    } else {
        PosixAcl stored{owner, group, isFolder, {}, {}};
        stored.access = {PosixRead | PosixWrite, PosixRead, PosixNothing, PosixRead, {}, {}};
        stored.access.users.push_back({4000001, PosixRead});
        acl.entries = entriesOfPosixAcl(stored);
    }
    for (const auto& entry : acl.entries)
        entry->setOrigin(origin);
    acl.list = ItemList::asRead(acl.entries);
    return acl;
}

/// The first box or group of that bit or name.
inline const NSTreeNode& boxNamed(const MVAclEntry& entry, const std::string& name) {
    for (const auto& group : entry.permissions()) {
        if (MVTreeNode::permissionOf(*group)->name() == name)
            return *group;
        for (const auto& box : group->childNodes()) {
            if (MVTreeNode::permissionOf(*box)->name() == name)
                return *box;
        }
    }
    ADD_FAILURE() << "no box " << name;
    std::abort();
}

}  // namespace morvane
