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
        for (const auto& work : all) {
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
            if (!walkItems(work.path, work.recursive, walk)) {
                isStopped_ = !misuse_;
                break;
            }
        }
        return ended(all);
    }

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
            ChangedList list{*entries, (*read)->origin(), isBelow};
            const auto before = listAsText(url.path(), *entries);
            EditedItem item(url, *entries, parts_.access);
            const bool leftCreatorWithout = item.leavesCreatorWithout(*entries);
            if (const auto problem = work.change(list)) {
                // What is wrong with the words is wrong for every item.
                if (!isBelow && done_ == 0)
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
            ++changed_;
            return true;
        }
        // Undo does not note what it takes back: it would only take back itself.
        if (!options_.undo)
            journal_.record(url.path(), before);
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
    auto lists = parsedLists(text, problem);
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
    for (auto& list : parsedLists(text, problem)) {
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

Outcome runUndo(const ChangeOptions& options, const ChangeParts& parts, Journal& journal,
                const Style& style) {
    Problem problem;
    const auto notes = JournalFolder::opened(Journal::folder(), false, problem);
    if (problem)
        return misused(*problem);
    const auto names = notes ? notes->names() : std::vector<std::string>();
    if (names.empty())
        return {ExitFailure, {}, message({say("there is no change to take back.")})};
    const auto& last = names.back();
    const auto text = notes->content(last, problem);
    if (problem)
        return misused(*problem);
    const auto all = worksOf(text, true, problem);
    if (problem)
        return misused(say("%1: %2", escaped(notes->pathOf(last).string()), *problem));
    auto outcome = Changing(options, parts, journal, style).run(all);
    if (outcome.exitCode == ExitSuccess && !options.dryRun)
        notes->remove(last);
    return outcome;
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
    return Changing(options, parts, journal, style).run({{path, replacingBy(*list), false}});
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
    std::ofstream file;
    if (!isOutput) {
        file.open(options.file, std::ios::binary);
        if (!file)
            return {ExitFailure,
                    {},
                    message({say("'%1' could not be written: %2", escaped(options.file),
                                 Phrase::ofSystemError(errno))})};
    }
    std::size_t saved = 0;
    const auto fail = [&](const std::string& path, const NSErrorRef& error) {
        outcome.message += failureMessage(
            say("cannot read the access-control list of '%1'", escaped(path)), *error);
        outcome.exitCode = std::max(outcome.exitCode, exitCodeOf(*error));
        outcome.error = error;
    };
    for (const auto& path : options.paths) {
        const WalkParts walk{parts.contents, parts.facts,
                             [&](const std::string& each, bool) {
                                 const auto entries = parts.source(NSURL::fileURLWithPath(each));
                                 if (!entries)
                                     fail(each, entries.error());
                                 else if (isOutput)
                                     outcome.output += listAsText(each, *entries);
                                 else
                                     file << listAsText(each, *entries);
                                 saved += entries ? 1 : 0;
                                 return !parts.progress || parts.progress(saved);
                             },
                             [&](const std::string& each, const NSError& why) {
                                 outcome.message +=
                                     failureMessage(say("cannot list '%1'", escaped(each)), why);
                                 outcome.exitCode = std::max(outcome.exitCode, exitCodeOf(why));
                             }};
        if (!walkItems(path, options.recursive, walk))
            return {ExitInterrupted, {}, message({say("stopped. Not all lists were saved.")})};
    }
    if (!isOutput && !file.flush()) {
        outcome.exitCode = ExitFailure;
        outcome.message += message({say("'%1' could not be written: %2", escaped(options.file),
                                        Phrase::ofSystemError(errno))});
    }
    if (!isOutput)
        outcome.output =
            options.json
                ? jsonDocument("acl", {{"saved", saved}}, outcome)
                : countedPhrase("%1 list saved.", "%1 lists saved.", saved).localized() + '\n';
    return outcome;
}

}  // namespace morvane
