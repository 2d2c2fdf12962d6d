// SPDX-License-Identifier: MIT
#include <MorvaneOperation/EntryTexts.h>
#include <MorvaneOperation/MVObservation.h>

#include "Model.h"

namespace {

struct HeldPermission {
    std::shared_ptr<morvane::NSTreeNode> node;
    morvane::EditedEntry edited = {};
    morvane::Owned<GListStore> children = {};
    std::unique_ptr<morvane::MVObservation> box = {};
    std::unique_ptr<morvane::MVObservation> ofEntry = {};
};

}  // namespace

struct _MorvanePermission {
    GObject parent;
    HeldPermission* held;
};

G_DEFINE_FINAL_TYPE(MorvanePermission, morvane_permission, G_TYPE_OBJECT)

using namespace morvane;

namespace morvane {

namespace {

HeldPermission& held(MorvanePermission* self) {
    if (!self->held)  // made by a program itself, from nothing
        self->held = new HeldPermission{
            .node = MVTreeNode::treeNodeWithRepresentedObject(MVAclPermission::init())};
    return *self->held;
}

void tell(MorvanePermission* self, bool isState) {
    // Whoever is told may drop the permission.
    const auto alive = Owned<MorvanePermission>::sharing(self);
    const auto notify = [alive, isState] {
        auto* const object = G_OBJECT(alive.get());
        if (isState)
            g_object_notify(object, "state");
        g_object_notify(object, "sensitive");
        g_object_notify(object, "reason");
    };
    if (const auto editor = held(self).edited.editor)
        editor->tell(notify);
    else
        notify();
}

/// Why the box should not react; empty if it should.
Phrase whyNotSensitive(const HeldPermission& permission) {
    const auto& [entry, editor] = permission.edited;
    return editor ? editor->whyNotClicked(*entry, *permission.node)
                  : phrase("Effective access is shown, not set.");
}

}  // namespace

MorvanePermission* newPermission(std::shared_ptr<NSTreeNode> node, EditedEntry entry) {
    auto* const made = MORVANE_PERMISSION(g_object_new(MORVANE_TYPE_PERMISSION, nullptr));
    made->held = new HeldPermission{.node = std::move(node), .edited = std::move(entry)};
    auto& permission = *made->held;
    permission.box = MVObservation::of(
        std::static_pointer_cast<MVAclPermission>(permission.node->representedObject()),
        {&MVAclPermission::stateKeyPath, &MVAclPermission::settableKeyPath},
        [made](const NSKeyPath& keyPath) {
            tell(made, &keyPath == &MVAclPermission::stateKeyPath);
        });
    if (permission.edited.entry)
        permission.ofEntry = MVObservation::of(
            permission.edited.entry,
            {&MVAclEntry::identityKeyPath, &MVAclEntry::tagKeyPath, &MVAclEntry::inheritedKeyPath},
            [made](const NSKeyPath&) { tell(made, false); });
    return made;
}

}  // namespace morvane

static void morvane_permission_init(MorvanePermission* /*self*/) {}

static void morvane_permission_class_init(MorvanePermissionClass* made) {
    MorvanePermission* const self = nullptr;
    ObjectClass<MorvanePermission>::setUp(
        made,
        {textProperty<morvane_permission_dup_name>("name", self),
         {g_param_spec_enum("state", nullptr, nullptr, MORVANE_TYPE_STATE, MORVANE_STATE_OFF,
                            writable),
          [](MorvanePermission* permission, GValue* value) {
              g_value_set_enum(value, morvane_permission_get_state(permission));
          },
          [](MorvanePermission* permission, const GValue* value) {
              morvane_permission_set_state(permission,
                                           static_cast<MorvaneState>(g_value_get_enum(value)));
          }},
         flagProperty<morvane_permission_get_sensitive>("sensitive", self),
         textProperty<morvane_permission_dup_reason>("reason", self),
         objectProperty<morvane_permission_get_children>("children", G_TYPE_LIST_MODEL, self)});
}

char* morvane_permission_dup_name(MorvanePermission* self) {
    g_return_val_if_fail(MORVANE_IS_PERMISSION(self), nullptr);
    return guarded([&] { return copied(shownText(boxText(*held(self).node))); });
}

MorvaneState morvane_permission_get_state(MorvanePermission* self) {
    g_return_val_if_fail(MORVANE_IS_PERMISSION(self), MORVANE_STATE_OFF);
    return guarded(
        [&] { return static_cast<MorvaneState>(MVTreeNode::stateOf(*held(self).node)); });
}

void morvane_permission_set_state(MorvanePermission* self, MorvaneState state) {
    g_return_if_fail(MORVANE_IS_PERMISSION(self));
    g_return_if_fail(state == MORVANE_STATE_ON || state == MORVANE_STATE_OFF);
    guarded([&] {
        const auto& permission = held(self);
        const auto edited = permission.edited;
        if (edited.editor && state != morvane_permission_get_state(self))
            edited.editor->setBox(edited.entry, *permission.node, state == MORVANE_STATE_ON);
    });
}

void morvane_permission_toggle(MorvanePermission* self) {
    g_return_if_fail(MORVANE_IS_PERMISSION(self));
    guarded([&] {
        const auto& permission = held(self);
        const auto edited = permission.edited;
        if (edited.editor)
            edited.editor->clickBox(edited.entry, *permission.node);
    });
}

gboolean morvane_permission_get_sensitive(MorvanePermission* self) {
    g_return_val_if_fail(MORVANE_IS_PERMISSION(self), FALSE);
    return guarded([&]() -> gboolean { return whyNotSensitive(held(self)).empty(); });
}

char* morvane_permission_dup_reason(MorvanePermission* self) {
    g_return_val_if_fail(MORVANE_IS_PERMISSION(self), nullptr);
    return guarded([&] {
        const auto why = whyNotSensitive(held(self));
        return why.empty() ? nullptr : copied(shownText(why));
    });
}

GListModel* morvane_permission_get_children(MorvanePermission* self) {
    g_return_val_if_fail(MORVANE_IS_PERMISSION(self), nullptr);
    return guarded([&]() -> GListModel* {
        auto& permission = held(self);
        const auto& nodes = permission.node->childNodes();
        if (nodes.empty())
            return nullptr;
        if (!permission.children)
            permission.children = permissionsOf(nodes, permission.edited);
        return G_LIST_MODEL(permission.children.get());
    });
}
