// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "JsonDocument.h"

namespace morvane {

/// What a dry run would change of the list of the item at a path: the lines that would go, and
/// those that would come, as lists are written to files. There are neither if entries change places
/// only.
class PlannedChange {
  public:
    /// `before` and `after` are lists as they are written to files.
    PlannedChange(std::string path, const std::string& before, const std::string& after);

    /// The path, and the lines below it.
    std::string asText() const;
    Json asJson() const;

  private:
    std::string path_;
    std::vector<std::string> removed_;
    std::vector<std::string> added_;
};

}  // namespace morvane
