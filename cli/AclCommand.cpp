// SPDX-License-Identifier: MIT
#include "AclCommand.h"

#include "Failure.h"

namespace morvane {

Outcome runAcl(const AclOptions& options, const AclSource& source, const Style& style) {
    if (options.path.empty())
        return {ExitUsage, {}, message({say("the path is empty; name a file or a folder.")})};
    auto entries = source(NSURL::fileURLWithPath(options.path));
    if (!entries)
        return {exitCodeOf(*entries.error()),
                {},
                failureMessage(
                    say("cannot read the access-control list of '%1'", escaped(options.path)),
                    *entries.error())};
    sortCanonically(*entries);
    return {ExitSuccess,
            options.json ? entriesAsJson(*entries) : entriesAsTable(*entries, options.tree, style),
            {}};
}

}  // namespace morvane
