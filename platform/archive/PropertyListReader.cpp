// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/archive/PropertyListBytes.h>
#include <MorvaneOperation/platform/archive/PropertyListReader.h>

#include <cstring>
#include <limits>

namespace morvane {
namespace {

bool isIntegerSize(unsigned size) {
    return size >= 1 && size <= 8;
}

}  // namespace

PropertyListReader::PropertyListReader(std::span<const std::uint8_t> bytes,
                                       const PropertyListFront* front)
    : begin_(bytes.data()) {
    if (bytes.size() < magicSize + 1 + 1 + property_list_bytes::trailerSize) {
        throw PropertyListDamage("it is too short to be a property list");
    }
    if (std::memcmp(begin_, "bplist00", magicSize) != 0) {
        throw PropertyListDamage("it is not a binary property list");
    }
    const auto* const trailer = begin_ + bytes.size() - property_list_bytes::trailerSize;
    offsetSize_ = trailer[6];
    refSize_ = trailer[7];
    count_ = bigEndian(trailer + 8, 8);
    root_ = bigEndian(trailer + 16, 8);
    const auto table = bigEndian(trailer + 24, 8);
    const auto end = static_cast<std::uint64_t>(trailer - begin_);
    if (!isIntegerSize(offsetSize_) || !isIntegerSize(refSize_)) {
        throw PropertyListDamage("its trailer gives an impossible integer size");
    }
    offsetShift_ = static_cast<std::uint8_t>(64 - 8 * offsetSize_);
    refShift_ = static_cast<std::uint8_t>(64 - 8 * refSize_);
    // Written so that nothing overflows. Table and trailer end the list without a gap, so a list
    // that lost its tail or grew one is told by its length.
    if (table <= magicSize || table >= end || count_ != (end - table) / offsetSize_ ||
        (end - table) % offsetSize_ != 0) {
        throw PropertyListDamage("its offset table does not fit");
    }
    if (root_ >= count_)
        throw PropertyListDamage("its root is out of range");
    table_ = begin_ + table;
    const auto startsWith = [](const std::uint8_t* p, std::uint64_t size, auto expected) {
        return !expected.empty() && expected.size() <= size &&
               std::memcmp(p, expected.data(), expected.size()) == 0;
    };
    front_ = front;
    while (front_ && !(startsWith(begin_, table, front_->bytes(refSize_)) &&
                       startsWith(table_, end - table, front_->offsets(refSize_, offsetSize_))))
        front_ = front_->base();
}

PropertyListReader::Value PropertyListReader::anyValue(std::uint64_t ref) const {
    if (ref >= count_)
        throw PropertyListDamage("a reference is out of range");
    const auto offset = bigEndian(table_ + ref * offsetSize_, offsetSize_);
    const auto end = static_cast<std::uint64_t>(table_ - begin_);
    if (offset < magicSize || offset >= end)
        throw PropertyListDamage("an offset is out of range");
    const auto* p = begin_ + offset;
    const auto left = [&] { return static_cast<std::uint64_t>(table_ - p); };
    const auto need = [&](std::uint64_t size) {
        if (size > left())
            throw PropertyListDamage("a value is cut off");
    };
    const std::uint8_t marker = *p++;
    const unsigned low = marker & 0x0F;

    Value value;
    // The count, then what it counts, `size` bytes each; no product overflows.
    const auto readCounted = [&](Kind kind, std::uint64_t size) {
        std::uint64_t count = low;
        if (low == 15) {
            need(1);
            const std::uint8_t sizeMarker = *p++;
            if ((sizeMarker & 0xF0) != 0x10 || (sizeMarker & 0x0F) > 3) {
                throw PropertyListDamage("a count is malformed");
            }
            const unsigned countSize = 1u << (sizeMarker & 0x0F);
            need(countSize);
            count = bigEndian(p, countSize);
            p += countSize;
        }
        if (count > left() / size)
            throw PropertyListDamage("a value is cut off");
        if (count > std::numeric_limits<std::uint32_t>::max())
            throw PropertyListDamage("a value is too long");
        value.kind = kind;
        value.count = static_cast<std::uint32_t>(count);
        value.bytes = p;
    };

    switch (marker >> 4) {
        case 0x0:
            if (marker == 0x00) {
                value.kind = Kind::null;
            } else if (marker == 0x08 || marker == 0x09) {
                value.kind = Kind::boolean;
                value.bits = marker & 1;
            } else {
                throw PropertyListDamage("a value is of an unknown type");
            }
            return value;
        case 0x1:
            if (low > 3)
                throw PropertyListDamage("an integer is too large");
            need(1u << low);
            value.kind = Kind::integer;
            value.bits = bigEndian(p, 1u << low);
            return value;
        case 0x2:
        case 0x3:
            if (low != 3 && !(low == 2 && marker >> 4 == 0x2)) {
                throw PropertyListDamage("a real number is malformed");
            }
            need(1u << low);
            value.kind = marker >> 4 == 0x2 ? Kind::real : Kind::date;
            value.bits = bigEndian(p, 1u << low);
            if (low == 2) {
                float narrow = 0;
                const auto bits = static_cast<std::uint32_t>(value.bits);
                std::memcpy(&narrow, &bits, sizeof narrow);
                const double wide = narrow;
                std::memcpy(&value.bits, &wide, sizeof wide);
            }
            return value;
        case 0x4:
            readCounted(Kind::data, 1);
            return value;
        case 0x5:
            readCounted(Kind::ascii, 1);
            return value;
        case 0x6:
            readCounted(Kind::utf16, 2);
            return value;
        case 0x8: {
            const unsigned size = low + 1;
            if (size > 8)
                throw PropertyListDamage("a UID is too large");
            need(size);
            value.kind = Kind::uid;
            value.bits = bigEndian(p, size);
            return value;
        }
        case 0xA:
        case 0xC:
            readCounted(Kind::array, refSize_);
            return value;
        case 0xD:
            readCounted(Kind::dictionary, std::uint64_t{refSize_} * 2);
            return value;
        default:
            throw PropertyListDamage("a value is of an unknown type");
    }
}

}  // namespace morvane
