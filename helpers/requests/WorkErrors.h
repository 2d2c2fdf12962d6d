// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSError.h>

#include <cstdint>
#include <string>

#include "ItemPath.h"
#include "SupervisedWork.h"
#include "TreeWalk.h"

/// How work on files has ended, in words.
namespace morvane {

/// Whose work a request is.
std::uint32_t userOfRule(const PathRule& rule);

/// Null if the work was begun. `url` is what it was to be done with.
NSErrorRef errorOfWork(WorkEnd end, const NSURL& url);

/// Of a request that its client said no to.
NSErrorRef errorOfCancelledWork(const NSURL& url, WorkEnd end);

/// What is said besides of work that was left; empty of other work.
std::string leftText(WorkEnd end);

/// ", and what is below it was not reached", if there is such an item among the failures.
std::string notReachedText(const WalkFailures& failures);

}  // namespace morvane
