// SPDX-License-Identifier: MIT
#include "MorvaneIdentity.h"

#include <MorvaneOperation/IdentityText.h>
#include <MorvaneOperation/platform/identity/CBIdentityAuthority.h>

#include <optional>

#include "QtTexts.h"

using namespace morvane;

namespace {

MorvaneIdentity identityOf(const CBPosixIdentity& who) {
    return MorvaneIdentity(CBIdentity::identityWithUniqueIdentifier(
        uuidOfPosixIdentity(who), CBIdentityAuthority::defaultIdentityAuthority()));
}

UserDatabase& userDatabase() {
    return CBIdentityAuthority::defaultIdentityAuthority().database();
}

}  // namespace

MorvaneIdentity MorvaneIdentity::user(const QString& name) {
    const auto found = userDatabase().userWithName(name.toStdString());
    return found ? identityOf(CBPosixUser{found->id}) : MorvaneIdentity();
}

MorvaneIdentity MorvaneIdentity::group(const QString& name) {
    const auto found = userDatabase().groupWithName(name.toStdString());
    return found ? identityOf(CBPosixGroup{found->id}) : MorvaneIdentity();
}

MorvaneIdentity MorvaneIdentity::everyone() {
    return identityOf(CBEveryone{});
}

MorvaneIdentity MorvaneIdentity::creator() {
    return identityOf(CBCreator{false});
}

MorvaneIdentity MorvaneIdentity::creatorGroup() {
    return identityOf(CBCreator{true});
}

QString MorvaneIdentity::name() const {
    return identity_ ? QString::fromStdString(identity_->name()) : QString();
}

QString MorvaneIdentity::text() const {
    return identity_ ? shown(identityText(*identity_)) : QString();
}
