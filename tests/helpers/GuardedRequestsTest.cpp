#include <gtest/gtest.h>

#include <cerrno>
#include <map>
#include <string>
#include <vector>

#include "GuardedRequests.h"

namespace morvane {
namespace {

/// Counts what reaches it, and answers with no error.
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

  private:
    template <class... T>
    static void answer(T&&... arguments) {
        auto& reply = std::get<sizeof...(T) - 1>(std::tie(arguments...));
        end(reply);
    }
    template <class... T>
    static void end(const NSXPCReply<T...>& reply) {
        std::apply(reply, std::tuple<T...>());
    }
};

/// Sends one message, and keeps the error that it was answered with.
struct Sent {
    std::string_view selector;
    std::function<void(MVFileRequest&, NSErrorRef&)> send;
};

const NSURL item = NSURL::fileURLWithPath("/some/where");

std::vector<Sent> everyMessage() {
    const auto keep = [](NSErrorRef& kept) {
        return [&kept](auto&&... results) {
            kept = std::get<sizeof...(results) - 1>(std::tie(results...));
        };
    };
    return {
        {"getAclEntriesWithUrl:reply:",
         [=](auto& r, auto& e) { r.getAclEntriesWithUrl(item, keep(e)); }},
        {"getAclAccessWithUrl:uuid:reply:",
         [=](auto& r, auto& e) {
             r.getAclAccessWithUrl(item, uuidOfPosixIdentity(CBEveryone{}), keep(e));
         }},
        {"setAclEntries:url:reply:", [=](auto& r, auto& e) { r.setAclEntries({}, item, keep(e)); }},
        {"propagateAclEntries:url:reply:",
         [=](auto& r, auto& e) { r.propagateAclEntries({}, item, keep(e)); }},
        {"renameUrls:names:reply:",
         [=](auto& r, auto& e) { r.renameUrls({item}, {"name"}, keep(e)); }},
        {"getSizesWithUrls:reply:", [=](auto& r, auto& e) { r.getSizesWithUrls({item}, keep(e)); }},
        {"getContentsOfDirectory:indexPath:reply:",
         [=](auto& r, auto& e) { r.getContentsOfDirectory(item, {}, keep(e)); }},
    };
}

std::string_view rightOf(std::string_view selector) {
    for (const auto& message : MVFileRequestRights) {
        if (message.selector == selector)
            return message.right;
    }
    return {};
}

struct Guard {
    explicit Guard(RightState state)
        : requests(guardedRequests(
              reached,
              [this, state](const char* right) {
                  asked.emplace_back(right);
                  return state;
              },
              [this](const std::string& line) { log.push_back(line); })) {}

    std::shared_ptr<Reached> reached = std::make_shared<Reached>();
    std::vector<std::string> asked;
    std::vector<std::string> log;
    std::shared_ptr<MVFileRequest> requests;
};

TEST(GuardedRequests, EveryMessageOfTheProtocolIsTried) {
    EXPECT_EQ(everyMessage().size(), MVFileRequestRights.size());
    for (const auto& message : everyMessage())
        EXPECT_NE(rightOf(message.selector), "") << message.selector;
}

TEST(GuardedRequests, NoMessageReachesItsHandlerWithoutItsOwnRight) {
    for (const auto& message : everyMessage()) {
        Guard guard(RightState::notHeld);
        NSErrorRef error;
        message.send(*guard.requests, error);
        EXPECT_TRUE(guard.reached->times.empty()) << message.selector;
        EXPECT_EQ(guard.asked, std::vector<std::string>{std::string(rightOf(message.selector))});
        ASSERT_TRUE(error) << message.selector;
        EXPECT_EQ(error->domain(), NSPOSIXErrorDomain);
        EXPECT_EQ(error->code(), EACCES);
        EXPECT_EQ(error->localizedDescription(),
                  "The right " + std::string(rightOf(message.selector)) + " is not held.");
    }
}

TEST(GuardedRequests, AMessageWhoseRightIsHeldReachesItsHandlerAfterOneCheck) {
    for (const auto& message : everyMessage()) {
        Guard guard(RightState::held);
        NSErrorRef error;
        message.send(*guard.requests, error);
        EXPECT_EQ(guard.reached->times, (std::map<std::string_view, int>{{message.selector, 1}}));
        EXPECT_EQ(guard.asked.size(), 1U);
        EXPECT_FALSE(error);
    }
}

TEST(GuardedRequests, AnExpiredRightOpensNothing) {
    for (const auto& message : everyMessage()) {
        Guard guard(RightState::expired);
        NSErrorRef error;
        message.send(*guard.requests, error);
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

TEST(GuardedRequests, TheLogTellsWhatWithWhichItemAndHowItEnded) {
    Guard holding(RightState::held);
    Guard refusing(RightState::notHeld);
    NSErrorRef error;
    for (auto* guard : {&holding, &refusing})
        guard->requests->setAclEntries({}, NSURL::fileURLWithPath("/a\nb"),
                                       [&](NSErrorRef e) { error = e; });
    EXPECT_EQ(holding.log, std::vector<std::string>{"setAclEntries:url:reply: \"/a\\x0ab\": done"});
    EXPECT_EQ(refusing.log,
              std::vector<std::string>{"setAclEntries:url:reply: \"/a\\x0ab\": refused, the right "
                                       "io.github.morvaneoperation.SetFileAcl is not held"});
}

TEST(GuardedRequests, TheLogNamesEachItemOfARequestAndItsNewName) {
    Guard holding(RightState::held);
    Guard refusing(RightState::expired);
    const std::vector<NSURL> items{NSURL::fileURLWithPath("/a"), NSURL::fileURLWithPath("/b")};
    for (auto* guard : {&holding, &refusing})
        guard->requests->renameUrls(items, {"c", "d"}, [](auto, auto, auto) {});
    EXPECT_EQ(holding.log,
              (std::vector<std::string>{"renameUrls:names:reply: \"/a\" as \"c\": done",
                                        "renameUrls:names:reply: \"/b\" as \"d\": done"}));
    EXPECT_EQ(refusing.log,
              std::vector<std::string>{"renameUrls:names:reply: \"/a\" as \"c\" and 1 more: "
                                       "refused, the right io.github.morvaneoperation.RenameFiles "
                                       "has expired"});
}

TEST(GuardedRequests, WhatTheLogIsToldCannotWriteToATerminalOrEndItsOwnQuotation) {
    EXPECT_EQ(escapedForLog("/a\": done\x1b[2J\xc2\x9b\x7f\\\xff"),
              R"(/a\x22: done\x1b[2J\xc2\x9b\x7f\x5c\xff)");
}

}  // namespace
}  // namespace morvane
