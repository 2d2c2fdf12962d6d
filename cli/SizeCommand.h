// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVFileClient.h>
#include <MorvaneOperation/MVFileSizeItem.h>
#include <MorvaneOperation/platform/foundation/NSError.h>
#include <MorvaneOperation/platform/foundation/NSURL.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "FileFacts.h"
#include "LsCommand.h"
#include "Outcome.h"
#include "Text.h"

/// `morvane size PATH...`: adds up what is at and below each path.
namespace morvane {

enum class SizeOrder { asGiven, bySize, byName };

struct SizeOptions {
    std::vector<std::string> paths;
    /// How many levels below each path are shown as well.
    std::size_t depth = 0;
    /// Of each level, only so many items; 0 means all.
    std::size_t top = 0;
    /// Without one, the paths stay in their order, and what is below them goes by its size.
    std::optional<SizeOrder> order = {};
    bool json = false;
    /// A line of JSON for each thing that happens, instead of one object.
    bool lines = false;
    /// The units of this run are powers of 1024, or of 1000.
    bool base2 = false;
    bool base10 = false;
    /// Whether that choice becomes the user's default, for all programs that have it.
    bool save = false;
};

using SizeList = std::vector<std::shared_ptr<MVFileSizeItem>>;

/// Called with what is known so far (nothing, if the service merely asks); answers whether to go
/// on.
using SizeProgress = std::function<bool(const SizeList& sizes)>;
/// Of the sizes the first `asked` are those that the user has asked for.
using SizeSource = std::function<MVFileSizes(const std::vector<NSURL>& urls, std::size_t asked)>;

/// Where an item and what is in it are looked at.
struct SizeSources {
    SizeSource sizes;
    ContentsSource contents;
    FactsSource facts;
};

Outcome runSize(const SizeOptions& options, const SizeSources& sources, const Style& style);

/// The line that tells how far the work is: items done, bytes, time.
std::string progressLine(const SizeList& sizes, std::chrono::duration<double> elapsed);
/// The same for programs.
std::string progressAsJson(const SizeList& sizes, std::chrono::duration<double> elapsed);

}  // namespace morvane
