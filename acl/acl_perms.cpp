// SPDX-License-Identifier: MIT
#include <MorvaneOperation/acl_perms.h>
#include <MorvaneOperation/platform/foundation/Phrase.h>

namespace morvane {
extern "C" {

// A row for folders that has a counterpart for files is at the same position among the rows of its
// kind, because the conversion of an inherited entry renames by position.

const acl_perm_entry acl_read_perms[8] = {
    {translatable("ACL", "Read Data"), ACL_READ_DATA, 2},
    {translatable("ACL", "List Folder Contents"), ACL_LIST_DIRECTORY, 1},
    {translatable("ACL", "Execute File"), ACL_SEARCH, 2},
    {translatable("ACL", "Traverse Folder"), ACL_SEARCH, 1},
    {translatable("ACL", "Read Attributes"), ACL_READ_ATTRIBUTES, 3},
    {translatable("ACL", "Read Extended Attributes"), ACL_READ_EXTATTRIBUTES, 3},
    {translatable("ACL", "Read Permissions"), ACL_READ_SECURITY, 3},
    {nullptr, ACL_READ_DATA, 0},
};

const acl_perm_entry acl_write_perms[9] = {
    {translatable("ACL", "Write Data"), ACL_WRITE_DATA, 2},
    {translatable("ACL", "Create Files"), ACL_ADD_FILE, 1},
    {translatable("ACL", "Append Data"), ACL_APPEND_DATA, 2},
    {translatable("ACL", "Create Folder"), ACL_ADD_SUBDIRECTORY, 1},
    {translatable("ACL", "Delete"), ACL_DELETE, 3},
    {translatable("ACL", "Delete Subfolders and Files"), ACL_DELETE_CHILD, 1},
    {translatable("ACL", "Write Attributes"), ACL_WRITE_ATTRIBUTES, 3},
    {translatable("ACL", "Write Extended Attributes"), ACL_WRITE_EXTATTRIBUTES, 3},
    {nullptr, ACL_WRITE_DATA, 0},
};

const acl_perm_entry acl_admin_perms[3] = {
    {translatable("ACL", "Change Permissions"), ACL_WRITE_SECURITY, 3},
    {translatable("ACL", "Change Owner"), ACL_CHANGE_OWNER, 3},
    {nullptr, ACL_WRITE_SECURITY, 0},
};

const acl_perm_group acl_perms[ACL_PERM_GROUPS + 1] = {
    {translatable("ACL", "Read"), acl_read_perms},
    {translatable("ACL", "Write"), acl_write_perms},
    {translatable("ACL", "Administration"), acl_admin_perms},
    {nullptr, nullptr},
};

const acl_perm_entry acl_flags[5] = {
    {translatable("ACL", "This item"), ACL_ENTRY_ONLY_INHERIT, 0},
    {translatable("ACL", "Child files"), ACL_ENTRY_FILE_INHERIT, 0},
    {translatable("ACL", "Child folders"), ACL_ENTRY_DIRECTORY_INHERIT, 0},
    {translatable("ACL", "All descendants"), ACL_ENTRY_LIMIT_INHERIT, 0},
    {nullptr, ACL_ENTRY_ONLY_INHERIT, 0},
};

}  // extern "C"
}  // namespace morvane
