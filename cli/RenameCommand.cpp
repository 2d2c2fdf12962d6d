#include "RenameCommand.h"

#include <nlohmann/json.hpp>

#include "Failure.h"
#include "Text.h"

namespace morvane {
namespace {

std::string asJson(const std::vector<NSURL>& urls, const RenamesAnswer& answer) {
    auto array = nlohmann::ordered_json::array();
    for (std::size_t i = 0; i < answer.urls.size(); ++i)
        array.push_back({{"from", urls[i].absoluteString()},
                         {"url", answer.urls[i].absoluteString()},
                         {"error", answer.codes[i]}});
    constexpr int indent = 2;
    return array.dump(indent, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + '\n';
}

}  // namespace

Outcome runRename(const RenameOptions& options, const RenameSink& sink) {
    std::vector<NSURL> urls;
    std::vector<std::string> names;
    for (std::size_t i = 0; i + 1 < options.words.size(); i += 2) {
        if (options.words[i].empty())
            return {ExitUsage, {}, "morvane: a path is empty; name a file or a folder.\n"};
        urls.push_back(NSURL::fileURLWithPath(options.words[i]));
        names.push_back(options.words[i + 1]);
    }
    const auto answer = sink(urls, names);
    // A service may answer with less than was asked.
    const bool whole = answer.urls.size() == urls.size() && answer.codes.size() == urls.size();
    Outcome outcome;
    if (options.json && whole)
        outcome.output = asJson(urls, answer);
    if (!answer.error)
        return outcome;
    outcome.exitCode = exitCodeOf(*answer.error);
    outcome.message = "morvane: cannot rename: " + escaped(answer.error->localizedDescription());
    outcome.message += '\n';
    // What helps with a single item's error is said of changing the item, not of its name.
    const auto help = outcome.exitCode == ExitService
                          ? advice(*answer.error, Effect::changes)
                          : answer.error->localizedRecoverySuggestion().value_or("");
    if (!help.empty())
        outcome.message += "  " + escaped(help) + '\n';
    for (std::size_t i = 0; whole && urls.size() > 1 && i < urls.size(); ++i) {
        if (answer.codes[i] == 0 || answer.codes[i] == answer.error->code())
            continue;
        const auto reason = NSError::errorWithDomain(NSPOSIXErrorDomain, answer.codes[i]);
        outcome.message += "  " + escaped(options.words[2 * i]) + ": " +
                           escaped(reason->localizedDescription()) + '\n';
    }
    return outcome;
}

}  // namespace morvane
