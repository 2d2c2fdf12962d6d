// SPDX-License-Identifier: MIT
#include "Journal.h"

#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <system_error>
#include <utility>

#include "FileFacts.h"
#include "ListText.h"
#include "WrittenFile.h"

namespace morvane {

namespace fs = std::filesystem;

fs::path Journal::folder() {
    // A relative path in the variable is to be ignored.
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
    if (folder_.empty()) {
        whyNot_ = say("neither XDG_STATE_HOME nor HOME names a folder");
        return;
    }
    notes_ = JournalFolder::opened(folder_, true, whyNot_);
    if (!notes_)
        return;
    const auto old = notes_->names();
    for (std::size_t i = 0; i + maxJournals <= old.size(); ++i)
        notes_->remove(old[i]);
    const auto now = std::chrono::duration_cast<std::chrono::nanoseconds>(
                         std::chrono::system_clock::now().time_since_epoch())
                         .count();
    name_ = std::to_string(now) + ".acl";
    file_ = notes_->begin(name_, whyNot_);
    if (file_)
        return;
    // Without notes of this change, --undo would take an older one for it.
    for (const auto& older : notes_->names())
        notes_->remove(older);
}

void Journal::record(const std::string& path, std::string_view list, std::string_view next) {
    if (whyNot_)
        return;
    if (!file_)
        open();
    if (whyNot_)
        return;
    // Links on the way may lead elsewhere by the time the change is taken back.
    std::error_code error;
    const auto whole = fs::canonical(path, error);
    const auto item = error ? path : whole.string();
    auto text = "# file: " + quotedPath(item) + '\n';
    if (const auto identity = identityOfFile(item); !identity.empty())
        text += "# item: " + identity + '\n';
    if (!next.empty())
        text += "# became: " + std::string(next) + '\n';
    text += list.substr(list.find('\n') + 1);
    lastBegin_ = written_;
    written_ += text.size();
    if (written_ > maxJournalBytes)
        return giveUp(say("there are too many lists to keep"));
    if (!writeAll(file_.get(), text))
        giveUp(
            say("%1: %2", escaped(notes_->pathOf(name_).string()), Phrase::ofSystemError(errno)));
}

void Journal::withdrawLast() {
    if (!isKept() || written_ == lastBegin_)
        return;
    const auto end = static_cast<off_t>(lastBegin_);
    if (ftruncate(file_.get(), end) != 0 || lseek(file_.get(), end, SEEK_SET) != end)
        return giveUp(
            say("%1: %2", escaped(notes_->pathOf(name_).string()), Phrase::ofSystemError(errno)));
    written_ = lastBegin_;
}

void Journal::discard() {
    whyNot_.reset();
    if (!file_)
        return;
    file_ = {};
    notes_->remove(name_);
    written_ = 0;
    lastBegin_ = 0;
}

void Journal::giveUp(std::string why) {
    if (!file_ && !whyNot_)
        open();
    // To take back a part of this change, or the change before it, would not be an undo.
    if (!whyNot_)
        name_ = notes_->markAsLost(name_);
    whyNot_ = std::move(why);
}

}  // namespace morvane
