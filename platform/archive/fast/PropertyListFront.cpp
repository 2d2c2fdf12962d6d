// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/archive/fast/PropertyListFront.h>

namespace morvane {

PropertyListFront::PropertyListFront(std::span<const std::string_view> texts)
    : count_(static_cast<std::uint32_t>(texts.size())) {
    bytes_ = "bplist00";
    for (const auto text : texts) {
        for (const unsigned size : {1u, 2u, 3u, 4u, 8u}) {
            for (unsigned i = size; i-- > 0;) {
                offsets_[size].push_back(i < 4 ? static_cast<std::uint8_t>(bytes_.size() >> (8 * i))
                                               : std::uint8_t{0});
            }
        }
        if (text.size() < 15) {
            bytes_ += static_cast<char>(0x50 | text.size());
        } else {
            bytes_ += {'\x5F', '\x10', static_cast<char>(text.size())};
        }
        bytes_ += text;
    }
}

}  // namespace morvane
