// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVConnector.h>
#include <MorvaneOperation/platform/foundation/NSException.h>
#include <MorvaneOperation/platform/host/Log.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <future>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>

#include "ConnectorTestSupport.h"

namespace morvane {
namespace {

class BareConnector : public MVConnector {
  public:
    using MVConnector::MVConnector;
    static const NSClass& classObject() {
        static const NSClass c{"BareConnector", &MVConnector::classObject(), nullptr};
        return c;
    }
    const NSClass& objectClass() const override { return classObject(); }
};

/// Takes the name of the abstract class.
class Impostor : public MVConnector {
  public:
    using MVConnector::MVConnector;
    static const NSClass& classObject() {
        static const NSClass c{"MVConnector", &MVConnector::classObject(), nullptr};
        return c;
    }
    const NSClass& objectClass() const override { return classObject(); }
};

class QueueWithoutThreads final : public DispatchQueue {
  public:
    QueueWithoutThreads() : DispatchQueue(std::nullopt) {}
    void async(Task) override { throw std::system_error(EAGAIN, std::generic_category()); }
    bool isCurrent() const override { return false; }
};

template <class Function>
std::pair<std::string, std::string> exceptionOf(Function function) {
    try {
        function();
    } catch (const NSException& e) {
        return {e.name(), e.reason()};
    }
    return {};
}

TEST_F(MVConnectorTest, TheAbstractClassCannotBeInstantiated) {
    EXPECT_EQ(exceptionOf([] { MVConnector::init<MVConnector>(); }),
              (std::pair<std::string, std::string>{
                  "MVAbstractClassCreation",
                  "An instance of the abstract class MVConnector cannot be created."}));
}

TEST_F(MVConnectorTest, AClassOfTheSameNameIsRefusedToo) {
    EXPECT_EQ(exceptionOf([] { MVConnector::init<Impostor>(); }).first, "MVAbstractClassCreation");
}

TEST_F(MVConnectorTest, ASubclassGetsAQueueAndAResponderThatKnowsIt) {
    const auto connector = MVConnector::init<Connector>();
    EXPECT_FALSE(connector->queue()->label());
    EXPECT_EQ(connector->responder()->connector(), connector);
    EXPECT_FALSE(connector->authConnection());
    EXPECT_EQ(MVConnector::initWithQueueLabel<Connector>("label")->queue()->label(), "label");
}

TEST_F(MVConnectorTest, EachAbstractMethodNamesTheSubclassAndItself) {
    const auto connector = MVConnector::init<BareConnector>();
    const auto reason = [](const char* method) {
        return std::pair<std::string, std::string>{
            "MVAbstractMethodNotOverridden",
            std::string("Subclass BareConnector must override method -[MVConnector ") + method +
                "] of the base class MVConnector."};
    };
    bool replied = false;
    const auto reply = [&](bool) { replied = true; };
    EXPECT_EQ(exceptionOf([&] { connector->remoteEncodableClasses(); }),
              reason("remoteEncodableClasses"));
    EXPECT_EQ(exceptionOf([&] { connector->exportedEncodableClasses(); }),
              reason("exportedEncodableClasses"));
    EXPECT_EQ(exceptionOf([&] { connector->progressWithReply(reply); }),
              reason("progressWithReply:"));
    EXPECT_EQ(exceptionOf([&] { connector->updateFileSizes({}, reply); }),
              reason("updateFileSizes:reply:"));
    EXPECT_FALSE(replied);
}

TEST_F(MVConnectorTest, AConnectionWhoseTableIsMissingStaysStoredAndUnconfigured) {
    const auto connector = MVConnector::init<BareConnector>();
    EXPECT_EQ(exceptionOf([&] { connector->connection(); }).first, "MVAbstractMethodNotOverridden");
    const auto stored = connector->connection();
    ASSERT_TRUE(stored);
    EXPECT_FALSE(stored->remoteObjectInterface());
    EXPECT_FALSE(stored->exportedInterface());
}

TEST_F(MVConnectorTest, AMissingTableEndsTheProcessThatBuildsThePrivilegedConnection) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto connector = MVConnector::init<BareConnector>();
    const auto build = [&] {
        static std::weak_ptr<MVConnector> built;
        built = connector;
        static const auto tell = std::get_terminate();
        // Where nothing has caught it.
        std::set_terminate([] {
            const auto held = built.lock();
            if (held->queue()->isCurrent() && held->authConnection() &&
                !held->authConnection()->remoteObjectInterface())
                std::fputs("stored and unconfigured\n", stderr);
            tell();
        });
        std::promise<void> replied;
        connector->getAuthConnectionForRight(MVRightGetFileAcl,
                                             [&](NSErrorRef) { replied.set_value(); });
        replied.get_future().wait_for(watchdog);
        std::_Exit(0);
    };
    EXPECT_DEATH(build(),
                 "stored and unconfigured\n.*MVAbstractMethodNotOverridden: Subclass "
                 "BareConnector must override method -.MVConnector remoteEncodableClasses. of the "
                 "base class MVConnector.");
}

TEST_F(MVConnectorTest, TheFileServiceConnectionIsConfiguredAndKept) {
    const auto connector = MVConnector::init<Connector>();
    const auto connection = connector->connection();
    EXPECT_EQ(connection->serviceName(), MVApplicationIdentifierPrefix ".FileService");
    EXPECT_EQ(connection->remoteObjectInterface()->classesForSelector(
                  "getAclEntriesWithUrl:reply:", 0, true),
              (NSClassSet{&NSArrayClass, &NSURLClass}));
    EXPECT_EQ(connection->remoteObjectInterface()->classesForSelector("setAclEntries:url:reply:", 0,
                                                                      true),
              NSClassSet{&NSStringClass});
    EXPECT_EQ(
        connection->exportedInterface()->classesForSelector("updateFileSizes:reply:", 0, false),
        NSClassSet{&NSArrayClass});
    EXPECT_EQ(connection->exportedObject().get(),
              static_cast<MVFileResponse*>(connector->responder().get()));
    EXPECT_TRUE(connection->hasInvalidationHandler());
    EXPECT_EQ(connector->connection(), connection);
}

TEST_F(MVConnectorTest, EachTableIsAskedForItsKeysAndAgainForEachOfThem) {
    const auto connector = MVConnector::init<Connector>();
    connector->connection();
    EXPECT_EQ(connector->calls,
              (std::vector<std::string>{"remote", "remote", "remote", "exported", "exported"}));
}

TEST_F(MVConnectorTest, EmptyTablesLeaveTheDefaults) {
    const auto connector = MVConnector::init<Connector>();
    connector->remote.clear();
    connector->exported.clear();
    EXPECT_EQ(connector->connection()->remoteObjectInterface()->classesForSelector(
                  "getAclEntriesWithUrl:reply:", 0, true),
              propertyListClasses());
}

TEST_F(MVConnectorTest, AnInvalidatedConnectionIsForgottenAlsoWhereNoThreadCanBeHad) {
    const auto connector = MVConnector::init<Connector>();
    connector->setQueue(std::make_shared<QueueWithoutThreads>());
    const auto first = connector->connection();
    invalidateAndWait(*first);
    EXPECT_NE(connector->connection(), first);
    EXPECT_EQ(log, std::vector<std::string>{"Permissions connection invalidated!"});
}

TEST_F(MVConnectorTest, WhereNoThreadCanBeHadForTheQueueItRepliesSoAtOnce) {
    const auto connector = MVConnector::init<Connector>();
    connector->setQueue(std::make_shared<QueueWithoutThreads>());
    const auto reply = authorize(*connector);
    EXPECT_TRUE(repliedAtOnce);
    ASSERT_TRUE(reply.error);
    EXPECT_EQ(reply.error->domain(), NSPOSIXErrorDomain);
    EXPECT_EQ(reply.error->code(), EAGAIN);
    EXPECT_EQ(reply.thread, std::this_thread::get_id());
    EXPECT_FALSE(connector->authConnection());
}

TEST_F(MVConnectorTest, TheEndOfAConnectorInvalidatesBothWithoutALine) {
    auto connector = MVConnector::init<Connector>();
    const auto file = connector->connection();
    ASSERT_FALSE(authorize(*connector).error);
    const auto auth = connector->authConnection();
    drain(*connector->queue());
    connector.reset();
    for (const auto& connection : {file, auth}) {
        const auto end = std::chrono::steady_clock::now() + watchdog;
        while (connection->hasInvalidationHandler() && std::chrono::steady_clock::now() < end)
            std::this_thread::yield();
        EXPECT_FALSE(connection->hasInvalidationHandler());
    }
    EXPECT_TRUE(log.empty());
}

TEST_F(MVConnectorTest, ThePrivilegedConnectionIsBuiltOnTheQueueOnceTheRightIsHeld) {
    const auto connector = MVConnector::init<Connector>();
    const auto reply = authorize(*connector);
    EXPECT_FALSE(reply.error);
    EXPECT_TRUE(reply.onQueue);
    ASSERT_TRUE(connector->authConnection());
    EXPECT_EQ(connector->authConnection()->serviceName(),
              MVApplicationIdentifierPrefix ".PrivilegedHelper");
    EXPECT_TRUE(connector->authConnection()->remoteObjectInterface());
    EXPECT_TRUE(connector->authConnection()->exportedInterface());
    EXPECT_EQ(connector->authConnection()->exportedObject().get(),
              static_cast<MVFileResponse*>(connector->responder().get()));
}

TEST_F(MVConnectorTest, WithAPrivilegedConnectionItAuthorizesAgainAndRepliesOnTheCallersThread) {
    const auto connector = MVConnector::init<Connector>();
    authorize(*connector);
    const auto held = connector->authConnection();
    const auto reply = authorize(*connector);
    EXPECT_TRUE(repliedAtOnce);
    EXPECT_FALSE(reply.error);
    EXPECT_EQ(reply.thread, std::this_thread::get_id());
    EXPECT_EQ(services->copies.size(), 2u);
    EXPECT_EQ(connector->authConnection(), held);
}

TEST_F(MVConnectorTest, ARefusedRightRepliesTheErrorOnTheCallersThreadAndBuildsNothing) {
    services->copyStatus = errAuthorizationDenied;
    const auto connector = MVConnector::init<Connector>();
    const auto reply = authorize(*connector);
    EXPECT_TRUE(repliedAtOnce);
    ASSERT_TRUE(reply.error);
    EXPECT_EQ(reply.error->code(), errAuthorizationDenied);
    EXPECT_EQ(reply.thread, std::this_thread::get_id());
    EXPECT_FALSE(connector->authConnection());
}

TEST_F(MVConnectorTest, ARefusedRightLeavesThePrivilegedConnectionAsItWas) {
    const auto connector = MVConnector::init<Connector>();
    authorize(*connector);
    const auto held = connector->authConnection();
    ASSERT_TRUE(held);
    services->copyStatus = errAuthorizationDenied;
    EXPECT_TRUE(authorize(*connector).error);
    EXPECT_EQ(connector->authConnection(), held);
}

TEST_F(MVConnectorTest, WithoutAnAuthorizationItRepliesWithoutAnErrorAndBuildsNothing) {
    services->createStatus = errAuthorizationInternal;
    const auto connector = MVConnector::init<Connector>();
    EXPECT_FALSE(authorize(*connector).error);
    EXPECT_FALSE(connector->authConnection());
}

TEST_F(MVConnectorTest, AQueuedBuildKeepsItsConnectorUntilItHasRun) {
    auto connector = MVConnector::init<Connector>();
    const std::weak_ptr<MVConnector> weak = connector;
    const auto queue = connector->queue();
    std::promise<void> open;
    queue->async([gate = open.get_future().share()] { gate.wait(); });
    bool alive = false;
    connector->getAuthConnectionForRight(MVRightGetFileAcl,
                                         [&](NSErrorRef) { alive = !weak.expired(); });
    connector.reset();
    open.set_value();
    drain(*queue);
    EXPECT_TRUE(alive);
    EXPECT_TRUE(weak.expired());
}

TEST_F(MVConnectorTest, TheResponderForwardsOnTheThreadThatItIsCalledOn) {
    const auto connector = MVConnector::init<Connector>();
    bool goOn = false;
    connector->responder()->progressWithReply([&](bool yes) { goOn = yes; });
    EXPECT_TRUE(goOn);
    EXPECT_EQ(connector->thread, std::this_thread::get_id());
    const auto item = MVFileSizeItem::initWithSize(7);
    connector->responder()->updateFileSizes({item}, [&](bool yes) { goOn = yes; });
    EXPECT_FALSE(goOn);
    ASSERT_EQ(connector->received.size(), 1u);
    EXPECT_EQ(connector->received[0], item);
}

/// Wants to know how many items were dealt with.
class CountingConnector final : public Connector, public MVItemProgress {
  public:
    using Connector::Connector;
    static const NSClass& classObject() {
        static const NSClass c{"CountingConnector", &Connector::classObject(), nullptr};
        return c;
    }
    const NSClass& objectClass() const override { return classObject(); }
    void updateItemCounts(MVItemCounts counts, NSXPCReply<bool> reply) override {
        told = counts;
        reply(false);
    }

    MVItemCounts told;
};

TEST_F(MVConnectorTest, CountsGoToAConnectorThatWantsThem) {
    const auto connector = MVConnector::init<CountingConnector>();
    const auto connection = connector->connection();
    EXPECT_EQ(connection->exportedInterface()->protocol().name, "MVCountedResponse");
    EXPECT_EQ(
        connection->exportedInterface()->classesForSelector("updateFileSizes:reply:", 0, false),
        NSClassSet{&NSArrayClass});
    EXPECT_EQ(connection->exportedObject().get(),
              static_cast<MVCountedResponse*>(connector->responder().get()));
    bool goesOn = true;
    connector->responder()->updateItemCounts(7, 3, [&](bool yes) { goesOn = yes; });
    EXPECT_FALSE(goesOn);
    EXPECT_EQ(connector->told, (MVItemCounts{7, 3}));
    connector->responder()->updateItemCounts(-1, -1, [](bool) {});
    EXPECT_EQ(connector->told, MVItemCounts());
}

TEST_F(MVConnectorTest, AConnectorThatDoesNotWantCountsExportsTheTwoCallbacksAlone) {
    const auto connector = MVConnector::init<Connector>();
    EXPECT_EQ(connector->connection()->exportedInterface()->protocol().name, "MVFileResponse");
    bool goesOn = false;
    connector->responder()->updateItemCounts(7, 3, [&](bool yes) { goesOn = yes; });
    EXPECT_TRUE(goesOn);
}

TEST_F(MVConnectorTest, ACallbackAfterTheConnectorsEndIsDropped) {
    auto connector = MVConnector::init<Connector>();
    const auto responder = connector->responder();
    connector.reset();
    bool replied = false;
    responder->progressWithReply([&](bool) { replied = true; });
    responder->updateFileSizes({}, [&](bool) { replied = true; });
    EXPECT_FALSE(replied);
    EXPECT_FALSE(responder->connector());
}

}  // namespace
}  // namespace morvane
