// SPDX-License-Identifier: MIT
#include <MorvaneOperation/PosixAcl.h>

#include <algorithm>

namespace morvane {

std::string lettersOfRights(PosixRights rights) {
    std::string letters = "rwx";
    for (std::size_t i = 0; i != letters.size(); ++i) {
        if ((rights & static_cast<PosixRights>(PosixRead >> i)) == PosixNothing)
            letters[i] = '-';
    }
    return letters;
}

bool PosixList::isLimited() const {
    const auto isHeldBack = [&](const PosixNamedRights& entry) {
        return effective(entry.rights) != entry.rights;
    };
    return effective(owningGroup) != owningGroup ||
           std::any_of(users.begin(), users.end(), isHeldBack) ||
           std::any_of(groups.begin(), groups.end(), isHeldBack);
}
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
