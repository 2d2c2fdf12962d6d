// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/ItemList.h>
#include <MorvaneOperation/platform/foundation/Phrase.h>

#include <QList>

#include "MorvaneChoice.h"

/// What stands in the columns of a MorvaneAclModel, which are numbered by its Column.

/// Returns nothing for a number that is no column.
morvane::Phrase titleOf(int column);
morvane::Phrase textOf(int column, const morvane::MVAclEntry& entry);

bool isMenu(int column);
/// The code that the entry has in a column that is a menu.
qint64 codeOf(int column, const morvane::MVAclEntry& entry);
/// The choices of such a column; `list` is what the item's list can hold, or null.
QList<MorvaneChoice> choicesOf(int column, const morvane::MVAclEntry& entry,
                               const morvane::ItemList* list);
