// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVFileSizeItem.h>
#include <MorvaneOperation/platform/xpc/NSXPCConnection.h>

#include <chrono>
#include <memory>
#include <vector>

#include "ItemPath.h"

namespace morvane {

struct SizesAnswer {
    /// One item for each URL, in their order. What could not be read counts as nothing; the size of
    /// an item that could not be read itself is unknown.
    std::vector<std::shared_ptr<MVFileSizeItem>> sizes;
    /// Null means that all was read. Otherwise a POSIX error that counts what was skipped and
    /// carries the URL of the first; ECANCELED when the client said no, or went away, which tells
    /// of what was skipped by then, too.
    NSErrorRef error;
};

/// Adds up what is at and below each URL; a file with several names counts once within each. Once
/// in an interval the client is told the sizes so far (what is not done is busy) and asked whether
/// to go on. After a no the answer comes soon, also if a file system does not answer.
SizesAnswer sizesOfUrls(const std::vector<NSURL>& urls,
                        const std::weak_ptr<NSXPCConnection>& client, const PathRule& rule = {},
                        std::chrono::milliseconds interval = std::chrono::milliseconds(250));

}  // namespace morvane
