// SPDX-License-Identifier: MIT
#include "AclColumns.h"

#include <MorvaneOperation/EntryTexts.h>

#include "MorvaneAclModel.h"
#include "QtTexts.h"

using namespace morvane;

Phrase titleOf(int column) {
    switch (column) {
        case MorvaneAclModel::WhoColumn:
            return phrase("Who");
        case MorvaneAclModel::RuleColumn:
            return phrase("Rule");
        case MorvaneAclModel::PermissionsColumn:
            return phrase("Permissions");
        case MorvaneAclModel::AppliesToColumn:
            return phrase("Applies to");
        case MorvaneAclModel::InheritedColumn:
            return phrase("Inherited");
        default:
            return {};
    }
}

qint64 codeOf(int column, const MVAclEntry& entry) {
    switch (column) {
        case MorvaneAclModel::RuleColumn:
            return entry.tag();
        case MorvaneAclModel::PermissionsColumn:
            return entry.permissionGroup();
        default:
            return appliesToCode(entry);
    }
}

Phrase textOf(int column, const MVAclEntry& entry) {
    switch (column) {
        case MorvaneAclModel::WhoColumn:
            return whoText(entry);
        case MorvaneAclModel::RuleColumn:
            return ruleText(entry.tag());
        case MorvaneAclModel::PermissionsColumn:
            return permissionsText(entry);
        case MorvaneAclModel::AppliesToColumn:
            return appliesToText(entry);
        default:
            return inheritedText(entry);
    }
}

bool isMenu(int column) {
    return column == MorvaneAclModel::RuleColumn || column == MorvaneAclModel::PermissionsColumn ||
           column == MorvaneAclModel::AppliesToColumn;
}

QList<MorvaneChoice> choicesOf(int column, const MVAclEntry& entry, const ItemList* list) {
    const auto of = [&] {
        switch (column) {
            case MorvaneAclModel::RuleColumn:
                return ruleChoices(entry, list);
            case MorvaneAclModel::PermissionsColumn:
                return permissionChoices(entry, list);
            default:
                return appliesToChoices(entry, list);
        }
    };
    QList<MorvaneChoice> menu;
    for (const auto& choice : of())
        menu << MorvaneChoice{shown(choice.name), choice.code, shown(choice.whyNot)};
    return menu;
}
