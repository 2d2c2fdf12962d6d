// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <functional>
#include <memory>
#include <mutex>
#include <stop_token>
#include <vector>

#include "Model.h"

namespace morvane {

/// An operation between GIO's conventions and the client's: a task, whose callback comes on the
/// main context of the thread that began it, and a cancellable that triggers a stop token.
class Call final : public std::enable_shared_from_this<Call> {
  public:
    using Report = std::function<void(const std::vector<std::shared_ptr<MVFileSizeItem>>&)>;

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

    /// `report` is called on the context, with the latest of what is known.
    MVOperationOptions options(MorvanePrivilege privilege, Report report = {});

    /// Ends the operation: `answer` makes its result on the context. Any thread.
    void end(std::function<void(GTask*)> answer);
    /// Ends it with an error, or with TRUE.
    void endWith(const NSErrorRef& error);

  private:
    void post(std::function<void()> work);

    GTask* task_;
    GCancellable* const cancellable_;
    gulong cancelHandler_ = 0;
    std::vector<Owned<GObject>> kept_;
    std::stop_source stop_;

    std::mutex mutex_;
    std::vector<std::shared_ptr<MVFileSizeItem>> latest_;
    bool isReportPosted_ = false;
};

}  // namespace morvane
