// SPDX-License-Identifier: MIT
#include <MorvaneOperation/EntryTexts.h>
#include <MorvaneOperation/MVObservation.h>
#include <MorvaneOperation/acl_perms.h>

#include "Model.h"

namespace {

struct HeldPermission {
    std::shared_ptr<morvane::NSTreeNode> node;
    morvane::SharedEntryRef entry = {};
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

void notifySensitive(MorvanePermission* self) {
    g_object_notify(G_OBJECT(self), "sensitive");
    g_object_notify(G_OBJECT(self), "reason");
}

/// Why the box should not react; empty if it should.
Phrase whyNotSensitive(const HeldPermission& permission) {
    if (!permission.entry)
        return phrase("Effective access is shown, not set.");
    const auto& entry = *permission.entry->entry;
    if (auto why = whyNotChanged(entry); !why.empty())
        return why;
    if (MVTreeNode::stateOf(*permission.node) != MVStateOff)
        return {};
    return whyNotBox(entry, *permission.node, permission.entry->context->itemList());
}

/// Whether it is the box that asks for the execution of a file.
bool isExecution(const HeldPermission& permission) {
    const auto& groups = permission.entry->entry->permissions();
    const auto* const box = MVTreeNode::permissionOf(*permission.node);
    return !groups.empty() && permission.node->parentNode() == groups.front().get() && box &&
           box->permission() == ACL_SEARCH;
}

void setState(const HeldPermission& permission, std::int64_t state) {
    if (!permission.entry || permission.entry->entry->inherited())
        return;
    // The group "Read" as a whole asks for no execution, whatever was chosen before.
    const bool isGroup = !permission.node->childNodes().empty();
    if (isExecution(permission))
        permission.entry->isExecutionChosen = state == MVStateOn;
    else if (isGroup)
        permission.entry->isExecutionChosen = false;
    MVTreeNode::setStateOf(*permission.node, state);
}

}  // namespace

MorvanePermission* newPermission(std::shared_ptr<NSTreeNode> node, SharedEntryRef entry) {
    auto* const made = MORVANE_PERMISSION(g_object_new(MORVANE_TYPE_PERMISSION, nullptr));
    made->held = new HeldPermission{.node = std::move(node), .entry = std::move(entry)};
    // Whoever is told may drop the permission.
    made->held->box = MVObservation::ofBox(*made->held->node, [made] {
        const auto alive = Owned<MorvanePermission>::sharing(made);
        g_object_notify(G_OBJECT(made), "state");
        notifySensitive(made);
    });
    if (made->held->entry)
        made->held->ofEntry = MVObservation::of(
            made->held->entry->entry,
            {&MVAclEntry::identityKeyPath, &MVAclEntry::tagKeyPath, &MVAclEntry::inheritedKeyPath},
            [made](const NSKeyPath&) {
                const auto alive = Owned<MorvanePermission>::sharing(made);
                notifySensitive(made);
            });
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
        if (state != morvane_permission_get_state(self))
            setState(held(self), state);
    });
}

void morvane_permission_toggle(MorvanePermission* self) {
    g_return_if_fail(MORVANE_IS_PERMISSION(self));
    guarded([&] {
        const auto& permission = held(self);
        if (!permission.entry)
            return;
        const bool mayBeOn = whyNotBox(*permission.entry->entry, *permission.node,
                                       permission.entry->context->itemList())
                                 .empty();
        const bool isOn = MVTreeNode::stateOf(*permission.node) == MVStateOn;
        setState(permission, !isOn && mayBeOn ? MVStateOn : MVStateOff);
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
            permission.children = permissionsOf(nodes, permission.entry);
        return G_LIST_MODEL(permission.children.get());
    });
}
