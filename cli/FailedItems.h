// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "JsonDocument.h"

namespace morvane {

/// An item that could not be changed, and why, for people.
struct FailedItem {
    std::string path;
    std::string why;
};

/// Writes a line for each of them to `file`: the path, in which a tab, a line break or a backslash
/// is a backslash with three octal digits, a tab, and why.
/// Returns what is told of it: lines for standard error if that fails, nothing otherwise.
std::string writtenFailures(const std::string& file, const std::vector<FailedItem>& failures);

Json jsonOfFailures(const std::vector<FailedItem>& failures);

}  // namespace morvane
