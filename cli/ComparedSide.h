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

/// The place of the item `name` in the folder at the place `folder`. A place is a path below the
/// item that was named on the command line, whose own place is "".
std::string placeIn(const std::string& folder, const std::string& name);

/// One of the two sides.
class ComparedSide {
  public:
    using List = Result<std::optional<ComparedList>>;

    virtual ~ComparedSide() = default;
    virtual std::string pathOf(const std::string& place) const = 0;
    /// The names in the folder, sorted.
    virtual Result<std::vector<std::string>> names(const std::string& place) = 0;
    /// The lists of items that names() has returned; empty for an item without one. `others` are
    /// the lists of the other side, null where it has none.
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
