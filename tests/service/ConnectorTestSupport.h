// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVConnector.h>
#include <MorvaneOperation/platform/host/Log.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "ServiceTestSupport.h"

namespace morvane {

constexpr std::chrono::seconds watchdog{30};

class Connector : public MVConnector {
  public:
    using MVConnector::MVConnector;
    static const NSClass& classObject() {
        static const NSClass c{"Connector", &MVConnector::classObject(), nullptr};
        return c;
    }
    const NSClass& objectClass() const override { return classObject(); }

    EncodableClasses remoteEncodableClasses() override {
        calls.push_back("remote");
        return remote;
    }
    EncodableClasses exportedEncodableClasses() override {
        calls.push_back("exported");
        if (whenExported)
            whenExported();
        return exported;
    }
    void progressWithReply(NSXPCReply<bool> reply) override {
        thread = std::this_thread::get_id();
        reply(true);
    }
    void updateFileSizes(std::vector<std::shared_ptr<MVFileSizeItem>> sizes,
                         NSXPCReply<bool> reply) override {
        received = sizes;
        reply(false);
    }

    EncodableClasses remote{{"getAclEntriesWithUrl:reply:", {&NSArrayClass, &NSURLClass}},
                            {"setAclEntries:url:reply:", {&NSStringClass}}};
    EncodableClasses exported{{"updateFileSizes:reply:", {&NSArrayClass}}};
    std::vector<std::string> calls;
    std::function<void()> whenExported;
    std::thread::id thread;
    std::vector<std::shared_ptr<MVFileSizeItem>> received;
};

class MVConnectorTest : public AuthorizationTest {
  protected:
    MVConnectorTest() {
        setLogSink([this](std::string_view line) {
            const std::lock_guard lock(mutex);
            log.emplace_back(line);
            if (whenLogged)
                whenLogged();
            logged.notify_all();
        });
    }
    ~MVConnectorTest() override { setLogSink({}); }

    /// Waits until the queue has run what was submitted so far.
    static void drain(DispatchQueue& queue) {
        auto ran = std::make_shared<std::promise<void>>();
        auto future = ran->get_future();
        queue.async([ran] { ran->set_value(); });
        ASSERT_EQ(future.wait_for(watchdog), std::future_status::ready);
    }

    /// Invalidates and waits until the connector has forgotten its connection and logged that.
    void invalidateAndWait(NSXPCConnection& connection) {
        connection.invalidate();
        std::unique_lock lock(mutex);
        ASSERT_TRUE(logged.wait_for(lock, watchdog, [this] { return !log.empty(); }));
    }

    /// Invalidates, and waits until the connection's handler has returned: only then does the
    /// connection let go of its other handler.
    static void invalidateAndWaitForHandler(NSXPCConnection& connection) {
        struct Held {
            std::promise<void> released;
            ~Held() { released.set_value(); }
        };
        auto held = std::make_shared<Held>();
        const auto released = held->released.get_future();
        connection.setInterruptionHandler([held = std::move(held)] {});
        connection.invalidate();
        ASSERT_EQ(released.wait_for(watchdog), std::future_status::ready);
    }

    /// The error that getAuthConnectionForRight() replies with, and where.
    struct Reply {
        NSErrorRef error;
        std::thread::id thread;
        bool onQueue = false;
    };
    Reply authorize(Connector& connector) {
        auto promise = std::make_shared<std::promise<Reply>>();
        auto future = promise->get_future();
        connector.getAuthConnectionForRight(MVRightGetFileAcl, [&, promise](NSErrorRef error) {
            promise->set_value({error, std::this_thread::get_id(), connector.queue()->isCurrent()});
        });
        repliedAtOnce = future.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
        EXPECT_EQ(future.wait_for(watchdog), std::future_status::ready);
        return future.get();
    }

    std::mutex mutex;
    std::condition_variable logged;
    std::vector<std::string> log;
    std::function<void()> whenLogged;
    bool repliedAtOnce = false;
};

}  // namespace morvane
