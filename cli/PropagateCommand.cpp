// SPDX-License-Identifier: MIT
#include "PropagateCommand.h"

#include <cerrno>
#include <cstdint>

#include "Failure.h"
#include "Text.h"

namespace morvane {

std::string propagationLine(std::chrono::duration<double> elapsed) {
    return "propagating, " + std::to_string(static_cast<std::int64_t>(elapsed.count())) + " s";
}

Outcome runPropagate(const PropagateOptions& options, const AclSource& source,
                     const AclSink& sink) {
    if (options.path.empty())
        return {ExitUsage, {}, "morvane: the path is empty; name a folder.\n"};
    const auto url = NSURL::fileURLWithPath(options.path);
    const auto entries = source(url);
    if (!entries)
        return {exitCodeOf(*entries.error()),
                {},
                failureMessage("cannot read the access-control list of", options.path,
                               *entries.error())};
    // In the list's own order, which decides what it means.
    const auto error = sink(*entries, url);
    if (!error)
        return {};
    if (error->domain() == NSPOSIXErrorDomain && error->code() == ECANCELED)
        return {ExitInterrupted,
                {},
                "morvane: " + escaped(error->localizedDescription()) +
                    "\n  What is changed stays so.\n"};
    return {exitCodeOf(*error),
            {},
            failureMessage("cannot propagate the access-control list of", options.path, *error,
                           Effect::changes)};
}

}  // namespace morvane
