// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "RequestJournal.h"

namespace morvane {
namespace {

using Lines = std::vector<std::string>;

/// A journal whose time stands still unless it is set forward.
struct KeptJournal {
    Lines taken() { return std::exchange(lines, {}); }
    std::size_t refuse(std::int64_t user, int times) {
        for (int i = 0; i != times; ++i)
            journal->refused({.user = user, .process = 7}, "get:", "no");
        return taken().size();
    }

    Lines lines;
    RequestJournal::Time now{};
    const std::shared_ptr<RequestJournal> journal = std::make_shared<RequestJournal>(
        [this](const std::string& line) { lines.push_back(line); }, [this] { return now; });
};

RequestItems itemsOf(Lines texts) {
    const auto count = texts.size();
    return {count, [texts = std::move(texts)](std::size_t i) { return texts[i]; }};
}

TEST(RequestJournal, ALineForEachItemTellsThatARequestBeginsAndOneHowItHasEnded) {
    KeptJournal kept;
    const RequestClient client{.user = 1000, .process = 7};
    kept.journal->begin(client, "set:", itemsOf({"\"/a\"", "\"/b\"", "\"/c\""}))->done();
    EXPECT_EQ(kept.taken(),
              (Lines{"begun: uid 1000 pid 7: set: \"/a\"", "begun: uid 1000 pid 7: set: \"/b\"",
                     "begun: uid 1000 pid 7: set: \"/c\"",
                     "done: uid 1000 pid 7: set: \"/a\" and 2 more"}));
}

TEST(RequestJournal, ARequestAboutManyItemsTakesABoundOfTheLogAndNothingHoldsTheirTexts) {
    KeptJournal kept;
    const RequestClient client{.user = 1000, .process = 7};
    constexpr std::size_t items = 15'000;
    std::size_t asked = 0;
    const auto request = kept.journal->begin(client, "set:", {items, [&](std::size_t) {
                                                                  ++asked;
                                                                  return std::string(4096, 'x');
                                                              }});
    const auto lines = kept.taken();
    std::size_t bytes = 0;
    for (const auto& line : lines)
        bytes += line.size();
    EXPECT_LE(bytes, RequestJournal::bytesOfOneRequest + 4096);
    EXPECT_EQ(lines.back(), "begun: uid 1000 pid 7: set: and " +
                                std::to_string(items - (lines.size() - 1)) + " more");
    // Its end needs no more than the first.
    asked = 0;
    request->done();
    EXPECT_EQ(asked, 0U);
    EXPECT_EQ(kept.taken(),
              Lines{"done: uid 1000 pid 7: set: " + std::string(4096, 'x') + " and 14999 more"});
}

TEST(RequestJournal, ATextTakesNoMoreOfTheLogThanAPathCanHave) {
    EXPECT_EQ(escapedForLog(std::string(5000, '\n')).size(), 4096U);
    EXPECT_EQ(escapedForLog(std::string(5000, 'a')).size(), 4096U);
}

TEST(RequestJournal, ARequestIsAtWorkUntilItHasEndedOrTheLastReferenceToItHasGone) {
    KeptJournal kept;
    auto& journal = *kept.journal;
    EXPECT_EQ(journal.begunWhileNoneRuns(), 0U);
    auto first = journal.begin({}, "get:", {});
    auto second = journal.begin({}, "get:", {});
    first->done();
    first.reset();
    EXPECT_FALSE(journal.begunWhileNoneRuns());
    second.reset();
    EXPECT_EQ(journal.begunWhileNoneRuns(), 2U);
    const auto held = journal.begin({}, "get:", {});
    EXPECT_FALSE(journal.begunWhileNoneRuns());
    held->failed("The file system does not answer.");
    EXPECT_EQ(journal.begunWhileNoneRuns(), 3U) << "nobody waits for what still holds it";
}

TEST(RequestJournal, AFloodOfRefusalsMakesAFewLinesAndOneThatCountsTheRest) {
    KeptJournal kept;
    EXPECT_EQ(kept.refuse(1000, 500), RequestJournal::refusalsAtOnce);
    kept.journal->tellLeftOut();
    EXPECT_EQ(kept.taken(), Lines{});
    kept.now += RequestJournal::refusalInterval;
    kept.journal->tellLeftOut();
    kept.journal->tellLeftOut();
    EXPECT_EQ(kept.taken(), Lines{"refused: uid 1000: 492 more, left out here"});
    EXPECT_EQ(kept.refuse(1000, 1), 0U) << "that was the interval's line";
}

TEST(RequestJournal, TheNextLineOfAUserTellsFirstHowManyWereLeftOut) {
    KeptJournal kept;
    kept.refuse(1000, 10);
    kept.now += RequestJournal::refusalInterval;
    kept.journal->refused({.user = 1000, .process = 7}, "get:", "the reason\n");
    EXPECT_EQ(kept.taken(), (Lines{"refused: uid 1000: 2 more, left out here",
                                   "refused: uid 1000 pid 7: get: the reason\\x0a"}));
}

TEST(RequestJournal, TheRefusalsOfOneUserTakeNoLineOfAnother) {
    KeptJournal kept;
    kept.refuse(1000, 500);
    EXPECT_EQ(kept.refuse(1001, 3), 3U);
}

TEST(RequestJournal, ManyUsersHaveFewLinesTogether) {
    KeptJournal kept;
    const std::int64_t known = RequestJournal::usersRemembered;
    for (std::int64_t user = 0; user != known; ++user)
        EXPECT_EQ(kept.refuse(user, 1), 1U);
    std::size_t lines = 0;
    for (std::int64_t user = known; user != 10 * known; ++user)
        lines += kept.refuse(user, 1);
    EXPECT_EQ(lines, RequestJournal::refusalsAtOnce);
    kept.journal->close({});
    EXPECT_EQ(kept.taken(), Lines{"refused: other users: " +
                                  std::to_string(9 * known - static_cast<std::int64_t>(lines)) +
                                  " more, left out here"});
}

TEST(RequestJournal, WhoHasAllLinesAgainIsForgottenForTheSakeOfOthers) {
    KeptJournal kept;
    const std::int64_t known = RequestJournal::usersRemembered;
    for (std::int64_t user = 0; user != known; ++user)
        kept.refuse(user, 1);
    kept.now += RequestJournal::refusalInterval;
    EXPECT_EQ(kept.refuse(known, 500), RequestJournal::refusalsAtOnce);
    EXPECT_EQ(kept.refuse(known + 1, 500), RequestJournal::refusalsAtOnce);
}

TEST(RequestJournal, TheEndTellsWhatIsNotDoneAndWhatWasLeftOut) {
    KeptJournal kept;
    kept.refuse(1000, 10);
    const RequestClient client{.user = 1000, .process = 7};
    auto ended = kept.journal->begin(client, "get:", {});
    ended->done();
    const auto running = kept.journal->begin(client, "set:", itemsOf({"\"/a\"", "\"/b\""}));
    kept.taken();
    kept.journal->close({});
    EXPECT_EQ(kept.taken(),
              (Lines{"unfinished: uid 1000 pid 7: set: The helper ends. \"/a\" and 1 more",
                     "refused: uid 1000: 2 more, left out here"}));
    running->failed("Too late.");
    EXPECT_EQ(kept.taken(), Lines{});
}

TEST(RequestJournal, RefusalsOfUsersWhomAnotherAnswersForTakeThatOnesLines) {
    KeptJournal kept;
    for (std::int64_t user = 100000; user != 100100; ++user)
        kept.journal->refused({.user = user, .process = 7, .accountable = 1000}, "get:", "no");
    EXPECT_EQ(kept.taken().size(), RequestJournal::refusalsAtOnce);
    EXPECT_EQ(kept.refuse(1000, 1), 0U);
    EXPECT_EQ(kept.refuse(1001, 1), 1U);
}

TEST(RequestJournal, ARequestThatNobodyAnswersHasItsEndToo) {
    KeptJournal kept;
    kept.journal->begin({.user = 1, .process = 2}, "get:", {});
    EXPECT_EQ(kept.taken(), (Lines{"begun: uid 1 pid 2: get:",
                                   "dropped: uid 1 pid 2: get: It was not answered."}));
}

TEST(RequestJournal, WhatTheLogIsToldCannotWriteToATerminalOrEndItsOwnQuotation) {
    EXPECT_EQ(escapedForLog("/a\": done\x1b[2J\xc2\x9b\x7f\\\xff"),
              R"(/a\x22: done\x1b[2J\xc2\x9b\x7f\x5c\xff)");
}

}  // namespace
}  // namespace morvane
