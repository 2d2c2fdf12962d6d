// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVFileClient.h>
#include <MorvaneOperation/qt/MorvaneChoice.h>
#include <MorvaneOperation/qt/MorvaneIdentity.h>

#include <QAbstractTableModel>
#include <QList>
#include <functional>
#include <memory>

namespace morvane {
class MVAclEditor;
}

/// The entries of an access-control list, to be shown and edited: a row for each.
///
///     auto* const model = new MorvaneAclModel(this);
///     tableView->setModel(model);
///     model->setAcl(reading->answer());
///     model->addEntry(MorvaneIdentity::user("alice"));
///     client->writeAcl(model->acl(), MorvaneFileClient::WhenRefused);
///
/// It follows its entries, whoever edits them: a MorvaneAclBoxModel, a delegate, or the program
/// itself. A column that is a menu has the choices under ChoicesRole and is set by the code of one
/// (Qt::EditRole); what the list of the item cannot hold is among them with the reason, and is not
/// taken. What cannot be changed is not Qt::ItemIsEditable and says why as Qt::ToolTipRole.
///
/// Used on the thread of the QCoreApplication, which is made before it.
class MORVANE_EXPORT MorvaneAclModel : public QAbstractTableModel {
    Q_OBJECT

  public:
    enum Column {
        /// Whom the entry is for. To edit: a MorvaneIdentity.
        WhoColumn,
        /// "Allow" or "Deny". A menu.
        RuleColumn,
        /// "Read", "Custom (part of Write)". A menu; the tool tip has the letters: "r-x".
        PermissionsColumn,
        /// "This item, Child files". A menu, for the entries of folders.
        AppliesToColumn,
        /// Whether the entry is inherited, as a check box where it can be. To edit:
        /// Qt::CheckStateRole.
        InheritedColumn,
    };
    Q_ENUM(Column)
    static constexpr int columns = InheritedColumn + 1;

    enum Role {
        /// Of a menu: a QList<MorvaneChoice>.
        ChoicesRole = Qt::UserRole,
        /// Whom the entry is for, for an icon: an int, one of morvane::EntrySubject.
        SubjectRole,
    };
    Q_ENUM(Role)

    explicit MorvaneAclModel(QObject* parent = nullptr);
    ~MorvaneAclModel() override;

    /// Shows the entries of `acl`, which are edited themselves, not copied. A list with a null
    /// entry is a mistake of the program: it is warned of, and nothing is shown.
    void setAcl(morvane::MVFileAcl acl);
    /// The list as it is now, to be written: in the order in which the entries count. Among those
    /// that were read, a new entry that denies comes first, and one that allows last; so does one
    /// that denies or allows now, or is for somebody else. Before setAcl() it is that of no item,
    /// and no operation takes it.
    morvane::MVFileAcl acl() const;
    /// Shows `entries` in place of the present ones of the same item: the nearest list, when its
    /// own could not be held.
    void setEntries(morvane::MVFileAcl::Entries entries);

    /// Adds an entry that allows `who` to read and write. Returns its row, the last one; -1 for
    /// nobody and before setAcl().
    Q_INVOKABLE int addEntry(const MorvaneIdentity& who);
    /// The entry of a row; null if there is no such row.
    std::shared_ptr<morvane::MVAclEntry> entry(int row) const;
    /// Why the row cannot be removed; empty if it can.
    Q_INVOKABLE QString whyNotRemoved(int row) const;

    /// Switches a box of the row's entry, or a group of boxes, on or off, as a click in a
    /// MorvaneAclBoxModel does. False, with nothing changed, if it cannot be.
    bool setBox(int row, const morvane::NSTreeNode& box, bool on);
    bool canSetBox(int row, const morvane::NSTreeNode& box, bool on) const;
    /// Why it cannot be switched on; empty if it can.
    QString whyNotBox(int row, const morvane::NSTreeNode& box) const;

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role = Qt::EditRole) override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;
    QHash<int, QByteArray> roleNames() const override;
    /// Adds entries for the user of the program, at the end only.
    bool insertRows(int row, int count, const QModelIndex& parent = {}) override;
    /// False, with nothing removed, if one of the rows cannot be removed.
    bool removeRows(int row, int count, const QModelIndex& parent = {}) override;

  private:
    friend class MorvaneAclBoxModel;
    struct MORVANE_INTERNAL State;

    /// Calls `notify` when the edit that is under way has ended.
    void tell(const std::function<void()>& notify);
    const morvane::ItemList* list() const;
    void show(std::shared_ptr<morvane::MVAclEditor> editor);
    std::shared_ptr<morvane::MVAclEditor> editorOf(morvane::MVFileAcl acl);
    void changed(const morvane::MVAclEntry& entry, const morvane::NSKeyPath& keyPath);
    /// For the user of the program, if `who` is nobody.
    void append(const MorvaneIdentity& who);
    bool isEditable(int row, int column) const;
    /// What an edit changes in all rows.
    void tellOfAll();

    const std::unique_ptr<State> state_;
};
