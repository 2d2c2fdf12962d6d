// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "Outcome.h"
#include "Text.h"
#include "TreeParts.h"

/// `morvane diff A B`: what the list of one item says otherwise than that of another.
namespace morvane {

struct DiffOptions {
    /// The item whose list comes first; empty if that is a saved one.
    std::string before;
    std::string after;
    /// A file with lists, as --save and getfacl write them; "-" is standard input.
    std::string saved;
    /// And what is below both.
    bool recursive = false;
    bool json = false;
};

/// Ends with ExitDifferent where the lists differ.
Outcome runDiff(const DiffOptions& options, const TreeParts& parts, const Style& style);

}  // namespace morvane
