// SPDX-License-Identifier: MIT
#include "WorkErrors.h"

#include <unistd.h>

#include <cerrno>

#include "RequestErrors.h"

namespace morvane {

std::uint32_t userOfRule(const PathRule& rule) {
    return rule.accountable.value_or(rule.onBehalfOf.value_or(geteuid()));
}

NSErrorRef errorOfWork(WorkEnd end, const NSURL& url) {
    switch (end) {
        case WorkEnd::done:
        case WorkEnd::left:
            return nullptr;
        case WorkEnd::tooMuchLeft:
            return posixError(EBUSY, url,
                              "Earlier requests of yours still wait for a file system that does "
                              "not answer.",
                              "Nothing was begun. Bring that file system back, or unmount it.");
        case WorkEnd::noThread:
            return posixError(EAGAIN, url, "The service has too much to do.",
                              "Nothing was begun. Try again later.");
    }
    return nullptr;
}

NSErrorRef errorOfCancelledWork(const NSURL& url, WorkEnd end) {
    return posixError(ECANCELED, url, "The request was cancelled." + leftText(end));
}

std::string leftText(WorkEnd end) {
    return end == WorkEnd::left ? " A file system does not answer; what it was asked may still be "
                                  "done when it does."
                                : "";
}

std::string notReachedText(const WalkFailures& failures) {
    if (failures.notReached == 0)
        return {};
    const bool isAll = failures.notReached == failures.count;
    return ", and what is below " +
           (failures.count == 1 ? "it"
            : isAll             ? "them"
                                : std::to_string(failures.notReached) + " of them") +
           " was not reached";
}

}  // namespace morvane
