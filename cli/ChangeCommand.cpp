// SPDX-License-Identifier: MIT
#include "ChangeCommand.h"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <sstream>
#include <utility>

#include "EditedItem.h"
#include "Failure.h"
#include "FileFacts.h"
#include "ItemWalk.h"
#include "JournalFolder.h"
#include "JsonDocument.h"
#include "ListText.h"
#include "WrittenFile.h"

namespace morvane {

namespace {

/// So often a change is made to a list that other programs change meanwhile.
constexpr int maxAttempts = 8;
/// So many failures are told one by one.
constexpr std::size_t maxFailuresTold = 10;

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        if (!line.empty() && line.front() != '#')
            lines.push_back(line.substr(0, line.find('\t')));
    }
    return lines;
}

/// The lines that go and those that come, below the name of the item.
std::string difference(const std::string& path, const std::string& before,
                       const std::string& after) {
    const auto old = linesOf(before);
    const auto now = linesOf(after);
    const auto without = [](const std::vector<std::string>& lines,
                            const std::vector<std::string>& others, char mark) {
        std::string text;
        for (const auto& line : lines) {
            if (std::find(others.begin(), others.end(), line) == others.end())
                text += std::string("  ") + mark + ' ' + escaped(line) + '\n';
        }
        return text;
    };
    auto lines = without(old, now, '-') + without(now, old, '+');
    if (lines.empty())
        lines = "  " + say("(the same entries in another order)") + '\n';
    return escaped(path) + '\n' + lines;
}

/// Whether a mask of the list that was read holds rights of its entries back.
bool holdsBack(const EntryList& entries) {
    return std::any_of(entries.begin(), entries.end(), [](const auto& entry) {
        return entry->origin() && entry->origin()->masks() != MVAclOrigin::Masks();
    });
}

/// That what masks hold back is neither saved nor given to another item.
std::string heldBackMessage(std::size_t lists) {
    return message({countedPhrase("the mask of %1 list holds rights of its entries back, and these "
                                  "are not kept: only what it lets through is.",
                                  "the masks of %1 lists hold rights of their entries back, and "
                                  "these are not kept: only what they let through is.",
                                  lists)
                        .localized()});
}

bool isChangedMeanwhile(const NSError& error) {
    return error.domain() == MVAclErrorDomain && error.code() == MVAclChanged;
}

/// The items to be changed, each with what is to be done to it.
struct Work {
    std::string path;
    ListChange change;
    bool recursive = false;
    /// The item for which the list is, if that was noted: identityOfFile().
    std::optional<std::string> item = std::nullopt;
};

ListChange allOf(std::vector<ListChange> changes) {
    return [changes = std::move(changes)](ChangedList& list) -> Problem {
        for (const auto& change : changes) {
            if (auto problem = change(list))
                return problem;
        }
        return std::nullopt;
    };
}

class Changing {
  public:
    Changing(const ChangeOptions& options, const ChangeParts& parts, Journal& journal,
             const Style& style)
        : options_(options), parts_(parts), journal_(journal), style_(style) {}

    Outcome run(const std::vector<Work>& all) {
        // Ctrl-C asks to stop from now on, and not while the lists are typed.
        if (parts_.progress)
            parts_.progress(0);
        for (const auto& work : all) {
            const auto failedBefore = failures_.size();
            const WalkParts walk{parts_.contents, parts_.facts,
                                 [&](const std::string& path, bool isBelow) {
                                     change(path, isBelow, work);
                                     ++done_;
                                     return !misuse_ &&
                                            (!parts_.progress || parts_.progress(done_));
                                 },
                                 [&](const std::string& path, const NSError& why) {
                                     fail(path, why.localizedDescription(), exitCodeOf(why));
                                 }};
            const bool isStopped = !walkItems(work.path, work.recursive, walk);
            if (failures_.size() != failedBefore)
                failedWorks_.push_back(static_cast<std::size_t>(&work - all.data()));
            if (isStopped) {
                isStopped_ = !misuse_;
                break;
            }
        }
        return ended(all);
    }

    /// Which of them could not be done, or not with everything below.
    const std::vector<std::size_t>& failedWorks() const { return failedWorks_; }

  private:
    void fail(const std::string& path, const std::string& why, ExitCode code) {
        failures_.push_back({path, why});
        worst_ = code == ExitService ? ExitService : std::max(worst_, ExitFailure);
    }
    void fail(const std::string& path, const NSErrorRef& error) {
        error_ = error;
        auto why = error->localizedDescription();
        if (!options_.lossy && !lossesOfError(*error).empty())
            why += ' ' + say("--lossy accepts the nearest list.");
        else if (const auto help = advice(*error, Effect::changes); !help.empty())
            advice_ = help;
        fail(path, why, exitCodeOf(*error));
    }

    void change(const std::string& path, bool isBelow, const Work& work) {
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
                             options_.recursive || options_.paths.size() > 1};
            const auto before = listAsText(url.path(), *entries);
            EditedItem item(url, *entries, parts_.access);
            const bool leftCreatorWithout = item.leavesCreatorWithout(*entries);
            if (const auto problem = work.change(list)) {
                // What is wrong with the words is wrong for every item.
                if (!isBelow && done_ == 0 && !options_.undo && !options_.inEditor)
                    misuse_ = problem;
                return fail(path, *problem, ExitFailure);
            }
            if (write(path, url, list, before, leftCreatorWithout, item))
                return;
        }
        fail(path, say("other programs change it again and again"), ExitFailure);
    }

    /// False if another program has changed the list since it was read.
    bool write(const std::string& path, const NSURL& url, ChangedList& list,
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
        const std::size_t heldBack = list.losesHeldBack ? 1 : 0;
        // A list that was there before is no mistake of this one's.
        const bool wasThere = options_.undo || !options_.restore.empty();
        if (!options_.lossy && !wasThere && !leftCreatorWithout &&
            item.leavesCreatorWithout(entries)) {
            fail(path,
                 say("whoever makes an item in the folder would have no right to it, as all that "
                     "is inherited is for others"),
                 ExitFailure);
            return true;
        }
        if (options_.dryRun) {
            shown_ += difference(path, before, after);
            heldBack_ += heldBack;
            ++changed_;
            return true;
        }
        // Undo does not note what it takes back: it would only take back itself.
        if (!options_.undo) {
            journal_.record(url.path(), before);
            notedHeldBack_ += list.origin->masks() != MVAclOrigin::Masks() ? 1 : 0;
        }
        if (const auto error = parts_.sink(entries, url)) {
            if (isChangedMeanwhile(*error))
                return false;
            fail(path, error);
            if (exitCodeOf(*error) == ExitStoredOtherwise) {
                worst_ = std::max(worst_, ExitStoredOtherwise);
                ++changed_;
            }
            return true;
        }
        heldBack_ += heldBack;
        ++changed_;
        return true;
    }

    Outcome ended(const std::vector<Work>& all) {
        if (changed_ == 0)
            journal_.discard();
        if (misuse_)
            return {ExitUsage, {}, message({say("%1.", *misuse_), say("Nothing was changed.")})};
        Outcome outcome{worst_, shown_, toldFailures()};
        outcome.error = worst_ == ExitSuccess ? nullptr : error_;
        const bool isOne = all.size() == 1 && !all.front().recursive;
        if (options_.json) {
            // Written last, when all is known that it tells.
        } else if (isOne && !options_.dryRun && !options_.undo) {
            if (changed_ != 0 || unchanged_ != 0)
                outcome.output += listNow(all.front().path);
        } else {
            outcome.output += closingLine() + '\n';
        }
        if (isStopped_) {
            outcome.exitCode = ExitInterrupted;
            outcome.message += message({say("stopped. What is changed stays so.")});
        }
        if (heldBack_ != 0)
            outcome.message += heldBackMessage(heldBack_);
        if (notedHeldBack_ != 0 && journal_.isKept())
            outcome.message += message(
                {countedPhrase("the mask of %1 list held rights back; '--undo' does not give them "
                               "back to entries that are gone or changed.",
                               "the masks of %1 lists held rights back; '--undo' does not give "
                               "them back to entries that are gone or changed.",
                               notedHeldBack_)
                     .localized()});
        if (journal_.whyNot() && changed_ != 0)
            outcome.message +=
                message({say("'--undo' cannot take this back: %1.", *journal_.whyNot())});
        if (options_.json)
            outcome.output = jsonDocument("acl", jsonOfChange(), outcome);
        return outcome;
    }

    Json jsonOfChange() const {
        auto failures = Json::array();
        for (const auto& failure : failures_) {
            auto one = jsonOfPath(failure.path);
            one["message"] = failure.why;
            failures.push_back(std::move(one));
        }
        return {{"dryRun", options_.dryRun},
                {"changed", changed_},
                {"unchanged", unchanged_},
                {"failures", std::move(failures)}};
    }

    std::string listNow(const std::string& path) const {
        auto entries = parts_.source(NSURL::fileURLWithPath(path));
        if (!entries)
            return {};
        sortCanonically(*entries);
        return itemAsLines(*entries, style_) + entriesAsTable(*entries, false, style_);
    }

    std::string closingLine() const {
        auto line =
            options_.dryRun
                ? countedPhrase("--dry-run: %1 list would change",
                                "--dry-run: %1 lists would change", changed_)
                      .localized()
                : countedPhrase("%1 list changed", "%1 lists changed", changed_).localized();
        line += say(", ") +
                countedPhrase("%1 was so already", "%1 were so already", unchanged_).localized();
        if (!failures_.empty())
            line += say(", ") +
                    countedPhrase("%1 failure", "%1 failures", failures_.size()).localized();
        line += '.';
        if (journal_.isKept() && changed_ != 0 && !options_.dryRun)
            line += ' ' + say("'%1' takes it back.", "morvane acl --undo");
        return line;
    }

    /// The failures for standard error, and all of them in the file that was asked for.
    std::string toldFailures() const {
        if (failures_.empty())
            return {};
        std::string text;
        const auto told = std::min(failures_.size(), maxFailuresTold);
        for (std::size_t i = 0; i != told; ++i)
            text += message({say("cannot change the access-control list of '%1': %2",
                                 escaped(failures_[i].path), escaped(failures_[i].why))});
        if (told != failures_.size()) {
            text +=
                "  " +
                countedPhrase("And %1 more.", "And %1 more.", failures_.size() - told).localized();
            if (options_.failures.empty())
                text += ' ' + say("--failures FILE lists them all.");
            text += '\n';
        }
        if (!advice_.empty())
            text += "  " + escaped(advice_) + '\n';
        if (!options_.failures.empty()) {
            std::ofstream file(options_.failures, std::ios::binary);
            for (const auto& failure : failures_)
                file << quotedPath(failure.path) << '\t' << escaped(failure.why) << '\n';
            if (!file.flush())
                text += message({say("'%1' could not be written: %2", escaped(options_.failures),
                                     Phrase::ofSystemError(errno))});
        }
        return text;
    }

    struct FailedItem {
        std::string path;
        std::string why;
    };

    const ChangeOptions& options_;
    const ChangeParts& parts_;
    Journal& journal_;
    const Style& style_;
    std::string shown_;
    std::size_t done_ = 0;
    std::size_t changed_ = 0;
    std::size_t unchanged_ = 0;
    std::vector<FailedItem> failures_;
    std::vector<std::size_t> failedWorks_;
    /// Lists whose mask held back what is lost now.
    std::size_t heldBack_ = 0;
    /// Those of which the notes do not tell all.
    std::size_t notedHeldBack_ = 0;
    std::string advice_;
    ExitCode worst_ = ExitSuccess;
    NSErrorRef error_;
    Problem misuse_;
    bool isStopped_ = false;
};

Outcome misused(const std::string& problem) {
    return {ExitUsage, {}, message({say("%1.", problem), say("Nothing was changed.")})};
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
            changes.push_back([replacing = replacingBy(*list),
                               isHeldBack = holdsBack(*entries)](ChangedList& to) -> Problem {
                to.losesHeldBack = isHeldBack;
                return replacing(to);
            });
    }
    if (!options.list.empty()) {
        const auto text = contentOfFile(options.list, problem);
        if (const auto list = problem ? std::nullopt : oneList(text, problem))
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

/// The lists of `text`, each for the path that it tells, and for the very item if they are notes.
std::vector<Work> worksOf(const std::string& text, bool isNoted, Problem& problem) {
    std::vector<Work> all;
    for (auto& list : parsedLists(text, UnknownNames::haveNumbers, problem)) {
        if (list.path.empty()) {
            problem = say("a list does not tell its path behind '# file:'");
            return {};
        }
        const auto path = list.path;
        const auto item = isNoted || !list.item.empty() ? std::optional(list.item) : std::nullopt;
        all.push_back({path, replacingBy(std::move(list)), false, item});
    }
    if (!problem && all.empty())
        problem = say("the text holds no list");
    return all;
}

/// The lists of notes, one by one. One that the system was writing when it stopped is none: it was
/// not changed yet.
std::vector<std::string_view> notedLists(std::string_view text) {
    constexpr std::string_view end = "\n\n";
    std::vector<std::string_view> lists;
    for (auto next = text.find(end); next != text.npos; next = text.find(end)) {
        lists.push_back(text.substr(0, next + end.size()));
        text.remove_prefix(next + end.size());
    }
    return lists;
}

/// Takes the notes out of the way, and keeps those `lists` of them that could not be taken back.
std::string setAside(const JournalFolder& notes, const std::string& name, std::string_view lists) {
    Problem problem;
    const auto path = notes.keepAside(name, lists, problem);
    if (problem)
        return message({say("%1.", *problem)});
    notes.remove(name);
    return message({say("What could not be taken back is kept; '%1' tries it again.",
                        "morvane acl --restore " + escaped(path.string()))});
}

Outcome runUndo(const ChangeOptions& options, const ChangeParts& parts, Journal& journal,
                const Style& style) {
    Problem problem;
    const auto notes = JournalFolder::opened(Journal::folder(), false, problem);
    if (problem)
        return misused(*problem);
    auto names = notes ? notes->names() : std::vector<std::string>();
    std::string text;
    for (; !names.empty(); names.pop_back()) {
        text = notes->content(names.back(), problem);
        if (problem)
            return misused(*problem);
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
    const auto all = worksOf(text, true, problem);
    if (!problem && all.size() != lists.size())
        problem = say("these are no notes of a change");
    if (problem) {
        auto outcome = misused(say("%1: %2", escaped(notes->pathOf(last).string()), *problem));
        if (!options.dryRun)
            outcome.message += setAside(*notes, last, text);
        return outcome;
    }
    Changing changing(options, parts, journal, style);
    auto outcome = changing.run(all);
    const bool isDone = outcome.exitCode == ExitSuccess || outcome.exitCode == ExitFailure ||
                        outcome.exitCode == ExitStoredOtherwise;
    if (options.dryRun || !isDone)
        return outcome;
    std::string failed;
    for (const auto each : changing.failedWorks())
        failed += lists[each];
    if (failed.empty())
        notes->remove(last);
    else
        outcome.message += setAside(*notes, last, failed);
    return outcome;
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
        return {ExitFailure, {}, message({say("%1.", *problem), say("Nothing was changed.")})};
    if (!text)
        return {ExitSuccess, {}, message({say("nothing was changed.")})};
    const auto list = oneList(*text, problem);
    if (!list)
        return misused(*problem);
    // The text is of what was shown; it would undo what another program has changed since.
    const auto shown = digestOf(*entries);
    const ListChange change = [&, replacing = replacingBy(*list)](ChangedList& now) -> Problem {
        if (now.item().digest != shown)
            return say("another program has changed the list since it was shown");
        return replacing(now);
    };
    return Changing(options, parts, journal, style).run({{path, change, false}});
}

}  // namespace

std::string changeLine(std::size_t done) {
    return countedPhrase("%1 list", "%1 lists", done).localized();
}

Outcome runChange(const ChangeOptions& options, const ChangeParts& parts, Journal& journal,
                  const Style& style) {
    if (options.undo)
        return runUndo(options, parts, journal, style);
    if (options.inEditor)
        return runInEditor(options, parts, journal, style);
    Problem problem;
    std::vector<Work> all;
    if (!options.restore.empty()) {
        const auto text = contentOfFile(options.restore, problem);
        if (!problem)
            all = worksOf(text, false, problem);
        if (problem)
            return misused(*problem);
    } else {
        Outcome failure;
        const auto change = changeOf(options, parts, problem, failure);
        if (problem)
            return misused(*problem);
        if (!change)
            return failure;
        for (const auto& path : options.paths)
            all.push_back({path, *change, options.recursive});
    }
    if (std::any_of(all.begin(), all.end(), [](const Work& work) { return work.path.empty(); }))
        return {ExitUsage, {}, message({say("the path is empty; name a file or a folder.")})};
    return Changing(options, parts, journal, style).run(all);
}

Outcome runSave(const SaveOptions& options, const ChangeParts& parts) {
    const bool isOutput = options.file == "-";
    Outcome outcome;
    std::string lists;
    std::size_t saved = 0;
    std::size_t heldBack = 0;
    const auto fail = [&](const std::string& path, const NSErrorRef& error) {
        outcome.message += failureMessage(
            say("cannot read the access-control list of '%1'", escaped(path)), *error);
        outcome.exitCode = std::max(outcome.exitCode, exitCodeOf(*error));
        outcome.error = error;
    };
    const auto save = [&](const std::string& path, bool) {
        const auto entries = parts.source(NSURL::fileURLWithPath(path));
        if (entries) {
            lists += listAsText(path, *entries);
            heldBack += holdsBack(*entries) ? 1 : 0;
            ++saved;
        } else {
            fail(path, entries.error());
        }
        return !parts.progress || parts.progress(saved);
    };
    const auto cannotList = [&](const std::string& path, const NSError& why) {
        outcome.message += failureMessage(say("cannot list '%1'", escaped(path)), why);
        outcome.exitCode = std::max(outcome.exitCode, exitCodeOf(why));
    };
    for (const auto& path : options.paths) {
        if (!walkItems(path, options.recursive, {parts.contents, parts.facts, save, cannotList}))
            return {ExitInterrupted, {}, message({say("stopped. Not all lists were saved.")})};
    }
    if (heldBack != 0)
        outcome.message += heldBackMessage(heldBack);
    if (isOutput) {
        outcome.output = std::move(lists);
        return outcome;
    }
    // What was saved there before is worth more than nothing.
    if (saved != 0) {
        if (const auto problem = writeFile(options.file, lists)) {
            outcome.exitCode = ExitFailure;
            outcome.message += message({*problem});
            return outcome;
        }
    }
    outcome.output =
        options.json ? jsonDocument("acl", {{"saved", saved}}, outcome)
                     : countedPhrase("%1 list saved.", "%1 lists saved.", saved).localized() + '\n';
    return outcome;
}

}  // namespace morvane
