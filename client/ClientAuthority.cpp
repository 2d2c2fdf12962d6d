// SPDX-License-Identifier: MIT
#include "ClientAuthority.h"

#include <MorvaneOperation/MVAuthorization.h>
#include <MorvaneOperation/MVFileClient.h>

#include <cerrno>
#include <utility>

namespace morvane {

namespace {

bool isAboutRights(const NSError& error) {
    return error.domain() == NSOSStatusErrorDomain || error.domain() == MVErrorDomainLaunchd;
}

}  // namespace

NSErrorRef helperMissing() {
    if (MVAuthorization::sharedAuthorization())
        return NSError::errorWithDescription(
            NSCocoaErrorDomain, NSXPCConnectionInvalid,
            phrase("The connection to the privileged helper has ended."));
    return NSError::errorWithDescription(
        NSOSStatusErrorDomain, errAuthorizationInvalidSet,
        phrase("The rights of this program are not defined on this system, and only root may "
               "define them."));
}

ClientAuthority::ClientAuthority() : queue_(DispatchQueue::serialQueue(nullptr)) {}

void ClientAuthority::obtain(const char* right, std::uint64_t begun,
                             std::shared_ptr<MVFileConnector> connector,
                             std::function<bool()> isWanted,
                             std::function<void(NSErrorRef)> obtained) {
    queue_->async([self = shared_from_this(), right, begun, connector = std::move(connector),
                   isWanted = std::move(isWanted), obtained = std::move(obtained)] {
        if (!isWanted())
            return;
        const auto& refusal = self->refusals_[right];
        if (refusal.when > begun)
            return obtained(refusal.error);
        connector->getAuthConnectionForRight(right, [self, right, connector,
                                                     obtained](NSErrorRef error) {
            // A refusal is reported before the call returns, and so on
            // this queue.
            if (error && isAboutRights(*error))
                self->refusals_[right] = {self->now(), error};
            if (!error && (!MVAuthorization::sharedAuthorization() || !connector->authConnection()))
                error = helperMissing();
            obtained(std::move(error));
        });
    });
}

MVRefusal refusalOfError(const NSErrorRef& error) {
    const auto is = [&](const std::string& domain, std::int64_t code) {
        return error && error->domain() == domain && error->code() == code;
    };
    // The right itself, or the one to install the helper before.
    if (is(NSOSStatusErrorDomain, errAuthorizationDenied) ||
        is(MVErrorDomainLaunchd, kSMErrorAuthorizationFailure))
        return MVRefusal::denied;
    if (is(NSOSStatusErrorDomain, errAuthorizationCanceled) ||
        is(MVErrorDomainLaunchd, kSMErrorLaunchDeniedByUser))
        return MVRefusal::cancelled;
    if (is(NSOSStatusErrorDomain, errAuthorizationInteractionNotAllowed))
        return MVRefusal::nobodyToAsk;
    return MVRefusal::none;
}

bool isCancellation(const NSErrorRef& error) {
    return error && error->domain() == NSPOSIXErrorDomain && error->code() == ECANCELED;
}

}  // namespace morvane
