// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSURL.h>
#include <MorvaneOperation/platform/foundation/Result.h>

#include <functional>
#include <string>
#include <vector>

#include "FileFacts.h"
#include "Outcome.h"
#include "Text.h"

/// `morvane ls [PATH...]`: lists folders, each in its own order.
namespace morvane {

struct LsOptions {
    /// A file lists itself.
    std::vector<std::string> paths;
    bool json = false;
    /// Whether rights, owner, group, size and time are shown in front of each name.
    bool detailed = false;
};

using ContentsSource = std::function<Result<std::vector<NSURL>>(const NSURL& directory)>;

/// What `facts` cannot see of an item is left open. Of several, those that cannot be listed are
/// told, and the others are listed.
Outcome runLs(const LsOptions& options, const ContentsSource& source, const FactsSource& facts,
              const Style& style);

/// The path of `name` in the folder at `path`.
std::string pathIn(const std::string& path, const std::string& name);

}  // namespace morvane
