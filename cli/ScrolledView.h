// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "Text.h"

/// A window on lines that may be more, and wider, than the terminal has room for.
namespace morvane {

struct ViewedLine {
    std::string text;
    bool isFaint = false;
};

class ScrolledView {
  public:
    /// `rows` lines of at most `columns`: a line for what is above, those of `lines` around the
    /// chosen one, which "> " marks, and a line for what is below. What is cut at a side is marked
    /// by "<" or ">" there.
    std::vector<std::string> draw(const std::vector<ViewedLine>& lines, std::size_t chosen,
                                  std::size_t rows, std::size_t columns, const Style& style);
    /// So many lines were shown by the last draw().
    std::size_t page() const { return room_; }
    /// Half a window to the side.
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
