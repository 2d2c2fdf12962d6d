/* SPDX-License-Identifier: MIT */
#pragma once

#include <gio/gio.h>

G_BEGIN_DECLS

#define MORVANE_GLIB_API __attribute__((visibility("default"))) extern

/**
 * MorvaneState:
 * @MORVANE_STATE_MIXED: the boxes of a group differ
 * @MORVANE_STATE_OFF: off
 * @MORVANE_STATE_ON: on
 *
 * The state of a check box.
 */
typedef enum { MORVANE_STATE_MIXED = -1, MORVANE_STATE_OFF = 0, MORVANE_STATE_ON = 1 } MorvaneState;
#define MORVANE_TYPE_STATE (morvane_state_get_type())
MORVANE_GLIB_API GType morvane_state_get_type(void);

/**
 * MorvaneRule:
 * @MORVANE_RULE_ALLOW: it allows what is on
 * @MORVANE_RULE_DENY: it denies what is on
 *
 * What an entry does with its boxes.
 */
typedef enum { MORVANE_RULE_ALLOW = 1, MORVANE_RULE_DENY = 2 } MorvaneRule;
#define MORVANE_TYPE_RULE (morvane_rule_get_type())
MORVANE_GLIB_API GType morvane_rule_get_type(void);

/**
 * MorvanePermissionGroup:
 * @MORVANE_PERMISSION_GROUP_ALL: all boxes
 * @MORVANE_PERMISSION_GROUP_READ_WRITE: the groups "Read" and "Write"
 * @MORVANE_PERMISSION_GROUP_READ: the group "Read"
 * @MORVANE_PERMISSION_GROUP_WRITE: the group "Write"
 * @MORVANE_PERMISSION_GROUP_NONE: nothing; only entries without boxes offer it
 * @MORVANE_PERMISSION_GROUP_CUSTOM: anything else; shown, never chosen
 *
 * What the boxes of an entry are as a whole: the choices of a menu.
 */
typedef enum {
    MORVANE_PERMISSION_GROUP_ALL = 1,
    MORVANE_PERMISSION_GROUP_READ_WRITE = 2,
    MORVANE_PERMISSION_GROUP_READ = 3,
    MORVANE_PERMISSION_GROUP_WRITE = 4,
    MORVANE_PERMISSION_GROUP_NONE = 5,
    MORVANE_PERMISSION_GROUP_CUSTOM = 6
} MorvanePermissionGroup;
#define MORVANE_TYPE_PERMISSION_GROUP (morvane_permission_group_get_type())
MORVANE_GLIB_API GType morvane_permission_group_get_type(void);

/**
 * MorvaneSubject:
 * @MORVANE_SUBJECT_USER: a user
 * @MORVANE_SUBJECT_GROUP: a group
 * @MORVANE_SUBJECT_OWNER: the item's owner, whose entry is in every list of a Linux file system
 * @MORVANE_SUBJECT_OWNING_GROUP: its owning group, likewise
 * @MORVANE_SUBJECT_CREATOR: whoever makes an item in the folder
 * @MORVANE_SUBJECT_CREATOR_GROUP: the group that such an item gets
 * @MORVANE_SUBJECT_EVERYONE: everyone
 * @MORVANE_SUBJECT_NOBODY: somebody whom this system does not know
 *
 * What kind of somebody an entry is for.
 */
typedef enum {
    MORVANE_SUBJECT_USER = 1,
    MORVANE_SUBJECT_GROUP = 2,
    MORVANE_SUBJECT_OWNER = 3,
    MORVANE_SUBJECT_OWNING_GROUP = 4,
    MORVANE_SUBJECT_CREATOR = 5,
    MORVANE_SUBJECT_CREATOR_GROUP = 6,
    MORVANE_SUBJECT_EVERYONE = 7,
    MORVANE_SUBJECT_NOBODY = 8
} MorvaneSubject;
#define MORVANE_TYPE_SUBJECT (morvane_subject_get_type())
MORVANE_GLIB_API GType morvane_subject_get_type(void);

/**
 * MorvanePrivilege:
 * @MORVANE_PRIVILEGE_NEVER: the file service does it, with the user's own rights
 * @MORVANE_PRIVILEGE_ALWAYS: the helper does it as root, once the user has obtained the right
 * @MORVANE_PRIVILEGE_WHEN_REFUSED: the file service does it; if the user's rights do not suffice,
 *   the helper does it again
 *
 * Who does the work of an operation. The system asks the user for the right, once for however many
 * operations.
 */
typedef enum {
    MORVANE_PRIVILEGE_NEVER,
    MORVANE_PRIVILEGE_ALWAYS,
    MORVANE_PRIVILEGE_WHEN_REFUSED
} MorvanePrivilege;
#define MORVANE_TYPE_PRIVILEGE (morvane_privilege_get_type())
MORVANE_GLIB_API GType morvane_privilege_get_type(void);

/**
 * MorvaneError:
 * @MORVANE_ERROR_FAILED: none of the others
 * @MORVANE_ERROR_DENIED: the user may not have the right, or did not prove to be who may
 * @MORVANE_ERROR_DISMISSED: the user did not want to be asked for the right
 * @MORVANE_ERROR_NOBODY_TO_ASK: there is no agent that could ask the user for the right
 * @MORVANE_ERROR_CHANGED: another program has changed the list since it was read; nothing was
 *   written
 * @MORVANE_ERROR_LOSSES: the list cannot hold the entries; see
 *   morvane_file_client_list_losses_async()
 * @MORVANE_ERROR_SERVICE: the service could not be reached, or has ended before it answered
 *
 * Errors of operations, but for those that the file system gives: these are in %G_IO_ERROR, as is
 * %G_IO_ERROR_CANCELLED.
 */
typedef enum {
    MORVANE_ERROR_FAILED,
    MORVANE_ERROR_DENIED,
    MORVANE_ERROR_DISMISSED,
    MORVANE_ERROR_NOBODY_TO_ASK,
    MORVANE_ERROR_CHANGED,
    MORVANE_ERROR_LOSSES,
    MORVANE_ERROR_SERVICE
} MorvaneError;
#define MORVANE_TYPE_ERROR (morvane_error_get_type())
MORVANE_GLIB_API GType morvane_error_get_type(void);

#define MORVANE_ERROR (morvane_error_quark())
MORVANE_GLIB_API GQuark morvane_error_quark(void);

G_END_DECLS
