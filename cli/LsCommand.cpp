#include "LsCommand.h"

#include <nlohmann/json.hpp>

#include "Failure.h"
#include "Text.h"

namespace morvane {

Outcome runLs(const LsOptions& options, const ContentsSource& source) {
    if (options.path.empty())
        return {ExitUsage, {}, "morvane: the path is empty; name a folder.\n"};
    const auto answer = source(NSURL::fileURLWithPath(options.path));
    if (answer.error)
        return {exitCodeOf(*answer.error),
                {},
                failureMessage("cannot list", options.path, *answer.error)};
    Outcome outcome;
    if (options.json) {
        auto array = nlohmann::ordered_json::array();
        for (const auto& url : answer.contents)
            array.push_back({{"name", url.lastPathComponent()}, {"url", url.absoluteString()}});
        constexpr int indent = 2;
        outcome.output =
            array.dump(indent, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + '\n';
    } else {
        for (const auto& url : answer.contents)
            outcome.output += escaped(url.lastPathComponent()) + '\n';
    }
    return outcome;
}

}  // namespace morvane
