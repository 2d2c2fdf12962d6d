// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSError.h>
#include <MorvaneOperation/platform/foundation/Phrase.h>

#include <cstdint>
#include <vector>

#include "ItemPath.h"
#include "SupervisedWork.h"
#include "TreeWalk.h"

/// Puts into words how work on files has ended.
namespace morvane {

/// The user whose work a request is.
std::uint32_t userOfRule(const PathRule& rule);

/// Returns null if the work was begun. `url` is the item of the work.
NSErrorRef errorOfWork(WorkEnd end, const NSURL& url);

/// Returns the error of a request that its client has cancelled.
NSErrorRef errorOfCancelledWork(const NSURL& url, WorkEnd end);

/// Returns what a text adds for work that was left; empty for other work.
Phrase leftText(WorkEnd end);

/// Returns an error for each failure that is kept, with its URL.
std::vector<NSErrorRef> errorsOfFailures(const WalkFailures& failures);

/// Returns why an item has failed with this errno value.
Phrase textOfFailure(int code);

/// Returns those that are not empty, one behind the other.
Phrase sentences(std::vector<Phrase> all);

}  // namespace morvane
