// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "AclEditor.h"

/// The editor that `morvane acl PATH --edit` shows on a terminal: entries with their three-state
/// boxes below them, moved through and changed by keys. It is told keys and draws text; the
/// terminal is the caller's.
///
///     EditScreen screen(editor, "notes.txt", style);
///     while (screen.press(key) == EditScreen::Result::goesOn)
///         print(screen.draw(rows, columns));
namespace morvane {

/// A key, as its character; those without one by the values here.
enum EditKey : char32_t {
    keyUp = 0x110000,
    keyDown,
    keyLeft,
    keyRight,
    /// No key will come any more.
    keyEnd,
    /// None was pressed; the terminal has another size.
    keyResized,
    keyEnter = '\r',
    keyEscape = 0x1B,
    keyBackspace = 0x7F,
    keyInterrupt = 0x03,
};

class EditScreen {
  public:
    enum class Result { goesOn, save, saveLossily, leave };

    EditScreen(AclEditor& editor, std::string title, const Style& style)
        : editor_(editor), title_(std::move(title)), style_(style) {}

    /// keyEnd leaves whatever was being asked, as nobody can answer.
    Result press(char32_t key);
    /// Shows why the list was not saved, until the next key. The entries may be others by now.
    void tell(const std::string& message);
    /// At most `rows` lines, each at most `columns` wide, with the chosen line among them.
    std::string draw(std::size_t rows, std::size_t columns) const;

  private:
    /// What is being typed, and for what.
    enum class Asking { nothing, whoToAdd, who, whetherToLeave };
    /// A line of the list: an entry, or one of its nodes.
    struct Line {
        std::size_t entry;
        NSTreeNode* node = nullptr;
        std::size_t depth = 0;
    };

    std::vector<Line> lines() const;
    Line chosenLine() const;
    std::string textOf(const Line& line) const;
    /// What stands below the list.
    std::vector<std::string> footer(std::size_t rows, std::size_t columns) const;
    Result answer(char32_t key);
    void act(char32_t key, const Line& line);
    void nextPermissions(std::size_t entry);
    void did(const Problem& problem);
    void choose(std::size_t entry);

    AclEditor& editor_;
    std::string title_;
    Style style_;
    std::size_t chosen_ = 0;
    std::set<const MVAclEntry*> open_;
    bool changed_ = false;
    Asking asking_ = Asking::nothing;
    std::string typed_;
    std::string message_;
};

}  // namespace morvane
