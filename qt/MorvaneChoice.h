// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/Export.h>

#include <QList>
#include <QMetaType>
#include <QString>

/// A row of a menu.
struct MORVANE_EXPORT MorvaneChoice {
    Q_GADGET
    Q_PROPERTY(QString text MEMBER text)
    Q_PROPERTY(qint64 code MEMBER code)
    Q_PROPERTY(QString whyNot MEMBER whyNot)
    Q_PROPERTY(bool isPossible READ isPossible)

  public:
    /// In the language of the user.
    QString text;
    /// What MorvaneAclModel::setData() takes.
    qint64 code = 0;
    /// Why it cannot be chosen; empty if it can. The present one may be such a one.
    QString whyNot;

    bool isPossible() const { return whyNot.isEmpty(); }
};

Q_DECLARE_METATYPE(MorvaneChoice)
