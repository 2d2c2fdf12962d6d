// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "Outcome.h"
#include "RightHolders.h"
#include "Text.h"

/// `morvane who-can PATH`: every user and group with a right to an item, and through which entry.
namespace morvane {

struct WhoCanOptions {
    std::vector<std::string> paths;
    /// One of the choices behind --right; empty for all of them.
    std::string right;
    /// Those who have what everyone else has are told one by one, too.
    bool all = false;
    bool json = false;
};

Outcome runWhoCan(const WhoCanOptions& options, const RightSources& sources, const Style& style);

}  // namespace morvane
