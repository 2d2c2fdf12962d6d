// SPDX-License-Identifier: MIT
#include <atomic>

#include "ClientCalls.h"

struct _MorvaneFileClient {
    GObject parent;
    std::shared_ptr<morvane::MVFileClient>* held;
    std::atomic<gboolean> namesLater;
};

G_DEFINE_FINAL_TYPE(MorvaneFileClient, morvane_file_client, G_TYPE_OBJECT)

using namespace morvane;

namespace morvane {

namespace {

using Sizes = std::vector<std::shared_ptr<MVFileSizeItem>>;

struct Losses {
    Owned<GListStore> losses;
    Owned<MorvaneAcl> nearest;
};

}  // namespace

MVFileClient& clientOf(MorvaneFileClient* self) {
    return **self->held;
}

}  // namespace morvane

static void morvane_file_client_init(MorvaneFileClient* self) {
    guarded([&] {
        // Each completion goes to the context of its own call (Call::end()).
        self->held = new std::shared_ptr<MVFileClient>(
            MVFileClient::init([](const std::function<void()>& task) { task(); }));
    });
}

static void morvane_file_client_class_init(MorvaneFileClientClass* made) {
    ObjectClass<MorvaneFileClient>::setUp(
        made, {{g_param_spec_boolean("names-later", nullptr, nullptr, FALSE, writable),
                [](MorvaneFileClient* client, GValue* value) {
                    g_value_set_boolean(value, morvane_file_client_get_names_later(client));
                },
                [](MorvaneFileClient* client, const GValue* value) {
                    morvane_file_client_set_names_later(client, g_value_get_boolean(value));
                }}});
}

MorvaneFileClient* morvane_file_client_new() {
    return MORVANE_FILE_CLIENT(g_object_new(MORVANE_TYPE_FILE_CLIENT, nullptr));
}

gboolean morvane_file_client_get_names_later(MorvaneFileClient* self) {
    g_return_val_if_fail(MORVANE_IS_FILE_CLIENT(self), FALSE);
    return self->namesLater;
}

void morvane_file_client_set_names_later(MorvaneFileClient* self, gboolean names_later) {
    g_return_if_fail(MORVANE_IS_FILE_CLIENT(self));
    const gboolean later = names_later ? TRUE : FALSE;
    if (self->namesLater.exchange(later) != later)
        g_object_notify(G_OBJECT(self), "names-later");
}

void morvane_file_client_read_acl_async(MorvaneFileClient* self, GFile* file,
                                        MorvanePrivilege privilege, GCancellable* cancellable,
                                        GAsyncReadyCallback callback, gpointer user_data) {
    g_return_if_fail(MORVANE_IS_FILE_CLIENT(self));
    g_return_if_fail(G_IS_FILE(file));
    start(self, cancellable, callback, user_data, tagOf(morvane_file_client_read_acl_async),
          [&](const ClientCall& call) {
              const auto urls = urlsOf(call, &file, 1);
              if (!urls)
                  return;
              auto options = call->options(privilege);
              if (self->namesLater)
                  options.namesLater = call->executor();
              clientOf(self).readAcl(urls->front(), std::move(options),
                                     endsWithObject<MVFileAcl>(call, newAcl));
          });
}

MorvaneAcl* morvane_file_client_read_acl_finish(MorvaneFileClient* self, GAsyncResult* result,
                                                GError** error) {
    return objectOf<MorvaneAcl>(self, result, tagOf(morvane_file_client_read_acl_async), error);
}

void morvane_file_client_write_acl_async(MorvaneFileClient* self, MorvaneAcl* acl,
                                         MorvanePrivilege privilege, GCancellable* cancellable,
                                         GAsyncReadyCallback callback, gpointer user_data) {
    g_return_if_fail(MORVANE_IS_FILE_CLIENT(self));
    g_return_if_fail(MORVANE_IS_ACL(acl));
    start(self, cancellable, callback, user_data, tagOf(morvane_file_client_write_acl_async),
          [&](const ClientCall& call) {
              clientOf(self).writeAcl(editorOf(acl).acl(), call->options(privilege),
                                      [call, written = call->keep(acl),
                                       edits = editorOf(acl).editCount()](const NSErrorRef& error) {
                                          call->end([error, written, edits](GTask* task) {
                                              if (error)
                                                  return g_task_return_error(task, newError(error));
                                              wasWritten(written, edits);
                                              g_task_return_boolean(task, TRUE);
                                          });
                                      });
          });
}

gboolean morvane_file_client_write_acl_finish(MorvaneFileClient* self, GAsyncResult* result,
                                              GError** error) {
    return successOf(self, result, tagOf(morvane_file_client_write_acl_async), error);
}

void morvane_file_client_propagate_acl_async(MorvaneFileClient* self, MorvaneAcl* acl,
                                             MorvanePrivilege privilege, MorvaneProgress* progress,
                                             GCancellable* cancellable,
                                             GAsyncReadyCallback callback, gpointer user_data) {
    g_return_if_fail(MORVANE_IS_FILE_CLIENT(self));
    g_return_if_fail(MORVANE_IS_ACL(acl));
    g_return_if_fail(!progress || MORVANE_IS_PROGRESS(progress));
    start(self, cancellable, callback, user_data, tagOf(morvane_file_client_propagate_acl_async),
          [&](const ClientCall& call) {
              auto* const held = call->keep(progress);
              auto options = call->options(privilege);
              if (held) {
                  options.progress =
                      call->reporting<Sizes>([held](const Sizes&) { countReport(held); });
                  options.itemCounts = call->reporting<MVItemCounts>(
                      [held](const MVItemCounts& counts) { setCounts(held, counts); });
              }
              clientOf(self).propagateAcl(editorOf(acl).acl(), std::move(options),
                                          [call, held](const NSErrorRef& error) {
                                              call->end([held, error](GTask* task) {
                                                  if (held)
                                                      setFailures(held, error);
                                                  if (error)
                                                      g_task_return_error(task, newError(error));
                                                  else
                                                      g_task_return_boolean(task, TRUE);
                                              });
                                          });
          });
}

gboolean morvane_file_client_propagate_acl_finish(MorvaneFileClient* self, GAsyncResult* result,
                                                  GError** error) {
    return successOf(self, result, tagOf(morvane_file_client_propagate_acl_async), error);
}

void morvane_file_client_list_losses_async(MorvaneFileClient* self, MorvaneAcl* acl,
                                           GCancellable* cancellable, GAsyncReadyCallback callback,
                                           gpointer user_data) {
    g_return_if_fail(MORVANE_IS_FILE_CLIENT(self));
    g_return_if_fail(MORVANE_IS_ACL(acl));
    start(self, cancellable, callback, user_data, tagOf(morvane_file_client_list_losses_async),
          [&](const ClientCall& call) {
              auto asked = editorOf(acl).acl();
              const bool isModified = editorOf(acl).isModified();
              const auto count = asked.entries.size();
              clientOf(self).lossesOfAcl(
                  asked, call->options(MORVANE_PRIVILEGE_NEVER),
                  [call, asked, count, isModified](const Result<MVAclLosses>& result) {
                      if (!result)
                          return call->endWith(result.error());
                      call->end([losses = result->losses, nearest = result->nearest, asked,
                                 isModified, count](GTask* task) {
                          auto made = std::make_unique<Losses>(Losses{
                              Owned(g_list_store_new(MORVANE_TYPE_LOSS)),
                              Owned(newNearestAcl(asked, nearest, isModified || !losses.empty()))});
                          for (const auto& loss : losses) {
                              const Owned object(newLoss(loss, count));
                              g_list_store_append(made->losses.get(), object.get());
                          }
                          g_task_return_pointer(task, made.release(), [](gpointer all) {
                              delete static_cast<Losses*>(all);
                          });
                      });
                  });
          });
}

GListModel* morvane_file_client_list_losses_finish(MorvaneFileClient* self, GAsyncResult* result,
                                                   MorvaneAcl** nearest, GError** error) {
    if (nearest)
        *nearest = nullptr;
    const std::unique_ptr<Losses> losses(
        objectOf<Losses>(self, result, tagOf(morvane_file_client_list_losses_async), error));
    if (!losses)
        return nullptr;
    if (nearest)
        *nearest = losses->nearest.release();
    return G_LIST_MODEL(losses->losses.release());
}

void morvane_file_client_effective_access_async(MorvaneFileClient* self, GFile* file,
                                                MorvaneIdentity* identity,
                                                MorvanePrivilege privilege,
                                                GCancellable* cancellable,
                                                GAsyncReadyCallback callback, gpointer user_data) {
    g_return_if_fail(MORVANE_IS_FILE_CLIENT(self));
    g_return_if_fail(G_IS_FILE(file));
    g_return_if_fail(MORVANE_IS_IDENTITY(identity));
    start(self, cancellable, callback, user_data, tagOf(morvane_file_client_effective_access_async),
          [&](const ClientCall& call) {
              using Nodes = std::vector<std::shared_ptr<MVTreeNode>>;
              const auto make = [](const Nodes& nodes) {
                  return permissionsOf(nodes, {}).release();
              };
              if (const auto urls = urlsOf(call, &file, 1))
                  clientOf(self).effectiveAccess(
                      urls->front(), identityOf(identity)->uniqueIdentifier(),
                      call->options(privilege), endsWithObject<Nodes>(call, make));
          });
}

GListModel* morvane_file_client_effective_access_finish(MorvaneFileClient* self,
                                                        GAsyncResult* result, GError** error) {
    return objectOf<GListModel>(self, result, tagOf(morvane_file_client_effective_access_async),
                                error);
}
