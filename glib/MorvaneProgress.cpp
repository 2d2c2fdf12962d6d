// SPDX-License-Identifier: MIT
#include "Model.h"

namespace {

struct HeldFailure {
    morvane::Owned<GFile> file;
    std::string message;
};

struct HeldProgress {
    guint reports = 0;
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
               lentTextProperty<morvane_failure_get_message>("message", self)});
}

GFile* morvane_failure_get_file(MorvaneFailure* self) {
    g_return_val_if_fail(MORVANE_IS_FAILURE(self), nullptr);
    return self->held->file.get();
}

const char* morvane_failure_get_message(MorvaneFailure* self) {
    g_return_val_if_fail(MORVANE_IS_FAILURE(self), nullptr);
    return self->held->message.c_str();
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
               objectProperty<morvane_progress_get_failures>("failures", G_TYPE_LIST_MODEL, self)});
}

MorvaneProgress* morvane_progress_new() {
    return MORVANE_PROGRESS(g_object_new(MORVANE_TYPE_PROGRESS, nullptr));
}

guint morvane_progress_get_reports(MorvaneProgress* self) {
    g_return_val_if_fail(MORVANE_IS_PROGRESS(self), 0);
    return self->held->reports;
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

void addFailure(MorvaneProgress* progress, GFile* file, const std::string& message) {
    const Owned failure(MORVANE_FAILURE(g_object_new(MORVANE_TYPE_FAILURE, nullptr)));
    *failure.get()->held = {Owned<GFile>::sharing(file), message};
    g_list_store_append(progress->held->failures.get(), failure.get());
}

void clearFailures(MorvaneProgress* progress) {
    g_list_store_remove_all(progress->held->failures.get());
}

}  // namespace morvane
