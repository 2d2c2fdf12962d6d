// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSUserDefaults.h>

#include <utility>

/// Settings in memory that a test may edit as another program would.
namespace morvane {

class FakeDefaultsStore final : public DefaultsStore {
  public:
    Values load() override { return values; }
    NSErrorRef save(std::string_view key, std::string_view value) override {
        if (!saveError)
            values.insert_or_assign(std::string(key), value);
        return saveError;
    }
    void watch(std::function<void()> changed) override { changed_ = std::move(changed); }

    /// Tells the defaults that the store may have changed, on this thread.
    void tellOfChange() { changed_(); }

    Values values;
    NSErrorRef saveError;

  private:
    std::function<void()> changed_;
};

}  // namespace morvane
