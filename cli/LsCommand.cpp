// SPDX-License-Identifier: MIT
#include "LsCommand.h"

#include <nlohmann/json.hpp>

#include "Failure.h"
#include "Text.h"

namespace morvane {

Outcome runLs(const LsOptions& options, const ContentsSource& source) {
    if (options.path.empty())
        return {ExitUsage, {}, message({say("the path is empty; name a folder.")})};
    const auto contents = source(NSURL::fileURLWithPath(options.path));
    if (!contents)
        return {exitCodeOf(*contents.error()),
                {},
                failureMessage(say("cannot list '%1'", escaped(options.path)), *contents.error())};
    Outcome outcome;
    if (options.json) {
        auto array = nlohmann::ordered_json::array();
        for (const auto& url : *contents)
            array.push_back({{"name", url.lastPathComponent()}, {"url", url.absoluteString()}});
        constexpr int indent = 2;
        outcome.output =
            array.dump(indent, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + '\n';
    } else {
        for (const auto& url : *contents)
            outcome.output += escaped(url.lastPathComponent()) + '\n';
    }
    return outcome;
}

}  // namespace morvane
