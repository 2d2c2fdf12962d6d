#include <MorvaneOperation/platform/archive/PropertyListWriter.h>
#include <MorvaneOperation/platform/archive/Unicode.h>
#include <MorvaneOperation/platform/foundation/NSException.h>

#include <bit>
#include <cstring>
#include <limits>

namespace morvane {
namespace {

constexpr std::string_view magic = "bplist00";

template <class T>
T bigEndian(T value) {
    static_assert(std::endian::native == std::endian::little);
    if constexpr (sizeof(T) == 2) {
        return __builtin_bswap16(value);
    } else if constexpr (sizeof(T) == 4) {
        return __builtin_bswap32(value);
    } else if constexpr (sizeof(T) == 8) {
        return __builtin_bswap64(value);
    } else {
        return value;
    }
}

template <class T>
std::uint8_t* put(std::uint8_t* p, T value) {
    const T big = bigEndian(value);
    std::memcpy(p, &big, sizeof big);
    return p + sizeof big;
}

std::uint8_t* putInteger(std::uint8_t* p, std::uint64_t value) {
    if (value <= 0xff) {
        *p++ = 0x10;
        return put(p, static_cast<std::uint8_t>(value));
    }
    if (value <= 0xffff) {
        *p++ = 0x11;
        return put(p, static_cast<std::uint16_t>(value));
    }
    if (value <= 0xffffffff) {
        *p++ = 0x12;
        return put(p, static_cast<std::uint32_t>(value));
    }
    *p++ = 0x13;
    return put(p, value);
}

std::uint8_t* putMarker(std::uint8_t* p, unsigned type, std::uint32_t count) {
    if (count < 15) {
        *p++ = static_cast<std::uint8_t>(type | count);
        return p;
    }
    *p++ = static_cast<std::uint8_t>(type | 15);
    return putInteger(p, count);
}

/// The longest marker with its count.
constexpr std::size_t maxMarker = 1 + 9;

template <class T>
void putOffsets(std::vector<std::uint8_t>& out, const std::vector<std::uint64_t>& offsets) {
    const auto at = out.size();
    out.resize(at + offsets.size() * sizeof(T));
    auto* p = out.data() + at;
    for (const auto offset : offsets)
        p = put(p, static_cast<T>(offset));
}

bool isAscii(std::string_view text) {
    const char* p = text.data();
    std::size_t left = text.size();
    std::uint64_t all = 0;
    for (; left >= sizeof all; p += sizeof all, left -= sizeof all) {
        std::uint64_t eight = 0;
        std::memcpy(&eight, p, sizeof eight);
        all |= eight;
    }
    for (; left > 0; ++p, --left)
        all |= static_cast<unsigned char>(*p);
    return (all & 0x8080808080808080U) == 0;
}

}  // namespace

void PropertyListWriter::clear() {
    nodes_.clear();
    refs_.clear();
    arena_.clear();
    shared_.clear();
    ++list_;
    uids_.clear();
    booleans_[0] = booleans_[1] = none;
}

std::uint32_t PropertyListWriter::checkedCount(std::size_t count) {
    if (count > std::numeric_limits<std::uint32_t>::max()) {
        throw NSException(NSInvalidArgumentException, "A value is too long to be archived.");
    }
    return static_cast<std::uint32_t>(count);
}

PropertyListWriter::Ref PropertyListWriter::boolean(bool value) {
    auto& ref = booleans_[value ? 1 : 0];
    if (ref == none)
        ref = add({value ? Kind::yes : Kind::no, 0, 0});
    return ref;
}

PropertyListWriter::Ref PropertyListWriter::integer(std::int64_t value) {
    return add({Kind::integer, 0, static_cast<std::uint64_t>(value)});
}

PropertyListWriter::Ref PropertyListWriter::real(double value) {
    return add({Kind::real, 0, std::bit_cast<std::uint64_t>(value)});
}

PropertyListWriter::Ref PropertyListWriter::string(std::string_view text) {
    const auto start = arena_.size();
    if (isAscii(text)) {
        arena_.insert(arena_.end(), text.begin(), text.end());
        return add({Kind::ascii, checkedCount(text.size()), start});
    }
    if (!appendUtf16BigEndian(text, arena_)) {
        throw NSException(NSInvalidArgumentException, "A text that is archived must be UTF-8.");
    }
    return add({Kind::utf16, checkedCount((arena_.size() - start) / 2), start});
}

PropertyListWriter::Ref PropertyListWriter::sharedString(std::string_view text) {
    const auto address = reinterpret_cast<std::uintptr_t>(text.data());
    auto& recent = recent_[(address ^ address >> 6) % recent_.size()];
    if (recent.text == text.data() && recent.size == text.size() && recent.list == list_)
        return recent.ref;
    recent = {text.data(), text.size(), list_, none};
    for (const auto& known : shared_) {
        if (known.text == text)
            return recent.ref = known.ref;
    }
    recent.ref = string(text);
    shared_.push_back({text, recent.ref});
    return recent.ref;
}

PropertyListWriter::Ref PropertyListWriter::data(std::span<const std::uint8_t> bytes) {
    const auto start = arena_.size();
    arena_.insert(arena_.end(), bytes.begin(), bytes.end());
    return add({Kind::data, checkedCount(bytes.size()), start});
}

PropertyListWriter::Ref PropertyListWriter::uid(std::uint32_t value) {
    if (value >= uids_.size())
        uids_.resize(value + 1, none);
    auto& ref = uids_[value];
    if (ref == none)
        ref = add({Kind::uid, 0, value});
    return ref;
}

PropertyListWriter::Ref PropertyListWriter::array(std::span<const Ref> elements) {
    const auto start = refs_.size();
    refs_.insert(refs_.end(), elements.begin(), elements.end());
    return add({Kind::array, checkedCount(elements.size()), start});
}

PropertyListWriter::Ref PropertyListWriter::dictionary(std::span<const Ref> keysAndValues) {
    const auto start = refs_.size();
    const auto count = keysAndValues.size() / 2;
    refs_.resize(start + keysAndValues.size());
    for (std::size_t i = 0; i < count; ++i) {
        refs_[start + i] = keysAndValues[2 * i];
        refs_[start + count + i] = keysAndValues[2 * i + 1];
    }
    return add({Kind::dictionary, checkedCount(count), start});
}

template <class RefInteger>
void PropertyListWriter::writeNodes(Bytes& out, std::size_t start) {
    // No value takes more than its marker, its bytes and its references.
    out.resize(start + magic.size() + nodes_.size() * maxMarker + arena_.size() +
               refs_.size() * sizeof(RefInteger));
    auto* const begin = out.data() + start;
    auto* p = begin;
    std::memcpy(p, magic.data(), magic.size());
    p += magic.size();
    offsets_.resize(nodes_.size());
    auto* offset = offsets_.data();
    for (const auto& node : nodes_) {
        *offset++ = static_cast<std::uint64_t>(p - begin);
        switch (node.kind) {
            case Kind::no:
                *p++ = 0x08;
                break;
            case Kind::yes:
                *p++ = 0x09;
                break;
            case Kind::integer:
                if (static_cast<std::int64_t>(node.payload) < 0) {
                    *p++ = 0x13;
                    p = put(p, node.payload);
                } else {
                    p = putInteger(p, node.payload);
                }
                break;
            case Kind::real:
                *p++ = 0x23;
                p = put(p, node.payload);
                break;
            case Kind::ascii:
                p = putMarker(p, 0x50, node.count);
                std::memcpy(p, arena_.data() + node.payload, node.count);
                p += node.count;
                break;
            case Kind::utf16:
                p = putMarker(p, 0x60, node.count);
                std::memcpy(p, arena_.data() + node.payload, std::size_t{node.count} * 2);
                p += std::size_t{node.count} * 2;
                break;
            case Kind::data:
                p = putMarker(p, 0x40, node.count);
                if (node.count)
                    std::memcpy(p, arena_.data() + node.payload, node.count);
                p += node.count;
                break;
            case Kind::uid: {
                // A UID's marker holds its length less one.
                auto* const marker = p;
                p = putInteger(p, node.payload);
                *marker = static_cast<std::uint8_t>(0x80 | (p - marker - 2));
                break;
            }
            case Kind::array:
            case Kind::dictionary: {
                const bool isArray = node.kind == Kind::array;
                p = putMarker(p, isArray ? 0xA0 : 0xD0, node.count);
                const auto* ref = refs_.data() + node.payload;
                const auto* const end = ref + (isArray ? node.count : std::size_t{node.count} * 2);
                for (; ref != end; ++ref)
                    p = put(p, static_cast<RefInteger>(*ref));
                break;
            }
        }
    }
    out.resize(start + static_cast<std::size_t>(p - begin));
}

void PropertyListWriter::write(Ref root, Bytes& out) {
    const auto start = out.size();
    std::uint8_t refSize = 4;
    if (nodes_.size() <= 0x100) {
        refSize = 1;
        writeNodes<std::uint8_t>(out, start);
    } else if (nodes_.size() <= 0x10000) {
        refSize = 2;
        writeNodes<std::uint16_t>(out, start);
    } else {
        writeNodes<std::uint32_t>(out, start);
    }
    const std::uint64_t table = out.size() - start;
    std::uint8_t offsetSize = 8;
    if (table <= 0xff) {
        offsetSize = 1;
        putOffsets<std::uint8_t>(out, offsets_);
    } else if (table <= 0xffff) {
        offsetSize = 2;
        putOffsets<std::uint16_t>(out, offsets_);
    } else if (table <= 0xffffffff) {
        offsetSize = 4;
        putOffsets<std::uint32_t>(out, offsets_);
    } else {
        putOffsets<std::uint64_t>(out, offsets_);
    }
    const auto trailer = out.size();
    out.resize(trailer + 32);
    auto* p = out.data() + trailer + 6;
    *p++ = offsetSize;
    *p++ = refSize;
    p = put(p, std::uint64_t{nodes_.size()});
    p = put(p, std::uint64_t{root});
    put(p, table);
}

}  // namespace morvane
