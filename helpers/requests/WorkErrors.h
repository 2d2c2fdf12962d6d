// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSError.h>

#include <cstdint>
#include <string>

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
std::string leftText(WorkEnd end);

/// ", and what is below it was not reached", if there is such an item among the failures.
std::string notReachedText(const WalkFailures& failures);

}  // namespace morvane
