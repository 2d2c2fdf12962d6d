// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "Outcome.h"
#include "TreeParts.h"

/// `morvane check TREE`: finds what is likely to be a mistake in the lists of a tree.
namespace morvane {

struct CheckOptions {
    std::string path;
    /// Other file systems below are looked at, too.
    bool crossesMounts = false;
    bool json = false;
    /// Findings are printed as JSON line by line, while the work goes on.
    bool lines = false;
};

/// Ends with ExitDifferent where something was found.
Outcome runCheck(const CheckOptions& options, const TreeParts& parts);

}  // namespace morvane
