// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVFileSizeItem.h>
#include <MorvaneOperation/platform/archive/NSKeyedArchiver.h>
#include <MorvaneOperation/platform/archive/NSKeyedUnarchiver.h>
#include <MorvaneOperation/platform/foundation/NSURLResourceValues.h>

#include <limits>
#include <map>
#include <string>
#include <vector>

#include "platform/fake/FakeFileInformation.h"
#include "platform/fake/FakeNumberFormatter.h"
#include "size/SizeFixture.h"

namespace morvane {
namespace {

class MVFileSizeItemTest : public SizeFixture {
  protected:
    MVFileSizeItemTest() {
        NSNumberFormatter::setMaker(FakeNumberFormatter::maker());
        FileInformation::setCurrent(files);
        files->files[folder] = {.localizedName = "Folder",
                                .effectiveIcon = NSImage{{"inode-directory", "folder"}},
                                .isDirectory = true};
        files->files[file] = {.localizedName = "File",
                              .effectiveIcon = NSImage{{"text-plain"}},
                              .isDirectory = false};
    }
    ~MVFileSizeItemTest() override { FileInformation::setCurrent(nullptr); }

    static std::shared_ptr<MVFileSizeItem> decoded(const NSData& data) {
        NSErrorRef error;
        auto object = NSKeyedUnarchiver::unarchivedObjectOfClasses({&MVFileSizeItem::classObject()},
                                                                   data, &error);
        EXPECT_EQ(error, nullptr);
        return std::dynamic_pointer_cast<MVFileSizeItem>(object);
    }

    const NSURL folder = NSURL::fileURLWithPath("/a/folder");
    const NSURL file = NSURL::fileURLWithPath("/a/file");
    std::shared_ptr<FakeFileInformation> files = std::make_shared<FakeFileInformation>();
};

void expectEmptyDisplay(const MVFileSizeItem& item) {
    EXPECT_EQ(item.name(), "----");
    EXPECT_EQ(item.url(), std::nullopt);
    EXPECT_EQ(item.path(), std::nullopt);
    EXPECT_EQ(item.icon(), std::nullopt);
    EXPECT_EQ(item.color(), std::nullopt);
    EXPECT_FALSE(item.isLeaf());
    EXPECT_FALSE(item.initialized());
}

TEST_F(MVFileSizeItemTest, ANewItemIsBusyUnknownAndNamedByThePlaceholder) {
    const auto item = MVFileSizeItem::init();
    EXPECT_EQ(item->size(), -1);
    EXPECT_TRUE(item->busy());
    EXPECT_EQ(item->displaySize(), "--");
    EXPECT_EQ(item->displayInfo(), "-- (--)");
    expectEmptyDisplay(*item);
}

TEST_F(MVFileSizeItemTest, ASizeIsKeptFromTheInitialiser) {
    EXPECT_EQ(MVFileSizeItem::initWithSize(512)->displaySize(), "512 bytes");
    EXPECT_EQ(MVFileSizeItem::initWithSize(1500)->displaySize(), "1.5 KB");
}

TEST_F(MVFileSizeItemTest, TheInfoHoldsTheExactNumber) {
    EXPECT_EQ(MVFileSizeItem::initWithSize(0)->displayInfo(), "0 bytes (<#,##0.##|0> bytes)");
    EXPECT_EQ(MVFileSizeItem::initWithSize(std::numeric_limits<std::int64_t>::max())->displayInfo(),
              "9223372 TB (<#,##0.##|9223372036854775807> bytes)");
}

TEST_F(MVFileSizeItemTest, AllItemsShareTheFormatterThatTheFirstMade) {
    MVFileSizeItem::initWithSize(1)->displayInfo();
    int made = 0;
    NSNumberFormatter::setMaker([&](std::string_view pattern) {
        ++made;
        return FakeNumberFormatter::maker()(pattern);
    });
    EXPECT_EQ(MVFileSizeItem::initWithSize(2)->displayInfo(), "2 bytes (<#,##0.##|2> bytes)");
    EXPECT_EQ(made, 0);
}

TEST_F(MVFileSizeItemTest, AFoldersUrlFillsTheDisplay) {
    const auto item = MVFileSizeItem::init();
    item->setUrl(folder);
    EXPECT_EQ(item->url(), folder);
    EXPECT_EQ(item->path(), "/a/folder");
    EXPECT_EQ(item->name(), "Folder");
    EXPECT_EQ(item->icon(), (NSImage{{"inode-directory", "folder"}}));
    EXPECT_FALSE(item->isLeaf());
}

TEST_F(MVFileSizeItemTest, APlainFileIsALeaf) {
    const auto item = MVFileSizeItem::init();
    item->setUrl(file);
    EXPECT_TRUE(item->isLeaf());
    EXPECT_EQ(item->name(), "File");
}

TEST_F(MVFileSizeItemTest, WhatCannotBeReadLeavesNoNameAndALeaf) {
    const auto item = MVFileSizeItem::init();
    item->setUrl(NSURL::fileURLWithPath("/nowhere"));
    EXPECT_EQ(item->path(), "/nowhere");
    EXPECT_EQ(item->name(), std::nullopt);
    EXPECT_EQ(item->icon(), std::nullopt);
    EXPECT_TRUE(item->isLeaf());
}

TEST_F(MVFileSizeItemTest, NoUrlEmptiesTheDisplayAndLeavesALeaf) {
    const auto item = MVFileSizeItem::init();
    item->setUrl(folder);
    item->setUrl(std::nullopt);
    EXPECT_EQ(item->url(), std::nullopt);
    EXPECT_EQ(item->path(), std::nullopt);
    EXPECT_EQ(item->name(), std::nullopt);
    EXPECT_EQ(item->icon(), std::nullopt);
    EXPECT_TRUE(item->isLeaf());
}

TEST_F(MVFileSizeItemTest, SettingTheUrlTouchesNeitherSizeNorFlagsNorColour) {
    const auto item = MVFileSizeItem::initWithSize(7);
    item->setColor(NSColor{1, 0, 0, 1});
    item->setUrl(folder);
    EXPECT_EQ(item->size(), 7);
    EXPECT_TRUE(item->busy());
    EXPECT_FALSE(item->initialized());
    EXPECT_EQ(item->color(), (NSColor{1, 0, 0, 1}));
}

TEST_F(MVFileSizeItemTest, SettingAColourKeepsThePlaceholderName) {
    const auto item = MVFileSizeItem::init();
    item->setColor(NSColor{});
    EXPECT_EQ(item->name(), "----");
}

TEST_F(MVFileSizeItemTest, OnlySizeAndBusySurviveTheArchive) {
    for (const std::int64_t size :
         {std::int64_t{-1}, std::int64_t{0}, std::numeric_limits<std::int64_t>::max(),
          std::numeric_limits<std::int64_t>::min()}) {
        for (const bool busy : {false, true}) {
            const auto item = MVFileSizeItem::initWithSize(size);
            item->setUrl(file);
            item->setColor(NSColor{});
            item->setInitialized(true);
            item->setBusy(busy);
            const auto copy = decoded(NSKeyedArchiver::archivedDataWithRootObject(*item));
            ASSERT_TRUE(copy);
            EXPECT_EQ(copy->size(), size);
            EXPECT_EQ(copy->busy(), busy);
            expectEmptyDisplay(*copy);
        }
    }
}

/// Archives as an item but writes no keys.
class Keyless final : public NSObject {
  public:
    const NSClass& objectClass() const override { return MVFileSizeItem::classObject(); }
    void encodeWithCoder(NSKeyedArchiver&) const override {}
};

TEST_F(MVFileSizeItemTest, MissingKeysReadAsZeroAndNotBusy) {
    const auto copy = decoded(NSKeyedArchiver::archivedDataWithRootObject(Keyless()));
    ASSERT_TRUE(copy);
    EXPECT_EQ(copy->size(), 0);
    EXPECT_FALSE(copy->busy());
}

TEST_F(MVFileSizeItemTest, SupportsSecureCoding) {
    EXPECT_TRUE(MVFileSizeItem::supportsSecureCoding());
}

struct Counter final : NSKeyValueObserver {
    void observeValueForKeyPath(const NSKeyPath& keyPath, NSObject&) override {
        ++told[std::string(keyPath.name)];
        order.emplace_back(keyPath.name);
    }
    std::map<std::string, int> told;
    std::vector<std::string> order;
};

TEST_F(MVFileSizeItemTest, EverySetterTellsOnceAlsoWithAnEqualValue) {
    const auto item = MVFileSizeItem::init();
    Counter counter;
    for (const auto* key :
         {&MVFileSizeItem::busyKeyPath, &MVFileSizeItem::initializedKeyPath,
          &MVFileSizeItem::leafKeyPath, &MVFileSizeItem::sizeKeyPath, &MVFileSizeItem::urlKeyPath,
          &MVFileSizeItem::pathKeyPath, &MVFileSizeItem::iconKeyPath, &MVFileSizeItem::nameKeyPath,
          &MVFileSizeItem::colorKeyPath})
        item->addObserver(&counter, *key);
    item->setBusy(true);
    item->setSize(-1);
    item->setInitialized(false);
    item->setColor(std::nullopt);
    EXPECT_EQ(counter.told, (std::map<std::string, int>{
                                {"busy", 1}, {"size", 1}, {"initialized", 1}, {"color", 1}}));
    counter.told.clear();
    item->setUrl(file);
    EXPECT_EQ(counter.told, (std::map<std::string, int>{
                                {"url", 1}, {"path", 1}, {"name", 1}, {"icon", 1}, {"leaf", 1}}));
}

TEST_F(MVFileSizeItemTest, TheUrlIsThereBeforeWhatIsReadFromItIsSetAndTold) {
    const auto item = MVFileSizeItem::init();
    Counter counter;
    for (const auto* key :
         {&MVFileSizeItem::leafKeyPath, &MVFileSizeItem::urlKeyPath, &MVFileSizeItem::iconKeyPath,
          &MVFileSizeItem::nameKeyPath, &MVFileSizeItem::pathKeyPath})
        item->addObserver(&counter, *key);
    item->setUrl(file);
    EXPECT_EQ(counter.order, (std::vector<std::string>{"path", "name", "icon", "leaf", "url"}));
}

TEST_F(MVFileSizeItemTest, StaysSmallUntilItIsShown) {
    EXPECT_LE(sizeof(MVFileSizeItem), 72u);
}

}  // namespace
}  // namespace morvane
