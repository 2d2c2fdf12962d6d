// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSError.h>
#include <MorvaneOperation/platform/foundation/NSURL.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "Outcome.h"

/// `morvane rename PATH NAME [PATH NAME ...]`: gives items new names in their folders.
namespace morvane {

struct RenameOptions {
    /// Each path followed by the new name.
    std::vector<std::string> words;
    bool json = false;
};

struct RenamesAnswer {
    /// Where each item is now, and 0 or why it has not its new name.
    std::vector<NSURL> urls;
    std::vector<std::int64_t> codes;
    NSErrorRef error;
};

using RenameSink = std::function<RenamesAnswer(const std::vector<NSURL>& urls,
                                               const std::vector<std::string>& names)>;

Outcome runRename(const RenameOptions& options, const RenameSink& sink);

}  // namespace morvane
