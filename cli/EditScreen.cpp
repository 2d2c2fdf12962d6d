// SPDX-License-Identifier: MIT
#include "EditScreen.h"

#include <algorithm>
#include <array>
#include <utility>

namespace morvane {

namespace {

constexpr std::array help{
    // TRANSLATORS: Keys of the editor on the terminal; it has 80 columns.
    translatable(
        "Up/Down move   Right/Left open, close   Space box   g permissions   t allow/deny"),
    translatable("w who   a add   d remove   i inherited   s save   l save lossily   q leave")};

void appendUtf8(std::string& text, char32_t c) {
    const auto byte = [&](char32_t value) { text += static_cast<char>(value); };
    if (c < 0x80) {
        byte(c);
    } else if (c < 0x800) {
        byte(0xC0 | c >> 6);
        byte(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        byte(0xE0 | c >> 12);
        byte(0x80 | (c >> 6 & 0x3F));
        byte(0x80 | (c & 0x3F));
    } else {
        byte(0xF0 | c >> 18);
        byte(0x80 | (c >> 12 & 0x3F));
        byte(0x80 | (c >> 6 & 0x3F));
        byte(0x80 | (c & 0x3F));
    }
}

}  // namespace

std::vector<EditScreen::Line> EditScreen::lines() const {
    std::vector<Line> result;
    const auto& entries = editor_.entries();
    for (std::size_t i = 0; i != entries.size(); ++i) {
        result.push_back({i});
        if (!open_.contains(entries[i].get()))
            continue;
        for (const auto& group : entries[i]->permissions()) {
            result.push_back({i, group.get(), 1});
            for (const auto& box : group->childNodes())
                result.push_back({i, box.get(), 2});
        }
    }
    return result;
}

EditScreen::Line EditScreen::chosenLine() const {
    const auto all = lines();
    return all.empty() ? Line{0} : all[std::min(chosen_, all.size() - 1)];
}

void EditScreen::choose(std::size_t entry) {
    const auto all = lines();
    const auto found =
        std::find_if(all.begin(), all.end(), [&](const Line& l) { return l.entry == entry; });
    chosen_ = static_cast<std::size_t>(found - all.begin());
}

std::string EditScreen::textOf(const Line& line) const {
    const auto& entry = *editor_.entries()[line.entry];
    if (!line.node)
        return std::to_string(line.entry + 1) + ". " + entryAsLine(entry);
    return std::string(line.depth * 4, ' ') + boxAsText(*line.node);
}

std::vector<std::string> EditScreen::footer(std::size_t rows, std::size_t columns) const {
    std::vector<std::string> result;
    switch (asking_) {
        case Asking::nothing:
            result = wrapped(message_, columns);
            result.resize(std::clamp<std::size_t>(rows / 3, 1, result.size()));
            break;
        case Asking::whoToAdd:
        case Asking::who:
            result = {cut(say("user:NAME, group:NAME or everyone: %1", escaped(typed_)), columns)};
            break;
        case Asking::whetherToLeave:
            result = {cut(say("Leave without saving? (y/n)"), columns)};
            break;
    }
    for (const auto* line : help)
        result.push_back(style_.faint(cut(say(line), columns)));
    return result;
}

std::string EditScreen::draw(std::size_t rows, std::size_t columns) const {
    const auto all = lines();
    const auto below = footer(rows, columns);
    // The title, and blank lines below it and the list.
    const std::size_t linesAround = below.size() + 3;
    const std::size_t room = rows > linesAround ? rows - linesAround : 1;
    const std::size_t first = chosen_ < room ? 0 : chosen_ - room + 1;
    std::vector<std::string> shown{
        style_.heading(cut(changed_ ? say("%1 (changed)", title_) : title_, columns)), ""};
    for (std::size_t i = first; i < std::min(all.size(), first + room); ++i) {
        const auto line = cut((i == chosen_ ? "> " : "  ") + textOf(all[i]), columns);
        shown.push_back(i == chosen_ ? style_.heading(line) : line);
    }
    if (all.empty())
        shown.push_back(cut("  " + say("The list has no entries."), columns));
    shown.emplace_back();
    shown.insert(shown.end(), below.begin(), below.end());
    shown.resize(std::min(shown.size(), rows));
    // Nothing behind the last line: a line break there would move all of it up.
    std::string text;
    for (const auto& line : shown)
        text += (&line == &shown.front() ? "" : "\n") + line;
    return text;
}

void EditScreen::did(const Problem& problem) {
    message_ = problem.value_or("");
    changed_ = changed_ || !problem;
}

void EditScreen::tell(const std::string& message) {
    message_ = message;
    const auto& entries = editor_.entries();
    std::erase_if(open_, [&](const MVAclEntry* open) {
        return std::none_of(entries.begin(), entries.end(),
                            [&](const auto& entry) { return entry.get() == open; });
    });
    const auto count = lines().size();
    chosen_ = count == 0 ? 0 : std::min(chosen_, count - 1);
}

void EditScreen::nextPermissions(std::size_t entry) {
    static constexpr const char* choices[] = {"all", "read-write", "read", "write", "none"};
    const auto& target = *editor_.entries()[entry];
    const auto& offered = target.permissionGroups();
    // Codes count from 1 in the order of the choices; the last one offered is "Custom", which
    // nobody chooses.
    const auto count = static_cast<std::int64_t>(offered.size()) - 1;
    const auto code = target.permissionGroup() % MVAclGroupCustom % count;
    did(editor_.choosePermissions(entry, choices[code]));
}

void EditScreen::act(char32_t key, const Line& line) {
    const auto& entry = editor_.entries()[line.entry];
    switch (key) {
        case keyRight:
            open_.insert(entry.get());
            break;
        case keyLeft:
            open_.erase(entry.get());
            choose(line.entry);
            break;
        case ' ':
            if (line.node) {
                did(editor_.setNode(line.entry, *line.node, BoxChange::toggle));
            } else if (!open_.insert(entry.get()).second) {
                open_.erase(entry.get());
            }
            break;
        case 'g':
            nextPermissions(line.entry);
            break;
        case 't':
            did(editor_.setTag(line.entry,
                               entry->tag() == MVAclTagDeny ? MVAclTagAllow : MVAclTagDeny));
            break;
        case 'i':
            did(editor_.setInherited(line.entry, !entry->inherited()));
            break;
        case 'w':
            asking_ = Asking::who;
            break;
        case 'd': {
            const auto* const address = entry.get();
            const auto problem = editor_.remove(line.entry);
            did(problem);
            if (problem)
                break;
            open_.erase(address);
            const auto left = editor_.entries().size();
            choose(left == 0 ? 0 : std::min(line.entry, left - 1));
            break;
        }
        default:
            break;
    }
}

EditScreen::Result EditScreen::answer(char32_t key) {
    const auto asking = asking_;
    if (asking == Asking::whetherToLeave) {
        asking_ = Asking::nothing;
        return key == 'y' || key == 'Y' ? Result::leave : Result::goesOn;
    }
    if (key == keyEscape || key == keyInterrupt) {
        asking_ = Asking::nothing;
        typed_.clear();
    } else if (key == keyEnter || key == '\n') {
        asking_ = Asking::nothing;
        const auto who = std::exchange(typed_, {});
        if (asking == Asking::who) {
            did(editor_.setWho(chosenLine().entry, who));
        } else {
            const auto problem = editor_.add(who);
            did(problem);
            if (!problem)
                choose(editor_.entries().size() - 1);
        }
    } else if (key == keyBackspace || key == '\b') {
        while (!typed_.empty() && (static_cast<unsigned char>(typed_.back()) & 0xC0) == 0x80)
            typed_.pop_back();
        if (!typed_.empty())
            typed_.pop_back();
    } else if (key >= ' ' && key < keyUp && typed_.size() < 256) {
        appendUtf8(typed_, key);
    }
    return Result::goesOn;
}

EditScreen::Result EditScreen::press(char32_t key) {
    if (key == keyEnd)
        return Result::leave;
    if (key == keyResized)
        return Result::goesOn;
    if (asking_ != Asking::nothing)
        return answer(key);
    message_.clear();
    const auto count = lines().size();
    switch (key) {
        case keyUp:
            chosen_ -= chosen_ > 0 ? 1 : 0;
            break;
        case keyDown:
            chosen_ += chosen_ + 1 < count ? 1 : 0;
            break;
        case 'a':
            asking_ = Asking::whoToAdd;
            break;
        case 's':
            return Result::save;
        case 'l':
            return Result::saveLossily;
        case 'q':
        case keyEscape:
        case keyInterrupt:
            if (!changed_)
                return Result::leave;
            asking_ = Asking::whetherToLeave;
            break;
        default:
            if (count != 0)
                act(key, chosenLine());
            break;
    }
    return Result::goesOn;
}

}  // namespace morvane
