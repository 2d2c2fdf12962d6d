// SPDX-License-Identifier: MIT
#include <MorvaneOperation/EntryTexts.h>

#include <algorithm>
#include <climits>

#include "Model.h"

namespace {

struct Row {
    morvane::SharedEntryRef entry;
    /// Made when it is first asked for: lists can be long, and few rows are shown.
    morvane::Owned<MorvaneAclEntry> object;
};

struct HeldAcl {
    morvane::MVFileAcl acl;  // but for its entries
    std::shared_ptr<const morvane::ListContext> context;
    morvane::Owned<GFile> file;
    std::vector<Row> rows = {};
    bool isModified = false;

    ~HeldAcl() {
        for (const auto& row : rows)
            row.entry->changed = {};
    }
};

}  // namespace

struct _MorvaneAcl {
    GObject parent;
    HeldAcl* held;
};

static void morvane_acl_list_model_init(GListModelInterface* made);
G_DEFINE_FINAL_TYPE_WITH_CODE(MorvaneAcl, morvane_acl, G_TYPE_OBJECT,
                              G_IMPLEMENT_INTERFACE(G_TYPE_LIST_MODEL, morvane_acl_list_model_init))

using namespace morvane;

namespace morvane {

namespace {

guint changedSignal;

void fill(MorvaneAcl* self, MVFileAcl acl) {
    auto entries = std::move(acl.entries);
    acl.entries.clear();
    auto context = std::make_shared<const ListContext>(ListContext{acl.origin, acl.list});
    const Owned file(newFile(acl.url));
    self->held = new HeldAcl{.acl = std::move(acl), .context = context, .file = file};
    for (auto& entry : entries)
        self->held->rows.push_back(
            {std::make_shared<SharedEntry>(SharedEntry{std::move(entry), context}), {}});
    for (const auto& row : self->held->rows)
        row.entry->changed = [self] { setModified(self, true); };
}

HeldAcl& held(MorvaneAcl* self) {
    if (!self->held)  // made by a program itself, from nothing
        fill(self, MVFileAcl{NSURL::fileURLWithPath("/"), {}});
    return *self->held;
}

MorvaneAclEntry* objectOf(Row& row) {
    if (!row.object)
        row.object = Owned(newAclEntry(row.entry));
    return row.object.get();
}

void tellItems(MorvaneAcl* self, std::size_t position, std::size_t removed, std::size_t added) {
    const auto alive = Owned<MorvaneAcl>::sharing(self);
    g_list_model_items_changed(G_LIST_MODEL(self), static_cast<guint>(position),
                               static_cast<guint>(removed), static_cast<guint>(added));
    setModified(self, true);
}

}  // namespace

MorvaneAcl* newAcl(MVFileAcl acl) {
    auto* const made = MORVANE_ACL(g_object_new(MORVANE_TYPE_ACL, nullptr));
    fill(made, std::move(acl));
    return made;
}

MVFileAcl aclToWrite(MorvaneAcl* self) {
    const auto& state = held(self);
    MVFileAcl acl = state.acl;
    for (const auto& row : state.rows)
        acl.entries.push_back(row.entry->isExecutionChosen && acl.list
                                  ? acl.list->askingToExecute(row.entry->entry)
                                  : row.entry->entry);
    return acl;
}

void setModified(MorvaneAcl* self, bool modified) {
    // Whoever is told may drop the list.
    const auto alive = Owned<MorvaneAcl>::sharing(self);
    auto& state = held(self);
    if (state.isModified != modified) {
        state.isModified = modified;
        g_object_notify(G_OBJECT(self), "modified");
    }
    if (modified)
        g_signal_emit(self, changedSignal, 0);
}

}  // namespace morvane

static void morvane_acl_init(MorvaneAcl* /*self*/) {}

static void morvane_acl_class_init(MorvaneAclClass* made) {
    MorvaneAcl* const self = nullptr;
    ObjectClass<MorvaneAcl>::setUp(
        made, {objectProperty<morvane_acl_get_file>("file", G_TYPE_FILE, self),
               flagProperty<morvane_acl_is_folder>("folder", self),
               flagProperty<morvane_acl_get_modified>("modified", self),
               textProperty<morvane_acl_dup_storage_text>("storage-text", self)});
    changedSignal = g_signal_new("changed", MORVANE_TYPE_ACL, G_SIGNAL_RUN_LAST, 0, nullptr,
                                 nullptr, nullptr, G_TYPE_NONE, 0);
}

static void morvane_acl_list_model_init(GListModelInterface* made) {
    made->get_item_type = [](GListModel*) { return MORVANE_TYPE_ACL_ENTRY; };
    made->get_n_items = [](GListModel* self) {
        return guarded([&] { return static_cast<guint>(held(MORVANE_ACL(self)).rows.size()); });
    };
    made->get_item = [](GListModel* self, guint position) {
        return guarded([&]() -> gpointer {
            auto& rows = held(MORVANE_ACL(self)).rows;
            return position < rows.size() ? g_object_ref(objectOf(rows[position])) : nullptr;
        });
    };
}

GFile* morvane_acl_get_file(MorvaneAcl* self) {
    g_return_val_if_fail(MORVANE_IS_ACL(self), nullptr);
    return guarded([&] { return held(self).file.get(); });
}

gboolean morvane_acl_is_folder(MorvaneAcl* self) {
    g_return_val_if_fail(MORVANE_IS_ACL(self), FALSE);
    return guarded([&]() -> gboolean { return held(self).context->isFolder(); });
}

gboolean morvane_acl_get_modified(MorvaneAcl* self) {
    g_return_val_if_fail(MORVANE_IS_ACL(self), FALSE);
    return guarded([&]() -> gboolean { return held(self).isModified; });
}

char* morvane_acl_dup_storage_text(MorvaneAcl* self) {
    g_return_val_if_fail(MORVANE_IS_ACL(self), nullptr);
    return guarded([&] {
        const auto& origin = held(self).context->origin;
        return origin ? copied(shownText(storageText(origin->values().storage))) : nullptr;
    });
}

MorvaneAclEntry* morvane_acl_add(MorvaneAcl* self, MorvaneIdentity* identity) {
    g_return_val_if_fail(MORVANE_IS_ACL(self), nullptr);
    g_return_val_if_fail(MORVANE_IS_IDENTITY(identity), nullptr);
    return guarded([&] {
        auto& state = held(self);
        const auto entry = MVAclEntry::newEntryForDirectory(state.context->isFolder());
        entry->setIdentity(identityOf(identity));
        const auto place = std::find_if(state.rows.begin(), state.rows.end(), [&](const Row& row) {
            return row.entry->entry->canonicalScore() < entry->canonicalScore();
        });
        const auto shared = std::make_shared<SharedEntry>(SharedEntry{entry, state.context});
        shared->changed = [self] { setModified(self, true); };
        const auto added = state.rows.insert(place, Row{shared, {}});
        auto object = Owned<MorvaneAclEntry>::sharing(objectOf(*added));
        tellItems(self, static_cast<std::size_t>(added - state.rows.begin()), 0, 1);
        return object.release();  // it may be in the list no more
    });
}

gboolean morvane_acl_remove(MorvaneAcl* self, MorvaneAclEntry* entry) {
    g_return_val_if_fail(MORVANE_IS_ACL(self), FALSE);
    g_return_val_if_fail(MORVANE_IS_ACL_ENTRY(entry), FALSE);
    return guarded([&]() -> gboolean {
        auto& rows = held(self).rows;
        const auto& shared = sharedEntryOf(entry);
        const auto place = std::find_if(rows.begin(), rows.end(),
                                        [&](const Row& row) { return row.entry == shared; });
        if (place == rows.end() || !whyNotRemoved(*shared->entry).empty())
            return FALSE;
        const auto position = static_cast<std::size_t>(place - rows.begin());
        const auto removed = std::move(*place);  // it may be the last that holds the entry
        removed.entry->changed = {};
        rows.erase(place);
        tellItems(self, position, 1, 0);
        return TRUE;
    });
}

void morvane_acl_sort(MorvaneAcl* self) {
    g_return_if_fail(MORVANE_IS_ACL(self));
    guarded([&] {
        auto& rows = held(self).rows;
        const auto inOrder = [](const Row& a, const Row& b) {
            return a.entry->entry->canonicalScore() > b.entry->entry->canonicalScore();
        };
        if (std::is_sorted(rows.begin(), rows.end(), inOrder))
            return;
        std::stable_sort(rows.begin(), rows.end(), inOrder);
        tellItems(self, 0, rows.size(), rows.size());
    });
}

gboolean morvane_acl_is_current(MorvaneAcl* self, MorvaneAcl* now) {
    g_return_val_if_fail(MORVANE_IS_ACL(self), FALSE);
    g_return_val_if_fail(MORVANE_IS_ACL(now), FALSE);
    return guarded([&]() -> gboolean {
        const auto& before = held(self).context->origin;
        const auto& after = held(now).context->origin;
        return before && after ? before->values().digest == after->values().digest
                               : before == after;
    });
}

void morvane_acl_adopt(MorvaneAcl* self, MorvaneAcl* now) {
    g_return_if_fail(MORVANE_IS_ACL(self));
    g_return_if_fail(MORVANE_IS_ACL(now));
    guarded([&] {
        auto& state = held(self);
        state.context = held(now).context;
        state.acl.origin = state.context->origin;
        state.acl.list = state.context->list;
        for (const auto& row : state.rows) {
            row.entry->context = state.context;
            row.entry->entry->setOrigin(state.context->origin);
        }
        setModified(self, true);
    });
}

namespace {

struct HeldLoss {
    guint position = 0;
    std::string who;
    std::string text;
};

}  // namespace

struct _MorvaneLoss {
    GObject parent;
    HeldLoss* held;
};

G_DEFINE_FINAL_TYPE(MorvaneLoss, morvane_loss, G_TYPE_OBJECT)

namespace morvane {

MorvaneLoss* newLoss(const EntryLoss& loss, std::size_t entryCount) {
    auto* const made = MORVANE_LOSS(g_object_new(MORVANE_TYPE_LOSS, nullptr));
    *made->held = {loss.entry < entryCount ? static_cast<guint>(loss.entry) : G_MAXUINT,
                   shownText(loss.who), shownText(loss.text())};
    return made;
}

}  // namespace morvane

static void morvane_loss_init(MorvaneLoss* self) {
    self->held = new HeldLoss;
}

static void morvane_loss_class_init(MorvaneLossClass* made) {
    MorvaneLoss* const self = nullptr;
    ObjectClass<MorvaneLoss>::setUp(
        made, {{g_param_spec_uint("position", nullptr, nullptr, 0, G_MAXUINT, 0, readable),
                [](MorvaneLoss* loss, GValue* value) {
                    g_value_set_uint(value, morvane_loss_get_position(loss));
                }},
               lentTextProperty<morvane_loss_get_who>("who", self),
               lentTextProperty<morvane_loss_get_text>("text", self)});
}

guint morvane_loss_get_position(MorvaneLoss* self) {
    g_return_val_if_fail(MORVANE_IS_LOSS(self), 0);
    return self->held->position;
}

const char* morvane_loss_get_who(MorvaneLoss* self) {
    g_return_val_if_fail(MORVANE_IS_LOSS(self), nullptr);
    return self->held->who.c_str();
}

const char* morvane_loss_get_text(MorvaneLoss* self) {
    g_return_val_if_fail(MORVANE_IS_LOSS(self), nullptr);
    return self->held->text.c_str();
}
