// SPDX-License-Identifier: MIT
#include "Journal.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <system_error>
#include <utility>
#include <vector>

namespace morvane {

namespace {

namespace fs = std::filesystem;

constexpr const char* ending = ".acl";

/// In the order in which they were made.
std::vector<fs::path> journalsIn(const fs::path& folder) {
    std::vector<fs::path> files;
    std::error_code error;
    for (auto each = fs::directory_iterator(folder, error);
         !error && each != fs::directory_iterator(); each.increment(error)) {
        if (each->path().extension() == ending)
            files.push_back(each->path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

}  // namespace

fs::path Journal::folder() {
    // A path that is not whole is to be ignored.
    const auto folderOf = [](const char* variable) {
        const char* const value = std::getenv(variable);
        return value && *value == '/' ? fs::path(value) : fs::path();
    };
    if (const auto state = folderOf("XDG_STATE_HOME"); !state.empty())
        return state / "morvane" / "undo";
    const auto home = folderOf("HOME");
    return home.empty() ? fs::path() : home / ".local" / "state" / "morvane" / "undo";
}

void Journal::open() {
    if (folder_.empty())
        return giveUp(say("neither XDG_STATE_HOME nor HOME names a folder"));
    std::error_code error;
    fs::create_directories(folder_, error);
    // Paths and names are nobody else's business.
    if (!error)
        fs::permissions(folder_, fs::perms::owner_all, error);
    if (error)
        return giveUp(
            say("%1: %2", escaped(folder_.string()), Phrase::ofSystemError(error.value())));
    auto old = journalsIn(folder_);
    for (std::size_t i = 0; i + maxJournals <= old.size(); ++i)
        fs::remove(old[i], error);
    const auto now = std::chrono::duration_cast<std::chrono::nanoseconds>(
                         std::chrono::system_clock::now().time_since_epoch())
                         .count();
    // The digits of a time are as many for three hundred years.
    file_ = folder_ / (std::to_string(now) + ending);
    stream_.open(file_, std::ios::binary);
    if (!stream_)
        giveUp(say("%1: %2", escaped(file_.string()), Phrase::ofSystemError(errno)));
}

void Journal::record(const std::string& list) {
    if (whyNot_)
        return;
    if (!stream_.is_open())
        open();
    if (whyNot_)
        return;
    written_ += list.size();
    if (written_ > maxJournalBytes)
        return giveUp(say("there are too many lists to keep"));
    stream_ << list;
    stream_.flush();
    if (!stream_)
        giveUp(say("%1: %2", escaped(file_.string()), Phrase::ofSystemError(errno)));
}

void Journal::discard() {
    if (file_.empty())
        return;
    stream_.close();
    std::error_code ignored;
    fs::remove(file_, ignored);
    written_ = 0;
}

void Journal::giveUp(std::string why) {
    // A part of a change that is taken back is no undo.
    discard();
    whyNot_ = std::move(why);
}

std::optional<fs::path> lastJournal(const fs::path& folder) {
    const auto files = journalsIn(folder);
    return files.empty() ? std::nullopt : std::optional(files.back());
}

}  // namespace morvane
