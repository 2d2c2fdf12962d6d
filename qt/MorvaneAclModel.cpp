// SPDX-License-Identifier: MIT
#include "MorvaneAclModel.h"

#include <MorvaneOperation/EntryTexts.h>
#include <MorvaneOperation/MVAclEditor.h>

#include <QHash>
#include <QPointer>
#include <algorithm>
#include <stdexcept>
#include <utility>

#include "AclColumns.h"
#include "QtMainLoop.h"
#include "QtTexts.h"

using namespace morvane;

struct MorvaneAclModel::State {
    std::shared_ptr<MVAclEditor> editor;
    bool didReadExecute = true;
    /// Which menus have another choice that is possible, by row and column, as far as it was asked:
    /// it is asked for each cell that is painted, and takes long to find out.
    QHash<std::pair<int, int>, bool> editable;
};

MorvaneAclModel::MorvaneAclModel(QObject* parent)
    : QAbstractTableModel(parent), state_(std::make_unique<State>()) {
    useQtMainLoop();
}

MorvaneAclModel::~MorvaneAclModel() {
    if (state_->editor)
        state_->editor->setObserver({});
}

void MorvaneAclModel::setAcl(MVFileAcl acl) {
    show(editorOf(std::move(acl)));
}

void MorvaneAclModel::setEntries(MVFileAcl::Entries entries) {
    if (!state_->editor)
        return;
    auto none = state_->editor->acl();
    none.entries.clear();
    const auto editor = editorOf(std::move(none));
    try {
        editor->setEntries(std::move(entries));
        show(editor);
    } catch (const std::invalid_argument& e) {
        qWarning("MorvaneAclModel: %s.", e.what());
        show(nullptr);
    }
}

std::shared_ptr<MVAclEditor> MorvaneAclModel::editorOf(MVFileAcl acl) {
    try {
        return MVAclEditor::init(std::move(acl));
    } catch (const std::invalid_argument& e) {
        qWarning("MorvaneAclModel: %s.", e.what());
        return nullptr;
    }
}

void MorvaneAclModel::show(std::shared_ptr<MVAclEditor> editor) {
    beginResetModel();
    if (state_->editor)
        state_->editor->setObserver({});
    state_->editor = std::move(editor);
    state_->editable.clear();
    if (state_->editor) {
        state_->didReadExecute = state_->editor->readExecutes();
        state_->editor->setObserver([this](const MVAclEntry& entry, const NSKeyPath& keyPath) {
            state_->editable.clear();
            state_->editor->tell(
                [self = QPointer(this), shownEntry = entry.weak_from_this(), &keyPath] {
                    if (const auto edited = shownEntry.lock(); self && edited)
                        self->changed(*edited, keyPath);
                });
        });
    }
    endResetModel();
}

MVFileAcl MorvaneAclModel::acl() const {
    return state_->editor ? state_->editor->acl()
                          : MVFileAcl{*NSURL::URLWithString("about:blank"), {}};
}

int MorvaneAclModel::addEntry(const MorvaneIdentity& who) {
    if (!who || !state_->editor)
        return -1;
    append(who);
    return rowCount() - 1;
}

bool MorvaneAclModel::insertRows(int row, int count, const QModelIndex& parent) {
    if (!state_->editor || parent.isValid() || row != rowCount() || count < 1)
        return false;
    for (int i = 0; i != count; ++i)
        append({});
    return true;
}

void MorvaneAclModel::append(const MorvaneIdentity& who) {
    beginInsertRows({}, rowCount(), rowCount());
    state_->editor->add(who ? who.identity() : nullptr);
    endInsertRows();
    tellOfAll();
}

bool MorvaneAclModel::removeRows(int row, int count, const QModelIndex& parent) {
    if (parent.isValid() || row < 0 || count < 1 || count > rowCount() - row)
        return false;
    const auto begin = state_->editor->entries().begin() + row;
    const MVFileAcl::Entries removed(begin, begin + count);
    if (std::any_of(removed.begin(), removed.end(),
                    [](const auto& each) { return !morvane::whyNotRemoved(*each).empty(); }))
        return false;
    beginRemoveRows({}, row, row + count - 1);
    state_->editable.clear();
    for (const auto& each : removed)
        state_->editor->remove(each);
    endRemoveRows();
    tellOfAll();
    return true;
}

std::shared_ptr<MVAclEntry> MorvaneAclModel::entry(int row) const {
    return row >= 0 && row < rowCount() ? state_->editor->entries()[static_cast<std::size_t>(row)]
                                        : nullptr;
}

QString MorvaneAclModel::whyNotRemoved(int row) const {
    const auto shownEntry = entry(row);
    return shownEntry ? shown(morvane::whyNotRemoved(*shownEntry)) : QString();
}

QString MorvaneAclModel::whyNotBox(int row, const NSTreeNode& box) const {
    const auto shownEntry = entry(row);
    return shownEntry ? shown(morvane::whyNotBox(*shownEntry, box, list())) : QString();
}

bool MorvaneAclModel::canSetBox(int row, const NSTreeNode& box, bool on) const {
    const auto shownEntry = entry(row);
    return shownEntry && state_->editor->canSetBox(*shownEntry, box, on);
}

bool MorvaneAclModel::setBox(int row, const NSTreeNode& box, bool on) {
    const auto shownEntry = entry(row);
    return shownEntry && state_->editor->setBox(shownEntry, box, on);
}

int MorvaneAclModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() || !state_->editor ? 0
                                               : static_cast<int>(state_->editor->entries().size());
}

int MorvaneAclModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : columns;
}

QVariant MorvaneAclModel::data(const QModelIndex& index, int role) const {
    const auto shownEntry = index.isValid() ? entry(index.row()) : nullptr;
    if (!shownEntry)
        return {};
    const int column = index.column();
    switch (role) {
        case Qt::DisplayRole:
            return shown(textOf(column, *shownEntry));
        case Qt::EditRole:
            if (column == WhoColumn)
                return QVariant::fromValue(MorvaneIdentity(shownEntry->identity()));
            return isMenu(column) ? QVariant(codeOf(column, *shownEntry))
                                  : QVariant(shownEntry->inherited());
        case Qt::CheckStateRole:
            if (column == InheritedColumn && state_->editor->canSetInherited(*shownEntry))
                return shownEntry->inherited() ? Qt::Checked : Qt::Unchecked;
            return {};
        case Qt::ToolTipRole:
            if (column != InheritedColumn && shownEntry->inherited())
                return shown(whyNotChanged(*shownEntry));
            if (column == PermissionsColumn && state_->editor->origin())
                return QString::fromStdString(state_->editor->letters(*shownEntry));
            return {};
        case ChoicesRole:
            return isMenu(column) ? QVariant::fromValue(choicesOf(column, *shownEntry, list()))
                                  : QVariant();
        case SubjectRole:
            return static_cast<int>(subjectOfEntry(*shownEntry));
        default:
            return {};
    }
}

bool MorvaneAclModel::setData(const QModelIndex& index, const QVariant& value, int role) {
    if (!index.isValid() || !(flags(index) & (Qt::ItemIsEditable | Qt::ItemIsUserCheckable)))
        return false;
    const auto editor = state_->editor;
    const auto target = entry(index.row());
    const int column = index.column();
    if (column == InheritedColumn)
        return role == Qt::CheckStateRole &&
               editor->setInherited(target, value.toInt() == Qt::Checked);
    if (role != Qt::EditRole)
        return false;
    if (column == WhoColumn)
        return editor->setIdentity(target, value.value<MorvaneIdentity>().identity());
    bool isCode = false;
    const auto code = value.toLongLong(&isCode);
    if (!isCode)
        return false;
    switch (column) {
        case RuleColumn:
            return editor->setRule(target, static_cast<std::int32_t>(code));
        case PermissionsColumn:
            return editor->setPermissionGroup(target, code);
        default:
            return editor->setAppliesTo(target, code);
    }
}

Qt::ItemFlags MorvaneAclModel::flags(const QModelIndex& index) const {
    auto flags = QAbstractTableModel::flags(index);
    const auto shownEntry = index.isValid() ? entry(index.row()) : nullptr;
    if (!shownEntry)
        return flags;
    const int column = index.column();
    if (column == InheritedColumn)
        return state_->editor->canSetInherited(*shownEntry) ? flags | Qt::ItemIsUserCheckable
                                                            : flags;
    return isEditable(index.row(), column) ? flags | Qt::ItemIsEditable : flags;
}

bool MorvaneAclModel::isEditable(int row, int column) const {
    const auto shownEntry = entry(row);
    if (!whyNotChanged(*shownEntry).empty())
        return false;
    if (column == WhoColumn)
        return shownEntry->isAcl();
    const std::pair cell(row, column);
    const auto known = state_->editable.constFind(cell);
    if (known != state_->editable.constEnd())
        return *known;
    const auto menu = choicesOf(column, *shownEntry, list());
    const auto present = codeOf(column, *shownEntry);
    const bool hasOther = std::any_of(menu.begin(), menu.end(), [&](const MorvaneChoice& c) {
        return c.code != present && c.isPossible();
    });
    state_->editable.insert(cell, hasOther);
    return hasOther;
}

QVariant MorvaneAclModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return QAbstractTableModel::headerData(section, orientation, role);
    const auto title = titleOf(section);
    return title.empty() ? QVariant() : shown(title);
}

QHash<int, QByteArray> MorvaneAclModel::roleNames() const {
    auto names = QAbstractTableModel::roleNames();
    names[ChoicesRole] = "choices";
    names[SubjectRole] = "subject";
    return names;
}

const ItemList* MorvaneAclModel::list() const {
    return state_->editor ? state_->editor->list() : nullptr;
}

void MorvaneAclModel::changed(const MVAclEntry& entry, const NSKeyPath& keyPath) {
    if (!state_->editor)
        return;
    const auto& entries = state_->editor->entries();
    const auto row = std::find_if(entries.begin(), entries.end(),
                                  [&](const auto& other) { return other.get() == &entry; });
    if (row == entries.end())
        return;
    const auto number = static_cast<int>(row - entries.begin());
    const bool isChoice = &keyPath == &MVAclEntry::permissionGroupKeyPath;
    const bool isApplicability = &keyPath == &MVAclEntry::applicableToKeyPath;
    const int first = isChoice ? PermissionsColumn : isApplicability ? AppliesToColumn : WhoColumn;
    const int last = isChoice || isApplicability ? first : columns - 1;
    Q_EMIT dataChanged(index(number, first), index(number, last));
    tellOfAll();
}

void MorvaneAclModel::tell(const std::function<void()>& notify) {
    if (state_->editor)
        state_->editor->tell(notify);
    else
        notify();
}

void MorvaneAclModel::tellOfAll() {
    if (!state_->editor || rowCount() == 0)
        return;
    const bool readExecutes = state_->editor->readExecutes();
    if (std::exchange(state_->didReadExecute, readExecutes) != readExecutes)
        Q_EMIT dataChanged(index(0, PermissionsColumn), index(rowCount() - 1, PermissionsColumn));
}
