// SPDX-License-Identifier: MIT
#include "PropagateCommand.h"

#include <MorvaneOperation/EntryTexts.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <nlohmann/json.hpp>

#include "FailedItems.h"
#include "Failure.h"
#include "ItemWalk.h"
#include "JsonDocument.h"
#include "ListText.h"

namespace morvane {

namespace {

/// What is below a folder.
struct Survey {
    std::size_t files = 0;
    std::size_t folders = 0;
    /// Those that have another owner or owning group than the folder.
    std::size_t others = 0;
    /// Those with a list of their own: more than the rights of a mode, or than what is inherited.
    std::size_t listed = 0;
    /// Those of which nothing could be read.
    std::size_t hidden = 0;

    /// Not even the folder itself could be listed.
    bool isBlind = false;

    std::size_t all() const { return files + folders; }
};

bool hasOwnList(const EntryList& entries, MVAclStorage storage) {
    return std::any_of(entries.begin(), entries.end(), [&](const auto& entry) {
        return storage == MVAclStorage::nfs4 ? !entry->inherited() : entry->isAcl();
    });
}

void addTo(Survey& survey, const EntryList& entries, const MVAclOrigin::Values& folder) {
    const auto list = ItemList::asRead(entries);
    if (!list) {
        ++survey.hidden;
        return;
    }
    const auto& item = list->item();
    ++(item.isDirectory ? survey.folders : survey.files);
    survey.others += item.owner != folder.owner || item.group != folder.group ? 1 : 0;
    survey.listed += hasOwnList(entries, item.storage) ? 1 : 0;
}

std::string textOf(const Survey& survey, const std::string& path,
                   const MVAclOrigin::Values& folder) {
    if (survey.isBlind)
        return say(
            "Everything below '%1' gets what it inherits of its list. You may not look at it.",
            escaped(path));
    // TRANSLATORS: %1 is "12 files", %2 "3 folders", %3 a path.
    auto text = say("%1 and %2 below '%3' get what they inherit of its list.",
                    countedPhrase("%1 file", "%1 files", survey.files),
                    countedPhrase("%1 folder", "%1 folders", survey.folders), escaped(path));
    const auto add = [&](const Phrase& sentence) { text += ' ' + escaped(sentence.localized()); };
    if (survey.listed != 0)
        add(countedPhrase("%1 of them has a list of its own, which goes.",
                          "%1 of them have lists of their own, which go.", survey.listed));
    if (survey.others != 0)
        add(countedPhrase("%1 of them has another owner or group, and gets %2 and %3.",
                          "%1 of them have other owners or groups, and get %2 and %3.",
                          survey.others, ownerText(folder), owningGroupText(folder)));
    if (survey.hidden != 0)
        add(countedPhrase("%1 more cannot be looked at.", "%1 more cannot be looked at.",
                          survey.hidden));
    return text;
}

/// Looks at everything below `path`; empty if the user has stopped it.
std::optional<Survey> surveyed(const std::string& path, const MVAclOrigin::Values& folder,
                               const ChangeParts& parts, const AclSource& source,
                               Journal* journal) {
    Survey survey;
    std::size_t done = 0;
    const auto look = [&](const std::string& each, bool isBelow) {
        if (isBelow) {
            const auto url = NSURL::fileURLWithPath(each);
            const auto entries = source(url);
            addTo(survey, entries ? *entries : EntryList(), folder);
            if (entries && journal)
                journal->record(url.path(), listAsText(url.path(), *entries));
        }
        return !parts.progress || parts.progress(++done);
    };
    const auto cannotList = [&](const std::string& each, const NSError&) {
        survey.isBlind = survey.isBlind || each == path;
        ++survey.hidden;
    };
    const WalkParts walk{parts.contents, parts.facts, look, cannotList, true};
    if (!walkItems(path, true, walk))
        return std::nullopt;
    return survey;
}

Outcome unchanged() {
    return {ExitInterrupted, {}, message({say("nothing was changed.")})};
}

/// An item that failed, named as on the command line where it is below that.
std::string pathOf(const NSError& failure, const PropagateOptions& options) {
    const auto& path = std::get<NSURL>(failure.userInfo().at(NSURLErrorKey)).path();
    const auto top = NSURL::fileURLWithPath(options.path).path() + '/';
    if (!path.starts_with(top))
        return path;
    return options.path + (options.path.ends_with('/') ? "" : "/") + path.substr(top.size());
}

std::vector<FailedItem> failedItems(const NSError& error, const PropagateOptions& options) {
    std::vector<FailedItem> items;
    for (const auto& failure : failuresOfError(error).errors)
        items.push_back({pathOf(*failure, options), failure->localizedDescription()});
    return items;
}

/// How many failures the error's own text names.
constexpr std::size_t failuresInText = 5;

std::string doneText(std::uint64_t done) {
    return countedPhrase("%1 item has what it inherits now.",
                         "%1 items have what they inherit now.", done)
        .localized();
}

/// What people are told of single items, besides the error's own text.
std::string textOf(const PropagateOptions& options, const MVItemCounts& counts,
                   const std::vector<FailedItem>& items) {
    if (options.failures.empty())
        return items.size() > failuresInText ? "  " + say("--failures FILE lists them all.") + '\n'
                                             : std::string();
    auto text = writtenFailures(options.failures, items);
    if (counts.failed > items.size())
        text += "  " +
                countedPhrase("Only the first %1 is listed.", "Only the first %1 are listed.",
                              items.size())
                    .localized() +
                '\n';
    return text;
}

Json jsonOf(const Survey& survey) {
    return {{"files", survey.files},
            {"folders", survey.folders},
            {"ownLists", survey.listed},
            {"otherOwners", survey.others},
            {"notLookedAt", survey.hidden}};
}

/// The outcome, printed for programs if that is asked for.
Outcome printed(const PropagateOptions& options, const std::optional<Survey>& survey,
                const MVItemCounts& counts, const std::vector<FailedItem>& items, Outcome outcome) {
    if (!options.json && !options.lines)
        return outcome;
    const Json members{{"dryRun", options.dryRun},
                       {"below", survey ? jsonOf(*survey) : Json(nullptr)},
                       {"done", counts.done},
                       {"failed", counts.failed},
                       {"failures", jsonOfFailures(items)}};
    outcome.output = options.lines ? lastJsonLine("acl", members, outcome)
                                   : jsonDocument("acl", members, outcome);
    return outcome;
}

}  // namespace

std::string propagationLine(const MVItemCounts& counts, std::chrono::duration<double> elapsed) {
    return countedPhrase("propagating, %1 item, %2 s", "propagating, %1 items, %2 s",
                         counts.done + counts.failed, static_cast<std::int64_t>(elapsed.count()))
        .localized();
}

std::string propagationAsJson(const MVItemCounts& counts, std::chrono::duration<double> elapsed) {
    return jsonLine("acl", "progress",
                    {{"done", counts.done},
                     {"failed", counts.failed},
                     {"seconds", static_cast<std::int64_t>(elapsed.count())}});
}

Outcome runPropagate(const PropagateOptions& options, const ChangeParts& parts,
                     const PropagateParts& propagation, Journal& journal) {
    if (options.path.empty())
        return {ExitUsage, {}, message({say("the path is empty; name a folder.")})};
    const auto url = NSURL::fileURLWithPath(options.path);
    const auto entries = parts.source(url);
    if (!entries)
        return failed(say("cannot read the access-control list of '%1'", escaped(options.path)),
                      entries.error());
    const auto list = ItemList::asRead(*entries);
    std::optional<Survey> survey;
    std::string said;
    if (list && list->item().isDirectory) {
        survey = surveyed(options.path, list->item(), parts, propagation.below,
                          options.dryRun ? nullptr : &journal);
        if (!survey) {
            journal.discard();
            return unchanged();
        }
        said = textOf(*survey, options.path, list->item());
        if (survey->isBlind && !options.dryRun)
            journal.giveUp(say("what the lists are could not be looked at"));
    }
    const bool isForPrograms = options.json || options.lines;
    if (options.dryRun && survey)
        return printed(options, survey, {}, {},
                       {ExitSuccess, said + '\n',
                        isForPrograms ? "" : message({say("--dry-run, nothing was changed.")})});
    if (survey && !options.yes && !isForPrograms && propagation.goesOn) {
        if (journal.whyNot())
            said += ' ' + say("'--undo' cannot take this back: %1.", *journal.whyNot());
        if (!propagation.goesOn(said)) {
            journal.discard();
            return unchanged();
        }
    }
    // The entries stay in the order in which they count.
    const auto propagated = propagation.propagate(*entries, url);
    const auto& error = propagated.error;
    const auto undo = [&] {
        return journal.isKept() ? ' ' + say("'%1' takes the lists back.", parts.undo)
                                : std::string();
    };
    if (!error) {
        const auto counts = propagated.counts.value_or(MVItemCounts{survey ? survey->all() : 0, 0});
        Outcome outcome;
        if (!options.failures.empty())
            outcome.message = writtenFailures(options.failures, {});
        if (propagated.counts || (survey && !survey->isBlind))
            outcome.output = doneText(counts.done) + undo() + '\n';
        return printed(options, survey, counts, {}, std::move(outcome));
    }
    const auto counts = failuresOfError(*error).counts;
    const auto items = failedItems(*error, options);
    const auto told = textOf(options, counts, items);
    if (error->domain() == NSPOSIXErrorDomain && error->code() == ECANCELED)
        return printed(
            options, survey, counts, items,
            {ExitInterrupted,
             {},
             message({escaped(error->localizedDescription()), say("What is changed stays so.")}) +
                 (options.failures.empty() ? "" : told),
             error});
    // A list that cannot be inherited is refused as a whole.
    if (isRefusedRight(*error) ||
        (!lossesOfError(*error).empty() && exitCodeOf(*error) != ExitStoredOtherwise))
        journal.discard();
    auto outcome =
        failed(say("cannot propagate the access-control list of '%1'", escaped(options.path)),
               error, Effect::changes);
    if (counts == MVItemCounts()) {  // as a whole
        if (journal.isKept())
            outcome.message += ' ' + undo() + '\n';
        return outcome;
    }
    // TRANSLATORS: Behind "12 items have what they inherit now."
    const auto failedText = countedPhrase("%1 has not.", "%1 have not.", counts.failed);
    outcome.message +=
        told + "  " + doneText(counts.done) + ' ' + failedText.localized() + undo() + '\n';
    return printed(options, survey, counts, items, std::move(outcome));
}

}  // namespace morvane
