// SPDX-License-Identifier: MIT
#include "TextEditor.h"

#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "ListText.h"
#include "WrittenFile.h"

namespace morvane {

namespace {

/// A temporary file that only this user can read. It is removed with this object.
class OwnFile {
  public:
    OwnFile() {
        std::error_code ignored;
        path_ = (std::filesystem::temp_directory_path(ignored) / "morvane-XXXXXX").string();
        file_ = mkstemp(path_.data());
    }
    ~OwnFile() {
        if (file_ >= 0) {
            close(file_);
            unlink(path_.c_str());
        }
    }
    OwnFile(const OwnFile&) = delete;
    OwnFile& operator=(const OwnFile&) = delete;

    const std::string& path() const { return path_; }
    bool write(std::string_view text) const { return file_ >= 0 && writeAll(file_, text); }

  private:
    std::string path_;
    int file_ = -1;
};

std::string editor() {
    for (const char* variable : {"VISUAL", "EDITOR"}) {
        const char* const value = std::getenv(variable);
        if (value && *value != '\0')
            return value;
    }
    return "vi";
}

}  // namespace

std::optional<std::string> editedText(const std::string& text, Problem& problem) {
    const OwnFile file;
    if (!file.write(text)) {
        problem = say("'%1' could not be written: %2", escaped(file.path()),
                      Phrase::ofSystemError(errno));
        return std::nullopt;
    }
    // By custom the variables hold a command for the shell. The path is passed as an argument, not
    // as part of it.
    setenv("MORVANE_LIST", file.path().c_str(), 1);
    const auto command = editor();
    if (std::system((command + " \"$MORVANE_LIST\"").c_str()) != 0) {
        problem = say("the editor '%1' has failed", escaped(command));
        return std::nullopt;
    }
    auto changed = contentOfFile(file.path(), problem);
    if (problem || changed == text)
        return std::nullopt;
    return changed;
}

}  // namespace morvane
