// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/archive/PropertyListReader.h>

#include <cstddef>
#include <cstdint>

/// Reads every value that a property list's root leads to, and touches every byte of it.
namespace {

/// Where bytes go, so that reading them is not optimised away.
volatile std::uint8_t sink = 0;

using morvane::PropertyListReader;

void visit(const PropertyListReader& list, const PropertyListReader::Value& value, int depth,
           int& budget) {
    using Kind = PropertyListReader::Kind;
    if (depth == 0)
        return;
    switch (value.kind) {
        case Kind::data:
        case Kind::ascii:
        case Kind::utf16: {
            const auto size = value.kind == Kind::utf16 ? value.count * 2 : value.count;
            for (std::uint64_t i = 0; i < size; ++i)
                sink = value.bytes[i];
            break;
        }
        case Kind::array:
            for (std::uint64_t i = 0; i < value.count && --budget > 0; ++i)
                visit(list, list.element(value, i), depth - 1, budget);
            break;
        case Kind::dictionary:
            for (std::uint64_t i = 0; i < value.count && --budget > 0; ++i) {
                visit(list, list.key(value, i), depth - 1, budget);
                visit(list, list.valueOf(value, i), depth - 1, budget);
            }
            break;
        default:
            sink = static_cast<std::uint8_t>(value.bits);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        const PropertyListReader list({data, size});
        int budget = 10000;
        visit(list, list.value(list.root()), 32, budget);
    } catch (const morvane::PropertyListDamage&) {
    }
    return 0;
}
