#pragma once

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

    void clear();

    Ref boolean(bool value);
    Ref integer(std::int64_t value);
    Ref real(double value);
    /// UTF-8. Throws NSInvalidArgumentException if it is not.
    Ref string(std::string_view text);
    /// The same text gives the same value. For texts that occur often and live as long as the list.
    Ref sharedString(std::string_view text);
    Ref data(std::span<const std::uint8_t> bytes);
    /// A data value whose bytes `fill(Bytes&)` appends.
    template <class Fill>
    Ref data(Fill&& fill) {
        const auto start = arena_.size();
        fill(arena_);
        return add({Kind::data, checkedCount(arena_.size() - start), start});
    }
    Ref uid(std::uint32_t value);
    Ref array(std::span<const Ref> elements);
    /// `keysAndValues`: key, value, key, value, ...
    Ref dictionary(std::span<const Ref> keysAndValues);

    /// Appends the whole list to `out`.
    void write(Ref root, Bytes& out);

  private:
    enum class Kind : std::uint8_t {
        no,
        yes,
        integer,
        real,
        ascii,
        utf16,
        data,
        uid,
        array,
        dictionary
    };
    static constexpr Ref none = 0xffffffff;

    struct Node {
        Kind kind;
        std::uint32_t count;
        std::uint64_t payload;  // the value, or where it starts in arena_ or refs_
    };
    struct Shared {
        std::string_view text;
        Ref ref;
    };
    /// The shared texts of this list by their address, where most are found.
    struct Recent {
        const char* text = nullptr;
        std::size_t size = 0;
        std::uint64_t list = 0;
        Ref ref = none;
    };
    /// Throws NSInvalidArgumentException for what is too long for a count.
    static std::uint32_t checkedCount(std::size_t count);

    Ref add(const Node& node) {
        nodes_.push_back(node);
        return static_cast<Ref>(nodes_.size() - 1);
    }
    template <class RefInteger>
    void writeNodes(Bytes& out, std::size_t start);

    std::vector<Node> nodes_;
    std::vector<Ref> refs_;
    Bytes arena_;
    std::vector<Shared> shared_;
    std::array<Recent, 64> recent_;
    std::uint64_t list_ = 1;
    std::vector<Ref> uids_;
    std::vector<std::uint64_t> offsets_;
    Ref booleans_[2] = {none, none};
};

}  // namespace morvane
