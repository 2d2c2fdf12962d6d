// SPDX-License-Identifier: MIT
#include "QtMainLoop.h"

#include <MorvaneOperation/platform/dispatch/MainLoop.h>
#include <MorvaneOperation/platform/foundation/NSUncaughtException.h>

#include <QCoreApplication>
#include <QObject>
#include <QThread>
#include <memory>
#include <utility>

using namespace morvane;

namespace {

class QtMainLoop final : public MainLoop {
  public:
    void runOnNextTurn(std::function<void()> task) override {
        // What is posted while posted events are delivered waits for the next turn.
        QMetaObject::invokeMethod(
            &receiver_, [task = std::move(task)] { callOut("task", "main queue", task); },
            Qt::QueuedConnection);
    }

    bool isLoopThread() const override { return receiver_.thread() == QThread::currentThread(); }

  private:
    /// Lives on the thread of the loop.
    QObject receiver_;
};

}  // namespace

void useQtMainLoop() {
    // The library keeps it to the end of the process: threads may post to it until then.
    static const bool isUsed = [] {
        MainLoop::setCurrent(std::make_shared<QtMainLoop>());
        return true;
    }();
    static_cast<void>(isUsed);
}

// Before the program has begun anything that waits for the loop.
Q_COREAPP_STARTUP_FUNCTION(useQtMainLoop)
