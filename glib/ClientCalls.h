// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/EntryTexts.h>

#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "Call.h"

/// What the operations of a MorvaneFileClient have in common.
namespace morvane {

using ClientCall = std::shared_ptr<Call>;

MVFileClient& clientOf(MorvaneFileClient* self);

/// Begins an operation; what `begin` throws ends it.
template <class Begin>
void start(MorvaneFileClient* self, GCancellable* cancellable, GAsyncReadyCallback callback,
           gpointer data, gpointer tag, const Begin& begin) {
    guarded([&] {
        const auto call = std::make_shared<Call>(self, cancellable, callback, data, tag);
        try {
            begin(call);
        } catch (const std::exception& e) {
            call->end([text = shownName(e.what())](GTask* task) {
                g_task_return_new_error(task, MORVANE_ERROR, MORVANE_ERROR_FAILED, "%s",
                                        text.c_str());
            });
        }
    });
}

/// The URLs of the files; empty, and the operation has ended, if one of them has no path.
std::optional<std::vector<NSURL>> urlsOf(const ClientCall& call, GFile* const* files,
                                         std::size_t count);

/// What ends an operation whose result is an object, which `make` makes on the context.
template <class T, class Make>
MVFileClient::Completion<Result<T>> endsWithObject(const ClientCall& call, Make make) {
    return [call, make](Result<T> result) {
        if (!result)
            return call->endWith(result.error());
        call->end([value = std::make_shared<T>(*std::move(result)), make](GTask* task) {
            g_task_return_pointer(task, make(std::move(*value)), g_object_unref);
        });
    };
}

/// Returns the result, which the caller owns; or null with an error.
template <class Object>
Object* objectOf(MorvaneFileClient* self, GAsyncResult* result, gpointer tag, GError** error) {
    g_return_val_if_fail(g_task_is_valid(result, self), nullptr);
    g_return_val_if_fail(g_task_get_source_tag(G_TASK(result)) == tag, nullptr);
    return static_cast<Object*>(g_task_propagate_pointer(G_TASK(result), error));
}

gboolean successOf(MorvaneFileClient* self, GAsyncResult* result, gpointer tag, GError** error);

template <class Function>
gpointer tagOf(Function* function) {
    return reinterpret_cast<gpointer>(function);
}

}  // namespace morvane
