// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVAclEditor.h>
#include <MorvaneOperation/acl_perms.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <utility>

/// What a user makes of a list, and what is written of it.
namespace morvane {
namespace {

class AclEditor : public testing::Test {
  protected:
    /// Three entries that allow, as of a list that holds everything.
    static MVFileAcl threeEntries() {
        MVFileAcl acl{.url = NSURL::fileURLWithPath("/folder"), .entries = {}};
        for (int i = 0; i != 3; ++i)
            acl.entries.push_back(MVAclEntry::newEntryForDirectory(true));
        return acl;
    }

    const MVFileAcl acl_ = threeEntries();
    const MVAclEditor::Entries& read_ = acl_.entries;
    const std::shared_ptr<MVAclEditor> editor_ = MVAclEditor::init(acl_);
};

TEST_F(AclEditor, WhatIsNotEditedIsWrittenAsItWasRead) {
    EXPECT_EQ(editor_->acl().entries, read_);
    EXPECT_FALSE(editor_->isModified());
}

TEST_F(AclEditor, AnEntryThatIsADenialNowComesFirst) {
    ASSERT_TRUE(editor_->setRule(read_[1], MVAclTagDeny));
    EXPECT_EQ(editor_->entries(), read_);
    EXPECT_EQ(editor_->acl().entries, (MVAclEditor::Entries{read_[1], read_[0], read_[2]}));
}

TEST_F(AclEditor, ANewEntryThatAllowsComesLastAndOneThatDeniesFirst) {
    const auto allowing = editor_->add(nullptr);
    const auto denying = editor_->add(nullptr);
    ASSERT_TRUE(editor_->setRule(denying, MVAclTagDeny));
    EXPECT_EQ(editor_->entries().back(), denying);
    EXPECT_EQ(editor_->acl().entries,
              (MVAclEditor::Entries{denying, read_[0], read_[1], read_[2], allowing}));
}

TEST_F(AclEditor, ARemovedEntryIsNotWritten) {
    ASSERT_TRUE(editor_->remove(read_[0]));
    EXPECT_FALSE(editor_->remove(read_[0]));
    EXPECT_EQ(editor_->acl().entries, (MVAclEditor::Entries{read_[1], read_[2]}));
}

TEST_F(AclEditor, ARemovedEntryThatIsShownAgainCountsWhereItWasRead) {
    ASSERT_TRUE(editor_->remove(read_[1]));
    const auto added = editor_->add(nullptr);
    editor_->showEntries({added, read_[2], read_[1], read_[0]});
    EXPECT_EQ(editor_->entries(), (MVAclEditor::Entries{added, read_[2], read_[1], read_[0]}));
    EXPECT_EQ(editor_->acl().entries, (MVAclEditor::Entries{read_[0], read_[1], read_[2], added}));
    editor_->showEntries(read_);
    EXPECT_EQ(editor_->acl().entries, read_);
}

TEST_F(AclEditor, AnEntryThatIsShownAgainTellsOfItsEditsOnce) {
    int told = 0;
    editor_->setObserver([&](const MVAclEntry&, const NSKeyPath&) { ++told; });
    read_[0]->setTag(MVAclTagDeny);
    const int ofOne = std::exchange(told, 0);
    ASSERT_GT(ofOne, 0);
    ASSERT_TRUE(editor_->remove(read_[0]));
    read_[0]->setTag(MVAclTagAllow);
    EXPECT_EQ(told, 0);
    editor_->showEntries(read_);
    read_[0]->setTag(MVAclTagDeny);
    EXPECT_EQ(told, ofOne);
}

TEST_F(AclEditor, AnEditedEntryStillCountsAsEditedInTheListThatWasReadAgain) {
    ASSERT_TRUE(editor_->setRule(read_[2], MVAclTagDeny));
    const auto other = MVAclEntry::newEntryForDirectory(true);
    editor_->setReadEntries({other, read_[2]});
    editor_->showEntries({read_[2], other});
    EXPECT_EQ(editor_->acl().entries, (MVAclEditor::Entries{read_[2], other}));
    ASSERT_TRUE(editor_->setRule(read_[2], MVAclTagAllow));
    EXPECT_EQ(editor_->acl().entries, (MVAclEditor::Entries{other, read_[2]}));
}

TEST_F(AclEditor, ExecutionIsChosenByItsOwnBoxUntilAllIsChosenAtOnce) {
    const auto& boxes = read_[0]->permissions().front()->childNodes();
    const auto execution = std::find_if(boxes.begin(), boxes.end(), [](const auto& box) {
        return MVTreeNode::permissionOf(*box)->permission() == ACL_SEARCH;
    });
    ASSERT_NE(execution, boxes.end());
    ASSERT_TRUE(editor_->setBox(read_[0], **execution, false));
    ASSERT_TRUE(editor_->setBox(read_[0], **execution, true));
    EXPECT_TRUE(editor_->isExecutionChosen(*read_[0]));
    editor_->showEntries({read_[1], read_[0]});
    EXPECT_TRUE(editor_->isExecutionChosen(*read_[0])) << "another order is none of its edits";
    ASSERT_TRUE(editor_->setPermissionGroup(read_[0], MVAclGroupRead));
    EXPECT_FALSE(editor_->isExecutionChosen(*read_[0]));
    editor_->setExecutionChosen(*read_[0], true);
    EXPECT_TRUE(editor_->isExecutionChosen(*read_[0]));
}

TEST_F(AclEditor, WhatIsEditedDuringAWriteIsStillToBeWritten) {
    ASSERT_TRUE(editor_->setRule(read_[0], MVAclTagDeny));
    const auto written = editor_->editCount();
    ASSERT_TRUE(editor_->setRule(read_[1], MVAclTagDeny));
    editor_->wasWritten(written);
    EXPECT_TRUE(editor_->isModified());
    editor_->wasWritten(editor_->editCount());
    EXPECT_FALSE(editor_->isModified());
}

TEST_F(AclEditor, ANullEntryIsRefused) {
    auto acl = acl_;
    acl.entries.push_back(nullptr);
    EXPECT_THROW(MVAclEditor::init(std::move(acl)), std::invalid_argument);
    EXPECT_THROW(editor_->setEntries({nullptr}), std::invalid_argument);
    EXPECT_THROW(editor_->showEntries({nullptr}), std::invalid_argument);
    EXPECT_THROW(editor_->setReadEntries({nullptr}), std::invalid_argument);
    EXPECT_EQ(editor_->entries(), read_);
}

}  // namespace
}  // namespace morvane
