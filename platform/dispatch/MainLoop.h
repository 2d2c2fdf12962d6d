// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/Export.h>

#include <functional>
#include <memory>

namespace morvane {

/// The host's loop, on which the main queue runs: GLib's default main context, as GTK and Qt with
/// GLib run it, unless the host or a test puts another in place.
///
///     class MyLoop final : public MainLoop {
///         void runOnNextTurn(std::function<void()> task) override { runOnMyLoop(task); }
///         bool isLoopThread() const override { return isMyLoopsThread(); }
///     };
///
///     MainLoop::setCurrent(std::make_shared<MyLoop>());
class MORVANE_EXPORT MainLoop {
  public:
    virtual ~MainLoop();
    /// Runs `task` on a later turn of the loop, after what it was given before. What the task
    /// throws goes to callOut() (NSUncaughtException.h). Any thread.
    virtual void runOnNextTurn(std::function<void()> task) = 0;
    virtual bool isLoopThread() const = 0;

    /// The loop in use.
    static MainLoop& current();
    /// Puts `loop` in place, to the end of the process, or GLib's back for null. To be called
    /// before anything is begun that uses the main queue, such as an operation of an MVFileClient.
    /// (The library for Qt does it by itself.)
    static void setCurrent(std::shared_ptr<MainLoop> loop);
};

/// GLib's default main context, as GTK and Qt run it. Defined by the Linux platform.
std::shared_ptr<MainLoop> systemMainLoop();

}  // namespace morvane
