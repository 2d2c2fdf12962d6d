// SPDX-License-Identifier: MIT
#include <MorvaneOperation/PosixAcl.h>

namespace morvane {
namespace {

constexpr std::uint32_t nobodyNamed = 0xffffffff;

void append(std::vector<std::uint8_t>& bytes, std::uint32_t value, int count) {
    for (int i = 0; i < count; ++i)
        bytes.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

}  // namespace

std::vector<std::uint8_t> attributeOfPosixList(const PosixList& list) {
    constexpr std::uint32_t version = 2;
    std::vector<std::uint8_t> bytes;
    append(bytes, version, 4);
    const auto add = [&](std::uint32_t tag, PosixRights rights, std::uint32_t id = nobodyNamed) {
        append(bytes, tag, 2);
        append(bytes, rights, 2);
        append(bytes, id, 4);
    };
    add(0x01, list.owner);
    for (const auto& user : list.users)
        add(0x02, user.rights, user.id);
    add(0x04, list.owningGroup);
    for (const auto& group : list.groups)
        add(0x08, group.rights, group.id);
    if (list.mask)
        add(0x10, *list.mask);
    add(0x20, list.others);
    return bytes;
}

}  // namespace morvane
