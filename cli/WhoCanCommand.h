// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "Outcome.h"
#include "RightHolders.h"
#include "Text.h"

/// `morvane who-can PATH`: tells every user and group with a right to an item, and the entry that
/// gives it.
namespace morvane {

struct WhoCanOptions {
    std::vector<std::string> paths;
    /// The word behind --right; empty for all rights.
    std::string right;
    /// Whether those who have what everyone else has are listed one by one as well.
    bool all = false;
    bool json = false;
};

Outcome runWhoCan(const WhoCanOptions& options, const RightSources& sources, const Style& style);

}  // namespace morvane
