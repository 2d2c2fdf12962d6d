// SPDX-License-Identifier: MIT
#include "ScrolledView.h"

#include <algorithm>

namespace morvane {

namespace {

constexpr std::size_t markColumns = 2;

}  // namespace

std::string ScrolledView::cutOut(const std::string& text, std::size_t columns) const {
    const auto width = columnsOf(text);
    if (columns == 0 || (left_ == 0 && width <= columns))
        return cut(text, columns);
    auto rest = text.substr(cut(text, left_).size());
    const bool isCutLeft = left_ != 0 && width != 0;
    const bool isCutRight = columnsOf(rest) > columns;
    if (isCutLeft && columns > 1)
        rest = "<" + rest.substr(cut(rest, 1).size());
    rest = cut(rest, columns - (isCutRight ? 1 : 0));
    return isCutRight ? padded(rest, columns - 1) + ">" : rest;
}

std::vector<std::string> ScrolledView::draw(const std::vector<std::string>& head,
                                            const std::vector<ViewedLine>& lines,
                                            std::size_t chosen, std::size_t rows,
                                            std::size_t columns, const Style& style) {
    const auto others = head.size() + rowsAround;
    room_ = rows > others ? rows - others : 1;
    if (chosen < first_)
        first_ = chosen;
    else if (chosen >= first_ + room_)
        first_ = chosen - room_ + 1;
    first_ = std::min(first_, lines.size() > room_ ? lines.size() - room_ : 0);
    const auto end = std::min(lines.size(), first_ + room_);

    const auto width = columns > markColumns ? columns - markColumns : 0;
    step_ = std::max<std::size_t>(width / 2, 1);
    std::size_t widest = 0;
    for (const auto& line : head)
        widest = std::max(widest, columnsOf(line));
    for (auto i = first_; i != end; ++i)
        widest = std::max(widest, columnsOf(lines[i].text));
    left_ = std::min(left_, widest > width ? widest - width : 0);

    std::vector<std::string> shown;
    for (const auto& line : head)
        shown.push_back(style.faint(cut("  " + cutOut(line, width), columns)));
    const auto addMark = [&](const std::string& mark, const Phrase& what) {
        shown.push_back(style.faint(cut("  " + mark + " " + what.localized(), columns)));
    };
    if (first_ == 0)
        shown.emplace_back();
    else
        addMark("^", countedPhrase("%1 line above", "%1 lines above", first_));
    for (auto i = first_; i != end; ++i) {
        const auto line = cut((i == chosen ? "> " : "  ") + cutOut(lines[i].text, width), columns);
        shown.push_back(i == chosen        ? style.heading(line)
                        : lines[i].isFaint ? style.faint(line)
                                           : line);
    }
    const auto below = lines.size() - end;
    if (below == 0)
        shown.emplace_back();
    else
        addMark("v", countedPhrase("%1 line below", "%1 lines below", below));
    return shown;
}

}  // namespace morvane
