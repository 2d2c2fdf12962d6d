// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "Text.h"

/// A view of lines that may be more, and wider, than the terminal can show.
namespace morvane {

struct ViewedLine {
    std::string text;
    bool isFaint = false;
};

class ScrolledView {
  public:
    /// The one that tells of the lines above, and the one that tells of those below.
    static constexpr std::size_t rowsAround = 2;
    /// Returns `rows` lines of at most `columns`: `head`, a line that tells of those above, the
    /// part of `lines` around the chosen one, which "> " marks, and a line that tells of those
    /// below. "<" or ">" marks a side at which lines are cut.
    std::vector<std::string> draw(const std::vector<std::string>& head,
                                  const std::vector<ViewedLine>& lines, std::size_t chosen,
                                  std::size_t rows, std::size_t columns, const Style& style);
    /// How many lines the last draw() has shown.
    std::size_t page() const { return room_; }
    /// Scrolls by half the width.
    void moveRight() { left_ += step_; }
    void moveLeft() { left_ -= left_ < step_ ? left_ : step_; }

  private:
    std::string cutOut(const std::string& text, std::size_t columns) const;

    std::size_t first_ = 0;
    std::size_t left_ = 0;
    std::size_t room_ = 1;
    std::size_t step_ = 1;
};

}  // namespace morvane
