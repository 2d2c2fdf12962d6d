// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/identity/CBIdentity.h>

#include <QMetaType>
#include <QString>

/// A user, a group, everyone, or whoever makes an item: whom an entry can be for.
///
/// A value, which may be used on any thread.
class MORVANE_EXPORT MorvaneIdentity {
    Q_GADGET
    Q_PROPERTY(QString name READ name)
    Q_PROPERTY(QString text READ text)
    Q_PROPERTY(bool isGroup READ isGroup)

  public:
    /// Nobody.
    MorvaneIdentity() = default;
    explicit MorvaneIdentity(morvane::CBIdentityRef identity) : identity_(std::move(identity)) {}

    /// Asks the user database, and may wait for it. Nobody if there is no such user or group.
    static MorvaneIdentity user(const QString& name);
    static MorvaneIdentity group(const QString& name);
    static MorvaneIdentity everyone();
    /// Whoever makes an item in the folder, or the group that the item gets.
    static MorvaneIdentity creator();
    static MorvaneIdentity creatorGroup();

    explicit operator bool() const { return identity_ != nullptr; }
    const morvane::CBIdentityRef& identity() const { return identity_; }

    /// "alice"; empty for nobody.
    QString name() const;
    /// "user alice", in the language of the user; empty for nobody.
    QString text() const;
    /// True for everyone too.
    bool isGroup() const { return identity_ && identity_->isGroup(); }

    friend bool operator==(const MorvaneIdentity& a, const MorvaneIdentity& b) {
        return a.identity_ && b.identity_ ? a.identity_->isEqual(b.identity_.get())
                                          : a.identity_ == b.identity_;
    }

  private:
    morvane::CBIdentityRef identity_;
};

Q_DECLARE_METATYPE(MorvaneIdentity)
