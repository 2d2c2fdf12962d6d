// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSNumberFormatter.h>

#include <utility>

/// Shows how it was asked: "<#,##0.##|1536>".
namespace morvane {

class FakeNumberFormatter final : public NSNumberFormatter {
  public:
    explicit FakeNumberFormatter(std::string pattern) : pattern_(std::move(pattern)) {}
    std::string stringFromNumber(std::int64_t number) const override {
        return "<" + pattern_ + "|" + std::to_string(number) + ">";
    }

    static Maker maker() {
        return [](std::string_view pattern) {
            return std::make_unique<FakeNumberFormatter>(std::string(pattern));
        };
    }

  private:
    std::string pattern_;
};

}  // namespace morvane
