// SPDX-License-Identifier: MIT
#include <algorithm>

#include "ClientCalls.h"

using namespace morvane;

namespace morvane {

namespace {

GListModel* listOf(const std::vector<NSURL>& urls) {
    auto* const list = g_list_store_new(G_TYPE_FILE);
    for (const auto& url : urls) {
        const Owned file(newFile(url));
        g_list_store_append(list, file.get());
    }
    return G_LIST_MODEL(list);
}

/// One for each item that has not its new name, with where it is now.
std::vector<NSErrorRef> errorsOf(const MVFileRenames& renames) {
    std::vector<NSErrorRef> errors;
    for (std::size_t i = 0; i != std::min(renames.urls.size(), renames.codes.size()); ++i) {
        if (renames.codes[i] != 0)
            errors.push_back(NSError::errorWithDomain(NSPOSIXErrorDomain, renames.codes[i],
                                                      {{NSURLErrorKey, renames.urls[i]}}));
    }
    return errors;
}

}  // namespace

}  // namespace morvane

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
              auto options = call->options(privilege);
              options.progress = call->reporting<std::vector<std::shared_ptr<MVFileSizeItem>>>(
                  [held](const auto& items) { setSizes(held, items); });
              setBusy(sizes, true);
              clientOf(self).sizes(*std::move(urls), std::move(options),
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
              if (const auto urls = urlsOf(call, &folder, 1))
                  clientOf(self).contents(urls->front(), call->options(privilege),
                                          endsWithObject<std::vector<NSURL>>(call, listOf));
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
                      call->end([held, renames](GTask* task) {
                          if (held)
                              setFailures(held, errorsOf(renames));
                          if (renames.error)
                              g_task_return_error(task, newError(renames.error));
                          else
                              g_task_return_pointer(task, listOf(renames.urls), g_object_unref);
                      });
                  });
          });
}

GListModel* morvane_file_client_rename_finish(MorvaneFileClient* self, GAsyncResult* result,
                                              GError** error) {
    return objectOf<GListModel>(self, result, tagOf(morvane_file_client_rename_async), error);
}
