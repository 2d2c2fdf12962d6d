// SPDX-License-Identifier: MIT
#include "ChangeCommand.h"

#include <algorithm>
#include <utility>

#include "Failure.h"
#include "ItemWalk.h"
#include "ListText.h"
#include "UndoCommand.h"

namespace morvane {

namespace {

ListChange allOf(std::vector<ListChange> changes) {
    return [changes = std::move(changes)](ChangedList& list) -> Problem {
        for (const auto& change : changes) {
            if (auto problem = change(list))
                return problem;
        }
        return std::nullopt;
    };
}

/// The one list of a text that is to be given to every path.
std::optional<ListText> oneList(const std::string& text, Problem& problem) {
    auto lists = parsedLists(text, UnknownNames::areRefused, problem);
    if (!problem && lists.size() != 1)
        problem = lists.empty() ? say("the text holds no list")
                                : say("the text holds more than one list; --restore gives each to "
                                      "the path that it tells");
    return problem ? std::nullopt : std::optional(std::move(lists.front()));
}

/// The changes that the options ask for, in the order in which they are made.
std::optional<ListChange> changeOf(const ChangeOptions& options, const ChangeParts& parts,
                                   Problem& problem, Outcome& failure) {
    std::vector<ListChange> changes;
    if (!options.copyFrom.empty()) {
        const auto entries = parts.source(NSURL::fileURLWithPath(options.copyFrom));
        if (!entries) {
            failure = failed(
                say("cannot read the access-control list of '%1'", escaped(options.copyFrom)),
                entries.error());
            return std::nullopt;
        }
        if (const auto list = oneList(listAsText(options.copyFrom, *entries), problem))
            changes.push_back(replacingBy(*list));
    }
    if (!options.list.empty()) {
        Problem unread;
        const auto text = contentOfFile(options.list, unread);
        if (unread) {
            failure = unreadChange(*unread);
            return std::nullopt;
        }
        if (const auto list = oneList(text, problem))
            changes.push_back(replacingBy(*list));
    }
    if (options.clear)
        changes.push_back(clearing());
    if (options.clearDefault)
        changes.push_back(clearingDefaults());
    if (!options.remove.empty() && !problem)
        changes.push_back(removingEntries(textEntries(options.remove, false, problem)));
    if (!options.set.empty() && !problem)
        changes.push_back(settingEntries(textEntries(options.set, true, problem)));
    return problem ? std::nullopt : std::optional(allOf(std::move(changes)));
}

std::string digestOf(const EntryList& entries) {
    const auto read = std::find_if(entries.begin(), entries.end(),
                                   [](const auto& entry) { return entry->origin() != nullptr; });
    return read == entries.end() ? std::string() : (*read)->origin()->values().digest;
}

/// The user changes the text of one list.
Outcome runInEditor(const ChangeOptions& options, const ChangeParts& parts, Journal& journal,
                    const Style& style) {
    const auto& path = options.paths.front();
    const auto entries = parts.source(NSURL::fileURLWithPath(path));
    if (!entries)
        return failed(say("cannot read the access-control list of '%1'", escaped(path)),
                      entries.error());
    Problem problem;
    const auto text = parts.edited(listAsText(path, *entries), problem);
    if (problem)
        return unreadChange(*problem);
    if (!text)
        return {ExitSuccess, {}, message({say("nothing was changed.")})};
    const auto list = oneList(*text, problem);
    if (!list)
        return misusedChange(*problem);
    // The user has edited the list that was shown: to write it would undo what another program has
    // changed since.
    const auto shown = digestOf(*entries);
    const ListChange change = [&, replacing = replacingBy(*list)](ChangedList& now) -> Problem {
        if (now.item().digest != shown)
            return say("another program has changed the list since it was shown");
        return replacing(now);
    };
    return ListChanging(options, parts, journal, style).run({{path, change, false}});
}

/// How much a change of the paths with everything below them would reach, as far as it can be told.
std::string whatIsBelow(const ChangeOptions& options, const ChangeParts& parts) {
    std::size_t items = 0;
    const WalkParts walk{parts.contents, parts.facts,
                         [&](const std::string&, bool) {
                             ++items;
                             return !parts.progress || parts.progress(items);
                         },
                         [](const std::string&, const NSError&) {}, !options.crossesMounts};
    for (const auto& path : options.paths)
        walkItems(path, true, walk);
    return countedPhrase("The list of %1 item is changed by the privileged helper.",
                         "The lists of %1 items are changed by the privileged helper.", items)
        .localized();
}

}  // namespace

Outcome runChange(const ChangeOptions& options, const ChangeParts& parts, Journal& journal,
                  const Style& style) {
    if (options.undo)
        return runUndo(options, parts, journal, style);
    if (options.inEditor)
        return runInEditor(options, parts, journal, style);
    Problem problem;
    std::vector<ItemChange> all;
    if (!options.restore.empty()) {
        const auto text = contentOfFile(options.restore, problem);
        if (problem)
            return unreadChange(*problem);
        all = changesOfText(text, false, problem);
        if (problem)
            return misusedChange(*problem);
    } else {
        Outcome failure;
        const auto change = changeOf(options, parts, problem, failure);
        if (problem)
            return misusedChange(*problem);
        if (!change)
            return failure;
        for (const auto& path : options.paths)
            all.push_back({path, *change, options.recursive});
    }
    const bool isForPrograms = options.json || options.lines;
    const bool isAskedFor = options.recursive && !options.dryRun && !options.yes && !isForPrograms;
    if (isAskedFor && parts.goesOn && !parts.goesOn(whatIsBelow(options, parts)))
        return {ExitInterrupted, {}, message({say("nothing was changed.")})};
    if (std::any_of(all.begin(), all.end(),
                    [](const ItemChange& work) { return work.path.empty(); }))
        return {ExitUsage, {}, message({say("the path is empty; name a file or a folder.")})};
    return ListChanging(options, parts, journal, style).run(all);
}

}  // namespace morvane
