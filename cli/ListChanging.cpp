// SPDX-License-Identifier: MIT
#include "ListChanging.h"

#include <algorithm>
#include <cerrno>
#include <nlohmann/json.hpp>
#include <utility>

#include "EditedItem.h"
#include "Failure.h"
#include "FileFacts.h"
#include "ItemWalk.h"
#include "JsonDocument.h"
#include "ListText.h"

namespace morvane {

namespace {

/// How many failures are told one by one.
constexpr std::size_t maxFailuresTold = 10;

}  // namespace

Outcome misusedChange(const std::string& problem) {
    return {ExitUsage, {}, message({say("%1.", problem), say("Nothing was changed.")})};
}

Outcome unreadChange(const std::string& problem) {
    return {ExitFailure, {}, message({say("%1.", problem), say("Nothing was changed.")})};
}

std::vector<ItemChange> changesOfText(const std::string& text, bool isNoted, Problem& problem) {
    std::vector<ItemChange> all;
    for (auto& list : parsedLists(text, UnknownNames::haveNumbers, problem)) {
        if (list.path.empty()) {
            problem = say("a list does not tell its path behind '# file:'");
            return {};
        }
        all.push_back({list.path,
                       {},
                       false,
                       isNoted || !list.item.empty() ? std::optional(list.item) : std::nullopt,
                       isNoted ? list.became : std::string(),
                       list.flags});
        all.back().change = replacingBy(std::move(list));
    }
    if (!problem && all.empty())
        problem = say("the text holds no list");
    return all;
}

Outcome ListChanging::run(const std::vector<ItemChange>& all) {
    // From now on Ctrl-C asks to stop; before, while lists were typed, it has ended the program.
    if (parts_.progress)
        parts_.progress(0);
    for (const auto& work : all) {
        const auto failedBefore = failures_.size();
        const WalkParts walk{parts_.contents, parts_.facts,
                             [&](const std::string& path, bool isBelow) {
                                 change(path, isBelow, work);
                                 compareFlags(path, work.flags);
                                 ++done_;
                                 return !misuse_ && (!parts_.progress || parts_.progress(done_));
                             },
                             [&](const std::string& path, const NSError& why) {
                                 fail(path, why.localizedDescription(), exitCodeOf(why));
                             },
                             !options_.crossesMounts};
        const bool isStopped = !walkItems(work.path, work.recursive, walk);
        if (failures_.size() != failedBefore)
            failedChanges_.push_back(static_cast<std::size_t>(&work - all.data()));
        if (isStopped) {
            isStopped_ = !misuse_;
            break;
        }
    }
    return ended(all);
}

void ListChanging::fail(const std::string& path, const std::string& why, ExitCode code) {
    // A folder whose list cannot be had often cannot be listed either, for the same reason.
    const bool isTold =
        !failures_.empty() && failures_.back().path == path && failures_.back().why == why;
    if (!isTold)
        failures_.push_back({path, why});
    worst_ = code == ExitService ? ExitService : std::max(worst_, ExitFailure);
}

void ListChanging::fail(const std::string& path, const NSErrorRef& error) {
    error_ = error;
    auto why = error->localizedDescription();
    if (!options_.lossy && !lossesOfError(*error).empty())
        why += ' ' + say("--lossy accepts the nearest list.");
    else if (const auto help = helpLines(*error, Effect::changes); !help.empty())
        help_ = help;
    fail(path, why, exitCodeOf(*error));
}

void ListChanging::change(const std::string& path, bool isBelow, const ItemChange& work) {
    const auto url = NSURL::fileURLWithPath(path);
    for (int attempt = 0; attempt != maxAttempts; ++attempt) {
        const auto entries = parts_.source(url);
        if (!entries)
            return fail(path, entries.error());
        const auto read = std::find_if(entries->begin(), entries->end(),
                                       [](const auto& e) { return e->origin() != nullptr; });
        if (read == entries->end())
            return fail(path, say("the service does not tell what kind of list it is"),
                        ExitFailure);
        if (work.item && *work.item != identityOfFile(path))
            return fail(path, say("another item has taken its place since the list was noted"),
                        ExitFailure);
        ChangedList list{*entries, (*read)->origin(), isBelow,
                         options_.recursive || options_.paths.size() > 1, options_.lossy};
        const auto before = listAsText(url.path(), *entries);
        EditedItem item(url, *entries, parts_.access);
        const bool leftCreatorWithout = item.leavesCreatorWithout(*entries);
        if (const auto problem = work.change(list)) {
            // A mistake in the words is one for every item.
            if (!isBelow && done_ == 0 && !options_.undo && !options_.inEditor)
                misuse_ = problem;
            return fail(path, *problem, ExitFailure);
        }
        const bool isSince =
            !work.onlyOf.empty() && work.onlyOf != (*read)->origin()->values().digest;
        if (isSince && listAsText(url.path(), list.entries) != before) {
            ++changedSince_;
            return fail(path, say("its list was changed since, and stays as it is"), ExitFailure);
        }
        if (write(path, url, list, before, leftCreatorWithout, item))
            return;
    }
    fail(path, say("other programs change it again and again"), ExitFailure);
}

bool ListChanging::write(const std::string& path, const NSURL& url, ChangedList& list,
                         const std::string& before, bool leftCreatorWithout, EditedItem& item) {
    auto entries = std::move(list.entries);
    if (options_.dryRun || options_.lossy) {
        auto after = item.afterWriting(entries, options_.lossy);
        if (!after) {
            fail(path, after.error());
            return true;
        }
        entries = *std::move(after);
    }
    const auto after = listAsText(url.path(), entries);
    if (after == before) {
        ++unchanged_;
        return true;
    }
    // A list that the item has had before is restored as it was.
    const bool wasThere = options_.undo || !options_.restore.empty();
    if (!options_.lossy && !wasThere && !leftCreatorWithout && item.leavesCreatorWithout(entries)) {
        fail(path,
             say("whoever makes an item in the folder would have no right to it, as all that "
                 "is inherited is for others"),
             ExitFailure);
        return true;
    }
    if (options_.dryRun) {
        planned_.emplace_back(path, before, after);
        ++changed_;
        return true;
    }
    // An undo is not noted, or the next one would take back this one.
    if (!options_.undo)
        journal_.record(url.path(), before, item.digestAfterWriting(entries));
    if (const auto error = parts_.sink(entries, url)) {
        if (isChangedMeanwhile(*error)) {
            journal_.withdrawLast();
            return false;
        }
        fail(path, error);
        if (exitCodeOf(*error) == ExitStoredOtherwise) {
            worst_ = std::max(worst_, ExitStoredOtherwise);
            ++changed_;
        }
        return true;
    }
    ++changed_;
    return true;
}

Outcome ListChanging::ended(const std::vector<ItemChange>& all) {
    if (changed_ == 0)
        journal_.discard();
    if (misuse_)
        return misusedChange(*misuse_);
    Outcome outcome{worst_, {}, toldFailures() + toldFlags()};
    outcome.error = worst_ == ExitSuccess ? nullptr : error_;
    const bool isOne = all.size() == 1 && !all.front().recursive;
    if (options_.json || options_.lines) {
        // The JSON is made last, when everything that it tells is known.
    } else if (isOne && !options_.dryRun && !options_.undo) {
        if (changed_ != 0 || unchanged_ != 0)
            outcome.output += listNow(all.front().path);
    } else {
        for (const auto& change : planned_)
            outcome.output += change.asText();
        outcome.output += closingLine() + '\n';
    }
    if (isStopped_) {
        outcome.exitCode = ExitInterrupted;
        outcome.message += message({say("stopped. What is changed stays so.")});
    }
    if (journal_.whyNot() && changed_ != 0)
        outcome.message +=
            message({say("'--undo' cannot take this back: %1.", *journal_.whyNot())});
    if (options_.json)
        outcome.output = jsonDocument("acl", jsonOfChange(), outcome);
    else if (options_.lines)
        outcome.output = lastJsonLine("acl", jsonOfChange(), outcome);
    return outcome;
}

Json ListChanging::jsonOfChange() const {
    auto changes = Json::array();
    for (const auto& change : planned_)
        changes.push_back(change.asJson());
    return {{"dryRun", options_.dryRun},     {"changed", changed_},
            {"unchanged", unchanged_},       {"changedSince", changedSince_},
            {"changes", std::move(changes)}, {"failures", jsonOfFailures(failures_)}};
}

std::string ListChanging::listNow(const std::string& path) const {
    auto entries = parts_.source(NSURL::fileURLWithPath(path));
    if (!entries)
        return {};
    sortCanonically(*entries);
    return itemAsLines(*entries, style_) + entriesAsTable(*entries, false, style_);
}

std::string ListChanging::closingLine() const {
    auto line = options_.dryRun
                    ? countedPhrase("--dry-run: %1 list would change",
                                    "--dry-run: %1 lists would change", changed_)
                          .localized()
                    : countedPhrase("%1 list changed", "%1 lists changed", changed_).localized();
    line += say(", ") +
            countedPhrase("%1 was so already", "%1 were so already", unchanged_).localized();
    if (changedSince_ != 0)
        line += say(", ") +
                countedPhrase("%1 was changed since", "%1 were changed since", changedSince_)
                    .localized();
    if (const auto failures = failures_.size() - changedSince_; failures != 0)
        line += say(", ") + countedPhrase("%1 failure", "%1 failures", failures).localized();
    line += '.';
    if (journal_.isKept() && changed_ != 0 && !options_.dryRun)
        line += ' ' + say("'%1' takes it back.", parts_.undo);
    return line;
}

void ListChanging::compareFlags(const std::string& path, const std::string& told) {
    const auto seen = told.empty() ? std::nullopt : factsOfNamed(path, parts_.facts);
    // The list is that of what a link leads to.
    if (!seen || seen->kind() == std::string_view("link"))
        return;
    const auto has = seen->flagsText();
    const auto lacks = [&](std::size_t i) {
        return told[i] != '-' && (has.empty() || has[i] != told[i]);
    };
    for (std::size_t i = 0; i != std::min(told.size(), FileFacts::flags); ++i) {
        if (!lacks(i))
            continue;
        if (lackFlags_++ == 0)
            lacksFlags_ = path;
        return;
    }
}

std::string ListChanging::toldFlags() const {
    if (lackFlags_ == 0)
        return {};
    return message({countedPhrase("'%2' lacks the setuid, setgid or sticky bit that its list "
                                  "tells of",
                                  "%1 items lack the setuid, setgid or sticky bits that their "
                                  "lists tell of; the first is '%2'",
                                  lackFlags_, escaped(lacksFlags_))
                            .localized() +
                        '.',
                    say("They are no part of a list, and stay as they are; chmod sets them.")});
}

std::string ListChanging::toldFailures() const {
    std::string text;
    // Where nothing has failed, so that those of a run before are not taken for this one's.
    if (!options_.failures.empty())
        text = writtenFailures(options_.failures, failures_);
    if (failures_.empty())
        return text;
    const auto told = std::min(failures_.size(), maxFailuresTold);
    for (std::size_t i = 0; i != told; ++i)
        text += message({say("cannot change the access-control list of '%1': %2",
                             escaped(failures_[i].path), escaped(failures_[i].why))});
    if (told != failures_.size()) {
        text += "  " +
                countedPhrase("And %1 more.", "And %1 more.", failures_.size() - told).localized();
        if (options_.failures.empty())
            text += ' ' + say("--failures FILE lists them all.");
        text += '\n';
    }
    return text + help_;
}

std::string changeAsJson(std::size_t done, std::chrono::duration<double> elapsed) {
    return jsonLine("acl", "progress",
                    {{"done", done}, {"seconds", static_cast<std::int64_t>(elapsed.count())}});
}

std::string changeLine(std::size_t done) {
    return countedPhrase("%1 list", "%1 lists", done).localized();
}

}  // namespace morvane
