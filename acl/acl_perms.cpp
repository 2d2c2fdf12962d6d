// SPDX-License-Identifier: MIT
#include <MorvaneOperation/acl_perms.h>

namespace morvane {
extern "C" {

// A row for folders that has a counterpart for files is at the same position among the rows of its
// kind, because the conversion of an inherited entry renames by position.

const acl_perm_entry acl_read_perms[8] = {
    {"Read Data", ACL_READ_DATA, 2},
    {"List Folder Contents", ACL_LIST_DIRECTORY, 1},
    {"Execute File", ACL_SEARCH, 2},
    {"Traverse Folder", ACL_SEARCH, 1},
    {"Read Attributes", ACL_READ_ATTRIBUTES, 3},
    {"Read Extended Attributes", ACL_READ_EXTATTRIBUTES, 3},
    {"Read Permissions", ACL_READ_SECURITY, 3},
    {nullptr, ACL_READ_DATA, 0},
};

const acl_perm_entry acl_write_perms[9] = {
    {"Write Data", ACL_WRITE_DATA, 2},
    {"Create Files", ACL_ADD_FILE, 1},
    {"Append Data", ACL_APPEND_DATA, 2},
    {"Create Folder", ACL_ADD_SUBDIRECTORY, 1},
    {"Delete", ACL_DELETE, 3},
    {"Delete Subfolders and Files", ACL_DELETE_CHILD, 1},
    {"Write Attributes", ACL_WRITE_ATTRIBUTES, 3},
    {"Write Extended Attributes", ACL_WRITE_EXTATTRIBUTES, 3},
    {nullptr, ACL_WRITE_DATA, 0},
};

const acl_perm_entry acl_admin_perms[3] = {
    {"Change Permissions", ACL_WRITE_SECURITY, 3},
    {"Change Owner", ACL_CHANGE_OWNER, 3},
    {nullptr, ACL_WRITE_SECURITY, 0},
};

const acl_perm_group acl_perms[ACL_PERM_GROUPS + 1] = {
    {"Read", acl_read_perms},
    {"Write", acl_write_perms},
    {"Administration", acl_admin_perms},
    {nullptr, nullptr},
};

const acl_perm_entry acl_flags[5] = {
    {"This item", ACL_ENTRY_ONLY_INHERIT, 0},
    {"Child files", ACL_ENTRY_FILE_INHERIT, 0},
    {"Child folders", ACL_ENTRY_DIRECTORY_INHERIT, 0},
    {"All descendants", ACL_ENTRY_LIMIT_INHERIT, 0},
    {nullptr, ACL_ENTRY_ONLY_INHERIT, 0},
};

}  // extern "C"
}  // namespace morvane
