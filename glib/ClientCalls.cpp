// SPDX-License-Identifier: MIT
#include "ClientCalls.h"

namespace morvane {

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

gboolean successOf(MorvaneFileClient* self, GAsyncResult* result, gpointer tag, GError** error) {
    g_return_val_if_fail(g_task_is_valid(result, self), FALSE);
    g_return_val_if_fail(g_task_get_source_tag(G_TASK(result)) == tag, FALSE);
    return g_task_propagate_boolean(G_TASK(result), error);
}

}  // namespace morvane
