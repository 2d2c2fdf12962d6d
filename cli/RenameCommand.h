// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVFileClient.h>
#include <MorvaneOperation/platform/foundation/NSURL.h>

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

using RenameSink = std::function<MVFileRenames(const std::vector<NSURL>& urls,
                                               const std::vector<std::string>& names)>;

Outcome runRename(const RenameOptions& options, const RenameSink& sink);

}  // namespace morvane
