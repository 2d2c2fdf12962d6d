// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/qt/MorvaneFileClient.h>

#include <QAbstractListModel>
#include <memory>

/// Whom an entry can be for, found while somebody types.
///
///     auto* const found = new MorvaneIdentityModel(client, this);
///     listView->setModel(found);
///     connect(lineEdit, &QLineEdit::textChanged, found, &MorvaneIdentityModel::setText);
///     connect(listView, &QListView::activated, this,
///             [=, this](const QModelIndex& chosen) {
///             model->addEntry(found->identity(chosen.row())); });
///
/// Nothing waits for a directory on the network: what is shown is replaced (modelReset()) once the
/// identities for the present text have been found. Used on the thread of its client, which
/// outlives it.
class MORVANE_EXPORT MorvaneIdentityModel : public QAbstractListModel {
    Q_OBJECT

  public:
    explicit MorvaneIdentityModel(MorvaneFileClient* client, QObject* parent = nullptr);
    ~MorvaneIdentityModel() override;

    /// Nobody if there is no such row.
    Q_INVOKABLE MorvaneIdentity identity(int row) const;

    int rowCount(const QModelIndex& parent = {}) const override;
    /// "user alice" as Qt::DisplayRole, "alice" as Qt::EditRole.
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;

  public Q_SLOTS:
    /// Looks for those whose names contain `text`, and no more for what was looked for before.
    /// Where the search fails nobody is found.
    void setText(const QString& text);

  private:
    struct MORVANE_INTERNAL State;

    const std::unique_ptr<State> state_;
};
