// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/archive/fast/PropertyListFront.h>
#include <MorvaneOperation/platform/archive/fast/RecentArchives.h>
#include <MorvaneOperation/platform/foundation/NSObject.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

/// For the rows archive-encode-entry and archive-decode-entry of the bench: what every keyed
/// archive begins with, by its number in those that are written here. An entry is some twenty
/// archives within one. All archives have the same first texts; those of one kind of object have
/// its keys and the descriptions of its classes behind them.
namespace morvane {

enum ArchiveText : std::uint32_t {
    nullText,
    versionKey,
    archiverKey,
    archiverName,
    topKey,
    objectsKey,
    classKey,
    classNameKey,
    classesKey,
    rootClassName,
};

class ArchiveFront : public PropertyListFront {
  public:
    /// The one of all archives.
    static const ArchiveFront& common();

    /// Of archives that have these keys and objects of these classes.
    ArchiveFront(std::span<const std::string_view> keys, std::span<const NSClass* const> classes,
                 const NSBriefCoding* brief = nullptr);

    /// The class that the value of that number describes; null if it describes none.
    const NSClass* classAt(std::uint64_t number) const {
        const auto index = (number - firstClass_) / 2;
        return number >= firstClass_ && index < classes_.size() && (number - firstClass_) % 2 == 1
                   ? classes_[index]
                   : nullptr;
    }
    /// The number of the value that describes the class.
    std::optional<std::uint32_t> descriptionOf(const NSClass& c) const {
        for (std::uint32_t i = 0; i < classes_.size(); ++i) {
            if (classes_[i] == &c)
                return firstClass_ + 2 * i + 1;
        }
        return std::nullopt;
    }

    /// Of the archives that begin with this front; null if none are remembered.
    RecentArchives* recent() const { return recent_.get(); }

  private:
    explicit ArchiveFront(std::span<const std::string_view> texts) : PropertyListFront(texts) {}

    /// Each of two values: the array of its ancestors' names, and its description.
    std::vector<const NSClass*> classes_;
    std::uint32_t firstClass_ = 0;
    std::unique_ptr<RecentArchives> recent_;
};

}  // namespace morvane
