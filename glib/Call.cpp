// SPDX-License-Identifier: MIT
#include "Call.h"

#include <utility>

namespace morvane {

Call::Call(gpointer source, GCancellable* cancellable, GAsyncReadyCallback callback, gpointer data,
           gpointer tag)
    : task_(g_task_new(source, cancellable, callback, data)), cancellable_(cancellable) {
    g_task_set_source_tag(task_, tag);
    // What the service has done counts, even if a cancel came meanwhile.
    g_task_set_check_cancellable(task_, FALSE);
    if (!cancellable)
        return;
    // The task keeps the cancellable.
    cancelHandler_ = g_cancellable_connect(
        cancellable, G_CALLBACK(+[](GCancellable*, gpointer stop) {
            guarded([&] { static_cast<std::stop_source*>(stop)->request_stop(); });
        }),
        new std::stop_source(stop_),
        [](gpointer stop) { delete static_cast<std::stop_source*>(stop); });
}

Call::~Call() {
    // Only if the operation could not begin.
    g_clear_object(&task_);
}

MVOperationOptions Call::options(MorvanePrivilege privilege) const {
    MVOperationOptions options;
    options.privilege = privilege == MORVANE_PRIVILEGE_NEVER    ? MVPrivilege::never
                        : privilege == MORVANE_PRIVILEGE_ALWAYS ? MVPrivilege::always
                                                                : MVPrivilege::whenRefused;
    options.stop = stop_.get_token();
    return options;
}

void Call::end(std::function<void(GTask*)> answer) {
    post([self = shared_from_this(), answer = std::move(answer)] {
        if (self->cancelHandler_ != 0)
            g_cancellable_disconnect(self->cancellable_, self->cancelHandler_);
        // The last references to them go here, on the thread of the callback.
        const auto kept = std::exchange(self->kept_, {});
        const Owned<GTask> task(std::exchange(self->task_, nullptr));
        guarded([&] { answer(task.get()); });
    });
}

void Call::endWith(const NSErrorRef& error) {
    end([error](GTask* task) {
        if (error)
            g_task_return_error(task, newError(error));
        else
            g_task_return_boolean(task, TRUE);
    });
}

MVFileClient::Executor Call::executor() const {
    GMainContext* const own = g_task_get_context(task_);
    const std::shared_ptr<GMainContext> context(
        g_main_context_ref(own ? own : g_main_context_default()), g_main_context_unref);
    return [context, priority = g_task_get_priority(task_)](std::function<void()> work) {
        // Not g_main_context_invoke(): that might run the work on this thread.
        GSource* const source = g_idle_source_new();
        g_source_set_priority(source, priority);
        g_source_set_callback(
            source,
            [](gpointer held) -> gboolean {
                guarded([&] { (*static_cast<std::function<void()>*>(held))(); });
                return G_SOURCE_REMOVE;
            },
            new std::function<void()>(std::move(work)),
            [](gpointer held) { delete static_cast<std::function<void()>*>(held); });
        g_source_attach(source, context.get());
        g_source_unref(source);
    };
}

}  // namespace morvane
