// SPDX-License-Identifier: MIT
#include "UndoCommand.h"

#include <utility>

#include "Failure.h"
#include "JournalFolder.h"
#include "ListText.h"

namespace morvane {

namespace {

/// The lists in the notes, one by one. An incomplete last one, which was being written when the
/// system stopped, is left out: that list had not been changed yet.
std::vector<std::string_view> notedLists(std::string_view text) {
    constexpr std::string_view end = "\n\n";
    std::vector<std::string_view> lists;
    for (auto next = text.find(end); next != text.npos; next = text.find(end)) {
        lists.push_back(text.substr(0, next + end.size()));
        text.remove_prefix(next + end.size());
    }
    return lists;
}

/// Removes the notes, and keeps those of their lists in `lists` that could not be taken back.
std::string setAside(const JournalFolder& notes, const std::string& name, std::string_view lists) {
    Problem problem;
    const auto path = notes.keepAside(name, lists, problem);
    if (problem)
        return message({say("%1.", *problem)});
    notes.remove(name);
    return message({say("What could not be taken back is kept; '%1' tries it again.",
                        "morvane acl --restore " + escaped(path.string()))});
}

/// Says that the last change could not be noted. The one before is not taken back in its place, but
/// can be next.
Outcome lostChange(const ChangeOptions& options, const JournalFolder& notes,
                   const std::string& name) {
    if (!options.dryRun)
        notes.remove(name);
    return {ExitFailure,
            {},
            message({say("what the lists were before the last change could not be noted."),
                     say("Nothing was changed. '%1' again takes back the change before it.",
                         "morvane acl --undo")})};
}

}  // namespace

Outcome runUndo(const ChangeOptions& options, const ChangeParts& parts, Journal& journal,
                const Style& style) {
    Problem problem;
    const auto notes = JournalFolder::opened(Journal::folder(), false, problem);
    if (problem)
        return unreadChange(*problem);
    auto names = notes ? notes->names() : std::vector<std::string>();
    std::string text;
    for (; !names.empty(); names.pop_back()) {
        if (JournalFolder::isLost(names.back()))
            return lostChange(options, *notes, names.back());
        text = notes->content(names.back(), problem);
        if (problem)
            return unreadChange(*problem);
        if (!notedLists(text).empty())
            break;
        if (!options.dryRun)
            notes->remove(names.back());
    }
    if (names.empty())
        return {ExitFailure, {}, message({say("there is no change to take back.")})};
    const auto& last = names.back();
    const auto lists = notedLists(text);
    text.resize(static_cast<std::size_t>(lists.back().data() + lists.back().size() - text.data()));
    const auto all = changesOfText(text, true, problem);
    if (!problem && all.size() != lists.size())
        problem = say("these are no notes of a change");
    if (problem) {
        auto outcome =
            misusedChange(say("%1: %2", escaped(notes->pathOf(last).string()), *problem));
        if (!options.dryRun)
            outcome.message += setAside(*notes, last, text);
        return outcome;
    }
    ListChanging changing(options, parts, journal, style);
    auto outcome = changing.run(all);
    const bool isDone = outcome.exitCode == ExitSuccess || outcome.exitCode == ExitFailure ||
                        outcome.exitCode == ExitStoredOtherwise;
    if (options.dryRun || !isDone)
        return outcome;
    std::string failed;
    for (const auto each : changing.failedChanges())
        failed += lists[each];
    if (failed.empty())
        notes->remove(last);
    else
        outcome.message += setAside(*notes, last, failed);
    return outcome;
}

}  // namespace morvane
