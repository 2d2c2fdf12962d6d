// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/linux/FileDescriptor.h>

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "AclEditor.h"

/// Where the notes for --undo are kept.
namespace morvane {

/// How many changes can be taken back.
inline constexpr std::size_t maxJournals = 10;
/// The most bytes that the notes of one change may take: about half a million lists of three
/// entries.
inline constexpr std::size_t maxJournalBytes = std::size_t{64} << 20U;

/// A folder of notes that nobody but this user can have written, because what the notes say becomes
/// the lists of files, with this user's rights. So the folder and those on the way to it belong to
/// this user and are no links, and nobody else can write to it or to what is in it. Whatever
/// another user has placed there is refused, and left as it is.
class JournalFolder {
  public:
    /// Opens the folder, whose last two path components are this program's own. Returns nothing
    /// with a problem if it cannot be trusted or made, and nothing without one if it does not exist
    /// and `isMade` is false.
    static std::optional<JournalFolder> opened(const std::filesystem::path& folder, bool isMade,
                                               Problem& problem);

    /// The names of the notes of each change, the oldest first, including those of changes that
    /// could not be noted.
    std::vector<std::string> names() const;
    /// Whether the name stands for a change whose lists could not be noted.
    static bool isLost(const std::string& name);
    std::filesystem::path pathOf(const std::string& name) const { return path_ / name; }
    /// Begins the notes of a change. Empty with a problem if that fails.
    FileDescriptor begin(const std::string& name, Problem& problem) const;
    std::string content(const std::string& name, Problem& problem) const;
    void remove(const std::string& name) const;
    /// Empties the notes that were begun, and has them stand for a change that cannot be taken
    /// back. Returns their new name.
    std::string markAsLost(const std::string& name) const;
    /// Moves lists that could not be taken back out of the notes, so that older changes can be.
    /// Returns the path of the file that holds them.
    std::filesystem::path keepAside(const std::string& name, std::string_view lists,
                                    Problem& problem) const;

  private:
    std::vector<std::string> namesEndingIn(std::string_view ending,
                                           std::string_view otherEnding = {}) const;
    JournalFolder(std::filesystem::path path, FileDescriptor folder)
        : path_(std::move(path)), folder_(std::move(folder)) {}

    std::filesystem::path path_;
    FileDescriptor folder_;
};

}  // namespace morvane
