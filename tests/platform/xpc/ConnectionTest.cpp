// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/foundation/NSException.h>
#include <MorvaneOperation/platform/xpc/Limits.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

#include "XpcTestSupport.h"

namespace morvane {
namespace {

TEST(NSXPCConnection, BringsTheReplyToItsRequest) {
    EchoPair pair;
    pair.client->resume();
    auto one = pair.echo("one");
    auto two = pair.echo("two");
    EXPECT_EQ(await(std::move(one)).text, "one");
    EXPECT_EQ(await(std::move(two)).text, "two");
}

TEST(NSXPCConnection, ConnectsOnlyWhenThereIsSomethingToSend) {
    EchoPair pair;
    pair.client->resume();
    EXPECT_EQ(pair.streams, 0);
    await(pair.echo("x"));
    await(pair.echo("y"));
    EXPECT_EQ(pair.streams, 1);
}

TEST(NSXPCConnection, RequestsBeforeResumeWaitForIt) {
    EchoPair pair;
    auto early = pair.echo("early");
    EXPECT_EQ(pair.streams, 0);
    pair.client->resume();
    EXPECT_EQ(await(std::move(early)).text, "early");
}

TEST(NSXPCConnection, AReplyThatIsDroppedEndsInTheErrorHandler) {
    EchoPair pair;
    pair.service->onEcho = [](auto, auto) {};
    pair.client->resume();
    EXPECT_EQ(await(pair.echo("x")).code, NSXPCConnectionReplyInvalid);
    pair.service->onEcho = nullptr;
    EXPECT_EQ(await(pair.echo("next")).text, "next");
}

TEST(NSXPCConnection, OnlyTheFirstReplyCounts) {
    EchoPair pair;
    pair.service->onEcho = [](auto, auto reply) {
        reply("first", nullptr);
        reply("second", nullptr);
    };
    pair.client->resume();
    EXPECT_EQ(await(pair.echo("x")).text, "first");
    EXPECT_EQ(await(pair.echo("x")).text, "first");
}

TEST(NSXPCConnection, AHandlerMayReplyLaterFromAnotherThread) {
    EchoPair pair;
    std::promise<NSXPCReply<std::string, NSErrorRef>> kept;
    pair.service->onEcho = [&](auto, auto reply) { kept.set_value(reply); };
    pair.client->resume();
    auto outcome = pair.echo("x");
    std::thread later([&] { await(kept.get_future())("late", nullptr); });
    EXPECT_EQ(await(std::move(outcome)).text, "late");
    later.join();
}

TEST(NSXPCConnection, AHandlerThatThrowsEndsTheRequestAndTheConnectionStands) {
    EchoPair pair;
    pair.service->onEcho = [](auto, auto) { throwRangeException(4, 3); };
    pair.client->resume();
    const auto outcome = await(pair.echo("x"));
    EXPECT_EQ(outcome.code, NSXPCConnectionReplyInvalid);
    EXPECT_NE(outcome.error->localizedDescription().find("NSRangeException"), std::string::npos);
    pair.service->onEcho = nullptr;
    EXPECT_EQ(await(pair.echo("next")).text, "next");
    EXPECT_EQ(pair.streams, 1);
}

TEST(NSXPCConnection, AnUndeclaredClassInAReplyIsRefusedWithTheKey) {
    EchoPair pair;
    pair.exported->setClasses({&NSArrayClass, &NSURLClass}, "echoUrls:reply:", 0, false);
    pair.client->resume();
    std::promise<NSErrorRef> refused;
    pair.client
        ->remoteObjectProxyWithErrorHandler<Echo>([&](NSErrorRef e) { refused.set_value(e); })
        ->echoUrls({NSURL::fileURLWithPath("/x")}, [&](auto, auto) { refused.set_value(nullptr); });
    const auto error = await(refused.get_future());
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), NSXPCConnectionReplyInvalid);
    EXPECT_TRUE(error->userInfo().contains(NSUnderlyingErrorKey));
    EXPECT_EQ(await(pair.echo("next")).text, "next");
}

TEST(NSXPCConnection, AnUndeclaredClassInARequestIsRefusedBeforeTheObjectIsTouched) {
    EchoPair pair;
    pair.remote->setClasses({&NSArrayClass, &NSURLClass}, "echoUrls:reply:", 0, true);
    pair.client->resume();
    std::promise<NSErrorRef> refused;
    pair.client
        ->remoteObjectProxyWithErrorHandler<Echo>([&](NSErrorRef e) { refused.set_value(e); })
        ->echoUrls({NSURL::fileURLWithPath("/x")}, [&](auto, auto) { refused.set_value(nullptr); });
    const auto error = await(refused.get_future());
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), NSXPCConnectionReplyInvalid);
    EXPECT_EQ(await(pair.echo("next")).text, "next");
}

TEST(NSXPCConnection, DeclaredClassesPassBothWays) {
    EchoPair pair;
    pair.exported->setClasses({&NSArrayClass, &NSURLClass}, "echoUrls:reply:", 0, false);
    pair.remote->setClasses({&NSArrayClass, &NSURLClass}, "echoUrls:reply:", 0, true);
    pair.client->resume();
    std::promise<std::vector<NSURL>> urls;
    pair.client->remoteObjectProxy<Echo>()->echoUrls(
        {NSURL::fileURLWithPath("/x")}, [&](auto reply, auto) { urls.set_value(reply); });
    EXPECT_EQ(await(urls.get_future()), std::vector{NSURL::fileURLWithPath("/x")});
}

TEST(NSXPCConnection, AMessageMaySpanFrames) {
    EchoPair pair;
    pair.client->resume();
    NSData large(3 * limits::frameSize + 17);
    for (std::size_t i = 0; i < large.size(); ++i)
        large[i] = static_cast<std::uint8_t>(i * 31);
    std::promise<NSData> back;
    pair.client->remoteObjectProxy<Echo>()->echoData(
        large, [&](NSData data) { back.set_value(std::move(data)); });
    EXPECT_EQ(await(back.get_future()), large);
}

TEST(NSXPCConnection, BytesMayComeAndGoOneByOne) {
    EchoPair pair;
    pair.onStream = [](FakeStreamSocket& far) {
        far.receiveAtMost = 1;
        far.sendAtMost = 1;
    };
    pair.client->resume();
    EXPECT_EQ(await(pair.echo("slowly")).text, "slowly");
}

TEST(NSXPCConnection, AServiceThatDiesAtAnyByteOfItsReplyEndsTheRequestOnceAndTheNextWorks) {
    std::size_t replySize = 0;
    for (std::size_t bytes = 1;; ++bytes) {
        EchoPair pair;
        pair.onStream = [&](FakeStreamSocket& far) {
            if (pair.streams == 1)
                far.endAfterSending(bytes);
        };
        pair.client->resume();
        const auto first = await(pair.echo("x"));
        if (first.code == 0) {
            replySize = bytes;
            break;
        }
        EXPECT_EQ(first.code, NSXPCConnectionInterrupted) << bytes;
        EXPECT_EQ(await(pair.echo("next")).text, "next") << bytes;
        EXPECT_EQ(pair.interruptions, 1) << bytes;
        EXPECT_EQ(pair.streams, 2) << bytes;
    }
    EXPECT_GT(replySize, FrameHeader::size);
}

TEST(NSXPCConnection, AServiceThatCannotBeHadInvalidatesTheConnectionForGood) {
    EchoPair pair;
    pair.refuse = true;
    pair.client->resume();
    const auto outcome = await(pair.echo("x"));
    EXPECT_EQ(outcome.code, NSXPCConnectionInvalid);
    EXPECT_TRUE(outcome.error->userInfo().contains(NSUnderlyingErrorKey));
    EXPECT_EQ(pair.invalidatedFuture.wait_for(watchdog), std::future_status::ready);
    pair.refuse = false;
    EXPECT_EQ(await(pair.echo("y")).code, NSXPCConnectionInvalid);
    EXPECT_EQ(pair.streams, 0);
}

TEST(NSXPCConnection, AServiceThatKeepsCrashingInvalidatesTheConnection) {
    EchoPair pair;
    pair.onStream = [](FakeStreamSocket& far) { far.endAfterSending(1); };
    pair.client->resume();
    for (unsigned i = 0; i < limits::crashesWithoutAnswer; ++i)
        EXPECT_EQ(await(pair.echo("x")).code, NSXPCConnectionInterrupted);
    EXPECT_EQ(pair.invalidatedFuture.wait_for(watchdog), std::future_status::ready);
    EXPECT_EQ(await(pair.echo("x")).code, NSXPCConnectionInvalid);
    EXPECT_EQ(pair.streams, static_cast<int>(limits::crashesWithoutAnswer));
}

TEST(NSXPCConnection, InvalidateEndsWhatIsInFlightAndThenTellsTheHandler) {
    EchoPair pair;
    std::promise<void> arrived;
    NSXPCReply<std::string, NSErrorRef> kept;
    pair.service->onEcho = [&](auto, auto reply) {
        kept = reply;
        arrived.set_value();
    };
    pair.client->resume();
    auto inFlight = pair.echo("x");
    await(arrived.get_future());
    pair.client->invalidate();
    EXPECT_EQ(await(std::move(inFlight)).code, NSXPCConnectionInterrupted);
    EXPECT_EQ(pair.invalidatedFuture.wait_for(watchdog), std::future_status::ready);
    EXPECT_EQ(await(pair.echo("x")).code, NSXPCConnectionInvalid);
    EXPECT_EQ(pair.interruptions, 0);
    kept("too late", nullptr);
}

TEST(NSXPCConnection, InvalidateBeforeResumeFailsWhatWaits) {
    EchoPair pair;
    auto waiting = pair.echo("x");
    pair.client->invalidate();
    EXPECT_EQ(await(std::move(waiting)).code, NSXPCConnectionInvalid);
    EXPECT_EQ(pair.invalidatedFuture.wait_for(watchdog), std::future_status::ready);
}

TEST(NSXPCConnection, MayBeInvalidatedInsideAReply) {
    EchoPair pair;
    pair.client->resume();
    std::promise<void> replied;
    pair.client->remoteObjectProxy<Echo>()->echo("x", [&](auto, auto) {
        pair.client->invalidate();
        replied.set_value();
    });
    await(replied.get_future());
    EXPECT_EQ(pair.invalidatedFuture.wait_for(watchdog), std::future_status::ready);
}

TEST(NSXPCConnection, ManyThreadsGetEachTheirOwnReplies) {
    EchoPair pair;
    pair.client->resume();
    std::vector<std::thread> threads;
    std::atomic<int> right = 0;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 200; ++i) {
                const auto text = std::to_string(t) + "/" + std::to_string(i);
                right += await(pair.echo(text)).text == text;
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(right, 800);
}

TEST(NSXPCConnection, EveryRequestEndsOnceHoweverTheConnectionEnds) {
    for (int round = 0; round < 50; ++round) {
        EchoPair pair;
        pair.client->resume();
        std::atomic<int> ended = 0;
        std::promise<void> all;
        constexpr int requests = 40;
        const auto end = [&] {
            if (++ended == requests)
                all.set_value();
        };
        const auto request = [&] {
            pair.client->remoteObjectProxyWithErrorHandler<Echo>([&](NSErrorRef) { end(); })
                ->echo("x", [&](auto, auto) { end(); });
        };
        request();  // makes the stream
        std::thread ender([connection = round % 2 ? pair.client : pair.servers.front()] {
            connection->invalidate();
        });
        for (int i = 1; i < requests; ++i)
            request();
        ender.join();
        await(all.get_future());
        EXPECT_EQ(ended, requests);
    }
}

TEST(NSXPCConnection, AChildAfterForkGetsAnErrorAndTheParentGoesOn) {
    EchoPair pair;
    pair.client->resume();
    await(pair.echo("x"));
    const pid_t child = fork();
    if (child == 0) {
        bool refused = false;
        pair.client
            ->remoteObjectProxyWithErrorHandler<Echo>(
                [&](NSErrorRef error) { refused = error->code() == NSXPCConnectionInvalid; })
            ->echo("x", [](auto, auto) {});
        pair.client->invalidate();
        _exit(refused ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(await(pair.echo("still")).text, "still");
}

TEST(NSXPCConnection, ANewOneInAChildAfterForkGetsAnErrorToo) {
    EchoPair pair;
    pair.client->resume();
    await(pair.echo("x"));
    const pid_t child = fork();
    if (child == 0) {
        auto* const own = new EchoPair;  // without its end
        own->client->resume();
        auto outcome = own->echo("x");
        const bool ended = outcome.wait_for(watchdog) == std::future_status::ready;
        _exit(ended && outcome.get().code == NSXPCConnectionInvalid ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST(NSXPCConnection, AProxyOfAnotherProtocolIsRefused) {
    auto connection = NSXPCConnection::initWithServiceName("unused");
    EXPECT_THROW(connection->remoteObjectProxy<Echo>(), NSException);
}

TEST(NSXPCInterface, APositionThatWasNeverSetTakesPropertyListsAndItsOwnType) {
    const auto interface = NSXPCInterface::interfaceWithProtocol<Echo>();
    EXPECT_EQ(interface->classesForSelector("echoUrls:reply:", 0, false), propertyListClasses());
    auto withError = propertyListClasses();
    withError.push_back(&NSError::classObject());
    EXPECT_EQ(interface->classesForSelector("echoUrls:reply:", 1, true), withError);
}

TEST(NSXPCInterface, RefusesASelectorAndAPositionThatAreNotThere) {
    const auto interface = NSXPCInterface::interfaceWithProtocol<Echo>();
    EXPECT_THROW(interface->setClasses({}, "missing:", 0, false), NSException);
    EXPECT_THROW(interface->setClasses({}, "echo:reply:", 1, false), NSException);
    EXPECT_THROW(interface->setClasses({}, "echo:reply:", 2, true), NSException);
}

}  // namespace
}  // namespace morvane
