#include "AclCommand.h"

#include "Failure.h"

namespace morvane {

Outcome runAcl(const AclOptions& options, const AclSource& source, const Style& style) {
    if (options.path.empty())
        return {ExitUsage, {}, "morvane: the path is empty; name a file or a folder.\n"};
    AclAnswer answer = source(NSURL::fileURLWithPath(options.path));
    if (answer.error)
        return {
            exitCodeOf(*answer.error),
            {},
            failureMessage("cannot read the access-control list of", options.path, *answer.error)};
    sortCanonically(answer.entries);
    return {ExitSuccess,
            options.json ? entriesAsJson(answer.entries)
                         : entriesAsTable(answer.entries, options.tree, style),
            {}};
}

}  // namespace morvane
