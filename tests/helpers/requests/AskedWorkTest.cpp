// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVItemProgress.h>
#include <MorvaneOperation/PosixAclEntries.h>
#include <MorvaneOperation/acl_perms.h>
#include <MorvaneOperation/platform/xpc/ConnectionCore.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "AclRequests.h"
#include "FileRequestHandler.h"
#include "helpers/SilentMount.h"
#include "platform/fake/FakeStreamSocket.h"
#include "platform/fake/FakeUserDatabase.h"

namespace morvane {
namespace {

constexpr std::chrono::seconds watchdog{30};
constexpr std::uint32_t carol = 3000005;
constexpr std::uint32_t dave = 3000006;
constexpr const char* leftBehind =
    "The request was cancelled. A file system does not answer; what it was asked may still be done "
    "when it does.";

/// A client that says yes or no when it is asked whether a request is to go on.
class AnsweringClient final : public MVFileResponse {
  public:
    std::atomic<bool> says = true;
    std::atomic<int> asked = 0;

    void progressWithReply(NSXPCReply<bool> reply) override {
        ++asked;
        reply(says);
    }
    void updateFileSizes(std::vector<std::shared_ptr<MVFileSizeItem>>,
                         NSXPCReply<bool> reply) override {
        reply(says);
    }
};

/// A handler, and the client that it asks.
class Service {
  public:
    explicit Service(std::uint32_t user) {
        auto [near, far] = FakeStreamSocket::pair();
        server_ = connection(far);
        client_ = connection(near);
        server_->setRemoteObjectInterface(
            NSXPCInterface::interfaceWithProtocol<MVCountedResponse>());
        client_->setExportedInterface(NSXPCInterface::interfaceWithProtocol<MVFileResponse>());
        client_->setExportedObject<MVFileResponse>(client);
        server_->resume();
        client_->resume();
        handler = std::make_shared<FileRequestHandler>(server_, PathRule{user});
    }
    ~Service() {
        client_->invalidate();
        server_->invalidate();
    }
    /// The client goes.
    void leave() { client_->invalidate(); }

    const std::shared_ptr<AnsweringClient> client = std::make_shared<AnsweringClient>();
    std::shared_ptr<FileRequestHandler> handler;

  private:
    static std::shared_ptr<NSXPCConnection> connection(std::shared_ptr<StreamSocket> stream) {
        return std::make_shared<NSXPCConnection>(
            std::make_shared<NSXPCConnection::Core>("peer", std::move(stream)));
    }
    std::shared_ptr<NSXPCConnection> server_;
    std::shared_ptr<NSXPCConnection> client_;
};

/// What a request that was begun on a thread of its own is answered with.
using Answer = std::future<NSErrorRef>;

template <class Send>
Answer answerOf(Send send) {
    const auto answer = std::make_shared<std::promise<NSErrorRef>>();
    auto future = answer->get_future();
    std::thread([send, answer] {
        send([answer](auto&&... results) {
            answer->set_value(std::get<sizeof...(results) - 1>(std::tie(results...)));
        });
    }).detach();
    return future;
}

/// "none" for success, "nothing" if there is no answer.
std::string textOf(Answer answer) {
    if (answer.wait_for(watchdog) != std::future_status::ready)
        return "nothing";
    const auto error = answer.get();
    return error ? error->localizedDescription() : "none";
}

class AskedWorkTest : public SilentMountTest {
  protected:
    Answer list(const Service& service, const char* name) const {
        return answerOf([handler = service.handler, at = url(name)](auto reply) {
            handler->getAclEntriesWithUrl(at, reply);
        });
    }
    Answer rename(const Service& service, const char* name) const {
        return answerOf([handler = service.handler, at = url(name)](auto reply) {
            handler->renameUrls({at}, {"new"}, reply);
        });
    }
};

TEST_F(AskedWorkTest, AClientsNoFreesItsRequestsOnAMountThatDoesNotAnswer) {
    EXPECT_EQ(
        exitCodeOf([&] {
            const auto own = aclEntriesOfUrl(url());
            if (!own || !hasOwnMounts())
                return 1;
            auto server = silentMount(top_ + "/hung");
            if (!server)
                return 2;
            const Service service(carol);
            service.client->says = false;
            std::vector<Answer> answers;
            answers.push_back(list(service, "/hung/item"));
            answers.push_back(answerOf([&, handler = service.handler](auto reply) {
                handler->getAclAccessWithUrl(url("/hung/item"), uuidOfPosixIdentity(CBEveryone{}),
                                             reply);
            }));
            answers.push_back(answerOf([&, handler = service.handler](auto reply) {
                handler->setAclEntries(*own, url("/hung/item"), reply);
            }));
            answers.push_back(answerOf([&, handler = service.handler](auto reply) {
                handler->getContentsOfDirectory(url("/hung/item"), {}, reply);
            }));
            for (auto& answer : answers) {
                if (textOf(std::move(answer)) != leftBehind)
                    return 3;
            }
            // What the kernel holds has taken this user's places, and nobody else's.
            if (!textOf(list(service, "/file")).starts_with("Earlier requests of yours still wait"))
                return 4;
            const Service other(dave);
            if (textOf(list(other, "/file")) != "none")
                return 5;
            other.client->says = false;
            if (textOf(rename(other, "/hung/item")) != leftBehind)
                return 6;
            // Whatever waits for the file system fails now.
            server = FileDescriptor();
            while (textOf(list(service, "/file")) != "none")
                std::this_thread::yield();
            return 0;
        }),
        0);
}

TEST_F(AskedWorkTest, AClientThatHasGoneFreesItsRequestAndItsWritesOrder) {
    EXPECT_EQ(exitCodeOf([&] {
                  const auto own = aclEntriesOfUrl(url());
                  if (!own || !hasOwnMounts())
                      return 1;
                  const auto server = silentMount(top_ + "/hung");
                  if (!server)
                      return 2;
                  Service service(carol);
                  auto first = answerOf([&, handler = service.handler](auto reply) {
                      handler->setAclEntries(*own, url("/hung/item"), reply);
                  });
                  // Until the work has been asked about, while it goes on.
                  while (service.client->asked == 0)
                      std::this_thread::yield();
                  if (first.wait_for(std::chrono::seconds(0)) == std::future_status::ready)
                      return 3;
                  service.leave();
                  if (textOf(std::move(first)) != leftBehind)
                      return 4;
                  // One that waited for it is begun, and has its own end.
                  auto second = answerOf([&, handler = service.handler](auto reply) {
                      handler->setAclEntries(*own, url("/hung/item"), reply);
                  });
                  return textOf(std::move(second)) == leftBehind ? 0 : 5;
              }),
              0);
}

/// A list that names many users, whose groups a slow directory tells.
class LongReduction : public AskedWorkTest {
  protected:
    static constexpr int users = 900;

    LongReduction() {
        database->whenGroupsAreAsked = [] {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        };
        entries = *aclEntriesOfUrl(url("/file"));
        const auto add = [&](const CBPosixIdentity& who, std::int32_t tag) {
            entries.push_back(MVAclEntry::initWithUuid(
                uuidOfPosixIdentity(who), tag,
                permissionTree(ACL_READ_DATA | ACL_READ_EXTATTRIBUTES, false), false));
        };
        add(CBPosixGroup{7000}, 2);
        for (std::uint32_t i = 0; i != users; ++i)
            add(CBPosixUser{5000 + i}, 1);
    }
    Answer write(const Service& service) const {
        return answerOf([this, handler = service.handler](auto reply) {
            handler->setAclEntries(entries, url("/file"), reply);
        });
    }
    void expectEndedEarly(Answer answer) const {
        ASSERT_EQ(answer.wait_for(watchdog), std::future_status::ready);
        const auto error = answer.get();
        ASSERT_TRUE(error);
        // Of the reduction itself: nobody had to answer in its place.
        const auto cancelled = NSError::errorWithDomain(NSPOSIXErrorDomain, ECANCELED);
        EXPECT_EQ(error->code(), ECANCELED);
        EXPECT_EQ(error->localizedDescription(), cancelled->localizedDescription());
        EXPECT_LT(database->groupLookups, users);
        EXPECT_EQ(aclEntriesOfUrl(url("/file"))->size(), 3U);
    }

    const FakeUserDatabaseInstallation database;
    std::vector<std::shared_ptr<MVAclEntry>> entries;
};

TEST_F(LongReduction, EndsAtItsClientsNo) {
    const Service service(carol);
    service.client->says = false;
    expectEndedEarly(write(service));
    EXPECT_EQ(service.client->asked, 1);
}

TEST_F(LongReduction, EndsWhenItsClientHasGone) {
    Service service(carol);
    auto answer = write(service);
    while (service.client->asked == 0)
        std::this_thread::yield();
    service.leave();
    expectEndedEarly(std::move(answer));
}

}  // namespace
}  // namespace morvane
