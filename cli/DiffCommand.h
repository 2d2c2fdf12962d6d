// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "Outcome.h"
#include "Text.h"
#include "TreeParts.h"

/// `morvane diff A B`: tells in what the list of one item differs from that of another.
namespace morvane {

struct DiffOptions {
    /// The item whose list comes first; empty if that is a saved one.
    std::string before;
    std::string after;
    /// A file with lists, as --save and getfacl write them; "-" is standard input.
    std::string saved;
    /// Whether what is below the two items is compared as well.
    bool recursive = false;
    bool json = false;
};

/// Ends with ExitDifferent where the lists differ.
Outcome runDiff(const DiffOptions& options, const TreeParts& parts, const Style& style);

}  // namespace morvane
