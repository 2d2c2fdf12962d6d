// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/archive/NSKeyedUnarchiver.h>
#include <MorvaneOperation/platform/foundation/NSObject.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

/// For the row archive-decode-entry of the bench: the boxes of an entry stand in archives of their
/// own, of which there are a few dozen different ones, the same in every entry. One that was read
/// twice is known from then on, byte by byte, with the values that its object was made of. Part of
/// ArchiveFront.h; used on any thread.
namespace morvane {

class RecentArchives {
  public:
    /// Longer archives are not asked for here.
    static constexpr std::size_t mostBytes = 640;
    /// No more archives are remembered.
    static constexpr std::size_t mostArchives = 256;

    /// Of archives that begin with so many bytes in common.
    RecentArchives(const NSBriefCoding& coding, std::size_t frontSize)
        : coding_(coding), frontSize_(frontSize) {}
    ~RecentArchives();
    RecentArchives(const RecentArchives&) = delete;
    RecentArchives& operator=(const RecentArchives&) = delete;

    /// Makes the object again that the archive holds, and takes of `budget` what reading it took.
    /// Null if the archive is not known, its object is not of class `c`, or the budget is too
    /// small.
    std::shared_ptr<NSObject> recall(NSDataView archive, const NSClass& c, NSKeyedUnarchiver& coder,
                                     NSDecodingBudget& budget);

    /// Whether the archive, which is not known, is worth remembering: it was met before.
    bool isMetAgain(NSDataView archive) noexcept;

    /// An archive that is remembered, with what reading it takes of a budget.
    struct Record {
        NSData archive;
        const NSClass* c = nullptr;
        NSBriefCoding::Values values;
        std::uint64_t bytes = 0;
        std::uint64_t objects = 0;
    };
    void remember(std::unique_ptr<Record> record) noexcept;

    const NSBriefCoding& coding() const { return coding_; }

  private:
    /// What is known of the archives whose hash leads here.
    struct Place {
        /// Of the archive that was met last, with its lowest bit set once it was met again; 0 for
        /// none.
        std::atomic<std::uint64_t> hash = 0;
        /// Whoever uses it takes it away meanwhile.
        std::atomic<Record*> record = nullptr;
    };
    class Taken;

    std::uint64_t hashOf(NSDataView archive) const;
    Place* placeOf(std::uint64_t hash);

    const NSBriefCoding& coding_;
    const std::size_t frontSize_;
    std::array<Place, mostArchives> places_;
};

}  // namespace morvane
