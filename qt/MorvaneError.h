// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSError.h>

#include <QList>
#include <QMetaType>
#include <QString>
#include <QStringList>
#include <QUrl>

/// An item with which an operation on many has failed.
struct MorvaneFailure {
    QUrl url;
    /// An errno value.
    int code = 0;
    /// Why, for the user.
    QString text;
};

/// Why an operation has failed, or that it has not.
///
///     if (operation->error())
///         QMessageBox::warning(this, {}, operation->error().text());
///
/// A value, which may be used on any thread. The texts are in the language of the user.
class MORVANE_EXPORT MorvaneError {
    Q_GADGET
    Q_PROPERTY(QString text READ text)
    Q_PROPERTY(QString suggestion READ suggestion)
    Q_PROPERTY(Refusal refusal READ refusal)
    Q_PROPERTY(bool isCancellation READ isCancellation)
    Q_PROPERTY(bool isListChanged READ isListChanged)
    Q_PROPERTY(QStringList losses READ losses)

  public:
    /// Why a right was not obtained.
    enum Refusal {
        /// The error is another one.
        NotRefused,
        /// The user may not have it, or did not prove to be who may.
        Denied,
        /// The user did not want to be asked.
        Cancelled,
        /// There is no agent that could ask.
        NobodyToAsk,
    };
    Q_ENUM(Refusal)

    /// No error.
    MorvaneError() = default;
    /// Null is no error.
    explicit MorvaneError(morvane::NSErrorRef error) : error_(std::move(error)) {}

    explicit operator bool() const { return error_ != nullptr; }
    /// With domain, code and all else that is known; null for no error.
    const morvane::NSErrorRef& error() const { return error_; }

    /// A sentence for the user; empty for no error.
    QString text() const;
    /// What to do; empty where there is nothing to say.
    QString suggestion() const;
    Refusal refusal() const;
    /// Whether the operation was cancelled by the host.
    bool isCancellation() const;
    /// Whether another program has changed the list since it was read: read it again.
    bool isListChanged() const;
    /// What the list of the item cannot hold: a sentence for each loss.
    QStringList losses() const;
    /// The items with which a propagation, or a sum of sizes, has failed: at most a thousand, of
    /// those that MorvaneFileOperation::itemsFailed() counts. Empty if it has failed as a whole.
    QList<MorvaneFailure> failures() const;

  private:
    morvane::NSErrorRef error_;
};

Q_DECLARE_METATYPE(MorvaneError)
