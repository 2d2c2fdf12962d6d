// SPDX-License-Identifier: MIT
#include <morvane/morvane-base.h>

G_DEFINE_ENUM_TYPE(MorvaneState, morvane_state, G_DEFINE_ENUM_VALUE(MORVANE_STATE_MIXED, "mixed"),
                   G_DEFINE_ENUM_VALUE(MORVANE_STATE_OFF, "off"),
                   G_DEFINE_ENUM_VALUE(MORVANE_STATE_ON, "on"))
G_DEFINE_ENUM_TYPE(MorvaneRule, morvane_rule, G_DEFINE_ENUM_VALUE(MORVANE_RULE_ALLOW, "allow"),
                   G_DEFINE_ENUM_VALUE(MORVANE_RULE_DENY, "deny"))
G_DEFINE_ENUM_TYPE(MorvanePermissionGroup, morvane_permission_group,
                   G_DEFINE_ENUM_VALUE(MORVANE_PERMISSION_GROUP_ALL, "all"),
                   G_DEFINE_ENUM_VALUE(MORVANE_PERMISSION_GROUP_READ_WRITE, "read-write"),
                   G_DEFINE_ENUM_VALUE(MORVANE_PERMISSION_GROUP_READ, "read"),
                   G_DEFINE_ENUM_VALUE(MORVANE_PERMISSION_GROUP_WRITE, "write"),
                   G_DEFINE_ENUM_VALUE(MORVANE_PERMISSION_GROUP_NONE, "none"),
                   G_DEFINE_ENUM_VALUE(MORVANE_PERMISSION_GROUP_CUSTOM, "custom"))
G_DEFINE_ENUM_TYPE(MorvaneSubject, morvane_subject,
                   G_DEFINE_ENUM_VALUE(MORVANE_SUBJECT_USER, "user"),
                   G_DEFINE_ENUM_VALUE(MORVANE_SUBJECT_GROUP, "group"),
                   G_DEFINE_ENUM_VALUE(MORVANE_SUBJECT_OWNER, "owner"),
                   G_DEFINE_ENUM_VALUE(MORVANE_SUBJECT_OWNING_GROUP, "owning-group"),
                   G_DEFINE_ENUM_VALUE(MORVANE_SUBJECT_CREATOR, "creator"),
                   G_DEFINE_ENUM_VALUE(MORVANE_SUBJECT_CREATOR_GROUP, "creator-group"),
                   G_DEFINE_ENUM_VALUE(MORVANE_SUBJECT_EVERYONE, "everyone"),
                   G_DEFINE_ENUM_VALUE(MORVANE_SUBJECT_NOBODY, "nobody"))
G_DEFINE_ENUM_TYPE(MorvanePrivilege, morvane_privilege,
                   G_DEFINE_ENUM_VALUE(MORVANE_PRIVILEGE_NEVER, "never"),
                   G_DEFINE_ENUM_VALUE(MORVANE_PRIVILEGE_ALWAYS, "always"),
                   G_DEFINE_ENUM_VALUE(MORVANE_PRIVILEGE_WHEN_REFUSED, "when-refused"))
G_DEFINE_ENUM_TYPE(MorvaneError, morvane_error, G_DEFINE_ENUM_VALUE(MORVANE_ERROR_FAILED, "failed"),
                   G_DEFINE_ENUM_VALUE(MORVANE_ERROR_DENIED, "denied"),
                   G_DEFINE_ENUM_VALUE(MORVANE_ERROR_DISMISSED, "dismissed"),
                   G_DEFINE_ENUM_VALUE(MORVANE_ERROR_NOBODY_TO_ASK, "nobody-to-ask"),
                   G_DEFINE_ENUM_VALUE(MORVANE_ERROR_CHANGED, "changed"),
                   G_DEFINE_ENUM_VALUE(MORVANE_ERROR_LOSSES, "losses"),
                   G_DEFINE_ENUM_VALUE(MORVANE_ERROR_SERVICE, "service"))

// clang-format off
G_DEFINE_QUARK(morvane-error-quark, morvane_error)
// clang-format on
