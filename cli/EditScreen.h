// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "AccessCommand.h"
#include "AclEditor.h"
#include "EditHistory.h"
#include "EditKeys.h"
#include "ScrolledView.h"

/// The editor that `morvane acl PATH --edit` shows on a terminal: entries with their three-state
/// boxes below them, moved through and changed by keys. It is told keys and draws text; the
/// terminal is the caller's.
///
///     EditScreen screen(editor, "notes.txt", style);
///     while (screen.press(key) == EditScreen::Result::goesOn)
///         print(screen.draw(rows, columns));
namespace morvane {

/// What the editor asks its surroundings for. Each may be empty: the list is saved without a
/// question then, and the key for somebody's access does nothing.
struct EditSources {
    /// What would be written otherwise than it was read, line by line; no line if nothing has
    /// changed.
    std::function<std::vector<std::string>()> changes = {};
    /// What somebody can really do to the item, by the list that is stored.
    std::function<Result<PermissionList>(const NSUUID& who)> access = {};
};

class EditScreen {
  public:
    enum class Result {
        goesOn,
        save,
        saveLossily,
        leave,
        /// The program is to stop until the user continues it.
        suspend
    };

    EditScreen(AclEditor& editor, std::string title, const Style& style, EditSources sources = {});

    /// keyEnd leaves whatever was being asked, as nobody can answer.
    Result press(char32_t key);
    /// Shows why the list was not saved, until the next key. The entries may be others by now.
    void tell(const std::string& message);
    /// At most `rows` lines, each at most `columns` wide, with the chosen line among them.
    std::string draw(std::size_t rows, std::size_t columns);

  private:
    /// What is being typed, and for what; or what is shown instead of the list.
    enum class Asking {
        nothing,
        whoToAdd,
        who,
        whoseAccess,
        whatToFind,
        whetherToSave,
        whetherToLeave,
        whichKey,
        longMessage
    };
    /// A line of the list: an entry, or one of its nodes.
    struct Line {
        std::size_t entry;
        NSTreeNode* node = nullptr;
        std::size_t depth = 0;
    };
    /// What somebody can really do, by the groups and bits of the boxes.
    struct Access {
        std::string who;
        PermissionList permissions;
    };

    std::vector<ViewedLine> allKeys(std::size_t columns) const;
    /// Whether the key can do something to the chosen entry; those that are for the list can.
    bool isOfUse(std::string_view key) const;
    /// The lines of the list, with the boxes of those entries that are open, or of all.
    std::vector<Line> lines(bool all = false) const;
    Line chosenLine() const;
    /// `letters` are those of all entries.
    std::string textOf(const Line& line, const std::vector<std::string>& letters) const;
    /// What the person that was asked about can really do of a line's box; empty if it is none.
    std::string accessText(const Line& line) const;
    std::string whyNot(const Line& line) const;
    std::vector<ViewedLine> viewed() const;
    /// What is told of the item, in as many of `rows` as a list of so many can spare.
    std::vector<std::string> facts(std::size_t listed, std::size_t rows, std::size_t columns) const;
    std::string heading() const;
    /// Whether other lines are shown instead of the list.
    bool isBesideList() const {
        return asking_ == Asking::whetherToSave || asking_ == Asking::whichKey ||
               asking_ == Asking::longMessage;
    }
    /// The lines below the list.
    std::vector<std::string> footer(std::size_t columns) const;
    std::string question() const;

    Result answer(char32_t key);
    Result answerBesideList(char32_t key);
    void take(Asking asking, const std::string& typed);
    void move(char32_t key);
    Result act(char32_t key);
    void change(char32_t key, const Line& line);
    void toggle(const Line& line);
    void nextPermissions(std::size_t entry);
    void showAccess(const std::string& who);
    void find(const std::string& text);
    void go(bool isThere, const std::string& whyNot);
    Result askWhetherToSave(bool lossily);
    void did(const Problem& problem);
    void choose(std::size_t entry);
    void keepWithin();
    /// Drops entries that have gone: a later one may have the same address.
    void forgetGoneEntries();

    AclEditor& editor_;
    std::string title_;
    Style style_;
    EditSources sources_;
    EditHistory history_;
    /// What the entries that were read tell of the item.
    std::vector<std::string> facts_;
    ScrolledView view_;
    ScrolledView besideView_;
    std::size_t chosen_ = 0;
    /// The chosen one of the lines that are shown instead of the list.
    std::size_t chosenBeside_ = 0;
    std::vector<ViewedLine> beside_;
    std::set<const MVAclEntry*> open_;
    std::optional<Access> access_;
    std::string found_;
    bool savesLossily_ = false;
    /// Whether entries were replaced after changes, so that the first state of the history has
    /// changes already.
    bool hadChanges_ = false;
    Asking asking_ = Asking::nothing;
    std::string typed_;
    std::string message_;
};

}  // namespace morvane
