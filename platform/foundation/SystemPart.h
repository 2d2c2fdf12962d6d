// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <mutex>
#include <utility>

/// The one place where a part of the system, such as the main loop, comes in behind its interface.
///
///     SystemPart<MainLoop>& part() {
///         static auto& part = *new SystemPart<MainLoop>(systemMainLoop);
///         return part;
///     }
///
/// The system's part is made when it is first wanted. It is never destroyed, as other threads may
/// use it while the process ends; so the object itself is made by `new` and kept.
namespace morvane {

template <class Part>
class SystemPart {
  public:
    using Maker = std::shared_ptr<Part> (*)();

    explicit SystemPart(Maker system) : makeSystem_(system) {}

    /// Any thread.
    Part& current() {
        if (replacement_)
            return *replacement_;
        std::call_once(made_, [this] { system_ = makeSystem_(); });
        return *system_;
    }
    /// For tests, while no other thread uses it: puts `part` in the system's place, or the system's
    /// back for null.
    void replace(std::shared_ptr<Part> part) { replacement_ = std::move(part); }

  private:
    const Maker makeSystem_;
    std::shared_ptr<Part> replacement_;
    std::once_flag made_;
    std::shared_ptr<Part> system_;
};

}  // namespace morvane
