// SPDX-License-Identifier: MIT
#include "RenameCommand.h"

#include <cerrno>
#include <nlohmann/json.hpp>

#include "Failure.h"
#include "JsonDocument.h"
#include "Text.h"

namespace morvane {
namespace {

Json jsonOfItems(const RenameOptions& options, const MVFileRenames& answer) {
    auto array = Json::array();
    for (std::size_t i = 0; i < answer.urls.size(); ++i)
        array.push_back({{"from", jsonOfPath(options.words[2 * i])},
                         {"to", jsonOfPath(answer.urls[i].path())},
                         {"error", jsonOfCode(answer.codes[i])}});
    return array;
}

std::string reasonOf(std::int64_t code) {
    if (code == EOPNOTSUPP)
        return say(
            "this file system cannot rename it without the risk of overwriting; where "
            "nobody else changes the folder, mv can");
    return NSError::errorWithDomain(NSPOSIXErrorDomain, code)->localizedDescription();
}

/// The items that were not renamed, each with the reason.
std::string failedItems(const RenameOptions& options, const std::vector<std::int64_t>& codes) {
    std::size_t failed = 0;
    std::string items;
    for (std::size_t i = 0; i < codes.size(); ++i) {
        if (codes[i] == 0)
            continue;
        ++failed;
        items += "  '" + escaped(options.words[2 * i]) + "': " + escaped(reasonOf(codes[i])) + '\n';
    }
    return message({say("%1 of %2 items could not be renamed:", failed, codes.size())}) + items;
}

Outcome outcomeOf(const RenameOptions& options, const MVFileRenames& answer, bool whole) {
    if (!answer.error)
        return {};
    const auto suggestion = answer.error->localizedRecoverySuggestion();
    Outcome outcome{exitCodeOf(*answer.error), {}, {}, answer.error};
    // If everything was refused, the error has a suggestion.
    if (whole && !suggestion && outcome.exitCode == ExitFailure) {
        outcome.message = failedItems(options, answer.codes);
        return outcome;
    }
    outcome.message =
        message({say("cannot rename: %1", escaped(answer.error->localizedDescription()))}) +
        helpLines(*answer.error, Effect::changes);
    return outcome;
}

}  // namespace

Outcome runRename(const RenameOptions& options, const RenameSink& sink) {
    std::vector<NSURL> urls;
    std::vector<std::string> names;
    for (std::size_t i = 0; i + 1 < options.words.size(); i += 2) {
        if (options.words[i].empty())
            return {ExitUsage, {}, message({say("a path is empty; name a file or a folder.")})};
        urls.push_back(NSURL::fileURLWithPath(options.words[i]));
        names.push_back(options.words[i + 1]);
        if (!isUtf8(names.back()))
            return {ExitUsage,
                    {},
                    message({say("the new name '%1' of '%2' is not UTF-8; choose one that is.",
                                 escaped(names.back()), escaped(options.words[i])),
                             say("Nothing was renamed.")})};
    }
    const auto answer = sink(urls, names);
    // A service may answer for fewer items than it was asked about.
    const bool whole = answer.urls.size() == urls.size() && answer.codes.size() == urls.size();
    auto outcome = outcomeOf(options, answer, whole);
    if (options.json && whole)
        outcome.output = jsonDocument("rename", {{"items", jsonOfItems(options, answer)}}, outcome);
    return outcome;
}

}  // namespace morvane
