// SPDX-License-Identifier: MIT
#include "MorvaneIdentityModel.h"

MorvaneIdentityModel::MorvaneIdentityModel(MorvaneFileClient* client, QObject* parent)
    : QAbstractListModel(parent), client_(client) {}

MorvaneIdentityModel::~MorvaneIdentityModel() {
    delete search_;
}

void MorvaneIdentityModel::setText(const QString& text) {
    delete search_;
    auto* const search = client_->identities(text);
    search_ = search;
    connect(search, &MorvaneFileOperation::finished, this, [this, search] {
        beginResetModel();
        found_ = search->hasAnswer() ? search->answer() : QList<MorvaneIdentity>();
        endResetModel();
    });
}

MorvaneIdentity MorvaneIdentityModel::identity(int row) const {
    return row >= 0 && row < found_.size() ? found_[row] : MorvaneIdentity();
}

int MorvaneIdentityModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(found_.size());
}

QVariant MorvaneIdentityModel::data(const QModelIndex& index, int role) const {
    const auto who = index.isValid() ? identity(index.row()) : MorvaneIdentity();
    if (!who || (role != Qt::DisplayRole && role != Qt::EditRole))
        return {};
    return role == Qt::DisplayRole ? who.text() : who.name();
}
