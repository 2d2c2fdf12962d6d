/* SPDX-License-Identifier: MIT */
#pragma once

#include <morvane/morvane-base.h>

G_BEGIN_DECLS

/**
 * MorvanePermission:
 *
 * A check box of an entry, or a group of check boxes.
 *
 * Its properties follow the entry: a click on a box changes its group, and one on a group its
 * boxes. The children are a #GListModel, so that a #GtkTreeListModel takes a tree of permissions.
 * Of the boxes of effective access none can be changed.
 */
#define MORVANE_TYPE_PERMISSION (morvane_permission_get_type())
MORVANE_GLIB_API
G_DECLARE_FINAL_TYPE(MorvanePermission, morvane_permission, MORVANE, PERMISSION, GObject)

/**
 * MorvanePermission:reason: (getter dup_reason)
 *
 * Why the box is not sensitive; %NULL if it is.
 */

/**
 * morvane_permission_dup_name: (get-property name)
 * @self: a permission
 *
 * What stands beside the box: "Read Data".
 *
 * Returns: (transfer full): the name, in the language of the process
 */
MORVANE_GLIB_API char* morvane_permission_dup_name(MorvanePermission* self);

/**
 * morvane_permission_get_state:
 * @self: a permission
 *
 * The state of the box.
 *
 * Returns: the state; only a group is %MORVANE_STATE_MIXED
 */
MORVANE_GLIB_API MorvaneState morvane_permission_get_state(MorvanePermission* self);

/**
 * morvane_permission_set_state:
 * @self: a permission
 * @state: %MORVANE_STATE_ON or %MORVANE_STATE_OFF
 *
 * Switches the box. Nothing happens if the list cannot hold that, or if the box belongs to an
 * inherited entry or to effective access.
 */
MORVANE_GLIB_API void morvane_permission_set_state(MorvanePermission* self, MorvaneState state);

/**
 * morvane_permission_toggle:
 * @self: a permission
 *
 * Does what a click means: a box that is on is switched off, any other one on, unless the list
 * cannot hold that; a mixed group is then switched off.
 */
MORVANE_GLIB_API void morvane_permission_toggle(MorvanePermission* self);

/**
 * morvane_permission_get_sensitive: (get-property sensitive)
 * @self: a permission
 *
 * Whether a click would change anything that can be stored. A box that is on can be switched off.
 *
 * Returns: whether the box should react
 */
MORVANE_GLIB_API gboolean morvane_permission_get_sensitive(MorvanePermission* self);

/**
 * morvane_permission_dup_reason: (get-property reason)
 * @self: a permission
 *
 * Why the box is not sensitive, in a few words.
 *
 * Returns: (transfer full) (nullable): the reason, or %NULL if it is sensitive
 */
MORVANE_GLIB_API char* morvane_permission_dup_reason(MorvanePermission* self);

/**
 * morvane_permission_get_children: (get-property children)
 * @self: a permission
 *
 * The boxes of a group.
 *
 * Returns: (transfer none) (nullable): a list of #MorvanePermission, the same at each call, or
 *   %NULL for a box
 */
MORVANE_GLIB_API GListModel* morvane_permission_get_children(MorvanePermission* self);

G_END_DECLS
