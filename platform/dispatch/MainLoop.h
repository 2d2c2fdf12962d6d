// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/Export.h>

#include <functional>
#include <memory>

namespace morvane {

/// The host's loop, on which the main queue runs. Supplied by the system, or by a test.
class MORVANE_EXPORT MainLoop {
  public:
    virtual ~MainLoop();
    /// Runs `task` on a later turn of the loop. Any thread.
    virtual void runOnNextTurn(std::function<void()> task) = 0;
    virtual bool isLoopThread() const = 0;

    /// The loop in use; the system's unless a test has put its own there.
    static MainLoop& current();
    /// For tests, before any other thread runs: null puts the system's loop back.
    static void setCurrent(std::shared_ptr<MainLoop> loop);
};

/// GLib's default main context, as GTK and Qt run it. Defined by the Linux platform.
std::shared_ptr<MainLoop> systemMainLoop();

}  // namespace morvane
