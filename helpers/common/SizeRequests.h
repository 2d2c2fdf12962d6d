#pragma once

#include <MorvaneOperation/MVFileSizeItem.h>
#include <MorvaneOperation/platform/xpc/NSXPCConnection.h>

#include <memory>
#include <vector>

#include "ItemPath.h"
#include "SizeWalker.h"

namespace morvane {

struct SizesAnswer {
    /// One item for each URL, in their order; what could not be read counts as nothing.
    std::vector<std::shared_ptr<MVFileSizeItem>> sizes;
    /// Null means that all was read. Otherwise a POSIX error that counts what was skipped and
    /// carries the URL of the first; ECANCELED when the client said no, or went away, which tells
    /// of what was skipped by then, too.
    NSErrorRef error;
};

/// Adds up what is at and below each URL. A few times a second the client is told the sizes so far
/// (what is not done is busy) and asked whether to go on.
SizesAnswer sizesOfUrls(const std::vector<NSURL>& urls,
                        const std::weak_ptr<NSXPCConnection>& client, const PathRule& rule = {},
                        SizeWalker::Pace pace = {});

}  // namespace morvane
