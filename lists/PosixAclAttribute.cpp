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

constexpr std::uint32_t version = 2;
constexpr std::size_t headSize = 4;
constexpr std::size_t entrySize = 8;
constexpr std::uint32_t nobodyNamed = 0xffffffff;

void append(std::vector<std::uint8_t>& bytes, std::uint32_t value, int count) {
    for (int i = 0; i < count; ++i)
        bytes.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

std::uint32_t numberAt(const std::vector<std::uint8_t>& bytes, std::size_t place, int count) {
    std::uint32_t value = 0;
    for (int i = 0; i < count; ++i)
        value |= static_cast<std::uint32_t>(bytes[place + static_cast<std::size_t>(i)]) << (8 * i);
    return value;
}

enum Tag : std::uint32_t {
    owner = 0x01,
    user = 0x02,
    owningGroup = 0x04,
    group = 0x08,
    mask = 0x10,
    others = 0x20
};

}  // namespace

std::vector<std::uint8_t> attributeOfPosixList(const PosixList& list) {
    std::vector<std::uint8_t> bytes;
    append(bytes, version, 4);
    const auto add = [&](std::uint32_t tag, PosixRights rights, std::uint32_t id = nobodyNamed) {
        append(bytes, tag, 2);
        append(bytes, rights, 2);
        append(bytes, id, 4);
    };
    add(Tag::owner, list.owner);
    for (const auto& user : list.users)
        add(Tag::user, user.rights, user.id);
    add(Tag::owningGroup, list.owningGroup);
    for (const auto& group : list.groups)
        add(Tag::group, group.rights, group.id);
    if (list.mask)
        add(Tag::mask, *list.mask);
    add(Tag::others, list.others);
    return bytes;
}

std::optional<PosixList> posixListOfAttribute(const std::vector<std::uint8_t>& bytes) {
    if (bytes.size() < headSize || (bytes.size() - headSize) % entrySize != 0 ||
        numberAt(bytes, 0, 4) != version)
        return std::nullopt;
    PosixList list;
    std::optional<PosixRights> owner;
    std::optional<PosixRights> owningGroup;
    std::optional<PosixRights> others;
    // Entries stand in the order of their tags, and named ones in that of their numbers.
    std::uint32_t lastTag = 0;
    std::uint32_t lastId = 0;
    for (std::size_t place = headSize; place != bytes.size(); place += entrySize) {
        const auto tag = numberAt(bytes, place, 2);
        const auto rights = numberAt(bytes, place + 2, 2);
        const auto id = numberAt(bytes, place + 4, 4);
        const bool isNamed = tag == Tag::user || tag == Tag::group;
        const bool isNext = isNamed && tag == lastTag ? id > lastId : tag > lastTag;
        if (!isNext || rights > PosixEverything || (isNamed && id == nobodyNamed))
            return std::nullopt;
        lastTag = tag;
        lastId = id;
        const auto stored = static_cast<PosixRights>(rights);
        switch (tag) {
            case Tag::owner:
                owner = stored;
                break;
            case Tag::user:
                list.users.push_back({id, stored});
                break;
            case Tag::owningGroup:
                owningGroup = stored;
                break;
            case Tag::group:
                list.groups.push_back({id, stored});
                break;
            case Tag::mask:
                list.mask = stored;
                break;
            case Tag::others:
                others = stored;
                break;
            default:
                return std::nullopt;
        }
    }
    const bool isNamed = !list.users.empty() || !list.groups.empty();
    if (!owner || !owningGroup || !others || (isNamed && !list.mask))
        return std::nullopt;
    list.owner = *owner;
    list.owningGroup = *owningGroup;
    list.others = *others;
    return list;
}

}  // namespace morvane
