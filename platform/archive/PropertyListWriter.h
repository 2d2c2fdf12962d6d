#pragma once

#include <MorvaneOperation/platform/archive/PropertyListFront.h>

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
namespace morvane {

class PropertyListWriter {
  public:
    /// A value that was added.
    using Ref = std::uint32_t;
    using Bytes = std::vector<std::uint8_t>;

    /// Every list starts with the texts of `front`, whose Refs are 0, 1, 2, ... It outlives the
    /// writer.
    explicit PropertyListWriter(const PropertyListFront* front = nullptr);

    void clear();
    /// Makes room for `count` values that each hold a few others.
    void reserveMore(std::size_t count);

    Ref boolean(bool value);
    Ref integer(std::int64_t value);
    Ref real(double value);
    /// UTF-8. Throws NSInvalidArgumentException if it is not.
    Ref string(std::string_view text);
    /// The same text gives the same value. For texts that occur often and live as long as the list.
    Ref sharedString(std::string_view text) {
        const auto at = recentAt(text.data());
        for (const auto i : {at, at ^ 1}) {
            const auto& recent = recent_[i];
            if (recent.list == list_ && recent.text == text.data() && recent.size == text.size())
                return recent.ref;
        }
        return newSharedString(text, at);
    }
    Ref data(std::span<const std::uint8_t> bytes);
    /// A data value whose bytes `fill(Bytes&)` appends.
    template <class Fill>
    Ref data(Fill&& fill) {
        const auto start = arena_.size();
        fill(arena_);
        return addBytes(Kind::data, start, 1);
    }
    /// `value` below 2^31, best from 0 upwards without gaps: all up to the largest are written.
    Ref uid(std::uint32_t value) {
        if (value >= uidCount_)
            uidCount_ = value + 1;
        return uidBit | value;
    }
    Ref array(std::span<const Ref> elements);
    /// `keysAndValues`: key, value, key, value, ...
    Ref dictionary(std::span<const Ref> keysAndValues);

    /// Appends the whole list to `out`.
    void write(Ref root, Bytes& out) const;

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
        array,
        dictionary
    };
    static constexpr Ref none = 0xffffffff;
    static constexpr std::size_t recentCount = 256;
    /// Marks the reference to a UID, which has no node: the UIDs are written after all nodes.
    static constexpr Ref uidBit = 0x80000000;

    struct Node {
        Kind kind;
        std::uint32_t count;
        /// The value, where it starts in arena_ or refs_, or a shared text's address.
        std::uint64_t payload;
    };
    struct Shared {
        std::string_view text;
        Ref ref;
    };
    /// The shared texts of this list by their address, where most are found.
    struct Recent {
        const char* text = nullptr;
        std::uint32_t size = 0;
        Ref ref = none;
        std::uint64_t list = 0;
    };
    /// One of the two places of a text.
    static std::size_t recentAt(const char* text) {
        const auto address = reinterpret_cast<std::uintptr_t>(text);
        return (address ^ address >> 8) % recentCount;
    }
    Ref newSharedString(std::string_view text, std::size_t at);
    /// Throws NSInvalidArgumentException for what is too long for a count.
    static std::uint32_t checkedCount(std::size_t count);

    /// `size`: the bytes that the node will take, without its references.
    Ref add(const Node& node, std::size_t size) {
        const auto ref = static_cast<Ref>(frontCount() + nodes_.size());
        nodes_.push_back(node);
        bytes_ += size;
        return ref;
    }
    /// What arena_ holds from `start` on, in units of `unit` bytes.
    Ref addBytes(Kind kind, std::size_t start, std::size_t unit);
    template <class RefInteger>
    void writeSized(Ref root, Bytes& out) const;
    template <class RefInteger, class Offset>
    void writeAll(Ref root, Bytes& out, std::size_t table) const;
    std::size_t uidBytes() const;

    std::size_t frontCount() const { return front_.count(); }

    const PropertyListFront& front_;
    std::vector<Node> nodes_;
    std::vector<Ref> refs_;
    Bytes arena_;
    std::size_t bytes_ = 0;
    std::vector<Shared> shared_;
    std::array<Recent, recentCount> recent_;
    std::uint64_t list_ = 1;
    std::uint32_t uidCount_ = 0;
    Ref booleans_[2] = {none, none};
};

}  // namespace morvane
