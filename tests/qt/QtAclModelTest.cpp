// SPDX-License-Identifier: MIT
#include <MorvaneOperation/EntryTexts.h>

#include <algorithm>
#include <random>

#include "ModelMirror.h"
#include "QtTestSupport.h"

/// The entries of a list as a table.
namespace morvane {
namespace {

using Model = MorvaneAclModel;

class QtAclModel : public testing::Test {
  protected:
    void show(MVAclStorage storage, bool isFolder) {
        model.setAcl(listOf(storage, isFolder));
        mirror.compare("setAcl");
    }
    QModelIndex at(int row, int column) const { return model.index(row, column); }
    std::string text(int row, int column) const {
        return at(row, column).data().toString().toStdString();
    }
    QList<MorvaneChoice> menu(int row, int column) const {
        return at(row, column).data(Model::ChoicesRole).value<QList<MorvaneChoice>>();
    }
    MorvaneChoice choice(int row, int column, const QString& text) const {
        for (const auto& each : menu(row, column)) {
            if (each.text == text)
                return each;
        }
        ADD_FAILURE() << "no choice " << text.toStdString();
        return {};
    }
    bool set(int row, int column, const QVariant& value, int role = Qt::EditRole) {
        const bool done = model.setData(at(row, column), value, role);
        mirror.compare("setData");
        return done;
    }
    bool isEditable(int row, int column) const {
        return (at(row, column).flags() & Qt::ItemIsEditable) != 0;
    }

    Model model;
    ModelMirror mirror{model};
};

TEST_F(QtAclModel, ShowsWhoTheRuleThePermissionsWhatAnEntryAppliesToAndWhetherItIsInherited) {
    show(MVAclStorage::posix, false);
    ASSERT_EQ(model.rowCount(), 4);
    ASSERT_EQ(model.columnCount(), 5);
    EXPECT_EQ(text(0, Model::WhoColumn), "uid 3000001 (owner)");
    EXPECT_EQ(text(1, Model::WhoColumn), "uid 4000001");
    EXPECT_EQ(text(3, Model::WhoColumn), "everyone");
    EXPECT_EQ(text(0, Model::RuleColumn), "Allow");
    EXPECT_EQ(text(0, Model::PermissionsColumn), "Read and Write");
    EXPECT_EQ(at(0, Model::PermissionsColumn).data(Qt::ToolTipRole), "rw-");
    EXPECT_EQ(text(3, Model::PermissionsColumn), "None");
    EXPECT_EQ(text(0, Model::AppliesToColumn), "This item");
    EXPECT_EQ(text(0, Model::InheritedColumn), "");
    EXPECT_FALSE(at(0, Model::InheritedColumn).data(Qt::CheckStateRole).isValid());
    EXPECT_EQ(at(1, Model::WhoColumn).data(Model::SubjectRole),
              static_cast<int>(EntrySubject::user));
    const QStringList titles{"Who", "Rule", "Permissions", "Applies to", "Inherited"};
    for (int column = 0; column != Model::columns; ++column)
        EXPECT_EQ(model.headerData(column, Qt::Horizontal), titles[column]);
    EXPECT_EQ(model.roleNames()[Model::ChoicesRole], "choices");
}

TEST_F(QtAclModel, AMenuHasWhatTheListCannotHoldWithTheReasonAndDoesNotTakeIt) {
    show(MVAclStorage::posix, false);
    const auto all = choice(1, Model::PermissionsColumn, "All");
    EXPECT_FALSE(all.isPossible());
    EXPECT_NE(all.whyNot, "");
    EXPECT_FALSE(set(1, Model::PermissionsColumn, all.code));
    EXPECT_EQ(text(1, Model::PermissionsColumn), "Custom (part of Read)");
    const auto both = choice(1, Model::PermissionsColumn, "Read and Write");
    EXPECT_TRUE(both.isPossible());
    EXPECT_TRUE(set(1, Model::PermissionsColumn, both.code));
    EXPECT_EQ(text(1, Model::PermissionsColumn), "Read and Write");
    EXPECT_FALSE(set(1, Model::PermissionsColumn, 4711)) << "no such choice";
    EXPECT_FALSE(set(1, Model::PermissionsColumn, QString("Read"))) << "a text is no code";
    EXPECT_FALSE(isEditable(3, Model::RuleColumn)) << "everyone's entry only allows";
    EXPECT_FALSE(set(3, Model::RuleColumn, MVAclTagDeny));
}

TEST_F(QtAclModel, TheEntriesOfTheBaseStayAndAreForWhomTheyAre) {
    show(MVAclStorage::posix, true);
    EXPECT_FALSE(isEditable(0, Model::WhoColumn));
    EXPECT_FALSE(set(0, Model::WhoColumn, QVariant::fromValue(MorvaneIdentity::user("daemon"))));
    EXPECT_FALSE(model.removeRows(0, 2));
    EXPECT_NE(model.whyNotRemoved(0), "");
    EXPECT_EQ(model.whyNotRemoved(1), "");
    EXPECT_TRUE(model.removeRows(1, 1));
    mirror.compare("removeRows");
    EXPECT_EQ(model.rowCount(), 3);
    EXPECT_FALSE(model.removeRows(2, 2));
    EXPECT_FALSE(model.removeRows(-1, 1));
}

TEST_F(QtAclModel, AnEntryIsAddedForSomebodyAndMadeForSomebodyElse) {
    EXPECT_EQ(model.addEntry(MorvaneIdentity::user("daemon")), -1) << "there is no list yet";
    EXPECT_FALSE(model.acl().url.isFileURL()) << "of no item";
    model.setEntries({MVAclEntry::newEntryForDirectory(true)});
    EXPECT_EQ(model.rowCount(), 0);
    show(MVAclStorage::posix, true);
    EXPECT_EQ(model.addEntry({}), -1);
    EXPECT_EQ(model.addEntry(MorvaneIdentity::user("daemon")), 4);
    mirror.compare("addEntry");
    EXPECT_EQ(text(4, Model::WhoColumn), "user daemon");
    EXPECT_EQ(model.entry(4)->permissions().size(), 4u) << "of a folder";
    EXPECT_TRUE(set(4, Model::WhoColumn, QVariant::fromValue(MorvaneIdentity::group("daemon"))));
    EXPECT_EQ(text(4, Model::WhoColumn), "group daemon");
    EXPECT_EQ(at(4, Model::WhoColumn).data(Qt::EditRole).value<MorvaneIdentity>(),
              MorvaneIdentity::group("daemon"));
    EXPECT_FALSE(set(4, Model::WhoColumn, QVariant::fromValue(MorvaneIdentity())));
    EXPECT_TRUE(model.insertRows(5, 2));
    mirror.compare("insertRows");
    EXPECT_FALSE(model.insertRows(0, 1)) << "only the end has room";
    EXPECT_EQ(model.rowCount(), 7);
    const auto some = choice(4, Model::AppliesToColumn, "This item, Child folders");
    EXPECT_NE(some.whyNot, "");
    EXPECT_FALSE(set(4, Model::AppliesToColumn, some.code));
    const auto everything =
        choice(4, Model::AppliesToColumn, "This item, Child files, Child folders, All descendants");
    EXPECT_TRUE(set(4, Model::AppliesToColumn, everything.code));
    EXPECT_EQ(text(4, Model::AppliesToColumn), everything.text.toStdString());
}

TEST_F(QtAclModel, AListWithANullEntryIsWarnedOfAndNotShown) {
    show(MVAclStorage::posix, true);
    auto acl = listOf(MVAclStorage::posix, true);
    acl.entries.push_back(nullptr);
    static QString warning;
    const auto former = qInstallMessageHandler(
        [](QtMsgType, const QMessageLogContext&, const QString& text) { warning = text; });
    model.setAcl(acl);
    qInstallMessageHandler(former);
    EXPECT_EQ(warning, "MorvaneAclModel: an entry of the list is null.");
    mirror.compare("setAcl");
    EXPECT_EQ(model.rowCount(), 0);
    EXPECT_FALSE(model.acl().url.isFileURL());
}

TEST_F(QtAclModel, AnInheritedEntryIsMadeTheItemsOwnBeforeItIsChanged) {
    show(MVAclStorage::nfs4, true);
    ASSERT_EQ(model.rowCount(), 3);
    EXPECT_EQ(at(1, Model::InheritedColumn).data(Qt::CheckStateRole), Qt::Unchecked);
    EXPECT_EQ(at(2, Model::InheritedColumn).data(Qt::CheckStateRole), Qt::Checked);
    for (int column = 0; column != Model::InheritedColumn; ++column) {
        EXPECT_FALSE(isEditable(2, column));
        EXPECT_NE(at(2, column).data(Qt::ToolTipRole).toString(), "");
    }
    EXPECT_FALSE(set(2, Model::RuleColumn, MVAclTagDeny));
    EXPECT_FALSE(set(2, Model::InheritedColumn, false));
    EXPECT_TRUE(set(2, Model::InheritedColumn, Qt::Unchecked, Qt::CheckStateRole));
    EXPECT_TRUE(isEditable(2, Model::RuleColumn));
    EXPECT_TRUE(set(2, Model::RuleColumn, MVAclTagDeny));
    EXPECT_EQ(text(2, Model::RuleColumn), "Deny");
}

TEST_F(QtAclModel, AnEntryThatCameToDenyCountsFirstAndOneThatCameToAllowLast) {
    show(MVAclStorage::nfs4, false);
    const auto entries = model.acl().entries;
    EXPECT_TRUE(set(1, Model::RuleColumn, MVAclTagDeny));
    EXPECT_TRUE(set(0, Model::RuleColumn, MVAclTagAllow));
    const int added = model.addEntry(MorvaneIdentity::user("daemon"));
    EXPECT_TRUE(set(added, Model::RuleColumn, MVAclTagDeny));
    const auto acl = model.acl();
    EXPECT_EQ(acl.entries,
              (MVFileAcl::Entries{entries[1], model.entry(added), entries[2], entries[0]}));
    EXPECT_TRUE(acl.origin);
    EXPECT_TRUE(acl.list);
    model.setEntries(acl.entries);
    mirror.compare("setEntries");
    EXPECT_EQ(model.acl().entries, acl.entries) << "in their own order";
}

TEST_F(QtAclModel, AFileThatNobodyExecutesIsMadeExecutableByItsBoxAlone) {
    show(MVAclStorage::posix, false);
    const int row = model.addEntry(MorvaneIdentity::user("daemon"));
    const auto entry = model.entry(row);
    entry->setPermissionGroup(MVAclGroupRead);
    EXPECT_EQ(model.acl().entries.back(), entry);
    const auto& box = boxNamed(*entry, "Execute File");
    EXPECT_TRUE(model.setBox(row, box, false));
    EXPECT_TRUE(model.setBox(row, box, true));
    EXPECT_EQ(text(row, Model::PermissionsColumn), "Read");
    const auto asking = model.acl().entries.back();
    ASSERT_NE(asking, entry);
    EXPECT_EQ(MVTreeNode::stateOf(boxNamed(*asking, "Read Attributes")), MVStateOff);
    EXPECT_EQ(MVTreeNode::stateOf(boxNamed(*asking, "Execute File")), MVStateOn);
    EXPECT_TRUE(set(row, Model::PermissionsColumn, qint64{MVAclGroupReadWrite}));
    EXPECT_EQ(model.acl().entries.back(), entry) << "chosen from the menu";
}

/// Which kind of list, and whether of a folder.
using List = std::pair<MVAclStorage, bool>;
class QtAclModelEdits : public QtAclModel, public testing::WithParamInterface<List> {};

TEST_P(QtAclModelEdits, EveryChangeIsTold) {
    show(GetParam().first, GetParam().second);
    std::mt19937 random(17);
    const auto upTo = [&](int last) { return std::uniform_int_distribution(0, last)(random); };
    const QList<MorvaneIdentity> people{
        MorvaneIdentity::user("root"), MorvaneIdentity::group("daemon"),
        MorvaneIdentity::everyone(), MorvaneIdentity::creator(), MorvaneIdentity()};
    for (int edit = 0; edit != 400; ++edit) {
        const int row = upTo(model.rowCount());  // one past the end as well
        const auto entry = model.entry(row);
        const int kind = upTo(9);
        switch (kind) {
            case 0:
                if (model.rowCount() < 12)
                    model.addEntry(people[upTo(4)]);
                break;
            case 1:
                model.removeRows(row, 1);
                break;
            case 2:
                model.setData(at(row, Model::WhoColumn), QVariant::fromValue(people[upTo(4)]));
                break;
            case 3:
                model.setData(at(row, Model::InheritedColumn),
                              upTo(1) ? Qt::Checked : Qt::Unchecked, Qt::CheckStateRole);
                break;
            case 4:
            case 5:
            case 6: {
                const int column = kind - 4 + Model::RuleColumn;
                const auto choices = menu(row, column);
                if (!choices.empty())
                    model.setData(at(row, column),
                                  choices[upTo(static_cast<int>(choices.size()) - 1)].code);
                break;
            }
            case 7:
                // By the program itself, which may do what a click may not.
                if (entry)
                    entry->setInherited(!entry->inherited());
                break;
            default:
                if (entry) {
                    const auto& groups = entry->permissions();
                    const NSTreeNode& group = *groups[upTo(static_cast<int>(groups.size()) - 1)];
                    const auto& boxes = group.childNodes();
                    const int box = upTo(static_cast<int>(boxes.size()));
                    model.setBox(row, box == 0 ? group : *boxes[box - 1], upTo(1));
                }
        }
        ASSERT_NO_FATAL_FAILURE(
            mirror.compare("edit " + std::to_string(edit) + " of kind " + std::to_string(kind)));
        if (HasFailure())
            break;
    }
    EXPECT_GT(mirror.changes(), 100);
}

INSTANTIATE_TEST_SUITE_P(OfEveryList, QtAclModelEdits,
                         testing::Values(List(MVAclStorage::posix, false),
                                         List(MVAclStorage::posix, true),
                                         List(MVAclStorage::nfs4, false),
                                         List(MVAclStorage::nfs4, true)));

}  // namespace
}  // namespace morvane
