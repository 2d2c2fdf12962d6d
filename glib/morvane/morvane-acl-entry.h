/* SPDX-License-Identifier: MIT */
#pragma once

#include <morvane/morvane-identity.h>

G_BEGIN_DECLS

/**
 * MorvaneChoice:
 *
 * A row of a menu: what an entry can be, by name, and why it cannot be chosen if that is so.
 *
 * Immutable.
 */
#define MORVANE_TYPE_CHOICE (morvane_choice_get_type())
MORVANE_GLIB_API
G_DECLARE_FINAL_TYPE(MorvaneChoice, morvane_choice, MORVANE, CHOICE, GObject)

/**
 * morvane_choice_get_code: (get-property code)
 * @self: a choice
 *
 * The value that the property of the entry has once this is chosen.
 *
 * Returns: a #MorvanePermissionGroup, a #MorvaneRule, or the code of what an entry applies to
 */
MORVANE_GLIB_API int morvane_choice_get_code(MorvaneChoice* self);

/**
 * morvane_choice_get_name: (get-property name)
 * @self: a choice
 *
 * What the menu shows: "Read and Write".
 *
 * Returns: (transfer none): the name, in the language of the process
 */
MORVANE_GLIB_API const char* morvane_choice_get_name(MorvaneChoice* self);

/**
 * morvane_choice_get_reason: (get-property reason)
 * @self: a choice
 *
 * Why it cannot be chosen.
 *
 * Returns: (transfer none) (nullable): the reason, or %NULL if it can
 */
MORVANE_GLIB_API const char* morvane_choice_get_reason(MorvaneChoice* self);

/**
 * MorvaneAclEntry:
 *
 * An entry of an access-control list: whom it is for, whether it allows or denies, and a tree of
 * check boxes.
 *
 * Each property is notified when it may have changed, whatever changed it, after the change is
 * whole. Setting a property to what the list cannot hold does nothing: the menus tell what that is.
 * An inherited entry is shown and cannot be changed before it is made the item's own.
 *
 * Used on the thread of its list.
 */
#define MORVANE_TYPE_ACL_ENTRY (morvane_acl_entry_get_type())
MORVANE_GLIB_API
G_DECLARE_FINAL_TYPE(MorvaneAclEntry, morvane_acl_entry, MORVANE, ACL_ENTRY, GObject)

/**
 * MorvaneAclEntry:identity: (getter dup_identity)
 *
 * Whom the entry is for; %NULL if this system does not know it.
 */

/**
 * MorvaneAclEntry:keep-reason: (getter dup_keep_reason)
 *
 * Why the entry cannot be removed; %NULL if it can.
 */

/**
 * MorvaneAclEntry:letters: (getter dup_letters)
 *
 * What would be stored, in the letters of the list; %NULL if that is not known.
 */

/**
 * morvane_acl_entry_dup_identity: (get-property identity)
 * @self: an entry
 *
 * Whom the entry is for.
 *
 * Returns: (transfer full) (nullable): the identity, or %NULL if this system does not know it
 */
MORVANE_GLIB_API MorvaneIdentity* morvane_acl_entry_dup_identity(MorvaneAclEntry* self);

/**
 * morvane_acl_entry_set_identity: (set-property identity)
 * @self: an entry
 * @identity: whom it shall be for
 *
 * Has the entry be for somebody else.
 */
MORVANE_GLIB_API void morvane_acl_entry_set_identity(MorvaneAclEntry* self,
                                                     MorvaneIdentity* identity);

/**
 * morvane_acl_entry_dup_who: (get-property who)
 * @self: an entry
 *
 * Whom the entry is for, as people read it: "user root (owner)", "group staff", "everyone".
 *
 * Returns: (transfer full): the text, in the language of the process
 */
MORVANE_GLIB_API char* morvane_acl_entry_dup_who(MorvaneAclEntry* self);

/**
 * morvane_acl_entry_get_subject: (get-property subject)
 * @self: an entry
 *
 * What kind of somebody the entry is for.
 *
 * Returns: the kind
 */
MORVANE_GLIB_API MorvaneSubject morvane_acl_entry_get_subject(MorvaneAclEntry* self);

/**
 * morvane_acl_entry_get_rule:
 * @self: an entry
 *
 * Whether the entry allows or denies.
 *
 * Returns: the rule
 */
MORVANE_GLIB_API MorvaneRule morvane_acl_entry_get_rule(MorvaneAclEntry* self);

/**
 * morvane_acl_entry_set_rule:
 * @self: an entry
 * @rule: the rule
 *
 * Has the entry allow, or deny.
 */
MORVANE_GLIB_API void morvane_acl_entry_set_rule(MorvaneAclEntry* self, MorvaneRule rule);

/**
 * morvane_acl_entry_dup_rule_text: (get-property rule-text)
 * @self: an entry
 *
 * "Allow" or "Deny".
 *
 * Returns: (transfer full): the text, in the language of the process
 */
MORVANE_GLIB_API char* morvane_acl_entry_dup_rule_text(MorvaneAclEntry* self);

/**
 * morvane_acl_entry_get_permission_group:
 * @self: an entry
 *
 * What the boxes are as a whole.
 *
 * Returns: the choice that fits
 */
MORVANE_GLIB_API MorvanePermissionGroup
morvane_acl_entry_get_permission_group(MorvaneAclEntry* self);

/**
 * morvane_acl_entry_set_permission_group:
 * @self: an entry
 * @group: any choice but %MORVANE_PERMISSION_GROUP_CUSTOM, which changes nothing
 *
 * Switches the boxes of the groups "Read", "Write" and "Administration" accordingly.
 */
MORVANE_GLIB_API void morvane_acl_entry_set_permission_group(MorvaneAclEntry* self,
                                                             MorvanePermissionGroup group);

/**
 * morvane_acl_entry_dup_permissions_text: (get-property permissions-text)
 * @self: an entry
 *
 * What the boxes are as a whole: "Read and Write", "Custom (Read, part of Write)".
 *
 * Returns: (transfer full): the text, in the language of the process
 */
MORVANE_GLIB_API char* morvane_acl_entry_dup_permissions_text(MorvaneAclEntry* self);

/**
 * morvane_acl_entry_dup_letters: (get-property letters)
 * @self: an entry
 *
 * The permissions that would be stored, in the letters of the kind of list: "rw-".
 *
 * Returns: (transfer full) (nullable): the letters, or %NULL if the kind of list is not known
 */
MORVANE_GLIB_API char* morvane_acl_entry_dup_letters(MorvaneAclEntry* self);

/**
 * morvane_acl_entry_get_applies_to:
 * @self: an entry
 *
 * What a folder's entry applies to, as the code of one of morvane_acl_entry_list_applies_to().
 *
 * Returns: the code
 */
MORVANE_GLIB_API int morvane_acl_entry_get_applies_to(MorvaneAclEntry* self);

/**
 * morvane_acl_entry_set_applies_to:
 * @self: an entry
 * @code: the code of one of morvane_acl_entry_list_applies_to()
 *
 * Switches the boxes of the group "Applies To" accordingly.
 */
MORVANE_GLIB_API void morvane_acl_entry_set_applies_to(MorvaneAclEntry* self, int code);

/**
 * morvane_acl_entry_dup_applies_to_text: (get-property applies-to-text)
 * @self: an entry
 *
 * What the entry applies to: "This item, Child files".
 *
 * Returns: (transfer full): the text, in the language of the process
 */
MORVANE_GLIB_API char* morvane_acl_entry_dup_applies_to_text(MorvaneAclEntry* self);

/**
 * morvane_acl_entry_get_inherited:
 * @self: an entry
 *
 * Whether the entry was inherited from a folder above.
 *
 * Returns: whether it is inherited
 */
MORVANE_GLIB_API gboolean morvane_acl_entry_get_inherited(MorvaneAclEntry* self);

/**
 * morvane_acl_entry_set_inherited: (set-property inherited)
 * @self: an entry
 * @inherited: whether it shall be
 *
 * Makes an inherited entry the item's own, which can then be changed, or marks one as inherited.
 * Only an NFSv4 list has entries that can be marked; in another list nothing happens.
 */
MORVANE_GLIB_API void morvane_acl_entry_set_inherited(MorvaneAclEntry* self, gboolean inherited);

/**
 * morvane_acl_entry_get_permissions: (get-property permissions)
 * @self: an entry
 *
 * The check boxes: the groups "Read", "Write", "Administration" and, for a folder, "Applies To".
 *
 * Returns: (transfer none): a list of #MorvanePermission, the same at each call
 */
MORVANE_GLIB_API GListModel* morvane_acl_entry_get_permissions(MorvaneAclEntry* self);

/**
 * morvane_acl_entry_dup_keep_reason: (get-property keep-reason)
 * @self: an entry
 *
 * Why the entry cannot be removed from its list.
 *
 * Returns: (transfer full) (nullable): the reason, or %NULL if it can
 */
MORVANE_GLIB_API char* morvane_acl_entry_dup_keep_reason(MorvaneAclEntry* self);

/**
 * morvane_acl_entry_list_rules:
 * @self: an entry
 *
 * The choices for #MorvaneAclEntry:rule, as they are now.
 *
 * Returns: (transfer full): a list of #MorvaneChoice
 */
MORVANE_GLIB_API GListModel* morvane_acl_entry_list_rules(MorvaneAclEntry* self);

/**
 * morvane_acl_entry_list_permission_groups:
 * @self: an entry
 *
 * The choices for #MorvaneAclEntry:permission-group, as they are now.
 *
 * Returns: (transfer full): a list of #MorvaneChoice
 */
MORVANE_GLIB_API GListModel* morvane_acl_entry_list_permission_groups(MorvaneAclEntry* self);

/**
 * morvane_acl_entry_list_applies_to:
 * @self: an entry
 *
 * The choices for #MorvaneAclEntry:applies-to, as they are now.
 *
 * Returns: (transfer full): a list of #MorvaneChoice
 */
MORVANE_GLIB_API GListModel* morvane_acl_entry_list_applies_to(MorvaneAclEntry* self);

G_END_DECLS
