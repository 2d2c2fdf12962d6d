// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSObject.h>

#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace morvane {

/// One announcement, as its observers get it.
struct NSNotification {
    std::string_view name;
    /// The poster's choice, usually itself; may be null.
    NSObject* object = nullptr;
};

/// Named announcements from anyone to anyone in the process.
///
///     auto observation = NSNotificationCenter::defaultCenter().addObserver(
///         "MVFileSizeBaseChanged", [](const NSNotification&) { redraw(); });
///
/// Threads: safe from any thread. A post calls the observers in the order of their registration, on
/// the posting thread, under no lock. An observer that was removed is not called by later posts; a
/// post that is under way on another thread may still be calling it.
class MORVANE_EXPORT NSNotificationCenter {
    struct MORVANE_INTERNAL Entry;
    struct MORVANE_INTERNAL State;

  public:
    using Handler = std::function<void(const NSNotification&)>;

    /// A registration: lasts as long as this object. Moves, does not copy.
    class MORVANE_EXPORT Observation {
      public:
        Observation() = default;
        Observation(Observation&&) noexcept;
        Observation& operator=(Observation&&) noexcept;
        ~Observation();

      private:
        friend class NSNotificationCenter;
        std::weak_ptr<State> state_;
        std::shared_ptr<Entry> entry_;
    };

    static NSNotificationCenter& defaultCenter();

    NSNotificationCenter();
    ~NSNotificationCenter();

    [[nodiscard]] Observation addObserver(std::string_view name, Handler handler);
    void postNotificationName(std::string_view name, NSObject* object = nullptr);

  private:
    std::shared_ptr<State> state_;
};

}  // namespace morvane
