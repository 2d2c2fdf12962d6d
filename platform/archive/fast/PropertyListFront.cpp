// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/archive/fast/PropertyListFront.h>

/// For the rows archive-encode-entry and archive-decode-entry of the bench.
namespace morvane {
namespace {

void appendBigEndian(auto& bytes, std::uint64_t value, unsigned size) {
    constexpr unsigned bitsOfByte = 8;
    for (unsigned i = size; i-- > 0;)
        bytes.push_back(static_cast<char>(value >> (bitsOfByte * i)));
}

std::string textBytes(std::string_view text) {
    std::string bytes;
    if (text.size() < 15) {
        bytes += static_cast<char>(0x50 | text.size());
    } else {
        bytes += {'\x5F', '\x10', static_cast<char>(text.size())};
    }
    bytes += text;
    return bytes;
}

}  // namespace

PropertyListFront::PropertyListFront(std::span<const std::string_view> texts) {
    for (auto& form : forms_)
        form.bytes = "bplist00";
    for (const auto text : texts)
        add(textBytes(text), {});
}

PropertyListFront::PropertyListFront(const PropertyListFront& base, std::nullptr_t)
    : base_(&base), count_(base.count_), forms_(base.forms_) {}

std::optional<std::uint32_t> PropertyListFront::find(std::string_view text) const {
    for (const auto& each : added_) {
        if (each.text == text)
            return each.number;
    }
    return std::nullopt;
}

std::uint32_t PropertyListFront::addText(std::string_view text) {
    const auto number = add(textBytes(text), {});
    added_.push_back({std::string(text), number});
    return number;
}

std::uint32_t PropertyListFront::addArray(std::span<const std::uint32_t> elements) {
    const char marker = static_cast<char>(0xA0 | elements.size());
    return add({&marker, 1}, elements);
}

std::uint32_t PropertyListFront::addDictionary(std::span<const std::uint32_t> references) {
    const char marker = static_cast<char>(0xD0 | references.size() / 2);
    return add({&marker, 1}, references);
}

std::uint32_t PropertyListFront::add(std::string_view bytes,
                                     std::span<const std::uint32_t> references) {
    for (unsigned refSize = 1; refSize <= mostRefSize; ++refSize) {
        auto& form = forms_[refSize - 1];
        for (const unsigned offsetSize : {1u, 2u, 3u, 4u, 8u})
            appendBigEndian(form.offsets[offsetSize], form.bytes.size(), offsetSize);
        form.last = form.bytes.size();
        form.bytes += bytes;
        for (const auto reference : references)
            appendBigEndian(form.bytes, reference, refSize);
    }
    return count_++;
}

}  // namespace morvane
