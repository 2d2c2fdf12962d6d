// SPDX-License-Identifier: MIT
#include <MorvaneOperation/EntryTexts.h>

#include <algorithm>
#include <climits>

#include "Model.h"

namespace {

using Object = morvane::Owned<MorvaneAclEntry>;

struct HeldAcl {
    std::shared_ptr<morvane::MVAclEditor> editor;
    morvane::Owned<GFile> file;
    /// Of the entries, in their order. Each is made when it is first asked for: lists can be long,
    /// and few rows are shown.
    std::vector<Object> objects = {};
    bool wasModified = false;
    bool didReadExecute = true;

    ~HeldAcl() { editor->setObserver({}); }
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

HeldAcl& held(MorvaneAcl* self) {
    return *self->held;
}

void tellModified(MorvaneAcl* self) {
    auto& state = held(self);
    const bool isModified = state.editor->isModified();
    if (std::exchange(state.wasModified, isModified) != isModified)
        g_object_notify(G_OBJECT(self), "modified");
}

/// Tells that something was edited.
void tellChanged(MorvaneAcl* self) {
    // Whoever is told may drop the list.
    const auto alive = Owned<MorvaneAcl>::sharing(self);
    auto& state = held(self);
    const bool readExecutes = state.editor->readExecutes();
    if (std::exchange(state.didReadExecute, readExecutes) != readExecutes) {
        const auto objects = state.objects;
        for (const auto& object : objects) {
            if (object)
                g_object_notify(G_OBJECT(object.get()), "letters");
        }
    }
    tellModified(self);
    g_signal_emit(self, changedSignal, 0);
}

void show(MorvaneAcl* self, std::shared_ptr<MVAclEditor> editor) {
    if (self->held)
        delete self->held;
    const auto& url = editor->url();
    const Owned file(url.isFileURL() ? newFile(url) : nullptr);
    self->held = new HeldAcl{.editor = std::move(editor), .file = file};
    auto& state = held(self);
    state.objects.resize(state.editor->entries().size());
    state.wasModified = state.editor->isModified();
    state.didReadExecute = state.editor->readExecutes();
    state.editor->setObserver([self](const MVAclEntry&, const NSKeyPath& keyPath) {
        if (&keyPath == &MVAclEntry::identityKeyPath)
            return;  // the entry tells it; an edit has set the UUID before
        const auto alive = Owned<MorvaneAcl>::sharing(self);
        held(self).editor->tell([alive] { tellChanged(alive.get()); });
    });
}

MorvaneAclEntry* objectOf(HeldAcl& state, std::size_t position) {
    auto& object = state.objects[position];
    if (!object)
        object = Owned(newAclEntry({state.editor->entries()[position], state.editor}));
    return object.get();
}

void tellItems(MorvaneAcl* self, std::size_t position, std::size_t removed, std::size_t added) {
    const auto alive = Owned<MorvaneAcl>::sharing(self);
    g_list_model_items_changed(G_LIST_MODEL(self), static_cast<guint>(position),
                               static_cast<guint>(removed), static_cast<guint>(added));
    tellChanged(self);
}

}  // namespace

MorvaneAcl* newAcl(MVFileAcl acl) {
    auto* const made = MORVANE_ACL(g_object_new(MORVANE_TYPE_ACL, nullptr));
    show(made, MVAclEditor::init(std::move(acl)));
    return made;
}

MorvaneAcl* newNearestAcl(MVFileAcl asked, MVFileAcl::Entries nearest, bool differs) {
    asked.entries.clear();
    const auto editor = MVAclEditor::init(std::move(asked));
    editor->setEntries(std::move(nearest));
    if (!differs)
        editor->wasWritten(editor->editCount());
    auto* const made = MORVANE_ACL(g_object_new(MORVANE_TYPE_ACL, nullptr));
    show(made, editor);
    return made;
}

MVAclEditor& editorOf(MorvaneAcl* self) {
    return *held(self).editor;
}

void wasWritten(MorvaneAcl* self, std::uint64_t editCount) {
    editorOf(self).wasWritten(editCount);
    tellModified(self);
}

}  // namespace morvane

static void morvane_acl_init(MorvaneAcl* self) {
    // One that a program makes itself is the list of no item, which no operation takes.
    guarded([&] { show(self, MVAclEditor::init({*NSURL::URLWithString("about:blank"), {}})); });
}

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
        return guarded([&] { return static_cast<guint>(held(MORVANE_ACL(self)).objects.size()); });
    };
    made->get_item = [](GListModel* self, guint position) {
        return guarded([&]() -> gpointer {
            auto& state = held(MORVANE_ACL(self));
            return position < state.objects.size() ? g_object_ref(objectOf(state, position))
                                                   : nullptr;
        });
    };
}

GFile* morvane_acl_get_file(MorvaneAcl* self) {
    g_return_val_if_fail(MORVANE_IS_ACL(self), nullptr);
    return guarded([&] { return held(self).file.get(); });
}

gboolean morvane_acl_is_folder(MorvaneAcl* self) {
    g_return_val_if_fail(MORVANE_IS_ACL(self), FALSE);
    return guarded([&]() -> gboolean { return editorOf(self).isFolder(); });
}

gboolean morvane_acl_get_modified(MorvaneAcl* self) {
    g_return_val_if_fail(MORVANE_IS_ACL(self), FALSE);
    return guarded([&]() -> gboolean { return editorOf(self).isModified(); });
}

char* morvane_acl_dup_storage_text(MorvaneAcl* self) {
    g_return_val_if_fail(MORVANE_IS_ACL(self), nullptr);
    return guarded([&] {
        const auto& origin = editorOf(self).origin();
        return origin ? copied(shownText(storageText(origin->values().storage))) : nullptr;
    });
}

MorvaneAclEntry* morvane_acl_add(MorvaneAcl* self, MorvaneIdentity* identity) {
    g_return_val_if_fail(MORVANE_IS_ACL(self), nullptr);
    g_return_val_if_fail(MORVANE_IS_IDENTITY(identity), nullptr);
    return guarded([&] {
        auto& state = held(self);
        state.editor->add(identityOf(identity));
        state.objects.emplace_back();
        const auto position = state.objects.size() - 1;
        auto object = Owned<MorvaneAclEntry>::sharing(objectOf(state, position));
        tellItems(self, position, 0, 1);
        return object.release();  // it may be in the list no more
    });
}

gboolean morvane_acl_remove(MorvaneAcl* self, MorvaneAclEntry* entry) {
    g_return_val_if_fail(MORVANE_IS_ACL(self), FALSE);
    g_return_val_if_fail(MORVANE_IS_ACL_ENTRY(entry), FALSE);
    return guarded([&]() -> gboolean {
        auto& state = held(self);
        const auto& entries = state.editor->entries();
        const auto& removed = editedEntryOf(entry).entry;
        const auto position = std::find(entries.begin(), entries.end(), removed) - entries.begin();
        if (!state.editor->remove(removed))
            return FALSE;
        const auto alive = Owned<MorvaneAclEntry>::sharing(entry);
        state.objects.erase(state.objects.begin() + position);
        tellItems(self, static_cast<std::size_t>(position), 1, 0);
        return TRUE;
    });
}

void morvane_acl_sort(MorvaneAcl* self) {
    g_return_if_fail(MORVANE_IS_ACL(self));
    guarded([&] {
        auto& state = held(self);
        const auto before = state.editor->entries();
        if (!state.editor->sort())
            return;
        std::vector<Object> objects;
        for (const auto& entry : state.editor->entries()) {
            const auto place = std::find(before.begin(), before.end(), entry) - before.begin();
            objects.push_back(state.objects[static_cast<std::size_t>(place)]);
        }
        state.objects = std::move(objects);
        tellItems(self, 0, before.size(), before.size());
    });
}

gboolean morvane_acl_is_current(MorvaneAcl* self, MorvaneAcl* now) {
    g_return_val_if_fail(MORVANE_IS_ACL(self), FALSE);
    g_return_val_if_fail(MORVANE_IS_ACL(now), FALSE);
    return guarded([&]() -> gboolean {
        const auto& before = editorOf(self).origin();
        const auto& after = editorOf(now).origin();
        return before && after ? before->values().digest == after->values().digest
                               : before == after;
    });
}

void morvane_acl_adopt(MorvaneAcl* self, MorvaneAcl* now) {
    g_return_if_fail(MORVANE_IS_ACL(self));
    g_return_if_fail(MORVANE_IS_ACL(now));
    guarded([&] {
        editorOf(self).adopt(editorOf(now));
        tellChanged(self);
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
