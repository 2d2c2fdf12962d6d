// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/dispatch/DispatchQueue.h>
#include <MorvaneOperation/platform/foundation/NSUncaughtException.h>

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>
#include <functional>
#include <stdexcept>
#include <thread>
#include <vector>

#include "QtTestSupport.h"

/// The library's main queue runs on the event loop of Qt, also of one without GLib.
namespace morvane {
namespace {

/// Runs the event loop until quit() is called.
class Turning {
  public:
    Turning() {
        QObject::connect(&watch_, &QTimer::timeout, [this] {
            ADD_FAILURE() << "nothing happened";
            loop_.exit();
        });
        watch_.start(watchdog);
    }
    void run() { loop_.exec(); }
    void quit() { loop_.quit(); }

  private:
    QTimer watch_;
    QEventLoop loop_;
};

TEST(QtMainLoop, RunsTasksOfAnyThreadInTheirOrder) {
    Turning turning;
    std::vector<int> order;
    bool isCurrent = false;
    std::thread([&] {
        EXPECT_FALSE(DispatchQueue::mainQueue().isCurrent());
        DispatchQueue::mainQueue().async([&] { order.push_back(1); });
        DispatchQueue::mainQueue().async([&] {
            order.push_back(2);
            isCurrent = DispatchQueue::mainQueue().isCurrent();
            turning.quit();
        });
    }).join();
    EXPECT_TRUE(order.empty());
    turning.run();
    EXPECT_EQ(order, (std::vector{1, 2}));
    EXPECT_TRUE(isCurrent);
}

TEST(QtMainLoop, RunsATaskOnALaterTurnThanTheOneThatSubmittedIt) {
    int tasks = 0;
    const std::function<void()> again = [&] {
        ++tasks;
        DispatchQueue::mainQueue().async(again);
    };
    again();
    // Each turn delivers what was posted before it.
    for (int turn = 1; turn != 4; ++turn) {
        QCoreApplication::processEvents();
        EXPECT_LE(tasks, turn + 1);
    }
    EXPECT_GT(tasks, 1);
    Turning turning;
    QTimer::singleShot(0, [&] { turning.quit(); });
    turning.run();
    // The last one is not to outlive this test.
    QCoreApplication::removePostedEvents(nullptr);
}

TEST(QtMainLoop, HandsOnWhatATaskThrows) {
    Turning turning;
    std::string thrown;
    NSSetUncaughtExceptionHandler([&](const NSUncaughtException& uncaught) {
        EXPECT_EQ(uncaught.of, "main queue");
        try {
            std::rethrow_exception(uncaught.exception);
        } catch (const std::runtime_error& error) {
            thrown = error.what();
        }
        turning.quit();
    });
    DispatchQueue::mainQueue().async([] { throw std::runtime_error("of a task"); });
    turning.run();
    NSSetUncaughtExceptionHandler({});
    EXPECT_EQ(thrown, "of a task");
}

TEST(QtMainLoop, PutsBackAChoiceThatCannotBeMade) {
    const auto entry = MVAclEntry::newEntryForDirectory(false);
    entry->setPermissionGroup(MVAclGroupCustom);
    EXPECT_EQ(entry->permissionGroup(), MVAclGroupCustom);
    Turning turning;
    DispatchQueue::mainQueue().async([&] { turning.quit(); });
    turning.run();
    EXPECT_EQ(entry->permissionGroup(), MVAclGroupReadWrite);
}

TEST(QtMainLoop, IsTheOneThatTheTestNames) {
    const auto* const dispatcher = QCoreApplication::eventDispatcher()->metaObject()->className();
    EXPECT_EQ(std::string(dispatcher).find("Glib") != std::string::npos,
              qEnvironmentVariableIsEmpty("QT_NO_GLIB"))
        << dispatcher;
}

}  // namespace
}  // namespace morvane
