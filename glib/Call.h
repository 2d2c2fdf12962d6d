// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <utility>
#include <vector>

#include "Model.h"

namespace morvane {

/// An operation between GIO's conventions and the client's: a task, whose callback comes on the
/// main context of the thread that began it, and a cancellable that triggers a stop token.
class Call final : public std::enable_shared_from_this<Call> {
  public:
    Call(gpointer source, GCancellable* cancellable, GAsyncReadyCallback callback, gpointer data,
         gpointer tag);
    ~Call();
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    /// Holds the object until the operation has ended, and lets it go on the context: what it is
    /// shown by may be of that thread alone.
    template <class Object>
    Object* keep(Object* object) {
        if (object)
            kept_.push_back(Owned<GObject>::sharing(G_OBJECT(object)));
        return object;
    }

    MVOperationOptions options(MorvanePrivilege privilege) const;
    /// Runs tasks on the context, also when the operation has ended.
    MVFileClient::Executor executor() const;

    /// Returns the function that takes an operation's progress: `report` is called on the context
    /// with the latest that is known.
    template <class Known, class Report>
    std::function<void(const Known&)> reporting(Report report) {
        struct Latest {
            std::mutex mutex;
            std::optional<Known> known;
            std::optional<Known> exchange(std::optional<Known> other) {
                const std::lock_guard lock(mutex);
                return std::exchange(known, std::move(other));
            }
        };
        return [self = shared_from_this(), latest = std::make_shared<Latest>(),
                report](const Known& known) {
            if (latest->exchange(known))
                return;  // the context has not come to the one before
            self->post([self, latest, report] {
                const auto last = latest->exchange(std::nullopt);
                if (self->task_ && last)  // it has not ended
                    report(*last);
            });
        };
    }

    /// Ends the operation: `answer` makes its result on the context. Any thread.
    void end(std::function<void(GTask*)> answer);
    /// Ends it with an error, or with TRUE.
    void endWith(const NSErrorRef& error);

  private:
    void post(std::function<void()> work) { executor()(std::move(work)); }

    GTask* task_;
    GCancellable* const cancellable_;
    gulong cancelHandler_ = 0;
    std::vector<Owned<GObject>> kept_;
    std::stop_source stop_;
};

}  // namespace morvane
