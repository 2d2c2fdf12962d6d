// SPDX-License-Identifier: MIT
#include "AclCommand.h"

#include "EntryJson.h"
#include "Failure.h"

namespace morvane {

Outcome runAcl(const AclOptions& options, const AclSource& source, const Style& style) {
    if (options.path.empty())
        return {ExitUsage, {}, message({say("the path is empty; name a file or a folder.")})};
    auto entries = source(NSURL::fileURLWithPath(options.path));
    if (!entries)
        return failed(say("cannot read the access-control list of '%1'", escaped(options.path)),
                      entries.error());
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
