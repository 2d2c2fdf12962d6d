// SPDX-License-Identifier: MIT
#include "MorvaneAclBoxModel.h"

#include <MorvaneOperation/EntryTexts.h>
#include <MorvaneOperation/MVObservation.h>

#include <QPointer>
#include <algorithm>
#include <utility>

#include "QtMainLoop.h"
#include "QtTexts.h"

using namespace morvane;

namespace {

const NSTreeNode& nodeOf(const QModelIndex& index) {
    return *static_cast<const NSTreeNode*>(index.constInternalPointer());
}

/// The place of `node` among `nodes`; -1 if it is not there.
template <class Nodes>
int placeAmong(const Nodes& nodes, const NSTreeNode& node) {
    const auto found = std::find_if(nodes.begin(), nodes.end(),
                                    [&](const auto& other) { return other.get() == &node; });
    return found == nodes.end() ? -1 : static_cast<int>(found - nodes.begin());
}

}  // namespace

struct MorvaneAclBoxModel::State {
    QPointer<MorvaneAclModel> model;
    std::shared_ptr<MVAclEntry> entry;
    Nodes nodes;
    /// Is raised each time other boxes are shown.
    unsigned shown = 0;
    // The boxes shown before are removed first.
    std::unique_ptr<MVObservation> ofEntry;
    std::vector<std::unique_ptr<MVObservation>> ofBoxes;
};

MorvaneAclBoxModel::MorvaneAclBoxModel(QObject* parent)
    : QAbstractItemModel(parent), state_(std::make_unique<State>()) {
    useQtMainLoop();
}

MorvaneAclBoxModel::~MorvaneAclBoxModel() = default;

void MorvaneAclBoxModel::setEntry(MorvaneAclModel* model, int row) {
    const auto entry = model ? model->entry(row) : nullptr;
    if (entry && entry == state_->entry && model == state_->model)
        return;
    show(model, entry, entry ? entry->permissions() : Nodes());
}

void MorvaneAclBoxModel::setNodes(Nodes nodes) {
    show(nullptr, nullptr, std::move(nodes));
}

int MorvaneAclBoxModel::entryRow() const {
    for (int row = 0; state_->entry && state_->model && row != state_->model->rowCount(); ++row) {
        if (state_->model->entry(row) == state_->entry)
            return row;
    }
    return -1;
}

void MorvaneAclBoxModel::show(MorvaneAclModel* model, std::shared_ptr<MVAclEntry> entry,
                              Nodes nodes) {
    if (state_->model && state_->model != model)
        disconnect(state_->model, nullptr, this, nullptr);
    if (model && state_->model != model) {
        const auto leaveWhatIsGone = [this] {
            if (state_->entry && entryRow() < 0)
                show(state_->model, nullptr, {});
        };
        connect(model, &QAbstractItemModel::rowsRemoved, this, leaveWhatIsGone);
        connect(model, &QAbstractItemModel::modelReset, this, leaveWhatIsGone);
        connect(model, &QObject::destroyed, this, leaveWhatIsGone);
    }
    beginResetModel();
    ++state_->shown;
    state_->ofBoxes.clear();
    state_->ofEntry.reset();
    state_->model = model;
    state_->entry = std::move(entry);
    state_->nodes = std::move(nodes);
    for (const auto& node : state_->nodes)
        observeBoxes(*node);
    if (state_->entry)
        state_->ofEntry = MVObservation::of(
            state_->entry,
            {&MVAclEntry::identityKeyPath, &MVAclEntry::uuidKeyPath, &MVAclEntry::tagKeyPath,
             &MVAclEntry::inheritedKeyPath, &MVAclEntry::permissionsKeyPath},
            [this](const NSKeyPath& keyPath) {
                tell([this, &keyPath] { entryChanged(keyPath); });
            });
    endResetModel();
}

void MorvaneAclBoxModel::tell(std::function<void()> notify) {
    // Whoever is told before may delete this model, or have it show other boxes.
    const auto later = [self = QPointer(this), shown = state_->shown, notify = std::move(notify)] {
        if (self && self->state_->shown == shown)
            notify();
    };
    if (state_->model)
        state_->model->tell(later);
    else
        later();
}

void MorvaneAclBoxModel::observeBoxes(const NSTreeNode& node) {
    if (MVTreeNode::permissionOf(node)) {
        const auto box = std::static_pointer_cast<MVAclPermission>(node.representedObject());
        state_->ofBoxes.push_back(
            MVObservation::of(box,
                              {&MVAclPermission::stateKeyPath, &MVAclPermission::settableKeyPath,
                               &MVAclPermission::nameKeyPath},
                              [this, &node](const NSKeyPath&) {
                                  tell([this, &node] {
                                      const auto index = indexOf(node);
                                      Q_EMIT dataChanged(index, index);
                                  });
                              }));
    }
    for (const auto& child : node.childNodes())
        observeBoxes(*child);
}

void MorvaneAclBoxModel::entryChanged(const NSKeyPath& keyPath) {
    if (&keyPath == &MVAclEntry::permissionsKeyPath)
        return show(state_->model, state_->entry, state_->entry->permissions());
    // Whom the entry is for, and how, decides which boxes the list can hold.
    for (int group = 0; group != rowCount(); ++group) {
        const auto top = index(group, 0);
        Q_EMIT dataChanged(top, top);
        if (const int boxes = rowCount(top))
            Q_EMIT dataChanged(index(0, 0, top), index(boxes - 1, 0, top));
    }
}

QModelIndex MorvaneAclBoxModel::indexOf(const NSTreeNode& node) const {
    const auto place = placeAmong(state_->nodes, node);
    return createIndex(place >= 0 ? place : placeAmong(node.parentNode()->childNodes(), node), 0,
                       &node);
}

QModelIndex MorvaneAclBoxModel::index(int row, int column, const QModelIndex& parent) const {
    if (!hasIndex(row, column, parent))
        return {};
    const auto place = static_cast<std::size_t>(row);
    return createIndex(row, column,
                       parent.isValid()
                           ? nodeOf(parent).childNodes()[place].get()
                           : static_cast<const NSTreeNode*>(state_->nodes[place].get()));
}

QModelIndex MorvaneAclBoxModel::parent(const QModelIndex& index) const {
    if (!index.isValid() || placeAmong(state_->nodes, nodeOf(index)) >= 0)
        return {};
    return indexOf(*nodeOf(index).parentNode());
}

int MorvaneAclBoxModel::rowCount(const QModelIndex& parent) const {
    return static_cast<int>(parent.isValid() ? nodeOf(parent).childNodes().size()
                                             : state_->nodes.size());
}

int MorvaneAclBoxModel::columnCount(const QModelIndex&) const {
    return 1;
}

QVariant MorvaneAclBoxModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid())
        return {};
    const auto& node = nodeOf(index);
    switch (role) {
        case Qt::DisplayRole:
            return shown(boxText(node));
        case Qt::CheckStateRole:
            switch (MVTreeNode::stateOf(node)) {
                case MVStateOff:
                    return Qt::Unchecked;
                case MVStateMixed:
                    return Qt::PartiallyChecked;
                default:
                    return Qt::Checked;
            }
        case Qt::ToolTipRole:
            return state_->model ? state_->model->whyNotBox(entryRow(), node) : QString();
        default:
            return {};
    }
}

bool MorvaneAclBoxModel::setData(const QModelIndex& index, const QVariant& value, int role) {
    if (!index.isValid() || role != Qt::CheckStateRole || !state_->model)
        return false;
    const auto state = value.toInt();
    return state != Qt::PartiallyChecked &&
           state_->model->setBox(entryRow(), nodeOf(index), state == Qt::Checked);
}

Qt::ItemFlags MorvaneAclBoxModel::flags(const QModelIndex& index) const {
    if (!index.isValid())
        return Qt::NoItemFlags;
    const auto& node = nodeOf(index);
    Qt::ItemFlags flags = Qt::ItemIsSelectable;
    if (node.childNodes().empty())
        flags |= Qt::ItemNeverHasChildren;
    if (!state_->entry)
        return flags | Qt::ItemIsEnabled;
    const bool isOn = MVTreeNode::stateOf(node) == MVStateOn;
    if (state_->model && state_->model->canSetBox(entryRow(), node, !isOn))
        flags |= Qt::ItemIsEnabled;
    return flags | Qt::ItemIsUserCheckable;
}
