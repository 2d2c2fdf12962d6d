// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/archive/PropertyListBytes.h>
#include <MorvaneOperation/platform/archive/fast/LargeList.h>
#include <MorvaneOperation/platform/archive/fast/PropertyListFront.h>
#include <MorvaneOperation/platform/archive/fast/SharedTexts.h>

#include <array>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

/// Builds one binary property list ("bplist00") value by value, then writes it.
///
///     PropertyListWriter list;
///     auto root = list.dictionary(keys, values);
///     list.write(root, bytes);
///
/// Values are added before what holds them. A writer can be used again after clear(), and keeps its
/// memory.
///
/// A list is small while little is known of it: how wide its references are is settled when all are
/// there. A large one is better written while its values come, see beginLarge().
namespace morvane {

class PropertyListWriter {
  public:
    /// A value that was added.
    using Ref = std::uint32_t;
    using Bytes = std::vector<std::uint8_t>;

    /// Every list starts with the texts of `front`, whose Refs are 0, 1, 2, ... It outlives the
    /// writer. `mostNarrow`: so many values of a large list are written with references of three
    /// bytes; 2^24 or less.
    explicit PropertyListWriter(const PropertyListFront* front = nullptr,
                                std::size_t mostNarrow = std::size_t{1} << 24);

    /// From now on it is a list that starts with that front.
    void clear(const PropertyListFront* front = nullptr);
    /// Makes room for `count` values that each hold a few others.
    void reserveMore(std::size_t count);
    /// The list will have so many values and take so many bytes, roughly: from now on values are
    /// written as they are added, see LargeList. What would make such a list longer than 4 GB
    /// throws NSInvalidArgumentException. Once it is large, a call only makes room.
    void beginLarge(std::size_t values, std::size_t bytes);
    /// Where the values of a large list are written; null while it is small.
    LargeList* large() { return isLarge_ ? &large_ : nullptr; }
    std::size_t valueCount() const {
        return isLarge_ ? large_.valueCount() : front_->count() + nodes_.size();
    }
    /// Bytes that the writer has for the list, and keeps after clear() but for what it took over.
    std::size_t memory() const;
    /// Bytes that the list would take by now, roughly.
    std::size_t size() const {
        constexpr std::size_t offsetEach = 4;
        return bytes_ + refs_.size() * 2 + large_.size() + valueCount() * offsetEach;
    }

    Ref boolean(bool value) {
        const auto ref = booleans_[value ? 1 : 0];
        return ref != none ? ref : newBoolean(value);
    }
    Ref integer(std::int64_t value) {
        const auto bits = static_cast<std::uint64_t>(value);
        if (isLarge_) {
            return large_.add(property_list_bytes::mostIntegerBytes, [bits](std::uint8_t* p) {
                return property_list_bytes::putInteger(p, bits);
            });
        }
        return add(Kind::integer, 0, bits, property_list_bytes::integerSize(bits));
    }
    Ref real(double value);
    /// UTF-8. Throws NSInvalidArgumentException if it is not.
    Ref string(std::string_view text);
    /// The same text gives the same value. For texts that occur often and live as long as the list.
    Ref sharedString(std::string_view text) {
        const auto known = shared_.find(text);
        return known != SharedTexts::none ? known : newSharedString(text);
    }
    Ref data(std::span<const std::uint8_t> bytes);
    /// The same of bytes that are taken over, not copied, if they are many.
    Ref ownedData(Bytes&& bytes);
    /// A data value whose bytes `fill(Bytes&)` appends.
    template <class Fill>
    Ref data(Fill&& fill) {
        const auto start = arena_.size();
        fill(arena_);
        return addBytes(Kind::data, start, 1);
    }
    /// `value` below 2^31, best from 0 upwards without gaps: all up to the largest are written. (In
    /// the large part of a list each call adds one; keep its result.)
    Ref uid(std::uint32_t value) {
        if (value >= uidCount_) {
            if (isLarge_)
                return large_.uid(value);
            uidCount_ = value + 1;
        }
        return uidBit | value;
    }
    Ref array(std::span<const Ref> elements);
    /// `keysAndValues`: key, value, key, value, ...
    Ref dictionary(std::span<const Ref> keysAndValues) {
        return isLarge_ ? largeDictionary(keysAndValues) : smallDictionary(keysAndValues);
    }

    /// Appends the whole list to `out`. A large one can be written once.
    void write(Ref root, Bytes& out) { writeList(root, out, nullptr); }
    /// The same, but what was taken over is handed on: the list is what is in `out`, which was
    /// empty, and then what is returned.
    std::vector<Bytes> writeInPieces(Ref root, Bytes& out);

  private:
    enum class Kind : std::uint8_t {
        no,
        yes,
        integer,
        real,
        ascii,
        sharedAscii,
        utf16,
        data,
        ownedData,
        array,
        dictionary
    };
    static constexpr Ref none = 0xffffffff;
    /// Marks the reference to a UID, which has no node: the UIDs are written after all nodes.
    static constexpr Ref uidBit = LargeList::uidBit;

    struct Node {
        Node(Kind k, std::uint32_t c, std::uint64_t p) : kind(k), count(c), payload(p) {}
        Kind kind;
        std::uint32_t count;
        /// The value, where it starts in arena_ or refs_, its index in owned_, or a shared text's
        /// address.
        std::uint64_t payload;
    };
    Ref newBoolean(bool value);
    Ref newSharedString(std::string_view text);
    /// Throws NSInvalidArgumentException for what is too long for a count.
    static std::uint32_t checkedCount(std::size_t count);

    /// `size`: the bytes that the node will take, without its references.
    Ref add(Kind kind, std::uint32_t count, std::uint64_t payload, std::size_t size) {
        nodes_.emplace_back(kind, count, payload);
        bytes_ += size;
        if (isLarge_)
            flush();
        return static_cast<Ref>(valueCount() - 1);
    }
    /// What arena_ holds from `start` on, in units of `unit` bytes.
    Ref addBytes(Kind kind, std::size_t start, std::size_t unit);
    static std::uint64_t numberOf(Ref ref, std::uint64_t firstUid) {
        return (ref & uidBit) != 0 ? firstUid + (ref & ~uidBit) : ref;
    }
    template <class PutRef>
    std::uint8_t* putNode(std::uint8_t* p, const Node& node, PutRef&& putRef) const;
    /// Where owned data is missing, by its order; null if it is copied.
    using Gaps = std::vector<std::size_t>;
    void writeList(Ref root, Bytes& out, Gaps* gaps);
    template <class RefInteger>
    void writeSized(Ref root, Bytes& out, Gaps* gaps) const;
    template <class RefInteger, class Offset>
    void writeTable(Ref root, Bytes& out, std::size_t table, Gaps* gaps) const;
    template <class RefInteger, class Offset, bool inPieces>
    void writeAll(Ref root, Bytes& out, std::size_t table, Gaps* gaps) const;
    std::size_t uidBytes() const;
    /// Writes the nodes into large_, and forgets them.
    void flush();
    Ref largeDictionary(std::span<const Ref> keysAndValues);
    Ref smallDictionary(std::span<const Ref> keysAndValues);

    const PropertyListFront* front_;
    std::vector<Node> nodes_;
    std::vector<Ref> refs_;
    Bytes arena_;
    std::vector<Bytes> owned_;
    std::size_t bytes_ = 0;
    SharedTexts shared_;
    std::uint32_t uidCount_ = 0;
    bool isLarge_ = false;
    LargeList large_;
    Ref booleans_[2] = {none, none};
};

}  // namespace morvane
