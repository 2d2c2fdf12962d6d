// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSURL.h>
#include <MorvaneOperation/platform/foundation/Result.h>

#include <functional>
#include <string>
#include <vector>

#include "Outcome.h"

/// `morvane ls DIR`: lists a folder in its own order.
namespace morvane {

struct LsOptions {
    std::string path;
    bool json = false;
};

using ContentsSource = std::function<Result<std::vector<NSURL>>(const NSURL& directory)>;

Outcome runLs(const LsOptions& options, const ContentsSource& source);

}  // namespace morvane
