// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "JsonDocument.h"
#include "SizeCommand.h"

/// Sizes of items with those of what is below them, some levels down.
namespace morvane {

struct SizeNode {
    /// As the user has written it, or below that.
    std::string path;
    NSURL url;
    /// Null until it is known. What this program has seen itself is not asked for.
    std::shared_ptr<MVFileSizeItem> item = nullptr;
    /// On another file system or a bind mount, which the sizes of the folders above leave out.
    bool isElsewhere = false;
    /// A path whose size is a part of another path's.
    bool isCounted = false;
    std::vector<SizeNode> children = {};
    /// Those that --top leaves out, and what they have together.
    std::size_t others = 0;
    std::int64_t sizeOfOthers = 0;
};

class SizeTree {
  public:
    /// Looks into the folders at and below the paths, as deep as the options say. What cannot be
    /// looked into is shown as if it were empty: the service tells of it when it adds up.
    SizeTree(const SizeOptions& options, const SizeSources& sources);

    /// Asks for all sizes at once. The answer's items are in no order that matters.
    MVFileSizes addUp(const SizeSource& source);

    /// A line for each item under the longest of them: its size, its part of the whole and, below
    /// the paths, its name.
    std::string asTable(const Style& style) const;
    Json asJson() const;
    /// Of all paths together. What stands in another of them, or is named twice, counts once.
    std::int64_t total() const;
    const std::vector<SizeNode>& items() const { return roots_; }

  private:
    /// The node is a folder, or nobody can tell.
    void lookInto(SizeNode& node, const SizeSources& sources, std::size_t levels,
                  std::uint64_t mount);
    /// Marks the paths that the sizes of other paths hold.
    void markCounted(const SizeSources& sources);
    void arrange(std::vector<SizeNode>& nodes, SizeOrder order) const;
    std::string notes() const;

    const SizeOptions& options_;
    std::vector<SizeNode> roots_;
};

/// The sum of sizes, of which negative ones are unknown, and which may be more than there can be.
std::int64_t sumOfSizes(const std::vector<std::int64_t>& sizes);
/// As sizes are shown.
std::string sizeText(std::int64_t bytes);
Json jsonOfSize(const SizeNode& node);

}  // namespace morvane
