// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/identity/CBIdentity.h>

#include <algorithm>
#include <utility>

namespace morvane {
namespace {

// Version 8 of RFC 9562, whose contents are the maker's own: "morvane" spelt in the first bytes,
// then what kind of identity it is, then its number.
constexpr NSUUID::Bytes frame = {'m', 'o', 'r', 'v', 'a', 'n', 0x80, 0, 0x80, 0, 0, 0, 0, 0, 0, 0};
constexpr std::size_t kindAt = 7;
constexpr std::size_t numberAt = 12;

enum class Kind : std::uint8_t { user = 1, group = 2, everyone = 3, creator = 4 };

NSUUID make(Kind kind, std::uint32_t number) {
    auto bytes = frame;
    bytes[kindAt] = static_cast<std::uint8_t>(kind);
    for (std::size_t i = 0; i < 4; ++i) {
        bytes[numberAt + i] = static_cast<std::uint8_t>(number >> (24 - 8 * i));
    }
    return NSUUID(bytes);
}

}  // namespace

NSUUID uuidOfPosixIdentity(const CBPosixIdentity& identity) {
    if (const auto* user = std::get_if<CBPosixUser>(&identity))
        return make(Kind::user, user->uid);
    if (const auto* group = std::get_if<CBPosixGroup>(&identity)) {
        return make(Kind::group, group->gid);
    }
    if (const auto* creator = std::get_if<CBCreator>(&identity))
        return make(Kind::creator, creator->isGroup ? 1 : 0);
    return make(Kind::everyone, 0);
}

std::optional<CBPosixIdentity> posixIdentityOfUUID(const NSUUID& uuid) {
    const auto& bytes = uuid.bytes();
    std::uint32_t number = 0;
    for (std::size_t i = 0; i < 4; ++i)
        number = number << 8 | bytes[numberAt + i];
    std::optional<CBPosixIdentity> identity;
    switch (static_cast<Kind>(bytes[kindAt])) {
        case Kind::user:
            identity = CBPosixUser{number};
            break;
        case Kind::group:
            identity = CBPosixGroup{number};
            break;
        case Kind::everyone:
            identity = CBEveryone{};
            break;
        case Kind::creator:
            identity = CBCreator{number != 0};
            break;
    }
    if (!identity || uuidOfPosixIdentity(*identity) != uuid)
        return std::nullopt;
    return identity;
}

const NSClass& CBIdentity::classObject() {
    static const NSClass c{"CBIdentity", &NSObject::classObject(), nullptr};
    return c;
}

CBIdentity::CBIdentity(const NSUUID& uniqueIdentifier, std::string name, bool isGroup)
    : uniqueIdentifier_(uniqueIdentifier), name_(std::move(name)), isGroup_(isGroup) {}

bool CBIdentity::isEqual(const NSObject* other) const {
    const auto* identity = dynamic_cast<const CBIdentity*>(other);
    return identity && identity->uniqueIdentifier_ == uniqueIdentifier_;
}

const NSUUID& CBIdentity::uniqueIdentifier() const {
    return uniqueIdentifier_;
}

const std::string& CBIdentity::name() const {
    return name_;
}

bool CBIdentity::isGroup() const {
    return isGroup_;
}

}  // namespace morvane
