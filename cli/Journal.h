// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "AclEditor.h"

/// What lists were before they were changed, so that --undo takes the last change back.
namespace morvane {

/// The last so many changes can be taken back.
inline constexpr std::size_t maxJournals = 10;
/// One that takes more than this cannot: about half a million lists of three entries.
inline constexpr std::size_t maxJournalBytes = std::size_t{64} << 20U;

/// The notes of one run, in a file of its own in the folder of this user's states, which is made
/// with the first list. They are written before the list is changed.
class Journal {
  public:
    /// Where notes are: $XDG_STATE_HOME/morvane/undo. Empty if this user has no such place.
    static std::filesystem::path folder();

    explicit Journal(std::filesystem::path folder) : folder_(std::move(folder)) {}

    /// Notes a list before it is changed, as listAsText() tells it with its whole path.
    void record(const std::string& list);
    /// Throws the notes away: nothing was changed.
    void discard();

    /// Whether what was recorded can be taken back.
    bool isKept() const { return written_ != 0 && !whyNot_; }
    /// Why not, for people.
    const Problem& whyNot() const { return whyNot_; }

  private:
    void open();
    void giveUp(std::string why);

    const std::filesystem::path folder_;
    std::filesystem::path file_;
    std::ofstream stream_;
    std::size_t written_ = 0;
    Problem whyNot_;
};

/// The notes of the last change; empty if there are none.
std::optional<std::filesystem::path> lastJournal(const std::filesystem::path& folder);

}  // namespace morvane
