// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/dispatch/MainLoop.h>
#include <MorvaneOperation/platform/foundation/NSUncaughtException.h>
#include <glib.h>

#include <utility>

namespace morvane {
namespace {

class GLibMainLoop final : public MainLoop {
  public:
    void runOnNextTurn(std::function<void()> task) override {
        // A source that is attached while the loop dispatches is first looked at on the next turn.
        GSource* const source = g_idle_source_new();
        g_source_set_priority(source, G_PRIORITY_DEFAULT);
        g_source_set_callback(source, run, new std::function<void()>(std::move(task)), release);
        g_source_attach(source, nullptr);
        g_source_unref(source);
    }

    bool isLoopThread() const override { return g_main_context_is_owner(nullptr) != FALSE; }

  private:
    static gboolean run(gpointer task) {
        callOut("task", "main queue", *static_cast<std::function<void()>*>(task));
        return G_SOURCE_REMOVE;
    }
    static void release(gpointer task) { delete static_cast<std::function<void()>*>(task); }
};

}  // namespace

std::shared_ptr<MainLoop> systemMainLoop() {
    return std::make_shared<GLibMainLoop>();
}

}  // namespace morvane
