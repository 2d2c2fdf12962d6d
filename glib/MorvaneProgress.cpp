// SPDX-License-Identifier: MIT
#include "Model.h"

namespace {

struct HeldFailure {
    HeldFailure() = default;
    HeldFailure(const HeldFailure&) = delete;
    HeldFailure& operator=(const HeldFailure&) = delete;
    ~HeldFailure() { g_clear_error(&error); }

    morvane::Owned<GFile> file;
    GError* error = nullptr;
};

struct HeldProgress {
    guint reports = 0;
    morvane::MVItemCounts counts;
    morvane::Owned<GListStore> failures{g_list_store_new(MORVANE_TYPE_FAILURE)};
};

}  // namespace

struct _MorvaneFailure {
    GObject parent;
    HeldFailure* held;
};

struct _MorvaneProgress {
    GObject parent;
    HeldProgress* held;
};

G_DEFINE_FINAL_TYPE(MorvaneFailure, morvane_failure, G_TYPE_OBJECT)
G_DEFINE_FINAL_TYPE(MorvaneProgress, morvane_progress, G_TYPE_OBJECT)

using namespace morvane;

static void morvane_failure_init(MorvaneFailure* self) {
    self->held = new HeldFailure;
}

static void morvane_failure_class_init(MorvaneFailureClass* made) {
    MorvaneFailure* const self = nullptr;
    ObjectClass<MorvaneFailure>::setUp(
        made, {objectProperty<morvane_failure_get_file>("file", G_TYPE_FILE, self),
               lentTextProperty<morvane_failure_get_message>("message", self),
               {g_param_spec_boxed("error", nullptr, nullptr, G_TYPE_ERROR, readable),
                [](MorvaneFailure* failure, GValue* value) {
                    g_value_set_boxed(value, morvane_failure_get_error(failure));
                }}});
}

GFile* morvane_failure_get_file(MorvaneFailure* self) {
    g_return_val_if_fail(MORVANE_IS_FAILURE(self), nullptr);
    return self->held->file.get();
}

const char* morvane_failure_get_message(MorvaneFailure* self) {
    g_return_val_if_fail(MORVANE_IS_FAILURE(self), nullptr);
    return self->held->error ? self->held->error->message : "";
}

const GError* morvane_failure_get_error(MorvaneFailure* self) {
    g_return_val_if_fail(MORVANE_IS_FAILURE(self), nullptr);
    return self->held->error;
}

static void morvane_progress_init(MorvaneProgress* self) {
    self->held = new HeldProgress;
}

static void morvane_progress_class_init(MorvaneProgressClass* made) {
    MorvaneProgress* const self = nullptr;
    ObjectClass<MorvaneProgress>::setUp(
        made, {{g_param_spec_uint("reports", nullptr, nullptr, 0, G_MAXUINT, 0, readable),
                [](MorvaneProgress* progress, GValue* value) {
                    g_value_set_uint(value, morvane_progress_get_reports(progress));
                }},
               countProperty<morvane_progress_get_items_done>("items-done", self),
               countProperty<morvane_progress_get_items_failed>("items-failed", self),
               objectProperty<morvane_progress_get_failures>("failures", G_TYPE_LIST_MODEL, self)});
}

MorvaneProgress* morvane_progress_new() {
    return MORVANE_PROGRESS(g_object_new(MORVANE_TYPE_PROGRESS, nullptr));
}

guint morvane_progress_get_reports(MorvaneProgress* self) {
    g_return_val_if_fail(MORVANE_IS_PROGRESS(self), 0);
    return self->held->reports;
}

guint64 morvane_progress_get_items_done(MorvaneProgress* self) {
    g_return_val_if_fail(MORVANE_IS_PROGRESS(self), 0);
    return self->held->counts.done;
}

guint64 morvane_progress_get_items_failed(MorvaneProgress* self) {
    g_return_val_if_fail(MORVANE_IS_PROGRESS(self), 0);
    return self->held->counts.failed;
}

GListModel* morvane_progress_get_failures(MorvaneProgress* self) {
    g_return_val_if_fail(MORVANE_IS_PROGRESS(self), nullptr);
    return G_LIST_MODEL(self->held->failures.get());
}

namespace morvane {

void countReport(MorvaneProgress* progress) {
    ++progress->held->reports;
    g_object_notify(G_OBJECT(progress), "reports");
}

void setCounts(MorvaneProgress* progress, const MVItemCounts& counts) {
    const auto before = std::exchange(progress->held->counts, counts);
    if (before.done != counts.done)
        g_object_notify(G_OBJECT(progress), "items-done");
    if (before.failed != counts.failed)
        g_object_notify(G_OBJECT(progress), "items-failed");
}

void setFailures(MorvaneProgress* progress, const NSErrorRef& error) {
    if (!error)
        return setFailures(progress, std::vector<NSErrorRef>());
    const auto found = error->userInfo().find(NSMultipleUnderlyingErrorsKey);
    const auto* const errors = found == error->userInfo().end()
                                   ? nullptr
                                   : std::get_if<std::vector<NSErrorRef>>(&found->second);
    const auto counts = failuresOfError(*error).counts;
    if (counts != MVItemCounts())
        setCounts(progress, counts);
    if (errors)
        return setFailures(progress, *errors);
    std::vector<NSErrorRef> whole;
    whole.push_back(error);
    setFailures(progress, whole);
}

void setFailures(MorvaneProgress* progress, const std::vector<NSErrorRef>& errors) {
    std::vector<Owned<MorvaneFailure>> failures;
    std::vector<gpointer> items;
    for (const auto& error : errors) {
        failures.emplace_back(MORVANE_FAILURE(g_object_new(MORVANE_TYPE_FAILURE, nullptr)));
        items.push_back(failures.back().get());
        auto& held = *failures.back().get()->held;
        const auto place = error->userInfo().find(NSURLErrorKey);
        if (place != error->userInfo().end()) {
            if (const auto* const url = std::get_if<NSURL>(&place->second))
                held.file = Owned(newFile(*url));
        }
        held.error = newError(error);
    }
    auto* const list = progress->held->failures.get();
    g_list_store_splice(list, 0, g_list_model_get_n_items(G_LIST_MODEL(list)), items.data(),
                        static_cast<guint>(items.size()));
}

}  // namespace morvane
