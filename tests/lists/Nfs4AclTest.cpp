// SPDX-License-Identifier: MIT
#include <MorvaneOperation/Nfs4Acl.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

extern "C" int fuzzNfs4Acl(const std::uint8_t* data, std::size_t size);

namespace morvane {
namespace {

using Bytes = std::vector<std::uint8_t>;

// One entry: allow, no flags, read data | write data | append | write the list, OWNER@.
const Bytes namedBytes{0, 0, 0, 1,  // one entry
                       0, 0, 0, 0,  // allow
                       0, 0, 0, 0,  // no flags
                       0, 4, 0, 7,  // the permissions
                       0, 0, 0, 6, 'O', 'W', 'N', 'E', 'R', '@', 0, 0};
const Nfs4Acl namedAcl{0, {{Nfs4Allow, 0, 0x40007, "OWNER@"}}};

const Bytes numberedBytes{0, 2, 0,    0,                       // a folder's list
                          0, 0, 0,    2,                       // two entries
                          0, 0, 0,    1,    0, 0,    0, 0x43,  // deny; a group, files and folders
                          0, 0, 0,    0,    0, 0x01, 0, 2,     // an id; write data, delete
                          0, 0, 0x03, 0xe8,                    // 1000
                          0, 0, 0,    0,    0, 0,    0, 0x80,  // allow; inherited
                          0, 0, 0,    1,    0, 0x10, 0, 1,     // special; synchronize, read data
                          0, 0, 0,    3};                      // everyone
const Nfs4Acl numberedAcl{
    Nfs4Folder,
    {{Nfs4Deny, Nfs4IsGroup | Nfs4FileInherit | Nfs4FolderInherit, 0x10002, "1000"},
     {Nfs4Allow, Nfs4Inherited, 0x100001, "EVERYONE@"}}};

TEST(Nfs4Acl, TheNamedFormIsReadByteByByte) {
    EXPECT_EQ(decodeNfs4Acl(namedBytes, Nfs4Form::named), namedAcl);
}

TEST(Nfs4Acl, TheNamedFormIsWrittenByteByByte) {
    EXPECT_EQ(encodeNfs4Acl(namedAcl, Nfs4Form::named), namedBytes);
}

TEST(Nfs4Acl, TheNumberedFormIsReadByteByByte) {
    EXPECT_EQ(decodeNfs4Acl(numberedBytes, Nfs4Form::numbered), numberedAcl);
}

TEST(Nfs4Acl, TheNumberedFormIsWrittenByteByByte) {
    EXPECT_EQ(encodeNfs4Acl(numberedAcl, Nfs4Form::numbered), numberedBytes);
}

TEST(Nfs4Acl, ATextThatFillsItsLastWordHasNoPadding) {
    const Nfs4Acl acl{0, {{Nfs4Allow, 0, 1, "bob@home"}}};
    const Bytes bytes{0, 0, 0, 1, 0, 0, 0,   0,   0,   0,   0,   0,   0,   0,
                      0, 1, 0, 0, 0, 8, 'b', 'o', 'b', '@', 'h', 'o', 'm', 'e'};
    EXPECT_EQ(encodeNfs4Acl(acl, Nfs4Form::named), bytes);
    EXPECT_EQ(decodeNfs4Acl(bytes, Nfs4Form::named), acl);
}

TEST(Nfs4Acl, AListOfNoEntriesIsAList) {
    EXPECT_EQ(decodeNfs4Acl(Bytes(4), Nfs4Form::named), Nfs4Acl{});
    EXPECT_EQ(decodeNfs4Acl(Bytes(8), Nfs4Form::numbered), Nfs4Acl{});
    EXPECT_EQ(encodeNfs4Acl({}, Nfs4Form::named), Bytes(4));
    EXPECT_EQ(encodeNfs4Acl({}, Nfs4Form::numbered), Bytes(8));
}

TEST(Nfs4Acl, EveryTruncationAndAnyByteTooManyIsRefused) {
    for (const auto& [whole, form] :
         {std::pair{namedBytes, Nfs4Form::named}, std::pair{numberedBytes, Nfs4Form::numbered}}) {
        for (std::size_t size = 0; size != whole.size(); ++size)
            EXPECT_EQ(decodeNfs4Acl(std::span(whole).first(size), form), std::nullopt) << size;
        auto longer = whole;
        longer.push_back(0);
        EXPECT_EQ(decodeNfs4Acl(longer, form), std::nullopt);
    }
}

TEST(Nfs4Acl, AHugeCountIsRefusedWithoutMemoryForIt) {
    for (const auto form : {Nfs4Form::named, Nfs4Form::numbered}) {
        Bytes bytes(64, 0xff);
        EXPECT_EQ(decodeNfs4Acl(bytes, form), std::nullopt);
    }
}

TEST(Nfs4Acl, AHugeLengthOfAWhoIsRefused) {
    auto bytes = namedBytes;
    bytes[16] = 0xff;
    EXPECT_EQ(decodeNfs4Acl(bytes, Nfs4Form::named), std::nullopt);
}

TEST(Nfs4Acl, AWhoThatIsEmptyOrHasANulIsRefused) {
    auto bytes = namedBytes;
    bytes[21] = 0;
    EXPECT_EQ(decodeNfs4Acl(bytes, Nfs4Form::named), std::nullopt);
    const Bytes empty{0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0};
    EXPECT_EQ(decodeNfs4Acl(empty, Nfs4Form::named), std::nullopt);
    EXPECT_EQ(encodeNfs4Acl({0, {{Nfs4Allow, 0, 1, ""}}}, Nfs4Form::named), std::nullopt);
}

TEST(Nfs4Acl, PaddingThatIsNotZeroIsRefused) {
    auto bytes = namedBytes;
    bytes.back() = 1;
    EXPECT_EQ(decodeNfs4Acl(bytes, Nfs4Form::named), std::nullopt);
}

TEST(Nfs4Acl, AnUnknownTypeOrSpecialIsRefused) {
    auto bytes = namedBytes;
    bytes[7] = 4;
    EXPECT_EQ(decodeNfs4Acl(bytes, Nfs4Form::named), std::nullopt);
    bytes = numberedBytes;
    bytes.back() = 4;
    EXPECT_EQ(decodeNfs4Acl(bytes, Nfs4Form::numbered), std::nullopt);
}

TEST(Nfs4Acl, AuditAndAlarmEntriesAreKeptAsTheyAre) {
    const Nfs4Acl acl{0, {{Nfs4Audit, 0x30, 0xffffffff, "GROUP@"}, {Nfs4Alarm, 0x10, 0, "7"}}};
    for (const auto form : {Nfs4Form::named, Nfs4Form::numbered})
        EXPECT_EQ(decodeNfs4Acl(*encodeNfs4Acl(acl, form), form), acl);
}

TEST(Nfs4Acl, MoreThan1024EntriesAreRefusedBothWays) {
    Nfs4Acl acl{0, std::vector<Nfs4Entry>(1024, Nfs4Entry{Nfs4Allow, 0, 1, "OWNER@"})};
    for (const auto form : {Nfs4Form::named, Nfs4Form::numbered}) {
        auto bytes = encodeNfs4Acl(acl, form);
        ASSERT_TRUE(bytes);
        EXPECT_EQ(decodeNfs4Acl(*bytes, form), acl);
    }
    acl.entries.push_back(acl.entries.front());
    for (const auto form : {Nfs4Form::named, Nfs4Form::numbered})
        EXPECT_EQ(encodeNfs4Acl(acl, form), std::nullopt);
    Bytes bytes(8 + 20 * 1025);
    bytes[6] = 4;
    bytes[7] = 1;
    EXPECT_EQ(decodeNfs4Acl(bytes, Nfs4Form::numbered), std::nullopt);
}

TEST(Nfs4Acl, TheNumberedFormHoldsNoNameAndTheNamedFormNoListFlags) {
    EXPECT_EQ(encodeNfs4Acl({0, {{Nfs4Allow, 0, 1, "bob@home"}}}, Nfs4Form::numbered),
              std::nullopt);
    EXPECT_EQ(encodeNfs4Acl({Nfs4Folder, {}}, Nfs4Form::named), std::nullopt);
}

TEST(Nfs4Acl, OnlyPlainDecimalTextIsAnId) {
    EXPECT_EQ(idOfNfs4Who("0"), 0U);
    EXPECT_EQ(idOfNfs4Who("4294967295"), 4294967295U);
    for (const auto* text : {"", "01", "-1", "+1", " 1", "1 ", "4294967296", "1@home"})
        EXPECT_EQ(idOfNfs4Who(text), std::nullopt) << text;
}

TEST(Nfs4Acl, EveryListOfTheFuzzersCorpusIsReadOrRefused) {
    int count = 0;
    for (const auto& file : std::filesystem::directory_iterator(MORVANE_NFS4_CORPUS)) {
        SCOPED_TRACE(file.path().string());
        std::ifstream in(file.path(), std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(in), {}};
        EXPECT_EQ(fuzzNfs4Acl(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()),
                  0);
        ++count;
    }
    EXPECT_GE(count, 8);
}

}  // namespace
}  // namespace morvane
