// SPDX-License-Identifier: MIT
#include <MorvaneOperation/IdentityText.h>

#include <utility>

#include "EditMoves.h"
#include "EditScreen.h"

/// What the editor on the terminal asks, and how it is answered.
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

}  // namespace

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
    message_.clear();
    if (asking != Asking::whetherToSave ||
        (key != 's' && key != 'L' && key != keyEnter && key != '\n'))
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
    if (isBesideList())
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

}  // namespace morvane
