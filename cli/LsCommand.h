// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSURL.h>
#include <MorvaneOperation/platform/foundation/Result.h>

#include <functional>
#include <string>
#include <vector>

#include "FileFacts.h"
#include "Outcome.h"

/// `morvane ls DIR`: lists a folder in its own order.
namespace morvane {

struct LsOptions {
    std::string path;
    bool json = false;
    /// With rights, owner, group, size and time in front of each name.
    bool detailed = false;
};

using ContentsSource = std::function<Result<std::vector<NSURL>>(const NSURL& directory)>;

/// What `facts` cannot see of an item is left open.
Outcome runLs(const LsOptions& options, const ContentsSource& source, const FactsSource& facts);

/// `name` in the folder at `path`.
std::string pathIn(const std::string& path, const std::string& name);

}  // namespace morvane
