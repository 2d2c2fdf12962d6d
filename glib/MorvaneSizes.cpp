// SPDX-License-Identifier: MIT
#include <MorvaneOperation/EntryTexts.h>

#include <algorithm>

#include "Model.h"

namespace {

struct HeldSize {
    morvane::Owned<GFile> file;
    std::shared_ptr<morvane::MVFileSizeItem> item = morvane::MVFileSizeItem::init();
};

struct HeldSizes {
    std::vector<morvane::Owned<MorvaneSize>> rows;
    /// How many operations measure them.
    guint running = 0;
};

}  // namespace

struct _MorvaneSize {
    GObject parent;
    HeldSize* held;
};

struct _MorvaneSizes {
    GObject parent;
    HeldSizes* held;
};

static void morvane_sizes_list_model_init(GListModelInterface* made);
G_DEFINE_FINAL_TYPE(MorvaneSize, morvane_size, G_TYPE_OBJECT)
G_DEFINE_FINAL_TYPE_WITH_CODE(MorvaneSizes, morvane_sizes, G_TYPE_OBJECT,
                              G_IMPLEMENT_INTERFACE(G_TYPE_LIST_MODEL,
                                                    morvane_sizes_list_model_init))

using namespace morvane;

static void morvane_size_init(MorvaneSize* self) {
    self->held = new HeldSize;
}

static void morvane_size_class_init(MorvaneSizeClass* made) {
    MorvaneSize* const self = nullptr;
    ObjectClass<MorvaneSize>::setUp(
        made, {objectProperty<morvane_size_get_file>("file", G_TYPE_FILE, self),
               {g_param_spec_int64("size", nullptr, nullptr, -1, G_MAXINT64, -1, readable),
                [](MorvaneSize* size, GValue* value) {
                    g_value_set_int64(value, morvane_size_get_size(size));
                }},
               textProperty<morvane_size_dup_text>("text", self),
               textProperty<morvane_size_dup_detail>("detail", self)});
}

GFile* morvane_size_get_file(MorvaneSize* self) {
    g_return_val_if_fail(MORVANE_IS_SIZE(self), nullptr);
    return self->held->file.get();
}

gint64 morvane_size_get_size(MorvaneSize* self) {
    g_return_val_if_fail(MORVANE_IS_SIZE(self), -1);
    return std::max<gint64>(self->held->item->size(), -1);
}

char* morvane_size_dup_text(MorvaneSize* self) {
    g_return_val_if_fail(MORVANE_IS_SIZE(self), nullptr);
    return guarded([&] { return copied(shownName(self->held->item->displaySize())); });
}

char* morvane_size_dup_detail(MorvaneSize* self) {
    g_return_val_if_fail(MORVANE_IS_SIZE(self), nullptr);
    return guarded([&] { return copied(shownName(self->held->item->displayInfo())); });
}

static void morvane_sizes_init(MorvaneSizes* self) {
    self->held = new HeldSizes;
}

static void morvane_sizes_class_init(MorvaneSizesClass* made) {
    MorvaneSizes* const self = nullptr;
    ObjectClass<MorvaneSizes>::setUp(
        made, {flagProperty<morvane_sizes_get_busy>("busy", self),
               {g_param_spec_int64("total", nullptr, nullptr, 0, G_MAXINT64, 0, readable),
                [](MorvaneSizes* sizes, GValue* value) {
                    g_value_set_int64(value, morvane_sizes_get_total(sizes));
                }}});
}

static void morvane_sizes_list_model_init(GListModelInterface* made) {
    made->get_item_type = [](GListModel*) { return MORVANE_TYPE_SIZE; };
    made->get_n_items = [](GListModel* self) {
        return static_cast<guint>(MORVANE_SIZES(self)->held->rows.size());
    };
    made->get_item = [](GListModel* self, guint position) -> gpointer {
        const auto& rows = MORVANE_SIZES(self)->held->rows;
        return position < rows.size() ? g_object_ref(rows[position].get()) : nullptr;
    };
}

MorvaneSizes* morvane_sizes_new(GFile** files, guint n_files) {
    g_return_val_if_fail(files || n_files == 0, nullptr);
    return guarded([&] {
        auto* const made = MORVANE_SIZES(g_object_new(MORVANE_TYPE_SIZES, nullptr));
        for (guint i = 0; i != n_files; ++i) {
            Owned size(MORVANE_SIZE(g_object_new(MORVANE_TYPE_SIZE, nullptr)));
            size.get()->held->file = Owned<GFile>::sharing(files[i]);
            made->held->rows.push_back(std::move(size));
        }
        return made;
    });
}

gboolean morvane_sizes_get_busy(MorvaneSizes* self) {
    g_return_val_if_fail(MORVANE_IS_SIZES(self), FALSE);
    return self->held->running != 0;
}

gint64 morvane_sizes_get_total(MorvaneSizes* self) {
    g_return_val_if_fail(MORVANE_IS_SIZES(self), 0);
    gint64 total = 0;
    for (const auto& row : self->held->rows) {
        const auto size = std::max<gint64>(morvane_size_get_size(row.get()), 0);
        if (__builtin_add_overflow(total, size, &total))
            return G_MAXINT64;
    }
    return total;
}

namespace morvane {

void setBusy(MorvaneSizes* sizes, bool busy) {
    auto& running = sizes->held->running;
    running = busy ? running + 1 : running - 1;
    if (running == (busy ? 1 : 0))
        g_object_notify(G_OBJECT(sizes), "busy");
}

void setSizes(MorvaneSizes* sizes, const std::vector<std::shared_ptr<MVFileSizeItem>>& items) {
    const auto& rows = sizes->held->rows;
    if (items.size() != rows.size())
        return;  // the service has not told
    for (std::size_t i = 0; i != rows.size(); ++i) {
        auto* const size = rows[i].get();
        if (size->held->item->size() == items[i]->size())
            continue;
        size->held->item = items[i];
        for (const char* const name : {"size", "text", "detail"})
            g_object_notify(G_OBJECT(size), name);
    }
    g_object_notify(G_OBJECT(sizes), "total");
}

}  // namespace morvane
