// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/Result.h>
#include <MorvaneOperation/platform/xpc/Limits.h>

#include <cstddef>
#include <functional>
#include <vector>

#include "ItemPath.h"

namespace morvane {

/// The items inside a folder, in the folder's own order. A folder whose listing does not fit one
/// message of `messageSize` bytes is an error (EMSGSIZE), not a part of a listing; if `goesOn`,
/// which is called for each item, returns false, the error is ECANCELED.
Result<std::vector<NSURL>> contentsOfDirectory(const NSURL& directory, const PathRule& rule = {},
                                               std::size_t messageSize = limits::messageSize,
                                               const std::function<bool()>& goesOn = {});

}  // namespace morvane
