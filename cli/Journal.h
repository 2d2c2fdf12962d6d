// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "AclEditor.h"
#include "JournalFolder.h"

/// Notes what lists were before they were changed, so that --undo can take the last change back.
namespace morvane {

/// The notes of one run. They stand in a file of their own in this user's state folder, which is
/// made when the first list is noted. Each list is noted before it is changed.
class Journal {
  public:
    /// The folder of the notes, $XDG_STATE_HOME/morvane/undo; empty if this user has none.
    static std::filesystem::path folder();

    explicit Journal(std::filesystem::path folder) : folder_(std::move(folder)) {}

    /// Notes the list of the item at `path`, as listAsText() tells it, before it is changed, and
    /// which item that is. `next` is the digest of the list that it is to have, if that is known:
    /// what somebody else makes of it later is not taken back.
    void record(const std::string& path, std::string_view list, std::string_view next = {});
    /// Takes back the last record(): that list was not changed after all.
    void withdrawLast();
    /// The change cannot be taken back: --undo is to say so, and not to take back the one before.
    void giveUp(std::string why);
    /// Throws the notes away: nothing was changed.
    void discard();

    /// Whether what was recorded can be taken back.
    bool isKept() const { return written_ != 0 && !whyNot_; }
    /// Why it cannot, for people.
    const Problem& whyNot() const { return whyNot_; }

  private:
    void open();

    const std::filesystem::path folder_;
    std::optional<JournalFolder> notes_;
    std::string name_;
    FileDescriptor file_;
    std::size_t written_ = 0;
    /// The offset in the file at which the last list begins.
    std::size_t lastBegin_ = 0;
    Problem whyNot_;
};

}  // namespace morvane
