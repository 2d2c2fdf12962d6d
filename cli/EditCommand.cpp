#include "EditCommand.h"

#include <MorvaneOperation/EntryLosses.h>

#include <algorithm>
#include <cerrno>

#include "EditScript.h"
#include "EditedItem.h"
#include "Failure.h"

namespace morvane {

namespace {

constexpr std::int32_t tagDeny = 2;

std::string shown(const EntryList& entries, const EditOptions& options, const Style& style) {
    return options.json ? entriesAsJson(entries) : entriesAsTable(entries, options.tree, style);
}

/// The edited entries in the order in which the item's list has them, as the order decides what
/// they mean. A new entry that denies comes first, one that allows last.
EntryList inOrderOfEvaluation(const EntryList& edited, const EntryList& original) {
    EntryList result;
    const auto holds = [](const EntryList& list, const auto& entry) {
        return std::find(list.begin(), list.end(), entry) != list.end();
    };
    for (const auto& entry : edited) {
        if (!holds(original, entry) && entry->tag() == tagDeny)
            result.push_back(entry);
    }
    for (const auto& entry : original) {
        if (holds(edited, entry))
            result.push_back(entry);
    }
    for (const auto& entry : edited) {
        if (!holds(original, entry) && entry->tag() != tagDeny)
            result.push_back(entry);
    }
    return result;
}

/// `error`, with the entries of its losses counted as `seen` shows them. `sent` is what was
/// refused.
NSErrorRef countedAsSeen(const NSErrorRef& error, const EntryList& sent, const EntryList& seen) {
    const auto losses = lossesOfError(*error);
    if (losses.empty() || losses.size() == maxLossesCarried)
        return error;
    std::vector<std::size_t> numbers;
    for (const auto& entry : sent) {
        const auto found = std::find(seen.begin(), seen.end(), entry);
        numbers.push_back(found == seen.end() ? 0
                                              : static_cast<std::size_t>(found - seen.begin()) + 1);
    }
    auto userInfo = error->userInfo();
    userInfo[NSLocalizedDescriptionKey] = "The file system cannot hold the whole list. " +
                                          textOfLosses(textsOfLosses(losses, numbers));
    return NSError::errorWithDomain(error->domain(), error->code(), std::move(userInfo));
}

Outcome refusal(const NSError& error, const EditOptions& options) {
    auto message = failureMessage("cannot change the access-control list of", options.path, error,
                                  Effect::changes);
    if (!options.lossy && !lossesOfError(error).empty())
        message += "  --lossy accepts the nearest list.\n";
    return {exitCodeOf(error), {}, std::move(message)};
}

}  // namespace

Outcome runAclEdit(const EditOptions& options, const AclSource& source, const AclSink& sink,
                   const AccessSource& access, const AclInteraction& interaction,
                   const Style& style) {
    if (options.path.empty())
        return {ExitUsage, {}, "morvane: the path is empty; name a file or a folder.\n"};
    if (!options.script && !interaction)
        return {ExitUsage,
                {},
                "morvane: --edit without a script wants a terminal.\n"
                "  Write the changes behind --edit, as in: --edit 'add user:alice; permissions "
                "read'\n"};
    const auto url = NSURL::fileURLWithPath(options.path);
    auto answer = source(url);
    if (answer.error)
        return {
            exitCodeOf(*answer.error),
            {},
            failureMessage("cannot read the access-control list of", options.path, *answer.error)};
    const auto inOrder = answer.entries;
    sortCanonically(answer.entries);
    const auto before = shown(answer.entries, options, style);

    EditedItem item(url, answer.entries, access);
    NSErrorRef kindError;
    AclEditor editor(std::move(answer.entries), [&](Problem& problem) {
        const bool folder = item.isFolder(&kindError);
        if (kindError)
            problem = "whether the item is a folder cannot be told";
        return folder;
    });
    const auto save = [&](bool lossy) -> Outcome {
        if (const auto problem = editor.unwritable())
            return {ExitFailure, {}, "morvane: " + *problem + ".\n  Nothing was changed.\n"};

        auto entries = inOrderOfEvaluation(editor.entries(), inOrder);
        if (options.dryRun || lossy) {
            NSErrorRef error;
            const auto sent = entries;
            entries = item.afterWriting(entries, lossy, &error);
            if (error)
                return refusal(*countedAsSeen(error, sent, editor.entries()), options);
        }
        if (options.dryRun) {
            sortCanonically(entries);
            const auto after = shown(entries, options, style);
            if (options.json)
                return {
                    ExitSuccess, "{\n\"before\": " + before + ",\n\"after\": " + after + "}\n", {}};
            std::string message = "morvane: --dry-run, nothing was changed.\n";
            if (item.isAllowDeny())
                message += "  On a network mount the server decides what it stores of it.\n";
            return {ExitSuccess, "Before:\n" + before + "\nAfter:\n" + after, message};
        }
        Outcome outcome;
        if (const auto error = sink(entries, url)) {
            if (exitCodeOf(*error) != ExitStoredOtherwise)
                return refusal(*error, options);
            outcome = {ExitStoredOtherwise,
                       {},
                       "morvane: the list of '" + escaped(options.path) + "' was written. " +
                           escaped(error->localizedDescription()) + "\n  " +
                           escaped(advice(*error, Effect::changes)) + '\n'};
        }
        // What the item has now, which is not always the order of what was written.
        auto written = source(url);
        if (written.error) {
            outcome.message += "morvane: the list was written; it cannot be read back: " +
                               escaped(written.error->localizedDescription()) + '\n';
            return outcome;
        }
        sortCanonically(written.entries);
        outcome.output = shown(written.entries, options, style);
        return outcome;
    };
    if (options.script) {
        const auto problem = runEditScript(*options.script, editor);
        if (kindError)
            return {exitCodeOf(*kindError),
                    {},
                    failureMessage("cannot tell whether there is a folder at", options.path,
                                   *kindError) +
                        "  Nothing was changed.\n"};
        if (problem)
            return {ExitUsage,
                    {},
                    "morvane: the edit script, " + *problem + ".\n  Nothing was changed.\n"};
        return save(options.lossy);
    }
    Outcome outcome;
    const bool saved = interaction(editor, escaped(options.path), [&](bool lossy) -> Problem {
        outcome = save(lossy || options.lossy);
        if (outcome.exitCode != ExitFailure)
            return std::nullopt;
        return outcome.message;
    });
    return saved ? outcome : Outcome{ExitSuccess, {}, "morvane: nothing was changed.\n"};
}

}  // namespace morvane
