// SPDX-License-Identifier: MIT
#include <MorvaneOperation/EntryTexts.h>
#include <MorvaneOperation/MVObservation.h>

#include "Model.h"

namespace {

struct HeldChoice {
    int code = 0;
    std::string name;
    std::string reason;
};

struct HeldEntry {
    morvane::SharedEntryRef shared;
    morvane::Owned<GListStore> permissions = {};
    std::unique_ptr<morvane::MVObservation> observation = {};
};

}  // namespace

struct _MorvaneChoice {
    GObject parent;
    HeldChoice* held;
};

struct _MorvaneAclEntry {
    GObject parent;
    HeldEntry* held;
};

G_DEFINE_FINAL_TYPE(MorvaneChoice, morvane_choice, G_TYPE_OBJECT)
G_DEFINE_FINAL_TYPE(MorvaneAclEntry, morvane_acl_entry, G_TYPE_OBJECT)

using namespace morvane;

namespace morvane {

namespace {

HeldEntry& held(MorvaneAclEntry* self) {
    if (!self->held)  // made by a program itself, from nothing
        self->held = new HeldEntry{.shared = std::make_shared<SharedEntry>(SharedEntry{
                                       MVAclEntry::init(), std::make_shared<ListContext>()})};
    return *self->held;
}

MVAclEntry& entryOf(MorvaneAclEntry* self) {
    return *held(self).shared->entry;
}

const ItemList* listOf(MorvaneAclEntry* self) {
    return held(self).shared->context->itemList();
}

/// The properties that follow one of the model's.
std::vector<const char*> namesOf(const NSKeyPath& keyPath) {
    if (&keyPath == &MVAclEntry::identityKeyPath)
        return {"identity", "who", "subject", "keep-reason"};
    if (&keyPath == &MVAclEntry::tagKeyPath)
        return {"rule", "rule-text"};
    if (&keyPath == &MVAclEntry::permissionGroupKeyPath)
        return {"permission-group", "permissions-text", "letters"};
    if (&keyPath == &MVAclEntry::applicableToKeyPath)
        return {"applies-to", "applies-to-text"};
    return {"inherited"};
}

void tell(MorvaneAclEntry* self, const NSKeyPath& keyPath) {
    const Owned alive = Owned<MorvaneAclEntry>::sharing(self);
    for (const char* const name : namesOf(keyPath))
        g_object_notify(G_OBJECT(self), name);
    const auto changed = self->held->shared->changed;
    if (changed)
        changed();
}

MorvaneChoice* newChoice(const EntryChoice& choice) {
    auto* const made = MORVANE_CHOICE(g_object_new(MORVANE_TYPE_CHOICE, nullptr));
    *made->held = {static_cast<int>(choice.code), shownText(choice.name), shownText(choice.whyNot)};
    return made;
}

GListModel* modelOf(const std::vector<EntryChoice>& choices) {
    auto* const list = g_list_store_new(MORVANE_TYPE_CHOICE);
    for (const auto& choice : choices) {
        const Owned made(newChoice(choice));
        g_list_store_append(list, made.get());
    }
    return G_LIST_MODEL(list);
}

template <class Set>
void change(MorvaneAclEntry* self, const Set& set) {
    guarded([&] {
        auto& entry = entryOf(self);
        if (!entry.inherited())
            set(entry);
    });
}

char* copiedOrNull(const Phrase& phrase) {
    return phrase.empty() ? nullptr : copied(shownText(phrase));
}

}  // namespace

MorvaneAclEntry* newAclEntry(SharedEntryRef entry) {
    auto* const made = MORVANE_ACL_ENTRY(g_object_new(MORVANE_TYPE_ACL_ENTRY, nullptr));
    made->held = new HeldEntry{.shared = std::move(entry)};
    made->held->observation = MVObservation::of(
        made->held->shared->entry,
        {&MVAclEntry::identityKeyPath, &MVAclEntry::tagKeyPath, &MVAclEntry::permissionGroupKeyPath,
         &MVAclEntry::inheritedKeyPath, &MVAclEntry::applicableToKeyPath},
        [made](const NSKeyPath& keyPath) { tell(made, keyPath); });
    return made;
}

const SharedEntryRef& sharedEntryOf(MorvaneAclEntry* entry) {
    return held(entry).shared;
}

}  // namespace morvane

static void morvane_choice_init(MorvaneChoice* self) {
    self->held = new HeldChoice;
}

static void morvane_choice_class_init(MorvaneChoiceClass* made) {
    MorvaneChoice* const self = nullptr;
    ObjectClass<MorvaneChoice>::setUp(
        made, {{g_param_spec_int("code", nullptr, nullptr, G_MININT, G_MAXINT, 0, readable),
                [](MorvaneChoice* choice, GValue* value) {
                    g_value_set_int(value, morvane_choice_get_code(choice));
                }},
               lentTextProperty<morvane_choice_get_name>("name", self),
               lentTextProperty<morvane_choice_get_reason>("reason", self)});
}

int morvane_choice_get_code(MorvaneChoice* self) {
    g_return_val_if_fail(MORVANE_IS_CHOICE(self), 0);
    return self->held->code;
}

const char* morvane_choice_get_name(MorvaneChoice* self) {
    g_return_val_if_fail(MORVANE_IS_CHOICE(self), nullptr);
    return self->held->name.c_str();
}

const char* morvane_choice_get_reason(MorvaneChoice* self) {
    g_return_val_if_fail(MORVANE_IS_CHOICE(self), nullptr);
    return self->held->reason.empty() ? nullptr : self->held->reason.c_str();
}

static void morvane_acl_entry_init(MorvaneAclEntry* /*self*/) {}

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
         flagProperty<morvane_acl_entry_get_inherited>("inherited", self),
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
    change(self, [&](MVAclEntry& entry) { entry.setIdentity(identityOf(identity)); });
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
    change(self, [&](MVAclEntry& entry) {
        if (entry.tag() != rule)
            entry.setTag(rule);
    });
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
    change(self, [&](MVAclEntry& entry) {
        if (group == MORVANE_PERMISSION_GROUP_CUSTOM || entry.permissionGroup() == group)
            return;
        held(self).shared->isExecutionChosen = false;
        entry.setPermissionGroup(group);
    });
}

char* morvane_acl_entry_dup_permissions_text(MorvaneAclEntry* self) {
    g_return_val_if_fail(MORVANE_IS_ACL_ENTRY(self), nullptr);
    return guarded([&] { return copied(shownText(permissionsText(entryOf(self)))); });
}

char* morvane_acl_entry_dup_letters(MorvaneAclEntry* self) {
    g_return_val_if_fail(MORVANE_IS_ACL_ENTRY(self), nullptr);
    return guarded([&] {
        const auto& origin = held(self).shared->context->origin;
        return origin ? copied(lettersOfEntry(entryOf(self), origin->values().storage)) : nullptr;
    });
}

int morvane_acl_entry_get_applies_to(MorvaneAclEntry* self) {
    g_return_val_if_fail(MORVANE_IS_ACL_ENTRY(self), 0);
    return guarded([&] { return static_cast<int>(appliesToCode(entryOf(self))); });
}

void morvane_acl_entry_set_applies_to(MorvaneAclEntry* self, int code) {
    g_return_if_fail(MORVANE_IS_ACL_ENTRY(self));
    change(self, [&](MVAclEntry& entry) {
        if (appliesToCode(entry) != code)
            setAppliesTo(entry, code);
    });
}

char* morvane_acl_entry_dup_applies_to_text(MorvaneAclEntry* self) {
    g_return_val_if_fail(MORVANE_IS_ACL_ENTRY(self), nullptr);
    return guarded([&] { return copied(shownText(appliesToText(entryOf(self)))); });
}

gboolean morvane_acl_entry_get_inherited(MorvaneAclEntry* self) {
    g_return_val_if_fail(MORVANE_IS_ACL_ENTRY(self), FALSE);
    return entryOf(self).inherited();
}

GListModel* morvane_acl_entry_get_permissions(MorvaneAclEntry* self) {
    g_return_val_if_fail(MORVANE_IS_ACL_ENTRY(self), nullptr);
    return guarded([&] {
        auto& entry = held(self);
        if (!entry.permissions)
            entry.permissions = permissionsOf(entry.shared->entry->permissions(), entry.shared);
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
