/* SPDX-License-Identifier: MIT */
#pragma once

#include <morvane/morvane-acl-entry.h>

G_BEGIN_DECLS

/**
 * MorvaneAcl:
 *
 * The access-control list of a file or folder, as it was read and is edited: a #GListModel of
 * #MorvaneAclEntry. Those that were read are in the order in which they count, and new ones follow.
 * When the list is written, an entry that is new, allows or denies now, or is for somebody else,
 * counts first if it denies, and last if it allows.
 *
 * It knows what it was read from. If another program has changed the list meanwhile, writing it
 * ends with %MORVANE_ERROR_CHANGED and the change is not overwritten.
 *
 * Used on one thread, on which morvane_file_client_read_acl_finish() was called.
 */
#define MORVANE_TYPE_ACL (morvane_acl_get_type())
MORVANE_GLIB_API
G_DECLARE_FINAL_TYPE(MorvaneAcl, morvane_acl, MORVANE, ACL, GObject)

/**
 * MorvaneAcl:storage-text: (getter dup_storage_text)
 *
 * How the list is stored; %NULL if that is not known.
 */

/**
 * MorvaneAcl::changed:
 * @self: a list
 *
 * An entry was added, removed or moved, or something of an entry was set.
 */

/**
 * morvane_acl_get_file: (get-property file)
 * @self: a list
 *
 * The item whose list it is.
 *
 * Returns: (transfer none) (nullable): the item, or %NULL for a list that was not read, which no
 *   operation takes
 */
MORVANE_GLIB_API GFile* morvane_acl_get_file(MorvaneAcl* self);

/**
 * morvane_acl_is_folder: (get-property folder)
 * @self: a list
 *
 * Whether the item is a folder.
 *
 * Returns: whether it is one
 */
MORVANE_GLIB_API gboolean morvane_acl_is_folder(MorvaneAcl* self);

/**
 * morvane_acl_get_modified: (get-property modified)
 * @self: a list
 *
 * Whether the list was edited since it was read or written.
 *
 * Returns: whether it was edited
 */
MORVANE_GLIB_API gboolean morvane_acl_get_modified(MorvaneAcl* self);

/**
 * morvane_acl_dup_storage_text: (get-property storage-text)
 * @self: a list
 *
 * How the list is stored: "POSIX list".
 *
 * Returns: (transfer full) (nullable): the text, in the language of the process, or %NULL if that
 * is not known
 */
MORVANE_GLIB_API char* morvane_acl_dup_storage_text(MorvaneAcl* self);

/**
 * morvane_acl_add:
 * @self: a list
 * @identity: whom the entry is for
 *
 * Adds an entry, the last one, that allows to read and write, and on a folder applies to the folder
 * alone.
 *
 * Returns: (transfer full): the new entry
 */
MORVANE_GLIB_API MorvaneAclEntry* morvane_acl_add(MorvaneAcl* self, MorvaneIdentity* identity);

/**
 * morvane_acl_remove:
 * @self: a list
 * @entry: an entry
 *
 * Takes the entry out of the list.
 *
 * Returns: %FALSE if it is not in the list, or has to stay (#MorvaneAclEntry:keep-reason)
 */
MORVANE_GLIB_API gboolean morvane_acl_remove(MorvaneAcl* self, MorvaneAclEntry* entry);

/**
 * morvane_acl_sort:
 * @self: a list
 *
 * Puts the entries in their canonical order: those that deny before those that allow, inherited
 * ones last. Where the order does not count, as in a POSIX list, this changes only what is shown.
 */
MORVANE_GLIB_API void morvane_acl_sort(MorvaneAcl* self);

/**
 * morvane_acl_is_current:
 * @self: a list
 * @now: the list of the same item as it was read again
 *
 * Whether no other program has changed the item's list between the two reads.
 *
 * Returns: whether both were read from the same contents
 */
MORVANE_GLIB_API gboolean morvane_acl_is_current(MorvaneAcl* self, MorvaneAcl* now);

/**
 * morvane_acl_adopt:
 * @self: a list
 * @now: the list of the same item as it was read again
 *
 * Has @self count as made of what is there now, so that writing it replaces what another program
 * has written meanwhile.
 */
MORVANE_GLIB_API void morvane_acl_adopt(MorvaneAcl* self, MorvaneAcl* now);

/**
 * MorvaneLoss:
 *
 * One thing that a list cannot hold: an entry, or a box of it.
 *
 * Immutable.
 */
#define MORVANE_TYPE_LOSS (morvane_loss_get_type())
MORVANE_GLIB_API
G_DECLARE_FINAL_TYPE(MorvaneLoss, morvane_loss, MORVANE, LOSS, GObject)

/**
 * morvane_loss_get_position: (get-property position)
 * @self: a loss
 *
 * The position of the entry in the list that was asked about.
 *
 * Returns: the position, or %G_MAXUINT if the loss is about somebody for whom there is no entry
 */
MORVANE_GLIB_API guint morvane_loss_get_position(MorvaneLoss* self);

/**
 * morvane_loss_get_who: (get-property who)
 * @self: a loss
 *
 * Describes the entry: "allow user bob".
 *
 * Returns: (transfer none): the text, in the language of the process
 */
MORVANE_GLIB_API const char* morvane_loss_get_who(MorvaneLoss* self);

/**
 * morvane_loss_get_text: (get-property text)
 * @self: a loss
 *
 * What is lost, and why.
 *
 * Returns: (transfer none): the text, in the language of the process
 */
MORVANE_GLIB_API const char* morvane_loss_get_text(MorvaneLoss* self);

G_END_DECLS
