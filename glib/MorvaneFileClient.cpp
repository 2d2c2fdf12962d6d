// SPDX-License-Identifier: MIT
#include <MorvaneOperation/EntryTexts.h>
#include <MorvaneOperation/MVOperationError.h>

#include <algorithm>

#include "Call.h"

struct _MorvaneFileClient {
    GObject parent;
    std::shared_ptr<morvane::MVFileClient>* held;
};

G_DEFINE_FINAL_TYPE(MorvaneFileClient, morvane_file_client, G_TYPE_OBJECT)

using namespace morvane;

namespace morvane {

namespace {

using ClientCall = std::shared_ptr<Call>;

MVFileClient& clientOf(MorvaneFileClient* self) {
    return **self->held;
}

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
                                         std::size_t count) {
    std::vector<NSURL> urls;
    for (std::size_t i = 0; i != count; ++i) {
        const auto url = urlOf(files[i]);
        if (!url) {
            call->end([file = call->keep(files[i])](GTask* task) {
                g_autofree char* name = g_file_get_parse_name(file);
                g_task_return_new_error(
                    task, G_IO_ERROR, G_IO_ERROR_NOT_SUPPORTED, "%s",
                    shownText(phrase("\"%1\" has no path on this system.", shownName(name)))
                        .c_str());
            });
            return std::nullopt;
        }
        urls.push_back(*url);
    }
    return urls;
}

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

/// A result that is handed over, or null with an error.
template <class Object>
Object* objectOf(MorvaneFileClient* self, GAsyncResult* result, gpointer tag, GError** error) {
    g_return_val_if_fail(g_task_is_valid(result, self), nullptr);
    g_return_val_if_fail(g_task_get_source_tag(G_TASK(result)) == tag, nullptr);
    return static_cast<Object*>(g_task_propagate_pointer(G_TASK(result), error));
}

gboolean successOf(MorvaneFileClient* self, GAsyncResult* result, gpointer tag, GError** error) {
    g_return_val_if_fail(g_task_is_valid(result, self), FALSE);
    g_return_val_if_fail(g_task_get_source_tag(G_TASK(result)) == tag, FALSE);
    return g_task_propagate_boolean(G_TASK(result), error);
}

template <class Function>
gpointer tagOf(Function* function) {
    return reinterpret_cast<gpointer>(function);
}

/// What `error` tells of single items: those that it is made of, or the one that it is about.
void addFailures(MorvaneProgress* progress, const NSErrorRef& error) {
    if (!error)
        return;
    const auto add = [&](const NSError& each) {
        const auto place = each.userInfo().find(NSURLErrorKey);
        const auto* const url =
            place == each.userInfo().end() ? nullptr : std::get_if<NSURL>(&place->second);
        const Owned<GFile> file(url ? newFile(*url) : nullptr);
        addFailure(progress, file.get(), messageOf(each));
    };
    const auto underlying = error->userInfo().find(NSMultipleUnderlyingErrorsKey);
    const auto* const errors = underlying == error->userInfo().end()
                                   ? nullptr
                                   : std::get_if<std::vector<NSErrorRef>>(&underlying->second);
    if (!errors)
        return add(*error);
    for (const auto& each : *errors)
        add(*each);
}

/// Ends an operation that may fail for some of its items. `progress` is kept by the call, or null.
void endWithFailures(const ClientCall& call, MorvaneProgress* progress, const NSErrorRef& error,
                     std::function<void(MorvaneProgress*)> add) {
    call->end([progress, error, add = std::move(add)](GTask* task) {
        if (progress) {
            clearFailures(progress);
            add(progress);
        }
        if (error)
            g_task_return_error(task, newError(error));
        else
            g_task_return_boolean(task, TRUE);
    });
}

struct Losses {
    Owned<GListStore> losses;
    Owned<MorvaneAcl> nearest;
};

}  // namespace

}  // namespace morvane

static void morvane_file_client_init(MorvaneFileClient* self) {
    guarded([&] {
        // Each completion goes to the context of its own call (Call::end()).
        self->held = new std::shared_ptr<MVFileClient>(
            MVFileClient::init([](const std::function<void()>& task) { task(); }));
    });
}

static void morvane_file_client_class_init(MorvaneFileClientClass* made) {
    ObjectClass<MorvaneFileClient>::setUp(made, {});
}

MorvaneFileClient* morvane_file_client_new() {
    return MORVANE_FILE_CLIENT(g_object_new(MORVANE_TYPE_FILE_CLIENT, nullptr));
}

void morvane_file_client_read_acl_async(MorvaneFileClient* self, GFile* file,
                                        MorvanePrivilege privilege, GCancellable* cancellable,
                                        GAsyncReadyCallback callback, gpointer user_data) {
    g_return_if_fail(MORVANE_IS_FILE_CLIENT(self));
    g_return_if_fail(G_IS_FILE(file));
    start(self, cancellable, callback, user_data, tagOf(morvane_file_client_read_acl_async),
          [&](const ClientCall& call) {
              if (const auto urls = urlsOf(call, &file, 1))
                  clientOf(self).readAcl(urls->front(), call->options(privilege),
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
              Call::Report report;
              if (held)
                  report = [held](const auto&) { countReport(held); };
              clientOf(self).propagateAcl(
                  editorOf(acl).acl(), call->options(privilege, std::move(report)),
                  [call, held](const NSErrorRef& error) {
                      endWithFailures(call, held, error,
                                      [error](MorvaneProgress* told) { addFailures(told, error); });
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

void morvane_file_client_measure_async(MorvaneFileClient* self, MorvaneSizes* sizes,
                                       MorvanePrivilege privilege, GCancellable* cancellable,
                                       GAsyncReadyCallback callback, gpointer user_data) {
    g_return_if_fail(MORVANE_IS_FILE_CLIENT(self));
    g_return_if_fail(MORVANE_IS_SIZES(sizes));
    start(self, cancellable, callback, user_data, tagOf(morvane_file_client_measure_async),
          [&](const ClientCall& call) {
              std::vector<GFile*> files;
              for (guint i = 0; i != g_list_model_get_n_items(G_LIST_MODEL(sizes)); ++i) {
                  const Owned size(
                      static_cast<MorvaneSize*>(g_list_model_get_item(G_LIST_MODEL(sizes), i)));
                  files.push_back(morvane_size_get_file(size.get()));
              }
              auto urls = urlsOf(call, files.data(), files.size());
              if (!urls)
                  return;
              auto* const held = call->keep(sizes);
              setBusy(sizes, true);
              clientOf(self).sizes(
                  *std::move(urls),
                  call->options(privilege, [held](const auto& items) { setSizes(held, items); }),
                  [call, held](const MVFileSizes& all) {
                      call->end([held, all](GTask* task) {
                          setSizes(held, all.items);
                          setBusy(held, false);
                          if (all.error)
                              g_task_return_error(task, newError(all.error));
                          else
                              g_task_return_boolean(task, TRUE);
                      });
                  });
          });
}

gboolean morvane_file_client_measure_finish(MorvaneFileClient* self, GAsyncResult* result,
                                            GError** error) {
    return successOf(self, result, tagOf(morvane_file_client_measure_async), error);
}

void morvane_file_client_list_contents_async(MorvaneFileClient* self, GFile* folder,
                                             MorvanePrivilege privilege, GCancellable* cancellable,
                                             GAsyncReadyCallback callback, gpointer user_data) {
    g_return_if_fail(MORVANE_IS_FILE_CLIENT(self));
    g_return_if_fail(G_IS_FILE(folder));
    start(self, cancellable, callback, user_data, tagOf(morvane_file_client_list_contents_async),
          [&](const ClientCall& call) {
              const auto make = [](const std::vector<NSURL>& urls) {
                  auto* const list = g_list_store_new(G_TYPE_FILE);
                  for (const auto& url : urls) {
                      const Owned file(newFile(url));
                      g_list_store_append(list, file.get());
                  }
                  return list;
              };
              if (const auto urls = urlsOf(call, &folder, 1))
                  clientOf(self).contents(urls->front(), call->options(privilege),
                                          endsWithObject<std::vector<NSURL>>(call, make));
          });
}

GListModel* morvane_file_client_list_contents_finish(MorvaneFileClient* self, GAsyncResult* result,
                                                     GError** error) {
    return objectOf<GListModel>(self, result, tagOf(morvane_file_client_list_contents_async),
                                error);
}

void morvane_file_client_search_identities_async(MorvaneFileClient* self, const char* text,
                                                 GCancellable* cancellable,
                                                 GAsyncReadyCallback callback, gpointer user_data) {
    g_return_if_fail(MORVANE_IS_FILE_CLIENT(self));
    g_return_if_fail(text);
    start(self, cancellable, callback, user_data,
          tagOf(morvane_file_client_search_identities_async), [&](const ClientCall& call) {
              const auto make = [](const std::vector<CBIdentityRef>& found) {
                  auto* const list = g_list_store_new(MORVANE_TYPE_IDENTITY);
                  for (const auto& each : found) {
                      const Owned identity(newIdentity(each));
                      g_list_store_append(list, identity.get());
                  }
                  return list;
              };
              clientOf(self).identities(text, call->options(MORVANE_PRIVILEGE_NEVER),
                                        endsWithObject<std::vector<CBIdentityRef>>(call, make));
          });
}

GListModel* morvane_file_client_search_identities_finish(MorvaneFileClient* self,
                                                         GAsyncResult* result, GError** error) {
    return objectOf<GListModel>(self, result, tagOf(morvane_file_client_search_identities_async),
                                error);
}

void morvane_file_client_rename_async(MorvaneFileClient* self, GFile** files, guint n_files,
                                      char** names, MorvanePrivilege privilege,
                                      MorvaneProgress* progress, GCancellable* cancellable,
                                      GAsyncReadyCallback callback, gpointer user_data) {
    g_return_if_fail(MORVANE_IS_FILE_CLIENT(self));
    g_return_if_fail(files || n_files == 0);
    g_return_if_fail(names && g_strv_length(names) == n_files);
    g_return_if_fail(!progress || MORVANE_IS_PROGRESS(progress));
    start(self, cancellable, callback, user_data, tagOf(morvane_file_client_rename_async),
          [&](const ClientCall& call) {
              auto urls = urlsOf(call, files, n_files);
              if (!urls)
                  return;
              auto* const held = call->keep(progress);
              clientOf(self).rename(
                  *std::move(urls), std::vector<std::string>(names, names + n_files),
                  call->options(privilege), [call, held](const MVFileRenames& renames) {
                      endWithFailures(call, held, renames.error, [renames](MorvaneProgress* told) {
                          const auto known = std::min(renames.urls.size(), renames.codes.size());
                          for (std::size_t i = 0; i != known; ++i) {
                              if (renames.codes[i] == 0)
                                  continue;
                              const Owned file(newFile(renames.urls[i]));
                              const auto error =
                                  NSError::errorWithDomain(NSPOSIXErrorDomain, renames.codes[i]);
                              addFailure(told, file.get(), messageOf(*error));
                          }
                      });
                  });
          });
}

gboolean morvane_file_client_rename_finish(MorvaneFileClient* self, GAsyncResult* result,
                                           GError** error) {
    return successOf(self, result, tagOf(morvane_file_client_rename_async), error);
}
