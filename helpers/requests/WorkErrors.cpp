// SPDX-License-Identifier: MIT
#include "WorkErrors.h"

#include <MorvaneOperation/MVItemFailures.h>
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
                              phrase("Earlier requests of yours still wait for a file system that "
                                     "does not answer."),
                              phrase("Nothing was begun. Bring that file system back, or unmount "
                                     "it."));
        case WorkEnd::noThread:
            return posixError(EAGAIN, url, phrase("The service has too much to do."),
                              phrase("Nothing was begun. Try again later."));
    }
    return nullptr;
}

NSErrorRef errorOfCancelledWork(const NSURL& url, WorkEnd end) {
    return posixError(ECANCELED, url,
                      sentences({phrase("The request was cancelled."), leftText(end)}));
}

Phrase leftText(WorkEnd end) {
    return end == WorkEnd::left ? phrase(
                                      "A file system does not answer; what it was asked may "
                                      "still be done when it does.")
                                : Phrase();
}

std::vector<NSErrorRef> errorsOfFailures(const WalkFailures& failures) {
    static_assert(maxFailuresKept <= MVMostItemFailures);
    std::vector<NSErrorRef> errors;
    errors.reserve(failures.first.size());
    for (const auto& [path, code] : failures.first) {
        // A client has the system's own texts itself.
        const auto text = code == EREMOTEIO ? textOfFailure(code) : Phrase();
        errors.push_back(posixError(code, NSURL::fileURLWithPath(path), text));
    }
    return errors;
}

Phrase textOfFailure(int code) {
    return code == EREMOTEIO ? phrase("the server of the network mount has stored another list")
                             : Phrase::ofSystemError(code);
}

Phrase sentences(std::vector<Phrase> all) {
    std::erase_if(all, [](const Phrase& each) { return each.empty(); });
    return all.size() == 1 ? all.front() : Phrase::list(" ", all);
}

}  // namespace morvane
