// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "AclEditor.h"
#include "JournalFolder.h"

/// What lists were before they were changed, so that --undo takes the last change back.
namespace morvane {

/// The notes of one run, in a file of its own in the folder of this user's states, which is made
/// with the first list. They are written before the list is changed.
class Journal {
  public:
    /// Where notes are: $XDG_STATE_HOME/morvane/undo. Empty if this user has no such place.
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
    /// Why not, for people.
    const Problem& whyNot() const { return whyNot_; }

  private:
    void open();

    const std::filesystem::path folder_;
    std::optional<JournalFolder> notes_;
    std::string name_;
    FileDescriptor file_;
    std::size_t written_ = 0;
    /// Where the last list begins.
    std::size_t lastBegin_ = 0;
    Problem whyNot_;
};

}  // namespace morvane
