// SPDX-License-Identifier: MIT
#ifndef MORVANEOPERATION_ACL_PERMS_H
#define MORVANEOPERATION_ACL_PERMS_H

#include <MorvaneOperation/platform/foundation/Export.h>
#include <stdint.h>

/// \file
/// The constant catalogue of access-control permissions and inheritance flags, for C and C++.
///
///     for (const acl_perm_entry* row = acl_write_perms; row->name; ++row) {
///         if (row->kinds & ACL_KIND_FOLDERS)
///             show(row->name);
///     }
///
/// Each table ends with a row whose name is null; the other values of that row mean nothing. Names
/// are constant UTF-8 English display keys, to be localised with the table "ACL". All of it is
/// read-only and lives as long as the process; any thread may read it.
///
/// In C++ everything is in namespace morvane, beside the system's own <sys/acl.h>. That header
/// defines ACL_EXECUTE as a macro of another value, so 0x8 is given here by its other name only,
/// ACL_SEARCH: a constant whose value depended on the order of includes would be a trap.

#ifdef __cplusplus
namespace morvane {
extern "C" {
#endif

/// Permission bits. Two names of one value are the same bit for a file and for a folder.
enum {
    ACL_READ_DATA = 0x2,
    ACL_LIST_DIRECTORY = 0x2,
    ACL_WRITE_DATA = 0x4,
    ACL_ADD_FILE = 0x4,
    /// Execute a file, traverse a folder.
    ACL_SEARCH = 0x8,
    ACL_DELETE = 0x10,
    ACL_APPEND_DATA = 0x20,
    ACL_ADD_SUBDIRECTORY = 0x20,
    ACL_DELETE_CHILD = 0x40,
    ACL_READ_ATTRIBUTES = 0x80,
    ACL_WRITE_ATTRIBUTES = 0x100,
    ACL_READ_EXTATTRIBUTES = 0x200,
    ACL_WRITE_EXTATTRIBUTES = 0x400,
    ACL_READ_SECURITY = 0x800,
    ACL_WRITE_SECURITY = 0x1000,
    ACL_CHANGE_OWNER = 0x2000
};

/// Inheritance flags. Their values overlap those of the permissions: which is meant follows from
/// the table (or the group of the tree) that has the value.
enum {
    ACL_ENTRY_INHERITED = 0x10,
    ACL_ENTRY_FILE_INHERIT = 0x20,
    ACL_ENTRY_DIRECTORY_INHERIT = 0x40,
    ACL_ENTRY_LIMIT_INHERIT = 0x80,
    ACL_ENTRY_ONLY_INHERIT = 0x100
};

/// The bits of acl_perm_entry.kinds.
enum { ACL_KIND_FOLDERS = 1, ACL_KIND_FILES = 2 };

/// How many groups of permissions acl_perms has, without the row that ends it.
enum { ACL_PERM_GROUPS = 3 };

/// One row of a table: a permission or an inheritance flag.
typedef struct acl_perm_entry {
    const char* name;
    /// The permission bit; in acl_flags the inheritance flag.
    uint32_t perm;
    /// For which items the row is shown: 1 folders, 2 files, 3 both. 0 throughout acl_flags.
    uint32_t kinds;
} acl_perm_entry;

/// A group of permissions, shown together.
typedef struct acl_perm_group {
    const char* name;
    const acl_perm_entry* perms;
} acl_perm_group;

extern MORVANE_EXPORT const acl_perm_entry acl_read_perms[8];
extern MORVANE_EXPORT const acl_perm_entry acl_write_perms[9];
extern MORVANE_EXPORT const acl_perm_entry acl_admin_perms[3];
/// "Read", "Write", "Administration".
extern MORVANE_EXPORT const acl_perm_group acl_perms[ACL_PERM_GROUPS + 1];
/// "This item" and "All descendants" have the opposite sense of their flags (ONLY, LIMIT).
extern MORVANE_EXPORT const acl_perm_entry acl_flags[5];

#ifdef __cplusplus
}  // extern "C"
}  // namespace morvane
#endif

#endif
