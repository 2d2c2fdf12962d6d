#include <MorvaneOperation/platform/archive/PropertyListBytes.h>
#include <MorvaneOperation/platform/archive/PropertyListWriter.h>
#include <MorvaneOperation/platform/archive/Unicode.h>
#include <MorvaneOperation/platform/archive/fast/LargeMemory.h>
#include <MorvaneOperation/platform/foundation/NSException.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <exception>
#include <limits>

namespace morvane {

using namespace property_list_bytes;

namespace {

constexpr std::size_t trailerSize = 32;

std::uint8_t* putTrailer(std::uint8_t* p, std::size_t offsetSize, std::size_t refSize,
                         std::uint64_t count, std::uint64_t root, std::uint64_t table) {
    p = std::fill_n(p, 6, std::uint8_t{0});
    *p++ = static_cast<std::uint8_t>(offsetSize);
    *p++ = static_cast<std::uint8_t>(refSize);
    p = put(p, count);
    p = put(p, root);
    return put(p, table);
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

const PropertyListFront& emptyFront() {
    static const auto& front = *new PropertyListFront({});
    return front;
}

}  // namespace

PropertyListWriter::PropertyListWriter(const PropertyListFront* front, std::size_t mostNarrow)
    : front_(front ? *front : emptyFront()), mostNarrow_(mostNarrow), firstNode_(front_.count()) {}

void PropertyListWriter::clear() {
    nodes_.clear();
    refs_.clear();
    arena_.clear();
    owned_.clear();
    bytes_ = 0;
    shared_.clear();
    ++list_;
    uidCount_ = 0;
    booleans_[0] = booleans_[1] = none;
    firstNode_ = front_.count();
    isLarge_ = false;
    large_.clear();
    largeEnd_ = 0;
    largeOffsets_.clear();
}

void PropertyListWriter::reserveMore(std::size_t count) {
    constexpr std::size_t nodesEach = 4;
    constexpr std::size_t refsEach = 8;
    nodes_.reserve(nodes_.size() + count * nodesEach);
    refs_.reserve(refs_.size() + count * refsEach);
}

void PropertyListWriter::beginLarge(std::size_t values, std::size_t bytes) {
    // Memory that is reserved and not used costs nothing, and where there is less, it has to grow.
    try {
        large_.reserve(bytes);
        largeOffsets_.reserve(values);
        willBeWritten(large_.data(), large_.capacity());
    } catch (const std::exception&) {
    }
    if (isLarge_)
        return;
    const auto front = front_.bytes();
    large_.assign(front.begin(), front.end());
    largeEnd_ = front.size();
    isLarge_ = true;
    const auto firstUid = front_.count() + nodes_.size();
    if (firstUid + uidCount_ <= mostNarrow_) {
        largeRefs_ = {firstUid, 3, 8};
    } else {
        largeRefs_ = {firstUid, 4, 0};
    }
    for (std::uint32_t value = 0; value < uidCount_; ++value) {
        nodes_.push_back({Kind::uid, 0, value});
        bytes_ += uidSize(value);
    }
    flush();
}

void PropertyListWriter::growLarge(std::size_t bytes) {
    constexpr std::size_t more = std::size_t{64} << 10;
    // Each value takes a byte at least.
    if (largeRefs_.size == 3 && firstNode_ + bytes + more > mostNarrow_)
        widen();
    if (largeEnd_ + bytes + more > std::numeric_limits<std::uint32_t>::max()) {
        throw NSException(NSInvalidArgumentException, "A list is too long to be archived.");
    }
    large_.resize(largeEnd_ + bytes + more);
}

void PropertyListWriter::widen() {
    Bytes wide;
    wide.reserve(large_.capacity() / 3 * 4);
    const auto front = front_.bytes();
    wide.assign(front.begin(), front.end());
    for (std::size_t i = 0; i < largeOffsets_.size(); ++i) {
        const auto* p = large_.data() + largeOffsets_[i];
        const auto* const end =
            large_.data() + (i + 1 < largeOffsets_.size() ? largeOffsets_[i + 1] : largeEnd_);
        largeOffsets_[i] = static_cast<std::uint32_t>(wide.size());
        if (*p >> 4 == 0xA || *p >> 4 == 0xD) {
            const std::size_t marker = (*p & 0xF) != 0xF ? 1 : 2 + (std::size_t{1} << (p[1] & 0xF));
            wide.insert(wide.end(), p, p + marker);
            for (p += marker; p != end; p += 3)
                wide.insert(wide.end(), {0, p[0], p[1], p[2]});
        } else {
            wide.insert(wide.end(), p, end);
        }
    }
    large_.swap(wide);
    largeEnd_ = large_.size();
    largeRefs_ = {largeRefs_.firstUid, 4, 0};
}

void PropertyListWriter::flush() {
    const auto most = bytes_ + refs_.size() * sizeof(Ref);
    for (const auto& node : nodes_) {
        addLarge(most, [&](std::uint8_t* p) {
            return putNode(p, node, [refs = largeRefs_](std::uint8_t* at, Ref ref) {
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

PropertyListWriter::Ref PropertyListWriter::newSharedString(std::string_view text, std::size_t at) {
    // A text that was seen in this list has left its mark, unless others have taken its places.
    if (recent_[at].list == list_)
        at ^= 1;
    if (recent_[at].list == list_) {
        for (const auto& known : shared_) {
            if (known.text == text)
                return known.ref;
        }
    }
    const auto address = reinterpret_cast<std::uintptr_t>(text.data());
    const auto count = checkedCount(text.size());
    const auto ref = isAscii(text)
                         ? add(Kind::sharedAscii, count, address, markerSize(count) + text.size())
                         : string(text);
    recent_[at] = {text.data(), count, ref, list_};
    shared_.push_back({text, ref});
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
        return addLarge(mostMarkerBytes + elements.size_bytes(), [&](std::uint8_t* p) {
            p = putMarker(p, 0xA0, count);
            const auto refs = largeRefs_;
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
    return addLarge(mostMarkerBytes + keysAndValues.size_bytes(), [&](std::uint8_t* p) {
        const auto refs = largeRefs_;
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

std::size_t PropertyListWriter::uidSize(std::uint32_t value) {
    return integerSize(value);
}

std::size_t PropertyListWriter::uidBytes() const {
    // Of two, three and five bytes.
    const std::size_t count = uidCount_;
    return 2 * count + (count > 0x100 ? count - 0x100 : 0) +
           (count > 0x10000 ? 2 * (count - 0x10000) : 0);
}

template <class PutRef>
std::uint8_t* PropertyListWriter::putNode(std::uint8_t* p, const Node& node,
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
        case Kind::uid:
            return putUid(p, node.payload);
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

template <class RefInteger, class Offset>
void PropertyListWriter::writeAll(Ref root, Bytes& out, std::size_t table, Gaps* gaps) const {
    const auto start = out.size();
    const auto firstUid = valueCount();
    const auto count = firstUid + uidCount_;
    std::size_t missing = 0;
    if (gaps) {
        for (const auto& bytes : owned_)
            missing += bytes.size();
    }
    out.resize(start + table - missing + count * sizeof(Offset) + trailerSize);
    auto* const begin = out.data() + start;
    auto* p = begin;
    std::size_t missed = 0;
    auto* offset = begin + table - missing;
    p = putBytes(p, front_.bytes().data(), front_.bytes().size());
    const auto offsets = front_.offsets(sizeof(Offset));
    offset = putBytes(offset, offsets.data(), offsets.size());
    for (const auto& node : nodes_) {
        offset = put(offset, static_cast<Offset>(p - begin + missed));
        if (node.kind == Kind::ownedData && gaps) [[unlikely]] {
            p = putMarker(p, 0x40, node.count);
            gaps->push_back(static_cast<std::size_t>(p - out.data()));
            missed += node.count;
            continue;
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

void PropertyListWriter::writeLarge(Ref root, Bytes& out) {
    const auto table = largeEnd_;
    // Mostly three bytes are enough; the fourth is overwritten by the next.
    const unsigned offsetSize = table <= 0xffffff ? 3 : 4;
    const auto front = front_.offsets(offsetSize);
    large_.resize(table + firstNode_ * offsetSize + trailerSize);
    auto* p = putBytes(large_.data() + table, front.data(), front.size());
    for (const auto offset : largeOffsets_) {
        put(p, offset << (32 - 8 * offsetSize));
        p += offsetSize;
    }
    putTrailer(p, offsetSize, largeRefs_.size, firstNode_, numberOf(root, largeRefs_.firstUid),
               table);
    if (out.empty()) {
        out.swap(large_);
    } else {
        out.insert(out.end(), large_.begin(), large_.end());
    }
}

template <class RefInteger>
void PropertyListWriter::writeSized(Ref root, Bytes& out, Gaps* gaps) const {
    const std::size_t table =
        front_.bytes().size() + bytes_ + refs_.size() * sizeof(RefInteger) + uidBytes();
    if (table <= 0xff) {
        writeAll<RefInteger, std::uint8_t>(root, out, table, gaps);
    } else if (table <= 0xffff) {
        writeAll<RefInteger, std::uint16_t>(root, out, table, gaps);
    } else if (table <= 0xffffffff) {
        writeAll<RefInteger, std::uint32_t>(root, out, table, gaps);
    } else {
        writeAll<RefInteger, std::uint64_t>(root, out, table, gaps);
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
        writeLarge(root, out);
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
