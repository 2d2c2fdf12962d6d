// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVObservation.h>

#include "Model.h"

namespace {

struct HeldEntry {
    morvane::EditedEntry edited;
    morvane::Owned<GListStore> permissions = {};
    std::unique_ptr<morvane::MVObservation> observation = {};
};

}  // namespace

struct _MorvaneAclEntry {
    GObject parent;
    HeldEntry* held;
};

G_DEFINE_FINAL_TYPE(MorvaneAclEntry, morvane_acl_entry, G_TYPE_OBJECT)

using namespace morvane;

namespace morvane {

namespace {

HeldEntry& held(MorvaneAclEntry* self) {
    return *self->held;
}

MVAclEntry& entryOf(MorvaneAclEntry* self) {
    return *held(self).edited.entry;
}

MVAclEditor& editorOf(MorvaneAclEntry* self) {
    return *held(self).edited.editor;
}

const ItemList* listOf(MorvaneAclEntry* self) {
    return editorOf(self).list();
}

/// The properties that follow one of the model's.
std::vector<const char*> namesOf(const NSKeyPath& keyPath) {
    if (&keyPath == &MVAclEntry::identityKeyPath)
        return {"identity", "who", "subject", "keep-reason"};
    if (&keyPath == &MVAclEntry::tagKeyPath)
        return {"rule", "rule-text", "letters"};
    if (&keyPath == &MVAclEntry::permissionGroupKeyPath)
        return {"permission-group", "permissions-text", "letters"};
    if (&keyPath == &MVAclEntry::applicableToKeyPath)
        return {"applies-to", "applies-to-text"};
    return {"inherited"};
}

void tell(MorvaneAclEntry* self, const NSKeyPath& keyPath) {
    // Whoever is told may drop the entry.
    const auto alive = Owned<MorvaneAclEntry>::sharing(self);
    editorOf(self).tell([alive, &keyPath] {
        for (const char* const name : namesOf(keyPath))
            g_object_notify(G_OBJECT(alive.get()), name);
    });
}

/// Has the editor set something. What is refused stays as it is.
template <class Set>
void change(MorvaneAclEntry* self, const Set& set) {
    guarded([&] {
        const auto edited = held(self).edited;
        set(*edited.editor, edited.entry);
    });
}

void edit(MorvaneAclEntry* self, EditedEntry entry) {
    auto observation = MVObservation::of(
        entry.entry,
        {&MVAclEntry::identityKeyPath, &MVAclEntry::tagKeyPath, &MVAclEntry::permissionGroupKeyPath,
         &MVAclEntry::inheritedKeyPath, &MVAclEntry::applicableToKeyPath},
        [self](const NSKeyPath& keyPath) { tell(self, keyPath); });
    delete std::exchange(self->held, new HeldEntry{.edited = std::move(entry),
                                                   .observation = std::move(observation)});
}

char* copiedOrNull(const Phrase& phrase) {
    return phrase.empty() ? nullptr : copied(shownText(phrase));
}

}  // namespace

MorvaneAclEntry* newAclEntry(EditedEntry entry) {
    auto* const made = MORVANE_ACL_ENTRY(g_object_new(MORVANE_TYPE_ACL_ENTRY, nullptr));
    edit(made, std::move(entry));
    return made;
}

const EditedEntry& editedEntryOf(MorvaneAclEntry* entry) {
    return held(entry).edited;
}

}  // namespace morvane

static void morvane_acl_entry_init(MorvaneAclEntry* self) {
    // One that a program makes itself is in no list.
    static const auto& editor =
        *new auto(MVAclEditor::init({*NSURL::URLWithString("about:blank"), {}}));
    guarded([&] { edit(self, {MVAclEntry::init(), editor}); });
}

static void morvane_acl_entry_class_init(MorvaneAclEntryClass* made) {
    MorvaneAclEntry* const self = nullptr;
    ObjectClass<MorvaneAclEntry>::setUp(
        made,
        {{objectSpec("identity", MORVANE_TYPE_IDENTITY, writable),
          [](MorvaneAclEntry* entry, GValue* value) {
              g_value_take_object(value, morvane_acl_entry_dup_identity(entry));
          },
          [](MorvaneAclEntry* entry, const GValue* value) {
              morvane_acl_entry_set_identity(
                  entry, static_cast<MorvaneIdentity*>(g_value_get_object(value)));
          }},
         textProperty<morvane_acl_entry_dup_who>("who", self),
         {g_param_spec_enum("subject", nullptr, nullptr, MORVANE_TYPE_SUBJECT,
                            MORVANE_SUBJECT_NOBODY, readable),
          [](MorvaneAclEntry* entry, GValue* value) {
              g_value_set_enum(value, morvane_acl_entry_get_subject(entry));
          }},
         {g_param_spec_enum("rule", nullptr, nullptr, MORVANE_TYPE_RULE, MORVANE_RULE_ALLOW,
                            writable),
          [](MorvaneAclEntry* entry, GValue* value) {
              g_value_set_enum(value, morvane_acl_entry_get_rule(entry));
          },
          [](MorvaneAclEntry* entry, const GValue* value) {
              morvane_acl_entry_set_rule(entry, static_cast<MorvaneRule>(g_value_get_enum(value)));
          }},
         textProperty<morvane_acl_entry_dup_rule_text>("rule-text", self),
         {g_param_spec_enum("permission-group", nullptr, nullptr, MORVANE_TYPE_PERMISSION_GROUP,
                            MORVANE_PERMISSION_GROUP_CUSTOM, writable),
          [](MorvaneAclEntry* entry, GValue* value) {
              g_value_set_enum(value, morvane_acl_entry_get_permission_group(entry));
          },
          [](MorvaneAclEntry* entry, const GValue* value) {
              morvane_acl_entry_set_permission_group(
                  entry, static_cast<MorvanePermissionGroup>(g_value_get_enum(value)));
          }},
         textProperty<morvane_acl_entry_dup_permissions_text>("permissions-text", self),
         textProperty<morvane_acl_entry_dup_letters>("letters", self),
         {g_param_spec_int("applies-to", nullptr, nullptr, G_MININT, G_MAXINT, 0, writable),
          [](MorvaneAclEntry* entry, GValue* value) {
              g_value_set_int(value, morvane_acl_entry_get_applies_to(entry));
          },
          [](MorvaneAclEntry* entry, const GValue* value) {
              morvane_acl_entry_set_applies_to(entry, g_value_get_int(value));
          }},
         textProperty<morvane_acl_entry_dup_applies_to_text>("applies-to-text", self),
         {g_param_spec_boolean("inherited", nullptr, nullptr, FALSE, writable),
          [](MorvaneAclEntry* entry, GValue* value) {
              g_value_set_boolean(value, morvane_acl_entry_get_inherited(entry));
          },
          [](MorvaneAclEntry* entry, const GValue* value) {
              morvane_acl_entry_set_inherited(entry, g_value_get_boolean(value));
          }},
         objectProperty<morvane_acl_entry_get_permissions>("permissions", G_TYPE_LIST_MODEL, self),
         textProperty<morvane_acl_entry_dup_keep_reason>("keep-reason", self)});
}

MorvaneIdentity* morvane_acl_entry_dup_identity(MorvaneAclEntry* self) {
    g_return_val_if_fail(MORVANE_IS_ACL_ENTRY(self), nullptr);
    return guarded([&] {
        const auto& identity = entryOf(self).identity();
        return identity ? newIdentity(identity) : nullptr;
    });
}

void morvane_acl_entry_set_identity(MorvaneAclEntry* self, MorvaneIdentity* identity) {
    g_return_if_fail(MORVANE_IS_ACL_ENTRY(self));
    g_return_if_fail(MORVANE_IS_IDENTITY(identity));
    change(self, [&](MVAclEditor& editor, const auto& entry) {
        editor.setIdentity(entry, identityOf(identity));
    });
}

char* morvane_acl_entry_dup_who(MorvaneAclEntry* self) {
    g_return_val_if_fail(MORVANE_IS_ACL_ENTRY(self), nullptr);
    return guarded([&] { return copied(shownText(whoText(entryOf(self)))); });
}

MorvaneSubject morvane_acl_entry_get_subject(MorvaneAclEntry* self) {
    g_return_val_if_fail(MORVANE_IS_ACL_ENTRY(self), MORVANE_SUBJECT_NOBODY);
    return guarded([&] { return static_cast<MorvaneSubject>(subjectOfEntry(entryOf(self))); });
}

MorvaneRule morvane_acl_entry_get_rule(MorvaneAclEntry* self) {
    g_return_val_if_fail(MORVANE_IS_ACL_ENTRY(self), MORVANE_RULE_ALLOW);
    return entryOf(self).tag() == MVAclTagDeny ? MORVANE_RULE_DENY : MORVANE_RULE_ALLOW;
}

void morvane_acl_entry_set_rule(MorvaneAclEntry* self, MorvaneRule rule) {
    g_return_if_fail(MORVANE_IS_ACL_ENTRY(self));
    g_return_if_fail(rule == MORVANE_RULE_ALLOW || rule == MORVANE_RULE_DENY);
    change(self, [&](MVAclEditor& editor, const auto& entry) { editor.setRule(entry, rule); });
}

char* morvane_acl_entry_dup_rule_text(MorvaneAclEntry* self) {
    g_return_val_if_fail(MORVANE_IS_ACL_ENTRY(self), nullptr);
    return guarded([&] { return copied(shownText(ruleText(entryOf(self).tag()))); });
}

MorvanePermissionGroup morvane_acl_entry_get_permission_group(MorvaneAclEntry* self) {
    g_return_val_if_fail(MORVANE_IS_ACL_ENTRY(self), MORVANE_PERMISSION_GROUP_CUSTOM);
    const auto group = entryOf(self).permissionGroup();
    return group >= MVAclGroupAll && group <= MVAclGroupCustom
               ? static_cast<MorvanePermissionGroup>(group)
               : MORVANE_PERMISSION_GROUP_CUSTOM;
}

void morvane_acl_entry_set_permission_group(MorvaneAclEntry* self, MorvanePermissionGroup group) {
    g_return_if_fail(MORVANE_IS_ACL_ENTRY(self));
    g_return_if_fail(group >= MORVANE_PERMISSION_GROUP_ALL &&
                     group <= MORVANE_PERMISSION_GROUP_CUSTOM);
    change(self, [&](MVAclEditor& editor, const auto& entry) {
        editor.setPermissionGroup(entry, group);
    });
}

char* morvane_acl_entry_dup_permissions_text(MorvaneAclEntry* self) {
    g_return_val_if_fail(MORVANE_IS_ACL_ENTRY(self), nullptr);
    return guarded([&] { return copied(shownText(permissionsText(entryOf(self)))); });
}

char* morvane_acl_entry_dup_letters(MorvaneAclEntry* self) {
    g_return_val_if_fail(MORVANE_IS_ACL_ENTRY(self), nullptr);
    return guarded([&] {
        const auto& editor = editorOf(self);
        return editor.origin() ? copied(editor.letters(entryOf(self))) : nullptr;
    });
}

int morvane_acl_entry_get_applies_to(MorvaneAclEntry* self) {
    g_return_val_if_fail(MORVANE_IS_ACL_ENTRY(self), 0);
    return guarded([&] { return static_cast<int>(appliesToCode(entryOf(self))); });
}

void morvane_acl_entry_set_applies_to(MorvaneAclEntry* self, int code) {
    g_return_if_fail(MORVANE_IS_ACL_ENTRY(self));
    change(self, [&](MVAclEditor& editor, const auto& entry) { editor.setAppliesTo(entry, code); });
}

char* morvane_acl_entry_dup_applies_to_text(MorvaneAclEntry* self) {
    g_return_val_if_fail(MORVANE_IS_ACL_ENTRY(self), nullptr);
    return guarded([&] { return copied(shownText(appliesToText(entryOf(self)))); });
}

gboolean morvane_acl_entry_get_inherited(MorvaneAclEntry* self) {
    g_return_val_if_fail(MORVANE_IS_ACL_ENTRY(self), FALSE);
    return entryOf(self).inherited();
}

void morvane_acl_entry_set_inherited(MorvaneAclEntry* self, gboolean inherited) {
    g_return_if_fail(MORVANE_IS_ACL_ENTRY(self));
    change(self,
           [&](MVAclEditor& editor, const auto& entry) { editor.setInherited(entry, inherited); });
}

GListModel* morvane_acl_entry_get_permissions(MorvaneAclEntry* self) {
    g_return_val_if_fail(MORVANE_IS_ACL_ENTRY(self), nullptr);
    return guarded([&] {
        auto& entry = held(self);
        if (!entry.permissions)
            entry.permissions = permissionsOf(entry.edited.entry->permissions(), entry.edited);
        return G_LIST_MODEL(entry.permissions.get());
    });
}

char* morvane_acl_entry_dup_keep_reason(MorvaneAclEntry* self) {
    g_return_val_if_fail(MORVANE_IS_ACL_ENTRY(self), nullptr);
    return guarded([&] { return copiedOrNull(whyNotRemoved(entryOf(self))); });
}

GListModel* morvane_acl_entry_list_rules(MorvaneAclEntry* self) {
    g_return_val_if_fail(MORVANE_IS_ACL_ENTRY(self), nullptr);
    return guarded([&] { return modelOf(ruleChoices(entryOf(self), listOf(self))); });
}

GListModel* morvane_acl_entry_list_permission_groups(MorvaneAclEntry* self) {
    g_return_val_if_fail(MORVANE_IS_ACL_ENTRY(self), nullptr);
    return guarded([&] { return modelOf(permissionChoices(entryOf(self), listOf(self))); });
}

GListModel* morvane_acl_entry_list_applies_to(MorvaneAclEntry* self) {
    g_return_val_if_fail(MORVANE_IS_ACL_ENTRY(self), nullptr);
    return guarded([&] { return modelOf(appliesToChoices(entryOf(self), listOf(self))); });
}
