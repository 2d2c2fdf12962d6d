// SPDX-License-Identifier: MIT
#include "EditScreen.h"

#include <MorvaneOperation/EntryTexts.h>
#include <MorvaneOperation/IdentityText.h>

#include <algorithm>
#include <array>
#include <utility>

namespace morvane {

namespace {

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

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    });
    return text;
}

/// What a letter does that moves as an arrow does.
char32_t asArrow(char32_t key) {
    switch (key) {
        case 'h':
            return keyLeft;
        case 'j':
            return keyDown;
        case 'k':
            return keyUp;
        case 'l':
            return keyRight;
        default:
            return key;
    }
}

/// Where a key that moves goes among `count` lines, `page` of which are seen at once.
std::size_t moved(std::size_t from, char32_t key, std::size_t count, std::size_t page) {
    const auto last = count == 0 ? 0 : count - 1;
    switch (key) {
        case keyUp:
            return from == 0 ? 0 : from - 1;
        case keyDown:
            return std::min(from + 1, last);
        case keyPageUp:
            return from - std::min(from, page);
        case keyPageDown:
            return std::min(from + page, last);
        case keyHome:
            return 0;
        case keyBottom:
            return last;
        default:
            return from;
    }
}

}  // namespace

EditScreen::EditScreen(AclEditor& editor, std::string title, const Style& style,
                       EditSources sources)
    : editor_(editor),
      title_(std::move(title)),
      style_(style),
      sources_(std::move(sources)),
      history_(editor),
      list_(ItemList::asRead(editor.entries())) {}

std::vector<EditScreen::Line> EditScreen::lines(bool all) const {
    std::vector<Line> result;
    const auto& entries = editor_.entries();
    for (std::size_t i = 0; i != entries.size(); ++i) {
        result.push_back({i});
        if (!all && !open_.contains(entries[i].get()))
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

void EditScreen::keepWithin() {
    const auto count = lines().size();
    chosen_ = count == 0 ? 0 : std::min(chosen_, count - 1);
}

void EditScreen::did(const Problem& problem) {
    message_ = problem.value_or("");
    if (!problem)
        history_.record();
}

void EditScreen::tell(const std::string& message) {
    message_ = message;
    const auto& entries = editor_.entries();
    if (!history_.isOf(entries)) {
        hadChanges_ = true;
        history_ = EditHistory(editor_);
        list_ = ItemList::asRead(entries);
    }
    std::erase_if(open_, [&](const MVAclEntry* open) {
        return std::none_of(entries.begin(), entries.end(),
                            [&](const auto& entry) { return entry.get() == open; });
    });
    keepWithin();
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

std::string EditScreen::whyNot(const Line& line) const {
    if (!line.node || MVTreeNode::stateOf(*line.node) == MVStateOn)
        return {};
    const auto& entry = *editor_.entries()[line.entry];
    if (!whyNotChanged(entry).empty())
        return {};  // said when it is tried, of the whole entry
    return escaped(whyNotBox(entry, *line.node, list_ ? &*list_ : nullptr).localized());
}

void EditScreen::toggle(const Line& line) {
    const auto& entry = editor_.entries()[line.entry];
    if (!line.node) {
        if (!open_.insert(entry.get()).second)
            open_.erase(entry.get());
        return;
    }
    if (const auto why = whyNot(line); !why.empty())
        message_ =
            say("'%1' cannot be switched on: %2", escaped(boxText(*line.node).localized()), why);
    else
        did(editor_.setNode(line.entry, *line.node, BoxChange::toggle));
}

void EditScreen::change(char32_t key, const Line& line) {
    const auto& entry = editor_.entries()[line.entry];
    switch (key) {
        case keyRight:
        case keyEnter:
            open_.insert(entry.get());
            break;
        case keyLeft:
            open_.erase(entry.get());
            choose(line.entry);
            break;
        case ' ':
            toggle(line);
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

void EditScreen::showAccess(const std::string& who) {
    access_.reset();
    if (who.empty())
        return;
    Problem problem;
    const auto identity = identityWritten(who, problem);
    if (problem) {
        message_ = *problem;
        return;
    }
    auto permissions = sources_.access(identity->uniqueIdentifier());
    if (permissions)
        access_ = Access{escaped(identityText(*identity).localized()), *std::move(permissions)};
    else
        message_ = escaped(permissions.error()->localizedDescription());
}

void EditScreen::find(const std::string& text) {
    if (!text.empty())
        found_ = text;
    const auto all = lines(true);
    const auto chosen = chosenLine();
    const auto isChosen = [&](const Line& line) {
        return line.entry == chosen.entry && line.node == chosen.node;
    };
    const auto start =
        static_cast<std::size_t>(std::find_if(all.begin(), all.end(), isChosen) - all.begin());
    for (std::size_t i = 1; !found_.empty() && i <= all.size(); ++i) {
        const auto& line = all[(start + i) % all.size()];
        if (lower(textOf(line)).find(lower(found_)) == std::string::npos)
            continue;
        if (line.node)
            open_.insert(editor_.entries()[line.entry].get());
        const auto shown = lines();
        const auto place = std::find_if(shown.begin(), shown.end(), [&](const Line& other) {
            return other.entry == line.entry && other.node == line.node;
        });
        chosen_ = static_cast<std::size_t>(place - shown.begin());
        return;
    }
    message_ = say("'%1' is in no line", escaped(found_));
}

void EditScreen::go(bool isThere, const std::string& whyNot) {
    if (isThere)
        keepWithin();
    else
        message_ = whyNot;
}

EditScreen::Result EditScreen::askWhetherToSave(bool lossily) {
    const auto result = lossily ? Result::saveLossily : Result::save;
    const auto changes = sources_.changes ? sources_.changes() : std::vector<std::string>();
    if (changes.empty())
        return result;
    beside_.clear();
    for (const auto& change : changes)
        beside_.push_back({change});
    chosenBeside_ = 0;
    savesLossily_ = lossily;
    asking_ = Asking::whetherToSave;
    return Result::goesOn;
}

/// While other lines are shown instead of the list.
EditScreen::Result EditScreen::answerBesideList(char32_t key) {
    const auto arrow = asArrow(key);
    if (arrow == keyUp || arrow == keyDown || (arrow >= keyHome && arrow <= keyPageDown)) {
        chosenBeside_ = moved(chosenBeside_, arrow, beside_.size(), besideView_.page());
        return Result::goesOn;
    }
    const auto asking = std::exchange(asking_, Asking::nothing);
    if (asking == Asking::whichKey || (key != 's' && key != 'L' && key != keyEnter && key != '\n'))
        return Result::goesOn;
    return savesLossily_ ? Result::saveLossily : Result::save;
}

void EditScreen::take(Asking asking, const std::string& typed) {
    switch (asking) {
        case Asking::who:
            did(editor_.setWho(chosenLine().entry, typed));
            break;
        case Asking::whoToAdd: {
            const auto problem = editor_.add(typed);
            did(problem);
            if (!problem)
                choose(editor_.entries().size() - 1);
            break;
        }
        case Asking::whoseAccess:
            showAccess(typed);
            break;
        case Asking::whatToFind:
            find(typed);
            break;
        default:
            break;
    }
}

EditScreen::Result EditScreen::answer(char32_t key) {
    const auto asking = asking_;
    if (asking == Asking::whetherToSave || asking == Asking::whichKey)
        return answerBesideList(key);
    if (asking == Asking::whetherToLeave) {
        asking_ = Asking::nothing;
        return key == 'y' || key == 'Y' ? Result::leave : Result::goesOn;
    }
    if (key == keyEscape || key == keyInterrupt) {
        asking_ = Asking::nothing;
        typed_.clear();
    } else if (key == keyEnter || key == '\n') {
        asking_ = Asking::nothing;
        take(asking, std::exchange(typed_, {}));
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

EditScreen::Result EditScreen::act(char32_t key) {
    switch (key) {
        case 'a':
            asking_ = Asking::whoToAdd;
            break;
        case 'e':
            if (sources_.access)
                asking_ = Asking::whoseAccess;
            break;
        case '/':
            asking_ = Asking::whatToFind;
            break;
        case 'n':
            find({});
            break;
        case '?':
            chosenBeside_ = 0;
            asking_ = Asking::whichKey;
            break;
        case '<':
            view_.moveLeft();
            break;
        case '>':
            view_.moveRight();
            break;
        case 'u':
            go(history_.undo(), say("There is nothing to take back."));
            break;
        case 'U':
        case keyRedo:
            go(history_.redo(), say("There is nothing to make again."));
            break;
        case 's':
            return askWhetherToSave(false);
        case 'L':
            return askWhetherToSave(true);
        case 'q':
        case keyEscape:
        case keyInterrupt:
            if (!hadChanges_ && history_.isAtFirst())
                return Result::leave;
            asking_ = Asking::whetherToLeave;
            break;
        default:
            if (!lines().empty())
                change(key, chosenLine());
            break;
    }
    return Result::goesOn;
}

EditScreen::Result EditScreen::press(char32_t key) {
    if (key == keyEnd)
        return Result::leave;
    if (key == keyResized)
        return Result::goesOn;
    if (key == keySuspend)
        return Result::suspend;
    if (asking_ != Asking::nothing)
        return answer(key);
    message_.clear();
    const auto arrow = asArrow(key);
    chosen_ = moved(chosen_, arrow, lines().size(), view_.page());
    return act(arrow);
}

}  // namespace morvane
