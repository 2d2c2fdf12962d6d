// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVFileClient.h>
#include <MorvaneOperation/qt/MorvaneFileOperation.h>
#include <MorvaneOperation/qt/MorvaneIdentity.h>

#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QUrl>
#include <functional>
#include <memory>
#include <vector>

/// What has become of items that were to be renamed, in their order; empty if nothing is known.
struct MorvaneRenames {
    /// Where each item is now.
    QList<QUrl> urls;
    /// 0, or the errno value that says why the item has not its new name.
    QList<int> codes;
};

/// What a list would lose, in words too.
struct MorvaneAclLosses : morvane::MVAclLosses {
    /// A sentence for each loss, in the language of the user.
    QStringList texts;
};

/// The operations of the file services, as objects with signals.
///
///     auto* const reading = client->readAcl(QUrl::fromLocalFile("/home/me/notes.txt"));
///     connect(reading, &MorvaneFileOperation::finished, this, [this, reading] {
///         if (reading->error())
///             QMessageBox::warning(this, {}, reading->error().text());
///         else
///             model->setAcl(reading->answer());
///     });
///
/// Each operation returns at once, and its signals come from the event loop, with or without GLib.
/// They run beside each other; what depends on one is begun when it has finished. Beneath is an
/// MVFileClient, which says more on order, cancelling and privileges.
///
/// A URL that is none, or nobody, ends an operation with the error EINVAL; an entry that is null
/// throws std::invalid_argument in the call. Used on the thread of the QCoreApplication, which is
/// made before it.
class MORVANE_EXPORT MorvaneFileClient : public QObject {
    Q_OBJECT

  public:
    /// Who does the work.
    enum Privilege {
        /// The file service, with the user's own rights.
        Never,
        /// The privileged helper, once the user has proved to have the right.
        Always,
        /// The helper, if the user's own rights do not suffice.
        WhenRefused,
    };
    Q_ENUM(Privilege)

    explicit MorvaneFileClient(QObject* parent = nullptr);
    /// With connectors of the host's own (MVFileClient::ConnectorMaker).
    explicit MorvaneFileClient(morvane::MVFileClient::ConnectorMaker maker,
                               QObject* parent = nullptr);
    ~MorvaneFileClient() override;

    using Nodes = std::vector<std::shared_ptr<morvane::MVTreeNode>>;

    MorvaneAnswer<morvane::MVFileAcl>* readAcl(const QUrl& url, Privilege privilege = Never);
    /// Whether lists that are read from now on do not wait for names that a directory is slow to
    /// tell. A model shows numbers for these at first.
    void setNamesLater(bool later);
    bool namesLater() const;
    /// Replaces the list of the item. The entries are taken as they are during the call.
    MorvaneFileOperation* writeAcl(const morvane::MVFileAcl& acl, Privilege privilege = Never);
    /// Gives everything below the folder what it inherits of the entries.
    MorvaneFileOperation* propagateAcl(const morvane::MVFileAcl& acl, Privilege privilege = Never);
    /// What writing would lose, and the nearest list that grants no more.
    MorvaneAnswer<MorvaneAclLosses>* lossesOfAcl(const morvane::MVFileAcl& acl);
    /// What the user or group can really do to the item: boxes to show in a MorvaneAclBoxModel.
    MorvaneAnswer<Nodes>* effectiveAccess(const QUrl& url, const MorvaneIdentity& who,
                                          Privilege privilege = Never);
    /// Gives each of `urls` the name at its place in `names`, all as if at once.
    MorvaneAnswer<MorvaneRenames>* rename(const QList<QUrl>& urls, const QStringList& names,
                                          Privilege privilege = Never);
    /// Adds up each item with all that is below it, in bytes (negative: unknown).
    MorvaneAnswer<QList<qint64>>* sizes(const QList<QUrl>& urls, Privilege privilege = Never);
    /// The items inside the folder, in its own order.
    MorvaneAnswer<QList<QUrl>>* contents(const QUrl& folder, Privilege privilege = Never);
    /// Users, groups and everyone, whose names contain `text`: for a list beside a field in which
    /// somebody types. Cancel it when they have typed on.
    MorvaneAnswer<QList<MorvaneIdentity>>* identities(const QString& text);

  private:
    template <class Operation, class Begin>
    Operation* begun(Begin begin);
    static morvane::MVOperationOptions optionsOf(MorvaneFileOperation& operation,
                                                 Privilege privilege);
    /// What ends the operation, if it is still there: `take` keeps what has come, and returns the
    /// error.
    template <class Come, class Take>
    static morvane::MVFileClient::Completion<Come> ending(MorvaneFileOperation& operation,
                                                          Take take);
    /// Ends what cannot be begun, with the error EINVAL.
    static void endLater(MorvaneFileOperation& operation, const morvane::Phrase& why);
    /// The places of `urls`. If one of these is none, there are no places, and the operation ends.
    static std::vector<morvane::NSURL> placesOf(const QList<QUrl>& urls,
                                                MorvaneFileOperation& operation);

    struct State;
    const std::unique_ptr<State> state_;
};
