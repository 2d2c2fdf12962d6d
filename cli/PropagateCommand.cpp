// SPDX-License-Identifier: MIT
#include "PropagateCommand.h"

#include <cerrno>
#include <cstdint>

#include "Failure.h"
#include "JsonDocument.h"
#include "Text.h"

namespace morvane {

std::string propagationLine(std::chrono::duration<double> elapsed) {
    return say("propagating, %1 s", static_cast<std::int64_t>(elapsed.count()));
}

std::string propagationAsJson(std::chrono::duration<double> elapsed) {
    return jsonLine("acl", "progress", {{"seconds", static_cast<std::int64_t>(elapsed.count())}});
}

Outcome runPropagate(const PropagateOptions& options, const AclSource& source,
                     const AclSink& sink) {
    if (options.path.empty())
        return {ExitUsage, {}, message({say("the path is empty; name a folder.")})};
    const auto url = NSURL::fileURLWithPath(options.path);
    const auto entries = source(url);
    if (!entries)
        return failed(say("cannot read the access-control list of '%1'", escaped(options.path)),
                      entries.error());
    // In the list's own order, which decides what it means.
    const auto error = sink(*entries, url);
    if (!error)
        return {};
    if (error->domain() == NSPOSIXErrorDomain && error->code() == ECANCELED)
        return {ExitInterrupted,
                {},
                message({escaped(error->localizedDescription()), say("What is changed stays so.")}),
                error};
    return failed(say("cannot propagate the access-control list of '%1'", escaped(options.path)),
                  error, Effect::changes);
}

}  // namespace morvane
