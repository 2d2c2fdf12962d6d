// SPDX-License-Identifier: MIT
#include "SaveCommand.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "Failure.h"
#include "FileFacts.h"
#include "ItemWalk.h"
#include "JsonDocument.h"
#include "ListText.h"
#include "WrittenFile.h"

namespace morvane {

Outcome runSave(const SaveOptions& options, const ChangeParts& parts) {
    const bool isOutput = options.file == "-";
    Outcome outcome;
    std::string lists;
    std::size_t saved = 0;
    auto failures = Json::array();
    const auto fail = [&](const std::string& path, const NSErrorRef& error) {
        outcome.message += failureMessage(
            say("cannot read the access-control list of '%1'", escaped(path)), *error);
        outcome.exitCode = std::max(outcome.exitCode, exitCodeOf(*error));
        outcome.error = error;
        failures.push_back(jsonOfFailedItem(path, error->localizedDescription()));
    };
    const auto flagsOf = [&](const std::string& path) {
        const auto seen = factsOfNamed(path, parts.facts);
        return seen ? seen->flagsText() : std::string();
    };
    const auto save = [&](const std::string& path, bool) {
        const auto entries = parts.source(NSURL::fileURLWithPath(path));
        if (entries) {
            lists += listAsText(path, *entries, flagsOf(path));
            ++saved;
        } else {
            fail(path, entries.error());
        }
        return lists.size() <= options.mostContent && (!parts.progress || parts.progress(saved));
    };
    const auto cannotList = [&](const std::string& path, const NSError& why) {
        outcome.message += failureMessage(say("cannot list '%1'", escaped(path)), why);
        outcome.exitCode = std::max(outcome.exitCode, exitCodeOf(why));
        failures.push_back(jsonOfFailedItem(path, why.localizedDescription()));
    };
    for (const auto& path : options.paths) {
        if (!walkItems(path, options.recursive,
                       {parts.contents, parts.facts, save, cannotList, !options.crossesMounts})) {
            if (lists.size() <= options.mostContent)
                return {ExitInterrupted, {}, message({say("stopped. Not all lists were saved.")})};
            return {ExitFailure,
                    {},
                    message({say("the lists take more than %1 MiB, which --restore does not read.",
                                 options.mostContent >> 20),
                             say("Nothing was saved. Save parts of the tree, each to a file of its "
                                 "own.")})};
        }
    }
    if (isOutput) {
        outcome.output = std::move(lists);
        return outcome;
    }
    // What was saved in the file before is kept if nothing could be read now.
    if (saved != 0) {
        if (const auto problem = writeFile(options.file, lists)) {
            outcome.exitCode = ExitFailure;
            outcome.message += message({*problem});
            return outcome;
        }
    }
    outcome.output =
        options.json
            ? jsonDocument("acl", {{"saved", saved}, {"failures", std::move(failures)}}, outcome)
            : countedPhrase("%1 list saved.", "%1 lists saved.", saved).localized() + '\n';
    return outcome;
}

}  // namespace morvane
