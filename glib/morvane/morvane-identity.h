/* SPDX-License-Identifier: MIT */
#pragma once

#include <morvane/morvane-base.h>

G_BEGIN_DECLS

/**
 * MorvaneIdentity:
 *
 * Somebody whom an entry can be for: a user, a group, everyone, or the creator of an item.
 *
 * Immutable. morvane_file_client_search_identities_async() finds users and groups by their names.
 */
#define MORVANE_TYPE_IDENTITY (morvane_identity_get_type())
MORVANE_GLIB_API
G_DECLARE_FINAL_TYPE(MorvaneIdentity, morvane_identity, MORVANE, IDENTITY, GObject)

/**
 * morvane_identity_new_for_user:
 * @uid: the number of the user
 *
 * Makes the identity of a user. It asks the user database, which may be on the network: prefer the
 * identities that a search has found.
 *
 * Returns: (transfer full): the identity
 */
MORVANE_GLIB_API MorvaneIdentity* morvane_identity_new_for_user(guint uid);

/**
 * morvane_identity_new_for_group:
 * @gid: the number of the group
 *
 * Makes the identity of a group, as morvane_identity_new_for_user() does that of a user.
 *
 * Returns: (transfer full): the identity
 */
MORVANE_GLIB_API MorvaneIdentity* morvane_identity_new_for_group(guint gid);

/**
 * morvane_identity_new_everyone:
 *
 * Makes the identity of all users of the system.
 *
 * Returns: (transfer full): the identity
 */
MORVANE_GLIB_API MorvaneIdentity* morvane_identity_new_everyone(void);

/**
 * morvane_identity_new_creator:
 * @group: whether it is the group that an item gets, and not the user who makes it
 *
 * Makes the identity that only the entries which a folder gives to new items are for.
 *
 * Returns: (transfer full): the identity
 */
MORVANE_GLIB_API MorvaneIdentity* morvane_identity_new_creator(gboolean group);

/**
 * morvane_identity_dup_name: (get-property name)
 * @self: an identity
 *
 * The name in the user database: "alice". What is not UTF-8 in it is replaced.
 *
 * Returns: (transfer full): the name
 */
MORVANE_GLIB_API char* morvane_identity_dup_name(MorvaneIdentity* self);

/**
 * morvane_identity_dup_text: (get-property text)
 * @self: an identity
 *
 * What people read: "user alice", "group staff", "everyone".
 *
 * Returns: (transfer full): the text, in the language of the process
 */
MORVANE_GLIB_API char* morvane_identity_dup_text(MorvaneIdentity* self);

/**
 * morvane_identity_is_group: (get-property group)
 * @self: an identity
 *
 * Whether it is a group. Everyone is one too.
 *
 * Returns: whether it is a group
 */
MORVANE_GLIB_API gboolean morvane_identity_is_group(MorvaneIdentity* self);

/**
 * morvane_identity_equal:
 * @self: an identity
 * @other: (nullable): another one
 *
 * Whether both are the same user, the same group, or everyone.
 *
 * Returns: whether they are the same
 */
MORVANE_GLIB_API gboolean morvane_identity_equal(MorvaneIdentity* self, MorvaneIdentity* other);

G_END_DECLS
