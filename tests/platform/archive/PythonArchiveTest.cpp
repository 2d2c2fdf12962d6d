// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "ArchiveTestModels.h"

namespace morvane::test {
namespace {

/// A folder of its own, and Python's property lists beside it.
class PythonArchive : public testing::Test {
  protected:
    void SetUp() override {
        folder_ = std::filesystem::temp_directory_path() /
                  ("morvane-archive-" + std::to_string(::getpid()));
        std::filesystem::create_directories(folder_);
    }
    void TearDown() override { std::filesystem::remove_all(folder_); }

    std::string path(const char* name) const { return (folder_ / name).string(); }
    void write(const char* name, const NSData& bytes) const {
        std::ofstream(path(name), std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()),
                   static_cast<std::streamsize>(bytes.size()));
    }
    static int python(const std::string& mode, const std::string& file) {
        const std::string command =
            "python3 '" MORVANE_ARCHIVE_TESTS "/python_archive.py' " + mode + " '" + file + "'";
        return std::system(command.c_str());
    }

  private:
    std::filesystem::path folder_;
};

TEST_F(PythonArchive, EveryKeyOfOurArchiveIsRead) {
    Values values;
    values.flag = true;
    values.narrow = -7;
    values.wide = std::int64_t{1} << 40;
    values.real = 0.5;
    values.text = "Größe \xF0\x9F\x93\x81";
    values.data = {1, 2, 3};
    values.uuid = NSUUID::initWithUUIDString("6ba7b810-9dad-11d1-80b4-00c04fd430c8");
    values.url = NSURL::fileURLWithPath("/a b");
    values.error = NSError::errorWithDomain("D", 5, {{"k", std::string("v")}});
    values.strings = {"one", "zwei"};
    values.integers = {1, -1};
    write("ours", NSKeyedArchiver::archivedDataWithRootObject(values));
    EXPECT_EQ(python("check", path("ours")), 0);
}

TEST_F(PythonArchive, AVeryLargeArchiveOfOursIsRead) {
    Node node;
    const auto shared = std::make_shared<Node>();
    shared->number = -1;
    node.next = shared;
    for (int i = 0; i < 50000; ++i) {
        const auto child = std::make_shared<Node>();
        child->number = std::int64_t{i} * i;
        child->next = shared;
        node.objects.push_back(child);
    }
    write("large", NSKeyedArchiver::archivedDataWithRootObject(node));
    EXPECT_EQ(python("check-large", path("large")), 0);
}

TEST_F(PythonArchive, ItsArchiveIsReadByUs) {
    ASSERT_EQ(python("write", path("theirs")), 0);
    std::ifstream in(path("theirs"), std::ios::binary);
    const std::vector<char> chars{std::istreambuf_iterator<char>(in), {}};
    const NSData bytes(chars.begin(), chars.end());
    NSErrorRef error;
    const auto values = std::dynamic_pointer_cast<Values>(
        NSKeyedUnarchiver::unarchivedObjectOfClasses({&Values::classObject()}, bytes, &error));
    ASSERT_TRUE(values) << error->localizedDescription();
    EXPECT_TRUE(values->flag);
    EXPECT_EQ(values->narrow, -7);
    EXPECT_EQ(values->wide, std::int64_t{1} << 40);
    EXPECT_EQ(values->real, 0.5);
    EXPECT_EQ(values->text, "Größe \xF0\x9F\x93\x81");
    EXPECT_EQ(values->data, (NSData{1, 2, 3}));
    EXPECT_EQ(values->uuid->UUIDString(), "6ba7b810-9dad-11d1-80b4-00c04fd430c8");
    EXPECT_EQ(values->url->path(), "/a b");
    EXPECT_EQ(values->strings, (std::vector<std::string>{"one", "zwei"}));
}

}  // namespace
}  // namespace morvane::test
