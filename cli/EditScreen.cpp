// SPDX-License-Identifier: MIT
#include "EditScreen.h"

#include <MorvaneOperation/EntryTexts.h>

#include <algorithm>
#include <utility>

#include "EditMoves.h"

namespace morvane {

EditScreen::EditScreen(AclEditor& editor, std::string title, const Style& style,
                       EditSources sources)
    : editor_(editor),
      title_(std::move(title)),
      style_(style),
      sources_(std::move(sources)),
      history_(editor.model()),
      facts_(factsOfItem(editor.entries())) {}

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
    if (problem)
        return;
    history_.record();
    forgetGoneEntries();
}

void EditScreen::forgetGoneEntries() {
    const auto& entries = editor_.entries();
    std::erase_if(open_, [&](const MVAclEntry* open) {
        return std::none_of(entries.begin(), entries.end(),
                            [&](const auto& entry) { return entry.get() == open; });
    });
}

void EditScreen::tell(const std::string& message) {
    message_ = message;
    const auto& entries = editor_.entries();
    if (auto facts = factsOfItem(entries); !facts.empty())
        facts_ = std::move(facts);
    if (!history_.isOf(entries)) {
        hadChanges_ = true;
        history_ = EditHistory(editor_.model());
    }
    forgetGoneEntries();
    keepWithin();
}

void EditScreen::nextPermissions(std::size_t entry) {
    auto& target = *editor_.entries()[entry];
    if (target.inherited())
        return did(editor_.choosePermissions(entry, target.permissionGroup()));
    const auto choices = permissionChoices(target, editor_.list());
    const auto now = std::find_if(choices.begin(), choices.end(),
                                  [&](const EntryChoice& choice) {
                                      return choice.code == target.permissionGroup();
                                  }) -
                     choices.begin();
    std::string passedOver;
    for (std::size_t i = 1; i <= choices.size(); ++i) {
        const auto& next = choices[(static_cast<std::size_t>(now) + i) % choices.size()];
        if (next.whyNot.empty()) {
            did(editor_.choosePermissions(entry, next.code));
            break;
        }
        if (next.code != MVAclGroupCustom)
            passedOver += (passedOver.empty() ? "" : " ") + say("'%1' cannot be chosen: %2.",
                                                                escaped(shownText(next.name)),
                                                                escaped(shownText(next.whyNot)));
    }
    if (message_.empty())
        message_ = passedOver;
}

std::string EditScreen::whyNot(const Line& line) const {
    if (!line.node || MVTreeNode::stateOf(*line.node) == MVStateOn)
        return {};
    const auto& entry = *editor_.entries()[line.entry];
    if (!whyNotChanged(entry).empty())
        return {};  // said when it is tried, of the whole entry
    return escaped(whyNotBox(entry, *line.node, editor_.list()).localized());
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
            const auto problem = editor_.remove(line.entry);
            did(problem);
            if (problem)
                break;
            const auto left = editor_.entries().size();
            choose(left == 0 ? 0 : std::min(line.entry, left - 1));
            break;
        }
        default:
            break;
    }
}

void EditScreen::find(const std::string& text) {
    if (text.empty())
        return;
    found_ = text;
    const auto all = lines(true);
    const auto letters = editor_.letters();
    const auto chosen = chosenLine();
    const auto isChosen = [&](const Line& line) {
        return line.entry == chosen.entry && line.node == chosen.node;
    };
    const auto start =
        static_cast<std::size_t>(std::find_if(all.begin(), all.end(), isChosen) - all.begin());
    for (std::size_t i = 1; i <= all.size(); ++i) {
        const auto& line = all[(start + i) % all.size()];
        if (inSmallLetters(textOf(line, letters)).find(inSmallLetters(found_)) == std::string::npos)
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
            if (found_.empty())
                asking_ = Asking::whatToFind;
            else
                find(found_);
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
