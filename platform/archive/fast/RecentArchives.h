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
    /// Longer archives are not taken.
    static constexpr std::size_t mostBytes = 640;
    /// No more archives are remembered.
    static constexpr std::size_t mostArchives = 256;

    /// Of archives of objects of one class, which begin with so many bytes in common.
    RecentArchives(const NSBriefCoding& coding, const NSClass& c, std::size_t frontSize)
        : coding_(coding), class_(c), frontSize_(frontSize) {}
    ~RecentArchives();
    RecentArchives(const RecentArchives&) = delete;
    RecentArchives& operator=(const RecentArchives&) = delete;

    /// Whether such an archive, of an object of class `c`, may be known.
    bool takes(NSDataView archive, const NSClass& c) const {
        return &c == &class_ && archive.size() <= mostBytes;
    }

    /// Makes the object again that the archive holds, and takes of `budget` what reading it took.
    /// Null if the archive is not known, or the budget is too small.
    std::shared_ptr<NSObject> recall(NSDataView archive, NSKeyedUnarchiver& coder,
                                     NSDecodingBudget& budget);

    /// Whether the archive, which is not known, is worth remembering: it was met before.
    bool isMetAgain(NSDataView archive) noexcept;

    /// An archive that is remembered, with what reading it takes of a budget.
    struct Record {
        NSData archive;
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
    const NSClass& class_;
    const std::size_t frontSize_;
    std::array<Place, mostArchives> places_;
};

}  // namespace morvane
