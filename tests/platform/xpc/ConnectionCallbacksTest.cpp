// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/dispatch/DispatchQueue.h>
#include <MorvaneOperation/platform/foundation/NSException.h>

#include <atomic>
#include <mutex>
#include <new>
#include <thread>

#include "ThreadShortage.h"
#include "XpcTestSupport.h"

/// Where and how a connection calls its host.
namespace morvane {
namespace {

TEST(NSXPCConnection, AnErrorHandlerMaySendAgainAtOnceHoweverOften) {
    EchoPair pair;
    pair.client->invalidate();
    constexpr int most = 100000;
    int ended = 0;
    std::promise<void> all;
    std::function<void()> send = [&] {
        pair.client
            ->remoteObjectProxyWithErrorHandler<Echo>([&](NSErrorRef error) {
                EXPECT_EQ(error->code(), NSXPCConnectionInvalid);
                if (++ended == most)
                    all.set_value();
                else
                    send();
            })
            ->echo("x", [](auto, auto) {});
    };
    send();
    await(all.get_future());
    EXPECT_EQ(ended, most);
}

TEST(NSXPCConnection, AnErrorHandlerNeverRunsOnTheCallersThread) {
    EchoPair pair;
    const auto caller = std::this_thread::get_id();
    const auto fails = [&] {
        std::promise<std::thread::id> thread;
        pair.client
            ->remoteObjectProxyWithErrorHandler<Echo>(
                [&](NSErrorRef) { thread.set_value(std::this_thread::get_id()); })
            ->echo("x", [](auto, auto) {});
        return await(thread.get_future());
    };
    pair.refuse = true;
    pair.client->resume();
    EXPECT_NE(fails(), caller);  // the service cannot be had
    EXPECT_EQ(pair.invalidatedFuture.wait_for(watchdog), std::future_status::ready);
    EXPECT_NE(fails(), caller);  // the connection is invalid
}

TEST(NSXPCConnection, WhereNoThreadCanBeHadARequestEndsOnTheReserve) {
    EchoPair pair;
    pair.onStream = [](FakeStreamSocket&) { noThreads = true; };
    pair.client->resume();
    pair.service->onEcho = [](auto, auto) {};
    const auto outcome = await(pair.echo("x"));
    EXPECT_NE(outcome.code, 0);
    noThreads = false;
    pair.onStream = nullptr;
    pair.service->onEcho = nullptr;
    EXPECT_EQ(await(pair.echo("next")).text, "next");
}

TEST(NSXPCConnection, CallsItsHostOnceAtATime) {
    EchoPair pair;
    std::atomic<int> inside = 0;
    std::atomic<int> together = 0;
    std::atomic<int> left = 0;
    std::promise<void> all;
    const auto called = [&] {
        together += ++inside > 1;
        std::this_thread::yield();
        --inside;
        if (--left == 0)
            all.set_value();
    };
    pair.client->resume();
    constexpr int requests = 2000;
    left = requests;
    const auto proxy =
        pair.client->remoteObjectProxyWithErrorHandler<Echo>([&](NSErrorRef) { called(); });
    std::thread ender;
    for (int i = 0; i < requests; ++i) {
        if (i == requests / 2)
            ender = std::thread([&] { pair.client->invalidate(); });
        proxy->echo("x", [&](auto, auto) { called(); });
    }
    ender.join();
    await(all.get_future());
    EXPECT_EQ(together, 0);
}

/// What the host's handler of uncaught exceptions is told.
class UncaughtExceptions {
  public:
    UncaughtExceptions() {
        NSSetUncaughtExceptionHandler([this](const NSUncaughtException& uncaught) {
            std::string what;
            try {
                std::rethrow_exception(uncaught.exception);
            } catch (const std::exception& exception) {
                what = exception.what();
            }
            uncaught_.set_value(std::string(uncaught.callback) + " of " + std::string(uncaught.of) +
                                ": " + what);
        });
    }
    ~UncaughtExceptions() { NSSetUncaughtExceptionHandler({}); }

    std::string next() {
        auto text = await(uncaught_.get_future());
        uncaught_ = {};
        return text;
    }

  private:
    std::promise<std::string> uncaught_;
};

TEST(NSXPCConnection, WhatACallbackThrowsGoesToTheHostsHandlerAndTheConnectionStands) {
    UncaughtExceptions uncaught;
    EchoPair pair;
    const auto throwsAnException = [] { throw NSException("Name", "reason"); };
    pair.client->setInterruptionHandler(throwsAnException);
    pair.client->resume();
    const auto proxy = pair.client->remoteObjectProxyWithErrorHandler<Echo>(
        [&](NSErrorRef) { throwsAnException(); });

    proxy->echo("x", [](auto, auto) { throw std::bad_alloc(); });
    EXPECT_EQ(uncaught.next(), std::string("reply of echo:reply:: ") + std::bad_alloc().what());

    pair.service->onEcho = [](auto, auto) {};
    proxy->echo("x", [](auto, auto) {});
    EXPECT_EQ(uncaught.next(), "error handler of echo:reply:: Name: reason");

    EXPECT_EQ(pair.streams, 1);
    pair.servers.front()->invalidate();
    EXPECT_EQ(uncaught.next(), "interruption handler of echo: Name: reason");

    pair.service->onEcho = nullptr;
    EXPECT_EQ(await(pair.echo("still")).text, "still");

    pair.client->setInvalidationHandler([&] {
        pair.invalidated.set_value();
        throwsAnException();
    });
    pair.client->invalidate();
    EXPECT_EQ(uncaught.next(), "invalidation handler of echo: Name: reason");
}

TEST(NSXPCConnection, WhatALaterTaskOfAServiceThrowsEndsItsRequestAndTheConnectionStands) {
    UncaughtExceptions uncaught;
    EchoPair pair;
    const auto queue = DispatchQueue::serialQueue("long work");
    pair.service->onEcho = [&](auto, auto reply) {
        queue->async([reply] { throw NSException("Name", "reason"); });
    };
    pair.client->resume();
    EXPECT_EQ(await(pair.echo("x")).code, NSXPCConnectionReplyInvalid);
    EXPECT_EQ(uncaught.next(), "task of long work: Name: reason");
    pair.service->onEcho = nullptr;
    EXPECT_EQ(await(pair.echo("still")).text, "still");
}

TEST(NSXPCConnection, WithoutAHandlerOfTheHostsWhatACallbackThrowsIsNamedAndEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto throwInAReply = [] {
        EchoPair pair;
        pair.client->resume();
        pair.client->remoteObjectProxy<Echo>()->echo(
            "x", [](auto, auto) { throw NSException("Name", "reason"); });
        std::this_thread::sleep_for(watchdog);
    };
    EXPECT_DEATH(throwInAReply(),
                 "MorvaneOperation: the reply of \"echo:reply:\" has thrown an exception: "
                 "Name: reason");
}

}  // namespace
}  // namespace morvane
