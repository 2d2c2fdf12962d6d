// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/archive/PropertyListBytes.h>
#include <MorvaneOperation/platform/archive/PropertyListWriter.h>
#include <MorvaneOperation/platform/archive/Unicode.h>
#include <MorvaneOperation/platform/foundation/NSException.h>

#include <algorithm>
#include <bit>
#include <exception>
#include <limits>

namespace morvane {

using namespace property_list_bytes;

namespace {

const PropertyListFront& emptyFront() {
    static const auto& front = *new PropertyListFront({});
    return front;
}

}  // namespace

PropertyListWriter::PropertyListWriter(const PropertyListFront* front, std::size_t mostNarrow)
    : front_(front ? front : &emptyFront()), large_(mostNarrow) {}

void PropertyListWriter::clear(const PropertyListFront* front) {
    front_ = front ? front : &emptyFront();
    nodes_.clear();
    refs_.clear();
    arena_.clear();
    owned_.clear();
    bytes_ = 0;
    shared_.clear();
    uidCount_ = 0;
    booleans_[0] = booleans_[1] = none;
    isLarge_ = false;
    large_.clear();
}

std::size_t PropertyListWriter::memory() const {
    auto memory = nodes_.capacity() * sizeof(Node) + refs_.capacity() * sizeof(Ref) +
                  arena_.capacity() + large_.memory();
    for (const auto& bytes : owned_)
        memory += bytes.capacity();
    return memory;
}

void PropertyListWriter::reserveMore(std::size_t count) {
    constexpr std::size_t nodesEach = 4;
    constexpr std::size_t refsEach = 8;
    nodes_.reserve(nodes_.size() + count * nodesEach);
    refs_.reserve(refs_.size() + count * refsEach);
}

void PropertyListWriter::beginLarge(std::size_t values, std::size_t bytes) {
    large_.reserve(values, bytes);
    if (isLarge_)
        return;
    large_.begin(*front_, nodes_.size(), uidCount_);
    isLarge_ = true;
    flush();
    for (std::uint32_t value = 0; value < uidCount_; ++value)
        large_.uid(value);
}

void PropertyListWriter::flush() {
    const auto most = bytes_ + refs_.size() * sizeof(Ref);
    for (const auto& node : nodes_) {
        large_.add(most, [&](std::uint8_t* p) {
            return putNode(p, node, [refs = large_.refs()](std::uint8_t* at, Ref ref) {
                return refs.put(at, ref);
            });
        });
    }
    nodes_.clear();
    refs_.clear();
    arena_.clear();
    owned_.clear();
    bytes_ = 0;
}

std::uint32_t PropertyListWriter::checkedCount(std::size_t count) {
    if (count > std::numeric_limits<std::uint32_t>::max()) {
        throw NSException(NSInvalidArgumentException, "A value is too long to be archived.");
    }
    return static_cast<std::uint32_t>(count);
}

PropertyListWriter::Ref PropertyListWriter::newBoolean(bool value) {
    return booleans_[value ? 1 : 0] = add(value ? Kind::yes : Kind::no, 0, 0, 1);
}

PropertyListWriter::Ref PropertyListWriter::real(double value) {
    return add(Kind::real, 0, std::bit_cast<std::uint64_t>(value), 1 + sizeof value);
}

PropertyListWriter::Ref PropertyListWriter::addBytes(Kind kind, std::size_t start,
                                                     std::size_t unit) {
    const auto size = arena_.size() - start;
    const auto count = checkedCount(size / unit);
    return add(kind, count, start, markerSize(count) + size);
}

PropertyListWriter::Ref PropertyListWriter::string(std::string_view text) {
    const auto start = arena_.size();
    if (isAscii(text)) {
        arena_.insert(arena_.end(), text.begin(), text.end());
        return addBytes(Kind::ascii, start, 1);
    }
    if (!appendUtf16BigEndian(text, arena_)) {
        throw NSException(NSInvalidArgumentException, "A text that is archived must be UTF-8.");
    }
    return addBytes(Kind::utf16, start, 2);
}

PropertyListWriter::Ref PropertyListWriter::newSharedString(std::string_view text) {
    if (const auto number = front_->find(text)) {
        shared_.add(text, *number);
        return *number;
    }
    const auto address = reinterpret_cast<std::uintptr_t>(text.data());
    const auto count = checkedCount(text.size());
    const auto ref = isAscii(text)
                         ? add(Kind::sharedAscii, count, address, markerSize(count) + text.size())
                         : string(text);
    shared_.add(text, ref);
    return ref;
}

PropertyListWriter::Ref PropertyListWriter::data(std::span<const std::uint8_t> bytes) {
    const auto start = arena_.size();
    arena_.insert(arena_.end(), bytes.begin(), bytes.end());
    return addBytes(Kind::data, start, 1);
}

PropertyListWriter::Ref PropertyListWriter::ownedData(Bytes&& bytes) {
    constexpr std::size_t least = std::size_t{64} << 10;
    if (isLarge_ || bytes.size() < least)
        return data(std::span<const std::uint8_t>(bytes));
    const auto count = checkedCount(bytes.size());
    owned_.push_back(std::move(bytes));
    return add(Kind::ownedData, count, owned_.size() - 1, markerSize(count) + count);
}

PropertyListWriter::Ref PropertyListWriter::array(std::span<const Ref> elements) {
    const auto count = checkedCount(elements.size());
    if (isLarge_) {
        return large_.add(mostMarkerBytes + elements.size_bytes(), [&](std::uint8_t* p) {
            p = putMarker(p, 0xA0, count);
            const auto refs = large_.refs();
            for (const auto ref : elements)
                p = refs.put(p, ref);
            return p;
        });
    }
    const auto start = refs_.size();
    refs_.insert(refs_.end(), elements.begin(), elements.end());
    return add(Kind::array, count, start, markerSize(count));
}

PropertyListWriter::Ref PropertyListWriter::largeDictionary(std::span<const Ref> keysAndValues) {
    const auto count = checkedCount(keysAndValues.size() / 2);
    return large_.add(mostMarkerBytes + keysAndValues.size_bytes(), [&](std::uint8_t* p) {
        const auto refs = large_.refs();
        p = putMarker(p, 0xD0, count);
        for (std::size_t i = 0; i < keysAndValues.size(); i += 2)
            p = refs.put(p, keysAndValues[i]);
        for (std::size_t i = 1; i < keysAndValues.size(); i += 2)
            p = refs.put(p, keysAndValues[i]);
        return p;
    });
}

PropertyListWriter::Ref PropertyListWriter::smallDictionary(std::span<const Ref> keysAndValues) {
    const auto count = checkedCount(keysAndValues.size() / 2);
    const auto start = refs_.size();
    refs_.resize(start + keysAndValues.size());
    auto* const keys = refs_.data() + start;
    for (std::size_t i = 0; i < count; ++i) {
        keys[i] = keysAndValues[2 * i];
        keys[count + i] = keysAndValues[2 * i + 1];
    }
    return add(Kind::dictionary, count, start, markerSize(count));
}

std::size_t PropertyListWriter::uidBytes() const {
    // Of two, three and five bytes.
    const std::size_t count = uidCount_;
    return 2 * count + (count > 0x100 ? count - 0x100 : 0) +
           (count > 0x10000 ? 2 * (count - 0x10000) : 0);
}

// Of each kind of reference there is one loop that calls it.
template <class PutRef>
[[gnu::always_inline]] inline std::uint8_t* PropertyListWriter::putNode(std::uint8_t* p,
                                                                        const Node& node,
                                                                        PutRef&& putRef) const {
    switch (node.kind) {
        case Kind::no:
            *p++ = 0x08;
            return p;
        case Kind::yes:
            *p++ = 0x09;
            return p;
        case Kind::integer:
            return putInteger(p, node.payload);
        case Kind::real:
            *p++ = 0x23;
            return put(p, node.payload);
        case Kind::ascii:
            p = putMarker(p, 0x50, node.count);
            return putBytes(p, arena_.data() + node.payload, node.count);
        case Kind::sharedAscii:
            p = putMarker(p, 0x50, node.count);
            // NOLINTNEXTLINE(performance-no-int-to-ptr): nodes are kept small
            return putBytes(p, reinterpret_cast<const char*>(node.payload), node.count);
        case Kind::utf16:
            p = putMarker(p, 0x60, node.count);
            return putBytes(p, arena_.data() + node.payload, std::size_t{node.count} * 2);
        case Kind::data:
            p = putMarker(p, 0x40, node.count);
            return putBytes(p, arena_.data() + node.payload, node.count);
        case Kind::ownedData:
            p = putMarker(p, 0x40, node.count);
            return putBytes(p, owned_[node.payload].data(), node.count);
        case Kind::array:
        case Kind::dictionary:
            break;
    }
    const bool isArray = node.kind == Kind::array;
    p = putMarker(p, isArray ? 0xA0 : 0xD0, node.count);
    const auto* ref = refs_.data() + node.payload;
    const auto* const end = ref + (isArray ? node.count : std::size_t{node.count} * 2);
    for (; ref != end; ++ref)
        p = putRef(p, *ref);
    return p;
}

template <class RefInteger, class Offset, bool inPieces>
void PropertyListWriter::writeAll(Ref root, Bytes& out, std::size_t table,
                                  [[maybe_unused]] Gaps* gaps) const {
    const auto start = out.size();
    const auto firstUid = valueCount();
    const auto count = firstUid + uidCount_;
    std::size_t missing = 0;
    if constexpr (inPieces) {
        for (const auto& bytes : owned_)
            missing += bytes.size();
    }
    out.resize(start + table - missing + count * sizeof(Offset) + trailerSize);
    auto* const begin = out.data() + start;
    auto* p = begin;
    auto* offset = begin + table - missing;
    std::size_t missed = 0;
    const auto front = front_->bytes(sizeof(RefInteger));
    p = putBytes(p, front.data(), front.size());
    const auto offsets = front_->offsets(sizeof(RefInteger), sizeof(Offset));
    offset = putBytes(offset, offsets.data(), offsets.size());
    for (const auto& node : nodes_) {
        offset = put(offset, static_cast<Offset>(p - begin + missed));
        if constexpr (inPieces) {
            if (node.kind == Kind::ownedData) {
                p = putMarker(p, 0x40, node.count);
                gaps->push_back(static_cast<std::size_t>(p - out.data()));
                missed += node.count;
                continue;
            }
        }
        p = putNode(p, node, [&](std::uint8_t* at, Ref ref) {
            return put(at, static_cast<RefInteger>(numberOf(ref, firstUid)));
        });
    }
    for (std::uint32_t uid = 0; uid < uidCount_; ++uid) {
        offset = put(offset, static_cast<Offset>(p - begin + missed));
        p = putUid(p, uid);
    }
    putTrailer(offset, sizeof(Offset), sizeof(RefInteger), count, numberOf(root, firstUid), table);
}

template <class RefInteger, class Offset>
void PropertyListWriter::writeTable(Ref root, Bytes& out, std::size_t table, Gaps* gaps) const {
    if (gaps)
        writeAll<RefInteger, Offset, true>(root, out, table, gaps);
    else
        writeAll<RefInteger, Offset, false>(root, out, table, nullptr);
}

template <class RefInteger>
void PropertyListWriter::writeSized(Ref root, Bytes& out, Gaps* gaps) const {
    const std::size_t table = front_->bytes(sizeof(RefInteger)).size() + bytes_ +
                              refs_.size() * sizeof(RefInteger) + uidBytes();
    // What is taken over is too long for offsets of two bytes.
    if (table <= 0xff) {
        writeAll<RefInteger, std::uint8_t, false>(root, out, table, nullptr);
    } else if (table <= 0xffff) {
        writeAll<RefInteger, std::uint16_t, false>(root, out, table, nullptr);
    } else if (table <= 0xffffffff) {
        writeTable<RefInteger, std::uint32_t>(root, out, table, gaps);
    } else {
        writeTable<RefInteger, std::uint64_t>(root, out, table, gaps);
    }
}

std::vector<PropertyListWriter::Bytes> PropertyListWriter::writeInPieces(Ref root, Bytes& out) {
    Gaps gaps;
    writeList(root, out, &gaps);
    std::vector<Bytes> pieces;
    for (std::size_t i = 0; i < gaps.size(); ++i) {
        const auto next = i + 1 < gaps.size() ? gaps[i + 1] : out.size();
        pieces.push_back(std::move(owned_[i]));
        pieces.emplace_back(out.begin() + gaps[i], out.begin() + next);
    }
    if (!gaps.empty())
        out.resize(gaps.front());
    return pieces;
}

void PropertyListWriter::writeList(Ref root, Bytes& out, Gaps* gaps) {
    if (isLarge_) {
        large_.finish(root, out);
        return;
    }
    const auto count = valueCount() + uidCount_;
    if (count <= 0x100) {
        writeSized<std::uint8_t>(root, out, gaps);
    } else if (count <= 0x10000) {
        writeSized<std::uint16_t>(root, out, gaps);
    } else {
        writeSized<std::uint32_t>(root, out, gaps);
    }
}

}  // namespace morvane
