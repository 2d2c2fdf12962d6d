// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <atomic>
#include <memory>

/// For the rows archive-encode-entry and archive-decode-entry of the bench: an entry is written as
/// some twenty archives within one. The states that ended archives have left, with their memory,
/// serve the next ones. No list of each thread's own: its end would have to be noted, which ends
/// the process when there is no memory for it.
namespace morvane {

template <class State>
class SpareStates {
  public:
    /// Null if there is none.
    std::unique_ptr<State> take() noexcept {
        for (auto& place : places_) {
            if (place.load(std::memory_order_relaxed)) {
                if (auto* const state = place.exchange(nullptr, std::memory_order_acquire))
                    return std::unique_ptr<State>(state);
            }
        }
        return nullptr;
    }
    void put(std::unique_ptr<State> state) noexcept {
        for (auto& place : places_) {
            State* none = nullptr;
            if (!place.load(std::memory_order_relaxed) &&
                place.compare_exchange_strong(none, state.get(), std::memory_order_release,
                                              std::memory_order_relaxed)) {
                (void)state.release();
                return;
            }
        }
    }

    static SpareStates& shared() {
        static auto* const spare = new SpareStates;  // threads may archive until the process ends
        return *spare;
    }

  private:
    std::array<std::atomic<State*>, 8> places_{};
};

}  // namespace morvane
