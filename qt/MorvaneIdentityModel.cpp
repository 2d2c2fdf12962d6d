// SPDX-License-Identifier: MIT
#include "MorvaneIdentityModel.h"

#include <QList>
#include <QPointer>

struct MorvaneIdentityModel::State {
    MorvaneFileClient* const client;
    QPointer<MorvaneFileOperation> search = nullptr;
    QList<MorvaneIdentity> found = {};
};

MorvaneIdentityModel::MorvaneIdentityModel(MorvaneFileClient* client, QObject* parent)
    : QAbstractListModel(parent), state_(new State{client}) {}

MorvaneIdentityModel::~MorvaneIdentityModel() {
    delete state_->search;
}

void MorvaneIdentityModel::setText(const QString& text) {
    delete state_->search;
    auto* const search = state_->client->identities(text);
    state_->search = search;
    connect(search, &MorvaneFileOperation::finished, this, [this, search] {
        beginResetModel();
        state_->found = search->hasAnswer() ? search->answer() : QList<MorvaneIdentity>();
        endResetModel();
    });
}

MorvaneIdentity MorvaneIdentityModel::identity(int row) const {
    return row >= 0 && row < state_->found.size() ? state_->found[row] : MorvaneIdentity();
}

int MorvaneIdentityModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(state_->found.size());
}

QVariant MorvaneIdentityModel::data(const QModelIndex& index, int role) const {
    const auto who = index.isValid() ? identity(index.row()) : MorvaneIdentity();
    if (!who || (role != Qt::DisplayRole && role != Qt::EditRole))
        return {};
    return role == Qt::DisplayRole ? who.text() : who.name();
}
