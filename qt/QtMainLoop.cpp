// SPDX-License-Identifier: MIT
#include "QtMainLoop.h"

#include <MorvaneOperation/platform/dispatch/MainLoop.h>
#include <MorvaneOperation/platform/foundation/NSUncaughtException.h>

#include <QCoreApplication>
#include <QEvent>
#include <QObject>
#include <QThread>
#include <memory>
#include <utility>

using namespace morvane;

namespace {

/// A task on its way to the loop.
class TaskEvent final : public QEvent {
  public:
    explicit TaskEvent(std::function<void()> task) : QEvent(User), task_(std::move(task)) {}
    void run() const { callOut("task", "main queue", task_); }

  private:
    const std::function<void()> task_;
};

/// Gets no other events of that type.
class TaskReceiver final : public QObject {
    bool event(QEvent* event) override {
        if (event->type() != QEvent::User)
            return QObject::event(event);
        static_cast<TaskEvent*>(event)->run();
        return true;
    }
};

class QtMainLoop final : public MainLoop {
  public:
    void runOnNextTurn(std::function<void()> task) override {
        // What is posted while posted events are delivered waits for the next turn.
        QCoreApplication::postEvent(&receiver_, new TaskEvent(std::move(task)));
    }

    bool isLoopThread() const override { return receiver_.thread() == QThread::currentThread(); }

  private:
    /// Lives on the thread of the loop.
    TaskReceiver receiver_;
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

// This runs before the program begins anything that waits for the loop.
Q_COREAPP_STARTUP_FUNCTION(useQtMainLoop)
