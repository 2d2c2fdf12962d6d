// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVItemFailures.h>

#include <atomic>
#include <map>

#include "ClientTestSupport.h"

/// How operations are cancelled, and that each has its own progress.
namespace morvane {
namespace {

class ClientCancel : public ClientTest {
  protected:
    ClientCancel() { serve(MORVANE_ASKING_SERVICE); }

    /// Adds up "/`bytes`", for ever.
    std::stop_source sum(std::int64_t bytes) {
        std::stop_source stop;
        client->sizes({NSURL::fileURLWithPath("/" + std::to_string(bytes))},
                      {.stop = stop.get_token(),
                       .progress =
                           [this, bytes](const auto& sizes) {
                               EXPECT_EQ(answers.count(bytes), 0u) << "after the completion";
                               ASSERT_EQ(sizes.size(), 1u);
                               EXPECT_EQ(sizes[0]->size(), bytes);
                               ++reports[bytes];
                           }},
                      [this, bytes](MVFileSizes sizes) {
                          EXPECT_TRUE(answers.emplace(bytes, std::move(sizes)).second);
                      });
        return stop;
    }
    bool runs(std::int64_t bytes) {
        const int now = reports[bytes];
        return loop.runUntil([&] { return reports[bytes] > now + 2; });
    }
    bool ends(std::int64_t bytes) {
        return loop.runUntil([&] { return answers.count(bytes) != 0; });
    }

    std::map<std::int64_t, int> reports;
    std::map<std::int64_t, MVFileSizes> answers;
};

TEST_F(ClientCancel, TwoSumsAtOnceHaveTheirOwnProgressAndTheirOwnEnd) {
    auto seven = sum(7);
    auto eight = sum(8);
    EXPECT_TRUE(runs(7));
    EXPECT_TRUE(runs(8));
    seven.request_stop();
    EXPECT_TRUE(ends(7));
    expectCancelled(answers[7].error);
    ASSERT_EQ(answers[7].items.size(), 1u);
    EXPECT_EQ(answers[7].items[0]->size(), 7);
    EXPECT_TRUE(runs(8));
    EXPECT_EQ(answers.count(8), 0u);
    eight.request_stop();
    EXPECT_TRUE(ends(8));
    expectCancelled(answers[8].error);
}

TEST_F(ClientCancel, WhatWasCancelledBeforeItBeganIsNotSent) {
    std::stop_source stop;
    stop.request_stop();
    const auto acl = read(folder, {.stop = stop.get_token()});
    ASSERT_FALSE(acl);
    expectCancelled(acl.error());
    EXPECT_EQ(connectors(), 0);
}

TEST_F(ClientCancel, APropagationThatWasRefusedForSomeIsNotGoneOnWith) {
    std::stop_source stop;
    std::optional<NSErrorRef> answer;
    client->propagateAcl(*read("/refused"),
                         {.privilege = MVPrivilege::whenRefused, .stop = stop.get_token()},
                         [&](NSErrorRef error) { answer = std::move(error); });
    EXPECT_TRUE(read(folder));  // The service has begun.
    stop.request_stop();
    ASSERT_TRUE(loop.runUntil([&] { return answer.has_value(); }));
    expectCancelled(*answer);
    EXPECT_FALSE((*answer)->userInfo().contains(NSUnderlyingErrorKey)) << "asked for again";
    EXPECT_EQ(failuresOfError(**answer).counts, (MVItemCounts{0, 1}));
    EXPECT_EQ(services->calls.size(), 0u);
}

TEST_F(ClientCancel, WhatIsCancelledAfterItsEndIsDone) {
    std::stop_source stop;
    EXPECT_TRUE(read(folder, {.stop = stop.get_token()}));
    stop.request_stop();
    EXPECT_TRUE(read(folder));
}

TEST_F(ClientCancel, ASumThatWaitsForAConnectionIsCancelledAtOnce) {
    std::vector<std::stop_source> running;
    for (std::int64_t i = 1; i != static_cast<std::int64_t>(MVFileClient::mostConnections); ++i) {
        running.push_back(sum(i));
        EXPECT_TRUE(runs(i));
    }
    auto waiting = sum(100);
    auto last = sum(200);
    waiting.request_stop();
    EXPECT_TRUE(ends(100));
    expectCancelled(answers[100].error);
    EXPECT_EQ(reports.count(100), 0u);
    EXPECT_TRUE(answers[100].items.empty());
    // The next one has its turn.
    running[0].request_stop();
    EXPECT_TRUE(runs(200));
    EXPECT_EQ(connectors(), static_cast<int>(MVFileClient::mostConnections) - 1);
}

TEST_F(ClientCancel, LongOperationsLeaveAConnectionToShortOnes) {
    for (std::int64_t i = 1; i != 10; ++i)
        sum(i);
    EXPECT_TRUE(runs(1));
    EXPECT_TRUE(read(folder));
    EXPECT_EQ(connectors(), static_cast<int>(MVFileClient::mostConnections));
}

TEST_F(ClientCancel, TheEndOfAClientCancelsItsOperationsWhichStillComplete) {
    for (std::int64_t i = 1; i != 10; ++i)
        sum(i);
    EXPECT_TRUE(runs(1));
    client.reset();
    for (std::int64_t i = 1; i != 10; ++i) {
        EXPECT_TRUE(ends(i));
        expectCancelled(answers[i].error);
    }
}

TEST_F(ClientCancel, AnyThreadCancels) {
    auto stop = sum(1);
    EXPECT_TRUE(runs(1));
    std::thread([&] { stop.request_stop(); }).join();
    EXPECT_TRUE(ends(1));
    expectCancelled(answers[1].error);
}

TEST_F(ClientCancel, ACompletionMayEndItsClientAndBeginOperationsOfAnother) {
    const auto second = MVFileClient::init(loop.executor());
    bool done = false;
    client->readAcl(NSURL::fileURLWithPath("/"), {}, [&](const Result<MVFileAcl>&) {
        client.reset();
        second->readAcl(NSURL::fileURLWithPath("/"), {}, [&](const Result<MVFileAcl>& acl) {
            EXPECT_TRUE(acl);
            done = true;
        });
    });
    EXPECT_TRUE(loop.runUntil([&] { return done; }));
}

}  // namespace
}  // namespace morvane
