// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVAclEditor.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

/// The states that a list has gone through while it is edited, so that a change can be taken back
/// and made again.
namespace morvane {

class EditHistory {
  public:
    /// The list as it is now is the first state.
    explicit EditHistory(MVAclEditor& editor);

    /// The list has changed: it gets a further state, and those that were taken back are forgotten.
    void record();
    /// Puts the entries themselves back; false if there is no such state.
    bool undo() { return go(at_ != 0, at_ - 1); }
    bool redo() { return go(at_ + 1 != states_.size(), at_ + 1); }

    bool isAtFirst() const { return at_ == 0 && !isFirstForgotten_; }
    /// Whether these are the entries of the present state, whatever they say.
    bool isOf(const MVAclEditor::Entries& entries) const;

  private:
    /// An entry, and what it was in that state.
    struct EntryState {
        MVAclEditor::Entry entry;
        std::int32_t tag;
        bool inherited;
        bool executionChosen;
        std::optional<NSUUID> uuid;
        CBIdentityRef identity;
        std::string applicableTo;
        /// Of each node of the tree, in its order, the state and whether it can be set.
        std::vector<std::pair<std::int64_t, bool>> nodes;
    };
    using State = std::vector<EntryState>;

    State now() const;
    bool go(bool isThere, std::size_t where);

    MVAclEditor* editor_;
    std::vector<State> states_;
    std::size_t at_ = 0;
    bool isFirstForgotten_ = false;
};

}  // namespace morvane
