// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/archive/NSKeyedUnarchiver.h>
#include <MorvaneOperation/platform/xpc/ConnectionCore.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "EveryMessage.h"
#include "GuardedRequests.h"
#include "platform/fake/FakeStreamSocket.h"
#include "platform/xpc/RawRequests.h"

namespace morvane {
namespace {

/// Counts what reaches it, and answers with `error`.
class Reached final : public MVFileRequest {
  public:
#define MVCount(NAME, SELECTOR, PARAMETERS, ARGUMENTS, RIGHT) \
    void NAME PARAMETERS override {                           \
        ++times[SELECTOR];                                    \
        answer ARGUMENTS;                                     \
    }
    MVFileRequestMessages(MVCount)
#undef MVCount

    std::map<std::string_view, int> times;
    NSErrorRef error;

  private:
    template <class... T>
    void answer(T&&... arguments) {
        auto& reply = std::get<sizeof...(T) - 1>(std::tie(arguments...));
        end(reply);
    }
    template <class... T>
    void end(const NSXPCReply<T...>& reply) {
        std::tuple<T...> results;
        std::get<NSErrorRef>(results) = error;
        std::apply(reply, std::move(results));
    }
};

const NSURL item = NSURL::fileURLWithPath("/some/where");

std::string_view rightOf(std::string_view selector) {
    for (const auto& message : MVFileRequestRights) {
        if (message.selector == selector)
            return message.right;
    }
    return {};
}

constexpr std::chrono::seconds watchdog{30};

/// A client's connection to the guarded requests; ended before anything else of it goes.
struct Guard {
    explicit Guard(RightState state) {
        auto [near, far] = FakeStreamSocket::pair();
        server = std::make_shared<NSXPCConnection>(
            std::make_shared<NSXPCConnection::Core>("client", far));
        const auto interface = NSXPCInterface::interfaceWithProtocol<MVFileRequest>();
        interface->setClasses({&NSArrayClass, &NSURLClass}, "renameUrls:names:reply:", 0, false);
        interface->setClasses({&NSArrayClass, &NSURLClass}, "getSizesWithUrls:reply:", 0, false);
        server->setExportedInterface(interface);
        server->setAdmission(admissionByRight(
            [this, state](const char* right) {
                asked.emplace_back(right);
                return state;
            },
            journal, who));
        server->setExportedObject<MVFileRequest>(loggedRequests(reached, journal, who));
        server->setInvalidationHandler([this] { ended.set_value(); });
        server->resume();
        stream = near;
        client = std::make_shared<NSXPCConnection>(
            std::make_shared<NSXPCConnection::Core>("helper", near));
        client->setRemoteObjectInterface(NSXPCInterface::interfaceWithProtocol<MVFileRequest>());
    }
    ~Guard() {
        client->invalidate();
        EXPECT_EQ(ended.get_future().wait_for(watchdog), std::future_status::ready);
    }

    /// Sends the message, and returns the error that it was answered with.
    NSErrorRef answerTo(
        const std::function<void(MVFileRequest&, const SampleArguments&)>& send) const {
        client->resume();
        auto answer = std::make_shared<std::promise<NSErrorRef>>();
        auto answered = answer->get_future();
        const auto keep = [answer](const NSErrorRef& error) { answer->set_value(error); };
        send(*client->remoteObjectProxyWithErrorHandler<MVFileRequest>(keep), {item, keep});
        if (answered.wait_for(watchdog) != std::future_status::ready) {
            ADD_FAILURE() << "no answer";
            std::abort();
        }
        return answered.get();
    }

    std::shared_ptr<Reached> reached = std::make_shared<Reached>();
    std::vector<std::string> asked;
    std::vector<std::string> log;
    const std::shared_ptr<RequestJournal> journal =
        std::make_shared<RequestJournal>([this](const std::string& line) { log.push_back(line); });
    const RequestClient who{.user = 1000, .process = 4711};
    std::promise<void> ended;
    std::shared_ptr<NSXPCConnection> server;
    std::shared_ptr<NSXPCConnection> client;
    /// The client's end, for who does not use `client`.
    std::shared_ptr<FakeStreamSocket> stream;
};

TEST(GuardedRequests, EveryMessageOfTheProtocolIsTried) {
    EXPECT_EQ(everyMessage().size(), MVFileRequestRights.size());
    for (const auto& message : everyMessage())
        EXPECT_NE(rightOf(message.selector), "") << message.selector;
}

TEST(GuardedRequests, NoMessageReachesItsHandlerWithoutItsOwnRight) {
    for (const auto& message : everyMessage()) {
        Guard guard(RightState::notHeld);
        const auto error = guard.answerTo(message.send);
        EXPECT_TRUE(guard.reached->times.empty()) << message.selector;
        EXPECT_EQ(guard.asked, std::vector<std::string>{std::string(rightOf(message.selector))});
        ASSERT_TRUE(error) << message.selector;
        EXPECT_EQ(error->domain(), NSPOSIXErrorDomain);
        EXPECT_EQ(error->code(), EACCES);
        EXPECT_EQ(error->localizedDescription(),
                  "The right " + std::string(rightOf(message.selector)) + " is not held.");
        EXPECT_EQ(error->localizedRecoverySuggestion(),
                  "Ask for the right again; it holds for 45 seconds, and for the process that has "
                  "asked.");
    }
}

TEST(GuardedRequests, AMessageWhoseRightIsHeldReachesItsHandlerAfterOneCheck) {
    for (const auto& message : everyMessage()) {
        Guard guard(RightState::held);
        const auto error = guard.answerTo(message.send);
        EXPECT_EQ(guard.reached->times, (std::map<std::string_view, int>{{message.selector, 1}}));
        EXPECT_EQ(guard.asked.size(), 1U);
        EXPECT_FALSE(error);
    }
}

TEST(GuardedRequests, AnExpiredRightOpensNothing) {
    for (const auto& message : everyMessage()) {
        Guard guard(RightState::expired);
        const auto error = guard.answerTo(message.send);
        EXPECT_TRUE(guard.reached->times.empty()) << message.selector;
        ASSERT_TRUE(error) << message.selector;
        EXPECT_EQ(error->domain(), NSPOSIXErrorDomain);
        EXPECT_EQ(error->code(), EACCES);
        EXPECT_EQ(error->localizedDescription(),
                  "The right " + std::string(rightOf(message.selector)) + " has expired.");
    }
}

TEST(GuardedRequests, ListingAFolderNeedsTheRightToItsSizes) {
    EXPECT_EQ(rightOf("getContentsOfDirectory:indexPath:reply:"),
              MVApplicationIdentifierPrefix ".GetFileSize");
}

TEST(GuardedRequests, TheArgumentsOfARequestWithoutItsRightAreNotLookedAt) {
    Guard guard(RightState::notHeld);
    // What no decoder takes: had it been looked at, a refusal would say so.
    const auto request = requestFrame("setAclEntries:url:reply:", NSData(1000, 0xff));
    const StreamSocket::Bytes bytes(request);
    guard.stream->send({&bytes, 1});
    FrameReader reader(*guard.stream);
    const auto answer = reader.next();
    ASSERT_TRUE(answer);
    ASSERT_EQ(answer->kind, FrameKind::reply);
    NSKeyedUnarchiver coder(answer->body);
    EXPECT_EQ(coder.decodeError("0")->localizedDescription(),
              "The right io.github.morvaneoperation.SetFileAcl is not held.");
}

TEST(GuardedRequests, WhereThePolicyServiceCannotBeReachedThatIsSaidAndHowToLookAtIt) {
    Guard guard(RightState::unknown);
    const auto error = guard.answerTo(everyMessage().front().send);
    EXPECT_TRUE(guard.reached->times.empty());
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), EACCES);
    EXPECT_EQ(error->localizedDescription(), "The system's policy service cannot be reached.");
    EXPECT_EQ(error->localizedRecoverySuggestion(),
              "Check that polkit runs ('systemctl status polkit'), and try again.");
}

TEST(GuardedRequests, TheLogTellsThatWorkBeginsAndHowItEnded) {
    Guard holding(RightState::held);
    Guard refusing(RightState::notHeld);
    for (auto* guard : {&holding, &refusing})
        guard->answerTo([](auto& requests, auto& sample) {
            requests.setAclEntries({}, NSURL::fileURLWithPath("/a\nb"), sample.ended);
        });
    EXPECT_EQ(holding.log, (std::vector<std::string>{
                               R"(begun: uid 1000 pid 4711: setAclEntries:url:reply: "/a\x0ab")",
                               R"(done: uid 1000 pid 4711: setAclEntries:url:reply: "/a\x0ab")"}));
    EXPECT_EQ(refusing.log, std::vector<std::string>{
                                "refused: uid 1000 pid 4711: setAclEntries:url:reply: the right "
                                "io.github.morvaneoperation.SetFileAcl is not held"});
}

TEST(GuardedRequests, TheLogTellsWhyARequestHasFailedBeforeItNamesTheItem) {
    Guard guard(RightState::held);
    guard.reached->error = NSError::errorWithDomain(
        NSPOSIXErrorDomain, ECANCELED,
        {{NSLocalizedDescriptionKey, "The propagation was cancelled after 7 items."}});
    guard.answerTo([](auto& requests, auto& sample) {
        requests.propagateAclEntries({}, NSURL::fileURLWithPath("/a"), sample.ended);
    });
    EXPECT_EQ(guard.log, (std::vector<std::string>{
                             "begun: uid 1000 pid 4711: propagateAclEntries:url:reply: \"/a\"",
                             "failed: uid 1000 pid 4711: propagateAclEntries:url:reply: "
                             "The propagation was cancelled after 7 items. \"/a\""}));
}

TEST(GuardedRequests, TheLogNamesEachItemOfARequestAndItsNewName) {
    Guard holding(RightState::held);
    const std::vector<NSURL> items{NSURL::fileURLWithPath("/a"), NSURL::fileURLWithPath("/b")};
    holding.answerTo([&](auto& requests, auto& sample) {
        requests.renameUrls(
            items, {"c", "d"},
            [ended = sample.ended](auto, auto, const NSErrorRef& error) { ended(error); });
    });
    const std::string who = "uid 1000 pid 4711: renameUrls:names:reply: ";
    EXPECT_EQ(holding.log,
              (std::vector<std::string>{"begun: " + who + R"("/a" as "c")",
                                        "begun: " + who + R"("/b" as "d")",
                                        "done: " + who + R"("/a" as "c" and 1 more)"}));
}

}  // namespace
}  // namespace morvane
