// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>

/// Waits for work on files, but not without end.
namespace morvane {

/// A file system of a user's need not answer, and nothing but its answer brings a thread back from
/// it. So the work is done on a thread of its own, and the one that waits asks meanwhile whether to
/// go on; if not, and the work does not end soon, it is left to itself. What is left costs places
/// of the user whose work it was, and of nobody else.
struct WorkSupervision {
    /// Whose work it is.
    std::uint32_t user = 0;
    std::chrono::milliseconds interval{250};
    /// Called on the waiting thread once in an interval. False stops the work.
    std::function<bool()> goesOn;
    /// Has the work end soon. Called once after a no.
    std::function<void()> cancel;
    /// How long the work may take to end after that.
    std::chrono::milliseconds grace{1000};
};

enum class WorkEnd {
    done,
    /// The work continues on its thread until its file system answers.
    left,
    /// The work was not begun, because too much work of this user has been left.
    tooMuchLeft,
    /// The work was not begun, because no thread could be started.
    noThread,
};

/// A user's work that was left and still goes on, before further work of that user is refused.
constexpr std::size_t maxWorkLeft = 4;

/// Has `work` done. It must own what it uses, because it may go on after this has returned. What it
/// throws is thrown here, unless it was left.
WorkEnd supervise(std::function<void()> work, const WorkSupervision& supervision);

}  // namespace morvane
