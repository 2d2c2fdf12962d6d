// SPDX-License-Identifier: MIT
#include "EditHistory.h"

#include <algorithm>
#include <functional>

namespace morvane {

namespace {

/// Nobody takes back more changes than this one by one, and each state holds the boxes of the whole
/// list.
constexpr std::size_t mostStates = 100;

void forEachNode(const std::vector<std::shared_ptr<MVTreeNode>>& groups,
                 const std::function<void(NSTreeNode&)>& work) {
    for (const auto& group : groups) {
        work(*group);
        for (const auto& box : group->childNodes())
            work(*box);
    }
}

}  // namespace

EditHistory::EditHistory(MVAclEditor& editor) : editor_(&editor) {
    states_.push_back(now());
}

EditHistory::State EditHistory::now() const {
    State state;
    for (const auto& entry : editor_->entries()) {
        auto& saved = state.emplace_back(EntryState{entry,
                                                    entry->tag(),
                                                    entry->inherited(),
                                                    editor_->isExecutionChosen(*entry),
                                                    entry->uuid(),
                                                    entry->identity(),
                                                    entry->applicableTo(),
                                                    {}});
        forEachNode(entry->permissions(), [&](const NSTreeNode& node) {
            const auto* permission = MVTreeNode::permissionOf(node);
            saved.nodes.emplace_back(MVTreeNode::stateOf(node),
                                     permission && permission->settable());
        });
    }
    return state;
}

void EditHistory::record() {
    states_.resize(at_ + 1);
    states_.push_back(now());
    if (states_.size() > mostStates) {
        states_.erase(states_.begin());
        isFirstForgotten_ = true;
    }
    at_ = states_.size() - 1;
}

bool EditHistory::isOf(const MVAclEditor::Entries& entries) const {
    return std::equal(entries.begin(), entries.end(), states_[at_].begin(), states_[at_].end(),
                      [](const auto& entry, const auto& saved) { return entry == saved.entry; });
}

bool EditHistory::go(bool isThere, std::size_t where) {
    if (!isThere)
        return false;
    at_ = where;
    MVAclEditor::Entries entries;
    for (const auto& saved : states_[at_]) {
        const auto& entry = saved.entry;
        entries.push_back(entry);
        entry->setTag(saved.tag);
        entry->setIdentity(saved.identity);
        entry->setUuid(saved.uuid);  // which somebody whom the system does not know has as well
        entry->setInherited(saved.inherited);
        // While this is set, no box follows another: each becomes what it was.
        entry->setUpdatingPermissions(true);
        auto node = saved.nodes.begin();
        forEachNode(entry->permissions(), [&](NSTreeNode& box) {
            if (auto* const permission = MVTreeNode::permissionOf(box)) {
                permission->setState(node->first);
                permission->setSettable(node->second);
            }
            ++node;
        });
        entry->setUpdatingPermissions(false);
        entry->resolvePermissionGroup();
        entry->setApplicableTo(saved.applicableTo);
    }
    editor_->showEntries(std::move(entries));
    for (const auto& saved : states_[at_])
        editor_->setExecutionChosen(*saved.entry, saved.executionChosen);
    return true;
}

}  // namespace morvane
