// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVFileClient.h>
#include <MorvaneOperation/MVFileSizeItem.h>
#include <MorvaneOperation/platform/foundation/NSError.h>
#include <MorvaneOperation/platform/foundation/NSURL.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Outcome.h"

/// `morvane size PATH...`: adds up what is at and below each path.
namespace morvane {

struct SizeOptions {
    std::vector<std::string> paths;
    bool json = false;
    /// Make units of 1024 (of 1000) the user's default, for all programs that use it.
    bool base2 = false;
    bool base10 = false;
};

using SizeList = std::vector<std::shared_ptr<MVFileSizeItem>>;

/// Called with what is known so far (nothing, if the service merely asks); answers whether to go
/// on.
using SizeProgress = std::function<bool(const SizeList& sizes)>;
using SizeSource = std::function<MVFileSizes(const std::vector<NSURL>& urls)>;

Outcome runSize(const SizeOptions& options, const SizeSource& source);

/// The line that tells how far the work is: items done, bytes, rate, time.
std::string progressLine(const SizeList& sizes, std::chrono::duration<double> elapsed);

}  // namespace morvane
