// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ListDifference.h"
#include "ListText.h"
#include "TreeParts.h"

/// The two sides of a comparison: trees of items, and lists that were saved.
namespace morvane {

/// Where the item `name` in a folder is. Items of one side are told by where they are below the one
/// that was named, which is "".
std::string placeIn(const std::string& folder, const std::string& name);

/// One of the two sides.
class ComparedSide {
  public:
    using List = Result<std::optional<ComparedList>>;

    virtual ~ComparedSide() = default;
    virtual std::string pathOf(const std::string& place) const = 0;
    /// What is in the folder, sorted.
    virtual Result<std::vector<std::string>> names(const std::string& place) = 0;
    /// The lists of items that names() tells of, empty for one that has none. `others` are those of
    /// the other side, of which some may be missing.
    virtual std::vector<List> lists(const std::vector<std::string>& places,
                                    const std::vector<const ComparedList*>& others) = 0;
};

/// The item at a path with all that is below it.
class ItemsOfTree final : public ComparedSide {
  public:
    ItemsOfTree(std::string path, const TreeParts& parts) : path_(std::move(path)), parts_(parts) {}

    std::string pathOf(const std::string& place) const override;
    Result<std::vector<std::string>> names(const std::string& place) override;
    std::vector<List> lists(const std::vector<std::string>& places,
                            const std::vector<const ComparedList*>& others) override;

  private:
    const std::string path_;
    const TreeParts& parts_;
};

/// Lists by their places.
class SavedLists final : public ComparedSide {
  public:
    explicit SavedLists(std::map<std::string, ListText> lists) : lists_(std::move(lists)) {}

    std::string pathOf(const std::string& place) const override;
    Result<std::vector<std::string>> names(const std::string& place) override;
    std::vector<List> lists(const std::vector<std::string>& places,
                            const std::vector<const ComparedList*>& others) override;

  private:
    const std::map<std::string, ListText> lists_;
};

}  // namespace morvane
