// SPDX-License-Identifier: MIT
#include "AclCommand.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "EntryJson.h"
#include "Failure.h"

namespace morvane {

namespace {

Outcome cannotRead(const std::string& path, const NSErrorRef& error) {
    return failed(say("cannot read the access-control list of '%1'", escaped(path)), error);
}

/// Shows one of several lists; if it cannot be read, `all` gets the error and the exit status as
/// well.
Json jsonOfList(const std::string& path, const AclSource& source, Outcome& all) {
    if (path.empty()) {
        all.exitCode = std::max(all.exitCode, ExitFailure);
        all.message += message({say("the path is empty; name a file or a folder.")});
        return {{"item", nullptr}, {"entries", nullptr}};
    }
    auto entries = source(NSURL::fileURLWithPath(path));
    if (!entries) {
        auto outcome = cannotRead(path, entries.error());
        all.exitCode = std::max(all.exitCode, outcome.exitCode);
        all.message += outcome.message;
        all.error = outcome.error;
        return {{"item", jsonOfListedItem(path, {})}, {"entries", nullptr}};
    }
    const auto item = jsonOfListedItem(path, *entries);
    sortCanonically(*entries);
    return {{"item", item}, {"entries", jsonOfEntries(*entries)}};
}

/// The lists of several items, each below its path.
Outcome runAclOfAll(const AclOptions& options, const AclSource& source, const Style& style) {
    auto paths = options.others;
    paths.insert(paths.begin(), options.path);
    Outcome all;
    auto lists = Json::array();
    for (const auto& path : paths) {
        auto one = options;
        one.path = path;
        one.others.clear();
        if (options.json) {
            lists.push_back(jsonOfList(path, source, all));
            continue;
        }
        auto outcome = runAcl(one, source, style);
        all.exitCode = std::max(all.exitCode, outcome.exitCode);
        all.message += outcome.message;
        if (outcome.exitCode == ExitSuccess)
            all.output += (all.output.empty() ? "" : "\n") + style.heading(escaped(path)) + '\n' +
                          outcome.output;
        else
            all.error = outcome.error;
    }
    if (options.json)
        all.output = jsonDocument("acl", {{"lists", std::move(lists)}}, all);
    return all;
}

}  // namespace

Outcome runAcl(const AclOptions& options, const AclSource& source, const Style& style) {
    if (!options.others.empty())
        return runAclOfAll(options, source, style);
    if (options.path.empty())
        return {ExitUsage, {}, message({say("the path is empty; name a file or a folder.")})};
    auto entries = source(NSURL::fileURLWithPath(options.path));
    if (!entries)
        return cannotRead(options.path, entries.error());
    const auto item = jsonOfListedItem(options.path, *entries);
    sortCanonically(*entries);
    if (options.json)
        return {ExitSuccess,
                jsonDocument("acl", {{"item", item}, {"entries", jsonOfEntries(*entries)}}, {}),
                {}};
    return {ExitSuccess,
            itemAsLines(*entries, style) + entriesAsTable(*entries, options.tree, style),
            {}};
}

}  // namespace morvane
