// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/qt/MorvaneAclModel.h>

#include <QAbstractItemModel>
#include <functional>
#include <memory>
#include <vector>

/// The check boxes of one entry, as a tree of one column: groups, and the boxes below them.
///
///     auto* const boxes = new MorvaneAclBoxModel(this);
///     treeView->setModel(boxes);
///     connect(tableView->selectionModel(), &QItemSelectionModel::currentRowChanged, boxes,
///             [=, this](const QModelIndex& current) { boxes->setEntry(model, current.row()); });
///
/// A box has three states (Qt::CheckStateRole). One click changes others: a box decides its group,
/// and a group its boxes; each that has changed is told. What the list of the item cannot hold is
/// not Qt::ItemIsEnabled and says why as Qt::ToolTipRole.
///
/// Used on the thread of the QCoreApplication.
class MORVANE_EXPORT MorvaneAclBoxModel : public QAbstractItemModel {
    Q_OBJECT

  public:
    using Nodes = std::vector<std::shared_ptr<morvane::MVTreeNode>>;

    explicit MorvaneAclBoxModel(QObject* parent = nullptr);
    ~MorvaneAclBoxModel() override;

    /// Shows the boxes of a row of `model`, until the row or the model goes; none if there is no
    /// such row.
    void setEntry(MorvaneAclModel* model, int row);
    /// Shows boxes of no entry, which cannot be changed: what somebody can really do to an item.
    void setNodes(Nodes nodes);
    /// The row whose boxes are shown; -1 for none.
    int entryRow() const;

    QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override;
    QModelIndex parent(const QModelIndex& index) const override;
    using QObject::parent;
    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role = Qt::EditRole) override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

  private:
    struct MORVANE_INTERNAL State;

    void show(MorvaneAclModel* model, std::shared_ptr<morvane::MVAclEntry> entry, Nodes nodes);
    /// Has `notify` called when the edit has ended, if the same boxes are shown then.
    void tell(std::function<void()> notify);
    void observeBoxes(const morvane::NSTreeNode& node);
    void entryChanged(const morvane::NSKeyPath& keyPath);
    QModelIndex indexOf(const morvane::NSTreeNode& node) const;

    const std::unique_ptr<State> state_;
};
