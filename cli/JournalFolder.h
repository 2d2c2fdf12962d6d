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

/// The last so many changes can be taken back.
inline constexpr std::size_t maxJournals = 10;
/// One that takes more than this cannot be kept: about half a million lists of three entries.
inline constexpr std::size_t maxJournalBytes = std::size_t{64} << 20U;

/// A folder of notes that nobody but this user can have written: what stands in notes becomes the
/// lists of files, with this user's rights. So the folder and those on the way belong to this user
/// and are no links, and nobody else can write to it or to what is in it. Whatever another user has
/// placed there is refused, and stays as it is.
class JournalFolder {
  public:
    /// Opens the folder, whose last two names this program gives. Empty with a problem if it
    /// cannot be trusted or made, and empty without one if it is not there and is not to be made.
    static std::optional<JournalFolder> opened(const std::filesystem::path& folder, bool isMade,
                                               Problem& problem);

    /// The notes of each change, the oldest first, with those that were lost.
    std::vector<std::string> names() const;
    /// Whether these are no notes, but stand for a change of which the lists could not be noted.
    static bool isLost(const std::string& name);
    std::filesystem::path pathOf(const std::string& name) const { return path_ / name; }
    /// Begins the notes of a change. Empty with a problem if that fails.
    FileDescriptor begin(const std::string& name, Problem& problem) const;
    std::string content(const std::string& name, Problem& problem) const;
    void remove(const std::string& name) const;
    /// Empties the notes that were begun, and has them stand for a change that cannot be taken
    /// back; answers their name.
    std::string markAsLost(const std::string& name) const;
    /// Keeps lists of those notes that could not be taken back, so that they are not in the way of
    /// older changes; answers where.
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
