// SPDX-License-Identifier: MIT
#include "MorvaneError.h"

#include <MorvaneOperation/EntryLosses.h>
#include <MorvaneOperation/MVAclOrigin.h>
#include <MorvaneOperation/MVFileClient.h>
#include <MorvaneOperation/MVItemFailures.h>

#include "QtTexts.h"

using namespace morvane;

QString MorvaneError::text() const {
    return error_ ? shown(error_->description()) : QString();
}

QString MorvaneError::suggestion() const {
    const auto text = error_ ? error_->localizedRecoverySuggestion() : std::nullopt;
    return text ? QString::fromStdString(*text) : QString();
}

MorvaneError::Refusal MorvaneError::refusal() const {
    switch (refusalOfError(error_)) {
        case MVRefusal::denied:
            return Denied;
        case MVRefusal::cancelled:
            return Cancelled;
        case MVRefusal::nobodyToAsk:
            return NobodyToAsk;
        case MVRefusal::none:
            break;
    }
    return NotRefused;
}

bool MorvaneError::isCancellation() const {
    return morvane::isCancellation(error_);
}

bool MorvaneError::isListChanged() const {
    return error_ && error_->domain() == MVAclErrorDomain && error_->code() == MVAclChanged;
}

QStringList MorvaneError::losses() const {
    return error_ ? shownLosses(lossesOfError(*error_)) : QStringList();
}

QList<MorvaneFailure> MorvaneError::failures() const {
    QList<MorvaneFailure> failures;
    if (!error_)
        return failures;
    for (const auto& each : failuresOfError(*error_).errors)
        failures << MorvaneFailure{urlOf(std::get<NSURL>(each->userInfo().at(NSURLErrorKey))),
                                   static_cast<int>(each->code()), shown(each->description())};
    return failures;
}
