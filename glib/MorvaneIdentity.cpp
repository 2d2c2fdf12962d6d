// SPDX-License-Identifier: MIT
#include <MorvaneOperation/EntryTexts.h>
#include <MorvaneOperation/IdentityText.h>
#include <MorvaneOperation/platform/identity/CBIdentityAuthority.h>

#include "Model.h"

struct _MorvaneIdentity {
    GObject parent;
    morvane::CBIdentityRef* held;
};

G_DEFINE_FINAL_TYPE(MorvaneIdentity, morvane_identity, G_TYPE_OBJECT)

namespace morvane {

namespace {

CBIdentityRef identityOfPosix(const CBPosixIdentity& who) {
    const auto uuid = uuidOfPosixIdentity(who);
    if (auto known = CBIdentity::identityWithUniqueIdentifier(
            uuid, CBIdentityAuthority::defaultIdentityAuthority()))
        return known;
    // Somebody without a name is named by the number.
    const auto* const user = std::get_if<CBPosixUser>(&who);
    const auto* const group = std::get_if<CBPosixGroup>(&who);
    const std::string name = user    ? "uid " + std::to_string(user->uid)
                             : group ? "gid " + std::to_string(group->gid)
                                     : uuid.UUIDString();
    return std::make_shared<const CBIdentity>(uuid, name, !user);
}

MorvaneIdentity* newPosixIdentity(const CBPosixIdentity& who) {
    return guarded([&] { return newIdentity(identityOfPosix(who)); });
}

}  // namespace

MorvaneIdentity* newIdentity(CBIdentityRef identity) {
    auto* const made = MORVANE_IDENTITY(g_object_new(MORVANE_TYPE_IDENTITY, nullptr));
    made->held = new CBIdentityRef(std::move(identity));
    return made;
}

const CBIdentityRef& identityOf(MorvaneIdentity* identity) {
    if (!identity->held)  // made by a program itself, from nothing
        identity->held = new CBIdentityRef(identityOfPosix(CBEveryone{}));
    return *identity->held;
}

}  // namespace morvane

using namespace morvane;

static void morvane_identity_init(MorvaneIdentity* /*self*/) {}

static void morvane_identity_class_init(MorvaneIdentityClass* made) {
    MorvaneIdentity* const self = nullptr;
    ObjectClass<MorvaneIdentity>::setUp(made,
                                        {textProperty<morvane_identity_dup_name>("name", self),
                                         textProperty<morvane_identity_dup_text>("text", self),
                                         flagProperty<morvane_identity_is_group>("group", self)});
}

MorvaneIdentity* morvane_identity_new_for_user(guint uid) {
    return newPosixIdentity(CBPosixUser{uid});
}

MorvaneIdentity* morvane_identity_new_for_group(guint gid) {
    return newPosixIdentity(CBPosixGroup{gid});
}

MorvaneIdentity* morvane_identity_new_everyone() {
    return newPosixIdentity(CBEveryone{});
}

MorvaneIdentity* morvane_identity_new_creator(gboolean group) {
    return newPosixIdentity(CBCreator{group != FALSE});
}

char* morvane_identity_dup_name(MorvaneIdentity* self) {
    g_return_val_if_fail(MORVANE_IS_IDENTITY(self), nullptr);
    return guarded([&] { return copied(shownName(identityOf(self)->name())); });
}

char* morvane_identity_dup_text(MorvaneIdentity* self) {
    g_return_val_if_fail(MORVANE_IS_IDENTITY(self), nullptr);
    return guarded([&] { return copied(shownText(identityText(*identityOf(self)))); });
}

gboolean morvane_identity_is_group(MorvaneIdentity* self) {
    g_return_val_if_fail(MORVANE_IS_IDENTITY(self), FALSE);
    return guarded([&]() -> gboolean { return identityOf(self)->isGroup(); });
}

gboolean morvane_identity_equal(MorvaneIdentity* self, MorvaneIdentity* other) {
    g_return_val_if_fail(MORVANE_IS_IDENTITY(self), FALSE);
    g_return_val_if_fail(!other || MORVANE_IS_IDENTITY(other), FALSE);
    return guarded([&]() -> gboolean {
        return other &&
               identityOf(self)->uniqueIdentifier() == identityOf(other)->uniqueIdentifier();
    });
}
