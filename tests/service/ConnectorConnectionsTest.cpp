// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVServiceNames.h>
#include <MorvaneOperation/platform/linux/FileDescriptor.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <variant>

#include "ConnectorTestSupport.h"
#include "TemporaryFolder.h"

/// What becomes of a connector's two connections.
namespace morvane {
namespace {

TEST_F(MVConnectorTest, AnInvalidatedConnectionIsForgottenAndLogged) {
    const auto connector = MVConnector::init<Connector>();
    const auto first = connector->connection();
    invalidateAndWait(*first);
    EXPECT_NE(connector->connection(), first);
    EXPECT_EQ(log, std::vector<std::string>{"Permissions connection invalidated!"});
}

TEST_F(MVConnectorTest, TwoBuildsCloseTogetherLeaveTheLater) {
    auto connector = MVConnector::init<Connector>();
    std::promise<void> open;
    connector->queue()->async([gate = open.get_future().share()] { gate.wait(); });
    std::vector<std::shared_ptr<NSXPCConnection>> seen;
    for (int i = 0; i < 2; ++i) {
        connector->getAuthConnectionForRight(
            MVRightGetFileAcl, [&](NSErrorRef) { seen.push_back(connector->authConnection()); });
    }
    open.set_value();
    drain(*connector->queue());
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_NE(seen[0], seen[1]);
    EXPECT_EQ(connector->authConnection(), seen[1]);
    connector.reset();  // before the former connection, whose end it would log
}

TEST_F(MVConnectorTest, AFileServiceConnectionThatEndsUnheldBuildsAnotherThatIsDroppedToo) {
    const auto connector = MVConnector::init<Connector>();
    const auto unheld = connector->connection();
    connector->setConnection(nullptr);
    invalidateAndWait(*unheld);
    EXPECT_EQ(connector->calls.size(), 10u);  // built once more
    connector->connection();
    EXPECT_EQ(connector->calls.size(), 15u);  // and again, as that one was dropped
    EXPECT_EQ(log, std::vector<std::string>{"Permissions connection invalidated!"});
}

TEST_F(MVConnectorTest, AReplacedPrivilegedConnectionThatEndsTakesTheCurrentOneWithIt) {
    const auto connector = MVConnector::init<Connector>();
    authorize(*connector);
    const auto replaced = connector->authConnection();
    connector->setAuthConnection(nullptr);
    authorize(*connector);
    const auto current = connector->authConnection();
    invalidateAndWait(*replaced);
    EXPECT_FALSE(current->hasInvalidationHandler());
    EXPECT_FALSE(connector->authConnection());
    EXPECT_EQ(log, std::vector<std::string>{"Permissions privileged connection invalidated!"});
}

TEST_F(MVConnectorTest, AConnectionThatAnotherReplacesIsReleasedAndNothingIsLoggedOrDropped) {
    const auto connector = MVConnector::init<Connector>();
    std::promise<void> open;
    connector->queue()->async([gate = open.get_future().share()] { gate.wait(); });
    std::vector<std::weak_ptr<NSXPCConnection>> seen;
    for (int i = 0; i < 2; ++i) {
        connector->getAuthConnectionForRight(
            MVRightGetFileAcl, [&](NSErrorRef) { seen.push_back(connector->authConnection()); });
    }
    open.set_value();
    drain(*connector->queue());
    drain(*connector->queue());  // and what a handler would have submitted meanwhile
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_TRUE(seen[0].expired());
    EXPECT_EQ(connector->authConnection(), seen[1].lock());
    EXPECT_TRUE(log.empty());
}

TEST_F(MVConnectorTest, AConnectionThatItsHostTakesAwayIsReleasedWithoutALine) {
    const auto connector = MVConnector::init<Connector>();
    const std::weak_ptr<NSXPCConnection> first = connector->connection();
    connector->setConnection(nullptr);
    EXPECT_TRUE(first.expired());
    const auto second = connector->connection();
    drain(*connector->queue());
    EXPECT_EQ(connector->connection(), second);
    EXPECT_TRUE(log.empty());
}

TEST_F(MVConnectorTest, AnInvalidatedConnectionIsHeldUntilTheResetOnTheQueue) {
    const auto connector = MVConnector::init<Connector>();
    const auto file = connector->connection();
    ASSERT_FALSE(authorize(*connector).error);
    const auto auth = connector->authConnection();
    std::promise<void> open;
    connector->queue()->async([gate = open.get_future().share()] { gate.wait(); });
    invalidateAndWaitForHandler(*file);
    invalidateAndWaitForHandler(*auth);
    EXPECT_EQ(connector->connection(), file);
    EXPECT_EQ(connector->authConnection(), auth);
    {
        const std::lock_guard lock(mutex);
        EXPECT_TRUE(log.empty());
    }
    open.set_value();
    std::unique_lock lock(mutex);
    ASSERT_TRUE(logged.wait_for(lock, watchdog, [this] { return log.size() == 2; }));
    EXPECT_NE(connector->connection(), file);
    EXPECT_FALSE(connector->authConnection());
}

TEST_F(MVConnectorTest, AResetThatIsQueuedKeepsItsConnectorUntilItHasRun) {
    auto connector = MVConnector::init<Connector>();
    const std::weak_ptr<MVConnector> weak = connector;
    const auto file = connector->connection();
    ASSERT_FALSE(authorize(*connector).error);
    const auto auth = connector->authConnection();
    const auto queue = connector->queue();
    drain(*queue);
    std::promise<void> open;
    queue->async([gate = open.get_future().share()] { gate.wait(); });
    invalidateAndWaitForHandler(*file);
    invalidateAndWaitForHandler(*auth);
    connector.reset();
    EXPECT_FALSE(weak.expired());
    open.set_value();
    std::unique_lock lock(mutex);
    EXPECT_TRUE(logged.wait_for(lock, watchdog, [this] { return log.size() == 2; }));
}

TEST_F(MVConnectorTest, TheLineIsWrittenAfterTheConnectionIsForgotten) {
    const auto connector = MVConnector::init<Connector>();
    const auto file = connector->connection();
    ASSERT_FALSE(authorize(*connector).error);
    const auto auth = connector->authConnection();
    std::vector<bool> forgotten;
    whenLogged = [&] { forgotten.push_back(connector->connection() != file); };
    invalidateAndWait(*file);
    whenLogged = [&] { forgotten.push_back(connector->authConnection() == nullptr); };
    auth->invalidate();
    std::unique_lock lock(mutex);
    ASSERT_TRUE(logged.wait_for(lock, watchdog, [this] { return log.size() == 2; }));
    EXPECT_EQ(forgotten, (std::vector<bool>{true, true}));
}

TEST_F(MVConnectorTest, TheRemoteInterfaceIsSetBeforeTheExportedOneIsBuilt) {
    const auto connector = MVConnector::init<Connector>();
    std::vector<bool> set;
    connector->whenExported = [&] {
        set.push_back(connector->connection()->remoteObjectInterface() != nullptr);
    };
    connector->connection();
    connector->whenExported = [&] {
        set.push_back(connector->authConnection()->remoteObjectInterface() != nullptr);
    };
    ASSERT_FALSE(authorize(*connector).error);
    EXPECT_EQ(set, (std::vector<bool>{true, true, true, true}));
}

/// Programs and sockets in place of the services.
class MVConnectorWithServices : public MVConnectorTest {
  protected:
    MVConnectorWithServices() {
        setenv("MORVANE_LIBEXEC_DIR", folder.c_str(), 1);
        setenv("MORVANE_RUNTIME_DIR", folder.c_str(), 1);
    }
    ~MVConnectorWithServices() override {
        unsetenv("MORVANE_LIBEXEC_DIR");
        unsetenv("MORVANE_RUNTIME_DIR");
    }

    /// What a request on the connection ends with; null for a reply.
    static NSErrorRef failure(NSXPCConnection& connection) {
        std::promise<NSErrorRef> ended;
        auto future = ended.get_future();
        connection
            .remoteObjectProxyWithErrorHandler<MVFileRequest>(
                [&](NSErrorRef error) { ended.set_value(error); })
            ->getAclEntriesWithUrl(NSURL::fileURLWithPath("/"),
                                   [&](auto, auto) { ended.set_value(nullptr); });
        if (future.wait_for(watchdog) != std::future_status::ready) {
            ADD_FAILURE() << "the request has not ended";
            std::abort();
        }
        return future.get();
    }

    const TemporaryFolder temporary;
    const std::filesystem::path& folder = temporary.path();
};

TEST_F(MVConnectorWithServices, BothConnectionsAreResumed) {
    const auto connector = MVConnector::init<Connector>();
    ASSERT_FALSE(authorize(*connector).error);
    for (const auto& connection : {connector->connection(), connector->authConnection()}) {
        const auto error = failure(*connection);
        ASSERT_TRUE(error);
        EXPECT_EQ(error->code(), NSXPCConnectionInvalid);
    }
    std::unique_lock lock(mutex);
    ASSERT_TRUE(logged.wait_for(lock, watchdog, [this] { return log.size() == 2; }));
}

TEST_F(MVConnectorWithServices, AnInterruptedConnectionStaysHeld) {
    // Ends once a request has come, not before: a service that ends unasked is started again.
    const auto program = folder / MVFileServiceName;
    std::ofstream(program) << "#!/bin/sh\nexec head -c 1 <&3 >/dev/null\n";
    std::filesystem::permissions(program, std::filesystem::perms::owner_all);
    const auto connector = MVConnector::init<Connector>();
    const auto connection = connector->connection();
    EXPECT_EQ(failure(*connection)->code(), NSXPCConnectionInterrupted);
    // Ends after an interruption handler of the first one.
    EXPECT_EQ(failure(*connection)->code(), NSXPCConnectionInterrupted);
    drain(*connector->queue());
    EXPECT_EQ(connector->connection(), connection);
    EXPECT_EQ(connector->calls.size(), 5u);
}

/// Ends with 0 if the connector still holds its privileged connection after two interruptions.
/// In a process of its own, all of whose threads see an empty /run.
[[noreturn]] void interruptThePrivilegedConnection(Connector& connector, NSXPCConnection& auth,
                                                   NSErrorRef (*failure)(NSXPCConnection&)) {
    const auto fail = [](const char* what) {
        std::perror(what);
        std::_Exit(1);
    };
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "/run/%s.sock",
                  MVPrivilegedHelperName);
    const int listening = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (bind(listening, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(listening, 1) != 0) {
        fail(address.sun_path);
    }
    std::thread([listening] {
        for (;;) {
            // Ends once a request has come.
            const FileDescriptor client(accept(listening, nullptr, nullptr));
            char byte = 0;
            (void)!read(client.get(), &byte, 1);
        }
    }).detach();
    for (int i = 0; i != 2; ++i) {
        const auto error = failure(auth);
        if (!error || error->code() != NSXPCConnectionInterrupted)
            fail("the request was not interrupted");
    }
    // The second one ended after an interruption handler of the first, and the queue has run it.
    std::promise<void> ran;
    connector.queue()->async([&] { ran.set_value(); });
    ran.get_future().wait();
    std::_Exit(connector.authConnection().get() == &auth ? 0 : 1);
}

TEST_F(MVConnectorWithServices, AnInterruptedPrivilegedConnectionStaysHeldToo) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            if (unshare(CLONE_NEWNS) != 0 ||
                mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
                mount("tmpfs", "/run", "tmpfs", 0, nullptr) != 0) {
                std::perror("an empty /run");
                std::_Exit(1);
            }
            const auto connector = MVConnector::init<Connector>();
            EXPECT_FALSE(authorize(*connector).error);
            interruptThePrivilegedConnection(*connector, *connector->authConnection(), failure);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(MVConnectorWithServices, ThePrivilegedConnectionLooksForItsSocketWhereOnlyRootMayPutIt) {
    const auto connector = MVConnector::init<Connector>();
    ASSERT_FALSE(authorize(*connector).error);
    const auto error = failure(*connector->authConnection());
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), NSXPCConnectionInvalid);
    const auto& reason = std::get<NSErrorRef>(error->userInfo().at(NSUnderlyingErrorKey));
    EXPECT_EQ(reason->localizedDescription(),
              "The service's socket \"/run/" + std::string(MVPrivilegedHelperName) +
                  ".sock\" cannot be used: No such file or directory.");
    std::unique_lock lock(mutex);
    ASSERT_TRUE(logged.wait_for(lock, watchdog, [this] { return log.size() == 1; }));
}

}  // namespace
}  // namespace morvane
