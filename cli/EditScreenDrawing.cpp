// SPDX-License-Identifier: MIT
#include <MorvaneOperation/EntryTexts.h>

#include <algorithm>
#include <utility>

#include "EditScreen.h"
#include "EntryText.h"

/// How the editor on the terminal looks.
namespace morvane {

namespace {

/// The column at which what somebody can do is shown beside the boxes.
constexpr std::size_t accessColumn = 44;
/// A message of up to this many lines is shown below the list, however low the terminal is.
constexpr std::size_t shortMessage = 2;
/// The rows that a list keeps, those around it among them, before others stand above it.
constexpr std::size_t rowsOfShortList = 3 + ScrolledView::rowsAround;
/// The columns of the mark before the chosen line.
constexpr std::size_t markColumns = 2;

/// Puts `parts` in lines of at most `columns`, and parts none of them unless it is too long for a
/// line.
std::vector<std::string> inLines(const std::vector<std::string>& parts, std::size_t columns) {
    constexpr std::string_view between = "   ";
    std::vector<std::string> lines;
    for (const auto& part : parts) {
        if (!lines.empty() && columnsOf(lines.back()) + between.size() + columnsOf(part) <= columns)
            lines.back() += std::string(between) + part;
        else
            lines.push_back(cut(part, columns));
    }
    return lines;
}

/// The node of `permissions` for the same box as `box`, whose groups they share.
const NSTreeNode* sameBox(const PermissionList& permissions, const NSTreeNode& box) {
    const auto name = [](const NSTreeNode& node) {
        const auto* permission = MVTreeNode::permissionOf(node);
        return permission ? keyOfName(permission->name()) : std::string();
    };
    const auto* const parent = box.parentNode();
    const bool isGroup = !parent || !MVTreeNode::permissionOf(*parent);
    for (const auto& group : permissions) {
        if (name(*group) != name(isGroup ? box : *parent))
            continue;
        if (isGroup)
            return group.get();
        for (const auto& other : group->childNodes()) {
            if (name(*other) == name(box))
                return other.get();
        }
    }
    return nullptr;
}

}  // namespace

bool EditScreen::isOfUse(std::string_view key) const {
    if (key != "g" && key != "t" && key != "w")
        return true;
    if (lines().empty())
        return false;
    const auto& entry = *editor_.entries()[chosenLine().entry];
    if (!whyNotChanged(entry).empty())
        return false;
    const auto choices = permissionChoices(entry, editor_.list());
    return key != "g" || std::any_of(choices.begin(), choices.end(), [&](const auto& choice) {
               return choice.whyNot.empty() && choice.code != entry.permissionGroup();
           });
}

std::vector<ViewedLine> EditScreen::allKeys(std::size_t columns) const {
    struct Key {
        const char* key;
        const char* says;
    };
    static constexpr Key keys[] = {
        {"Up Down k j", translatable("move")},
        {"PgUp PgDn Home End", translatable("move by a page, or to an end")},
        {"Right l Enter, Left h", translatable("open an entry to its boxes, close it")},
        {"< >", translatable("show what is cut at a side")},
        {"/ n", translatable("find a text, find it again")},
        {"Space", translatable("change the box, or open the entry")},
        {"g", translatable("the next of the choices for all permissions")},
        {"t", translatable("allow or deny")},
        {"w", translatable("whom the entry is for")},
        {"a d", translatable("add an entry, remove it")},
        {"i", translatable("whether the entry counts as inherited")},
        {"e", translatable("show what somebody can really do, beside the boxes")},
        {"u U", translatable("take a change back, make it again")},
        {"s", translatable("save, after a look at the changes")},
        {"L", translatable("save the nearest list that the file system can hold")},
        {"Ctrl-Z", translatable("go to the shell; 'fg' comes back")},
        {"q", translatable("leave")},
    };
    constexpr std::size_t wide = 22;
    constexpr std::size_t mark = 2;
    const auto room = columns > wide + mark + 1 ? columns - wide - mark : 1;
    std::vector<ViewedLine> lines;
    for (const auto& [key, says] : keys) {
        std::string before = key;
        for (const auto& line : wrapped(say(says), room))
            lines.push_back({padded(std::exchange(before, {}), wide) + line, !isOfUse(key)});
    }
    return lines;
}

std::string EditScreen::textOf(const Line& line, const std::vector<std::string>& letters) const {
    const auto& entry = *editor_.entries()[line.entry];
    if (!line.node)
        return std::to_string(line.entry + 1) + ". " + entryAsLine(entry, letters[line.entry]);
    return std::string(line.depth * 4, ' ') + boxAsText(*line.node);
}

std::string EditScreen::accessText(const Line& line) const {
    if (!access_ || !line.node)
        return {};
    const auto* const same = sameBox(access_->permissions, *line.node);
    if (!same)
        return {};
    const auto state = MVTreeNode::stateOf(*same);
    return say("%1: %2", access_->who,
               state == MVStateOn    ? say("yes")
               : state == MVStateOff ? say("no")
                                     : say("in part"));
}

std::vector<ViewedLine> EditScreen::viewed() const {
    std::vector<ViewedLine> result;
    const auto letters = editor_.letters();
    for (const auto& line : lines()) {
        auto text = textOf(line, letters);
        if (const auto access = accessText(line); !access.empty())
            text = padded(text, accessColumn) + "  " + access;
        result.push_back({std::move(text), !whyNot(line).empty()});
    }
    if (result.empty())
        result.push_back({say("The list has no entries.")});
    return result;
}

std::string EditScreen::heading() const {
    switch (asking_) {
        case Asking::whetherToSave:
            return say("These changes are saved:");
        case Asking::whichKey:
            return say("Keys");
        default:
            return hadChanges_ || !history_.isAtFirst() ? say("%1 (changed)", title_) : title_;
    }
}

std::vector<std::string> EditScreen::facts(std::size_t listed, std::size_t rows,
                                           std::size_t columns) const {
    std::vector<std::string> whole;
    for (const auto& fact : facts_) {
        for (auto& line : wrapped(fact, columns > markColumns ? columns - markColumns : 1))
            whole.push_back(std::move(line));
    }
    if (whole.size() + listed <= rows)
        return whole;
    const auto spare = rows - std::min({rows, listed, rowsOfShortList});
    auto each = facts_;
    each.resize(std::min(each.size(), spare));
    return each;
}

std::string EditScreen::question() const {
    const auto typed = escaped(typed_);
    switch (asking_) {
        case Asking::whoToAdd:
        case Asking::who:
            return say("user:NAME, group:NAME or everyone: %1", typed);
        case Asking::whoseAccess:
            return say("Whose access, user:NAME or group:NAME: %1", typed);
        case Asking::whatToFind:
            return say("Find: %1", typed);
        case Asking::whetherToLeave:
            return say("Leave without saving? (y/n)");
        default:
            return {};
    }
}

std::vector<std::string> EditScreen::footer(std::size_t columns) const {
    if (asking_ == Asking::whetherToSave)
        return inLines({say("s, Enter: save"), say("other keys: back to the list")}, columns);
    if (isBesideList())
        return inLines({say("Up, Down: move"), say("other keys: back to the list")}, columns);
    std::vector<std::string> result;
    if (auto asked = question(); !asked.empty()) {
        // The end of what is typed stays visible.
        while (columnsOf(asked) > columns)
            asked.erase(0, std::max<std::size_t>(cut(asked, 1).size(), 1));
        result = {asked};
    } else {
        auto told = message_;
        if (const auto all = lines(); told.empty() && !all.empty()) {
            if (const auto why = whyNot(chosenLine()); !why.empty())
                told = say("It cannot be on: %1", why);
        }
        result = wrapped(told, columns);
    }
    std::vector<std::string> keys{say("Space change"), say("s save"),     say("u undo"),
                                  say("a add"),        say("d remove"),   say("/ find"),
                                  say("e access"),     say("? all keys"), say("q leave")};
    for (const auto& line : inLines(keys, columns))
        result.push_back(style_.faint(line));
    return result;
}

std::string EditScreen::draw(std::size_t rows, std::size_t columns) {
    // A long message is shown whole, in the place of the list.
    if (asking_ == Asking::nothing &&
        wrapped(message_, columns).size() > std::max<std::size_t>(rows / 3, shortMessage)) {
        asking_ = Asking::longMessage;
        chosenBeside_ = 0;
    }
    const bool isBeside = isBesideList();
    if (asking_ == Asking::whichKey)
        beside_ = allKeys(columns);
    if (asking_ == Asking::longMessage) {
        beside_.clear();
        for (const auto& line :
             wrapped(message_, columns > markColumns ? columns - markColumns : 1))
            beside_.push_back({line});
    }
    if (isBeside)
        chosenBeside_ = std::min(chosenBeside_, beside_.size() - 1);
    auto below = footer(columns);
    // Where there is little room, the lines of keys are left out, from the last one on.
    constexpr std::size_t rowsOfTitleAndList = 4;
    while (below.size() > 1 && below.size() + rowsOfTitleAndList > rows)
        below.pop_back();
    const auto room = rows > below.size() + 1 ? rows - below.size() - 1 : 0;
    const auto shownLines = isBeside ? beside_ : viewed();
    const auto listed = shownLines.size() + ScrolledView::rowsAround;
    const auto head = isBeside ? std::vector<std::string>() : facts(listed, room, columns);
    auto list = (isBeside ? besideView_ : view_)
                    .draw(head, shownLines, isBeside ? chosenBeside_ : chosen_,
                          std::min(room, head.size() + listed), columns, style_);
    std::vector<std::string> shown{style_.heading(cut(heading(), columns))};
    // On a terminal of few lines the chosen one is shown rather than what is above it.
    if (room < list.size())
        list.erase(list.begin());
    shown.insert(shown.end(), list.begin(), list.end());
    shown.insert(shown.end(), below.begin(), below.end());
    shown.resize(std::min(shown.size(), std::max<std::size_t>(rows, 1)));
    // No line break follows the last line, as it would scroll the screen.
    std::string text;
    for (const auto& line : shown)
        text += (&line == &shown.front() ? "" : "\n") + line;
    return text;
}

}  // namespace morvane
