// SPDX-License-Identifier: MIT
#include <MorvaneOperation/qt/MorvaneAclBoxModel.h>

#include <random>

#include "ModelMirror.h"
#include "QtTestSupport.h"

/// The check boxes of one entry as a tree.
namespace morvane {
namespace {

class QtAclBoxModel : public testing::Test {
  protected:
    /// Shows the entry of user daemon that is added to such a list.
    void showNewEntry(MVAclStorage storage, bool isFolder) {
        model->setAcl(listOf(storage, isFolder));
        row = model->addEntry(MorvaneIdentity::user("daemon"));
        boxes.setEntry(model.get(), row);
        mirror.compare("setEntry");
    }
    /// The index of a group, or of a box of one.
    QModelIndex at(int group, int box = -1) const {
        const auto top = boxes.index(group, 0);
        return box < 0 ? top : boxes.index(box, 0, top);
    }
    QModelIndex named(const QString& name) const {
        for (int group = 0; group != boxes.rowCount(); ++group) {
            for (int box = -1; box != boxes.rowCount(at(group)); ++box) {
                if (at(group, box).data() == name)
                    return at(group, box);
            }
        }
        ADD_FAILURE() << "no box " << name.toStdString();
        return {};
    }
    bool set(const QModelIndex& index, Qt::CheckState state) {
        const bool done = boxes.setData(index, state, Qt::CheckStateRole);
        mirror.compare("setData");
        return done;
    }
    static QVariant stateOf(const QModelIndex& index) { return index.data(Qt::CheckStateRole); }
    static bool isEnabled(const QModelIndex& index) {
        return (index.flags() & Qt::ItemIsEnabled) != 0;
    }

    std::unique_ptr<MorvaneAclModel> model = std::make_unique<MorvaneAclModel>();
    MorvaneAclBoxModel boxes;
    ModelMirror mirror{boxes};
    int row = -1;
};

TEST_F(QtAclBoxModel, IsATreeOfGroupsAndBoxes) {
    showNewEntry(MVAclStorage::posix, true);
    ASSERT_EQ(boxes.rowCount(), 4);
    EXPECT_EQ(at(0).data(), "Read");
    EXPECT_EQ(at(3).data(), "Applies To");
    EXPECT_EQ(boxes.rowCount(at(3)), 4);
    EXPECT_EQ(boxes.rowCount(at(3, 0)), 0);
    EXPECT_EQ(at(3, 1).parent(), at(3));
    EXPECT_EQ(at(3, 0).data(), "This item");
    EXPECT_EQ(boxes.entryRow(), row);
}

TEST_F(QtAclBoxModel, AClickOnABoxChangesItsGroupAndTheTableAndOneOnAGroupItsBoxes) {
    showNewEntry(MVAclStorage::nfs4, false);
    ModelMirror table(*model);
    EXPECT_EQ(stateOf(at(0)), Qt::Checked);
    EXPECT_TRUE(set(at(0, 0), Qt::Unchecked));
    EXPECT_EQ(stateOf(at(0)), Qt::PartiallyChecked);
    table.compare("a click");
    EXPECT_TRUE(set(at(0), Qt::Unchecked));
    for (int box = 0; box != boxes.rowCount(at(0)); ++box)
        EXPECT_EQ(stateOf(at(0, box)), Qt::Unchecked);
    EXPECT_FALSE(set(at(0), Qt::PartiallyChecked));
    EXPECT_FALSE(boxes.setData(at(0), Qt::Checked, Qt::EditRole));
    EXPECT_EQ(model->index(row, MorvaneAclModel::PermissionsColumn).data(), "Write");
    table.compare("a click on a group");
    const int before = mirror.changes();
    EXPECT_TRUE(model->setData(model->index(row, MorvaneAclModel::PermissionsColumn),
                               qint64{MVAclGroupRead}));
    mirror.compare("a choice in the table");
    EXPECT_GT(mirror.changes(), before);
    EXPECT_EQ(stateOf(at(0)), Qt::Checked);
}

TEST_F(QtAclBoxModel, WhatTheListCannotHoldIsNotEnabledAndSaysWhy) {
    showNewEntry(MVAclStorage::posix, false);
    const auto owner = named("Change Owner");
    EXPECT_FALSE(isEnabled(owner));
    EXPECT_NE(owner.data(Qt::ToolTipRole), "");
    EXPECT_FALSE(set(owner, Qt::Checked));
    EXPECT_EQ(stateOf(owner), Qt::Unchecked);
    const auto read = named("Read Data");
    EXPECT_TRUE(isEnabled(read));
    EXPECT_EQ(read.data(Qt::ToolTipRole), "");
    EXPECT_TRUE(set(read, Qt::Unchecked));
    EXPECT_TRUE(set(read, Qt::Checked));
}

TEST_F(QtAclBoxModel, WhatIsOnAndCannotBeHeldMayBeSwitchedOff) {
    showNewEntry(MVAclStorage::posix, false);
    model->entry(row)->setPermissionGroup(MVAclGroupAll);
    mirror.compare("the program itself");
    const auto owner = named("Change Owner");
    EXPECT_TRUE(isEnabled(owner));
    EXPECT_TRUE(set(owner, Qt::Unchecked));
    EXPECT_FALSE(isEnabled(owner));
}

TEST_F(QtAclBoxModel, AnInheritedEntryHasNoBoxThatIsEnabled) {
    showNewEntry(MVAclStorage::nfs4, true);
    EXPECT_TRUE(model->setData(model->index(row, MorvaneAclModel::InheritedColumn), Qt::Checked,
                               Qt::CheckStateRole));
    mirror.compare("inherited");
    EXPECT_FALSE(isEnabled(at(0, 0)));
    EXPECT_NE(at(0, 0).data(Qt::ToolTipRole), "");
    EXPECT_FALSE(set(at(0, 0), Qt::Unchecked));
}

TEST_F(QtAclBoxModel, FollowsAnEntryThatIsForSomebodyElseOrHasAnotherTree) {
    showNewEntry(MVAclStorage::posix, false);
    EXPECT_TRUE(model->setData(model->index(row, MorvaneAclModel::WhoColumn),
                               QVariant::fromValue(MorvaneIdentity::everyone())));
    mirror.compare("somebody else");
    model->entry(row)->setPermissions(MVAclEntry::newEntryForDirectory(true)->permissions());
    mirror.compare("another tree");
    EXPECT_EQ(boxes.rowCount(), 4);
}

TEST_F(QtAclBoxModel, IsEmptyWhenTheEntryHasGone) {
    showNewEntry(MVAclStorage::posix, false);
    ASSERT_TRUE(model->removeRows(1, 1));
    EXPECT_EQ(boxes.entryRow(), row - 1) << "another row has gone";
    EXPECT_EQ(boxes.rowCount(), 3);
    ASSERT_TRUE(model->removeRows(row - 1, 1));
    EXPECT_EQ(boxes.rowCount(), 0);
    showNewEntry(MVAclStorage::posix, false);
    model->setAcl(listOf(MVAclStorage::posix, false));
    EXPECT_EQ(boxes.rowCount(), 0);
    boxes.setEntry(model.get(), 0);
    EXPECT_EQ(boxes.rowCount(), 3);
    model.reset();
    EXPECT_EQ(boxes.rowCount(), 0);
    EXPECT_EQ(boxes.entryRow(), -1);
    mirror.compare("the model has gone");
}

TEST_F(QtAclBoxModel, BoxesOfNoEntryAreShownAndCannotBeChanged) {
    showNewEntry(MVAclStorage::posix, false);
    boxes.setNodes(MVAclEntry::newEntryForDirectory(false)->permissions());
    mirror.compare("setNodes");
    EXPECT_EQ(boxes.rowCount(), 3);
    EXPECT_EQ(stateOf(at(0)), Qt::Checked);
    EXPECT_FALSE(at(0).flags() & Qt::ItemIsUserCheckable);
    EXPECT_FALSE(set(at(0), Qt::Unchecked));
    ASSERT_TRUE(model->removeRows(row, 1));
    EXPECT_EQ(boxes.rowCount(), 3);
}

TEST_F(QtAclBoxModel, EveryBoxThatAClickChangesIsTold) {
    std::mt19937 random(17);
    const auto upTo = [&](int last) { return std::uniform_int_distribution(0, last)(random); };
    for (const auto storage : {MVAclStorage::posix, MVAclStorage::nfs4}) {
        for (const bool isFolder : {false, true}) {
            showNewEntry(storage, isFolder);
            for (int click = 0; click != 200 && !HasFailure(); ++click) {
                const int group = upTo(boxes.rowCount() - 1);
                set(at(group, upTo(boxes.rowCount(at(group))) - 1),
                    upTo(1) ? Qt::Checked : Qt::Unchecked);
            }
        }
    }
    EXPECT_GT(mirror.changes(), 400);
}

}  // namespace
}  // namespace morvane
