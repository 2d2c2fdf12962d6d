// SPDX-License-Identifier: MIT
#include "MorvaneAclModel.h"

#include <MorvaneOperation/EntryTexts.h>
#include <MorvaneOperation/MVObservation.h>
#include <MorvaneOperation/acl_perms.h>

#include <QFileInfo>
#include <algorithm>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "QtMainLoop.h"
#include "QtTexts.h"

using namespace morvane;

namespace {

/// Null if the entry has none by itself.
const NSTreeNode* executionBoxOf(const MVAclEntry& entry) {
    if (entry.permissions().empty())
        return nullptr;
    for (const auto& box : entry.permissions().front()->childNodes()) {
        const auto* permission = MVTreeNode::permissionOf(*box);
        if (permission && static_cast<std::uint32_t>(permission->permission()) == ACL_SEARCH)
            return box.get();
    }
    return nullptr;
}

/// What the entry has of a column that is a menu.
qint64 codeOf(int column, const MVAclEntry& entry) {
    switch (column) {
        case MorvaneAclModel::RuleColumn:
            return entry.tag();
        case MorvaneAclModel::PermissionsColumn:
            return entry.permissionGroup();
        default:
            return appliesToCode(entry);
    }
}

Phrase textOf(int column, const MVAclEntry& entry) {
    switch (column) {
        case MorvaneAclModel::WhoColumn:
            return whoText(entry);
        case MorvaneAclModel::RuleColumn:
            return ruleText(entry.tag());
        case MorvaneAclModel::PermissionsColumn:
            return permissionsText(entry);
        case MorvaneAclModel::AppliesToColumn:
            return appliesToText(entry);
        default:
            return inheritedText(entry);
    }
}

bool isMenu(int column) {
    return column == MorvaneAclModel::RuleColumn || column == MorvaneAclModel::PermissionsColumn ||
           column == MorvaneAclModel::AppliesToColumn;
}

}  // namespace

struct MorvaneAclModel::State {
    struct Row {
        std::shared_ptr<MVAclEntry> entry;
        std::unique_ptr<MVObservation> observation;
        /// The user has switched "Execute File" on by itself.
        bool isExecutionChosen = false;
    };
    /// An entry as it was read.
    struct Read {
        std::shared_ptr<MVAclEntry> entry;
        std::int32_t tag;
        std::optional<NSUUID> uuid;

        bool keepsPlace() const { return entry->tag() == tag && entry->uuid() == uuid; }
    };

    std::optional<MVFileAcl> acl;
    std::vector<Row> rows;
    std::vector<Read> read;
};

MorvaneAclModel::MorvaneAclModel(QObject* parent)
    : QAbstractTableModel(parent), state_(std::make_unique<State>()) {
    useQtMainLoop();
}

MorvaneAclModel::~MorvaneAclModel() = default;

void MorvaneAclModel::setAcl(MVFileAcl acl) {
    beginResetModel();
    state_->rows.clear();
    state_->read.clear();
    state_->acl.reset();
    if (std::find(acl.entries.begin(), acl.entries.end(), nullptr) != acl.entries.end()) {
        qWarning("MorvaneAclModel: an entry of the list is null.");
        endResetModel();
        return;
    }
    for (const auto& entry : acl.entries) {
        addRow(entry);
        state_->read.push_back({entry, entry->tag(), entry->uuid()});
    }
    state_->acl = std::move(acl);
    endResetModel();
}

void MorvaneAclModel::setEntries(MVFileAcl::Entries entries) {
    if (!state_->acl)
        return;
    auto now = *state_->acl;
    now.entries = std::move(entries);
    setAcl(std::move(now));
}

MVFileAcl MorvaneAclModel::acl() const {
    if (!state_->acl)
        return {*NSURL::URLWithString("about:blank"), {}};
    const auto asWritten = [this](const State::Row& row) {
        return row.isExecutionChosen && list() ? list()->askingToExecute(row.entry) : row.entry;
    };
    MVFileAcl::Entries denying;
    MVFileAcl::Entries keeping;
    MVFileAcl::Entries allowing;
    for (const auto& row : state_->rows) {
        // Rows keep the order in which they were read.
        const auto read =
            std::find_if(state_->read.begin(), state_->read.end(),
                         [&](const State::Read& other) { return other.entry == row.entry; });
        const bool keepsPlace = read != state_->read.end() && read->keepsPlace();
        const bool denies = row.entry->tag() == MVAclTagDeny;
        (keepsPlace ? keeping : denies ? denying : allowing).push_back(asWritten(row));
    }
    auto acl = *state_->acl;
    acl.entries = std::move(denying);
    for (auto* const part : {&keeping, &allowing})
        acl.entries.insert(acl.entries.end(), part->begin(), part->end());
    return acl;
}

int MorvaneAclModel::addEntry(const MorvaneIdentity& who) {
    if (!who || !state_->acl)
        return -1;
    append({newEntryFor(who)});
    return rowCount() - 1;
}

bool MorvaneAclModel::insertRows(int row, int count, const QModelIndex& parent) {
    if (!state_->acl || parent.isValid() || row != rowCount() || count < 1)
        return false;
    MVFileAcl::Entries entries;
    for (int i = 0; i != count; ++i)
        entries.push_back(newEntryFor({}));
    append(entries);
    return true;
}

std::shared_ptr<MVAclEntry> MorvaneAclModel::newEntryFor(const MorvaneIdentity& who) const {
    const bool isFolder = state_->acl->origin
                              ? state_->acl->origin->values().isDirectory
                              : QFileInfo(urlOf(state_->acl->url).toLocalFile()).isDir();
    auto entry = MVAclEntry::newEntryForDirectory(isFolder);
    if (who)
        entry->setIdentity(who.identity());
    return entry;
}

void MorvaneAclModel::append(const MVFileAcl::Entries& entries) {
    const int first = rowCount();
    beginInsertRows({}, first, first + static_cast<int>(entries.size()) - 1);
    for (const auto& entry : entries)
        addRow(entry);
    endInsertRows();
}

bool MorvaneAclModel::removeRows(int row, int count, const QModelIndex& parent) {
    if (parent.isValid() || row < 0 || count < 1 || count > rowCount() - row)
        return false;
    const auto begin = state_->rows.begin() + row;
    const auto end = begin + count;
    if (std::any_of(begin, end,
                    [](const State::Row& r) { return !morvane::whyNotRemoved(*r.entry).empty(); }))
        return false;
    beginRemoveRows({}, row, row + count - 1);
    state_->rows.erase(begin, end);
    endRemoveRows();
    return true;
}

std::shared_ptr<MVAclEntry> MorvaneAclModel::entry(int row) const {
    return row >= 0 && row < rowCount() ? state_->rows[static_cast<std::size_t>(row)].entry
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
    const auto* const permission = MVTreeNode::permissionOf(box);
    return shownEntry && permission && permission->settable() &&
           (!on || morvane::whyNotBox(*shownEntry, box, list()).empty());
}

bool MorvaneAclModel::setBox(int row, const NSTreeNode& box, bool on) {
    if (!canSetBox(row, box, on))
        return false;
    auto& target = state_->rows[static_cast<std::size_t>(row)];
    const auto shownEntry = target.entry;
    // The entry tells its observers in the call, who may edit the list.
    const auto* const execution = executionBoxOf(*shownEntry);
    const bool executes = execution && (execution == &box ? on : target.isExecutionChosen);
    target.isExecutionChosen = executes;
    MVTreeNode::setStateOf(box, on ? MVStateOn : MVStateOff);
    return true;
}

int MorvaneAclModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(state_->rows.size());
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
            if (column == InheritedColumn && hasMark(*shownEntry))
                return shownEntry->inherited() ? Qt::Checked : Qt::Unchecked;
            return {};
        case Qt::ToolTipRole:
            if (column != InheritedColumn && shownEntry->inherited())
                return shown(whyNotChanged(*shownEntry));
            if (column == PermissionsColumn && state_->acl->origin)
                return QString::fromStdString(
                    lettersOfEntry(*shownEntry, state_->acl->origin->values().storage));
            return {};
        case ChoicesRole:
            return isMenu(column) ? QVariant::fromValue(choices(column, *shownEntry)) : QVariant();
        case SubjectRole:
            return static_cast<int>(subjectOfEntry(*shownEntry));
        default:
            return {};
    }
}

bool MorvaneAclModel::setData(const QModelIndex& index, const QVariant& value, int role) {
    if (!index.isValid() || !(flags(index) & (Qt::ItemIsEditable | Qt::ItemIsUserCheckable)))
        return false;
    auto& row = state_->rows[static_cast<std::size_t>(index.row())];
    const auto target = row.entry;
    const int column = index.column();
    if (column == InheritedColumn) {
        if (role != Qt::CheckStateRole)
            return false;
        target->setInherited(value.toInt() == Qt::Checked);
        return true;
    }
    if (role != Qt::EditRole)
        return false;
    if (column == WhoColumn) {
        const auto who = value.value<MorvaneIdentity>();
        if (who)
            target->setIdentity(who.identity());
        return static_cast<bool>(who);
    }
    bool isCode = false;
    const auto code = value.toLongLong(&isCode);
    if (!isCode || code == codeOf(column, *target))
        return isCode;
    const auto menu = choices(column, *target);
    const auto choice = std::find_if(menu.begin(), menu.end(),
                                     [&](const MorvaneChoice& c) { return c.code == code; });
    if (choice == menu.end() || !choice->isPossible())
        return false;
    if (column == AppliesToColumn)
        return setAppliesTo(*target, code);
    if (column == RuleColumn) {
        target->setTag(static_cast<std::int32_t>(code));
    } else {
        row.isExecutionChosen = false;
        target->setPermissionGroup(code);
    }
    return true;
}

Qt::ItemFlags MorvaneAclModel::flags(const QModelIndex& index) const {
    auto flags = QAbstractTableModel::flags(index);
    const auto shownEntry = index.isValid() ? entry(index.row()) : nullptr;
    if (!shownEntry)
        return flags;
    const int column = index.column();
    if (column == InheritedColumn)
        return hasMark(*shownEntry) ? flags | Qt::ItemIsUserCheckable : flags;
    if (!whyNotChanged(*shownEntry).empty())
        return flags;
    if (column == WhoColumn)
        return shownEntry->isAcl() ? flags | Qt::ItemIsEditable : flags;
    const auto menu = choices(column, *shownEntry);
    const auto present = codeOf(column, *shownEntry);
    const bool hasOther = std::any_of(menu.begin(), menu.end(), [&](const MorvaneChoice& c) {
        return c.code != present && c.isPossible();
    });
    return hasOther ? flags | Qt::ItemIsEditable : flags;
}

QVariant MorvaneAclModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return QAbstractTableModel::headerData(section, orientation, role);
    switch (section) {
        case WhoColumn:
            return shown(phrase("Who"));
        case RuleColumn:
            return shown(phrase("Rule"));
        case PermissionsColumn:
            return shown(phrase("Permissions"));
        case AppliesToColumn:
            return shown(phrase("Applies to"));
        case InheritedColumn:
            return shown(phrase("Inherited"));
        default:
            return {};
    }
}

QHash<int, QByteArray> MorvaneAclModel::roleNames() const {
    auto names = QAbstractTableModel::roleNames();
    names[ChoicesRole] = "choices";
    names[SubjectRole] = "subject";
    return names;
}

const ItemList* MorvaneAclModel::list() const {
    return state_->acl && state_->acl->list ? &*state_->acl->list : nullptr;
}

bool MorvaneAclModel::hasMark(const MVAclEntry& entry) const {
    return entry.inherited() ||
           (entry.isAcl() &&
            (!state_->acl->origin || state_->acl->origin->values().storage == MVAclStorage::nfs4));
}

void MorvaneAclModel::addRow(std::shared_ptr<MVAclEntry> entry) {
    static const std::vector<const NSKeyPath*> seen{&MVAclEntry::identityKeyPath,
                                                    &MVAclEntry::uuidKeyPath,
                                                    &MVAclEntry::tagKeyPath,
                                                    &MVAclEntry::inheritedKeyPath,
                                                    &MVAclEntry::permissionGroupKeyPath,
                                                    &MVAclEntry::permissionsKeyPath,
                                                    &MVAclEntry::applicableToKeyPath};
    auto observation = MVObservation::of(
        entry, seen,
        [this, raw = entry.get()](const NSKeyPath& keyPath) { changed(*raw, keyPath); });
    state_->rows.push_back({std::move(entry), std::move(observation)});
}

void MorvaneAclModel::changed(const MVAclEntry& entry, const NSKeyPath& keyPath) {
    const auto row =
        std::find_if(state_->rows.begin(), state_->rows.end(),
                     [&](const State::Row& other) { return other.entry.get() == &entry; });
    if (row == state_->rows.end())
        return;
    const auto number = static_cast<int>(row - state_->rows.begin());
    const bool isChoice = &keyPath == &MVAclEntry::permissionGroupKeyPath;
    const bool isApplicability = &keyPath == &MVAclEntry::applicableToKeyPath;
    const int first = isChoice ? PermissionsColumn : isApplicability ? AppliesToColumn : WhoColumn;
    const int last = isChoice || isApplicability ? first : columns - 1;
    Q_EMIT dataChanged(index(number, first), index(number, last));
}

QList<MorvaneChoice> MorvaneAclModel::choices(int column, const MVAclEntry& entry) const {
    const auto of = [&] {
        switch (column) {
            case RuleColumn:
                return ruleChoices(entry, list());
            case PermissionsColumn:
                return permissionChoices(entry, list());
            default:
                return appliesToChoices(entry, list());
        }
    };
    QList<MorvaneChoice> menu;
    for (const auto& choice : of())
        menu << MorvaneChoice{shown(choice.name), choice.code, shown(choice.whyNot)};
    return menu;
}
