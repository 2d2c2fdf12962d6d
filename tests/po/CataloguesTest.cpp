// SPDX-License-Identifier: MIT
#include <MorvaneOperation/acl_perms.h>
#include <MorvaneOperation/platform/foundation/Phrase.h>
#include <MorvaneOperation/platform/host/KDLocalizedString.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <cctype>
#include <clocale>
#include <fstream>
#include <set>
#include <string>
#include <vector>

/// Of gettext: changed whenever another catalogue may be wanted.
extern "C" int _nl_msg_cat_cntr;

namespace morvane {
namespace {

/// A text as the catalogues list it; `many` is empty for one without a count.
struct Text {
    std::string table;
    std::string one;
    std::string many;
};

/// The text between the quotation marks of a line.
std::string unquoted(const std::string& line) {
    std::string text;
    const auto end = line.rfind('"');
    for (auto i = line.find('"') + 1; i < end; ++i) {
        if (line[i] != '\\') {
            text += line[i];
        } else {
            ++i;
            text += line[i] == 'n' ? '\n' : line[i];
        }
    }
    return text;
}

std::vector<Text> textsOfList() {
    std::ifstream file(MORVANE_PO "/morvaneoperation.pot");
    std::vector<Text> texts;
    Text text;
    std::string* part = nullptr;
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with("msgctxt "))
            part = &text.table;
        else if (line.starts_with("msgid_plural "))
            part = &text.many;
        else if (line.starts_with("msgid "))
            part = &text.one;
        else if (line.starts_with("msgstr") && !part)
            continue;
        else if (line.starts_with("msgstr")) {
            if (!text.one.empty())
                texts.push_back(text);
            text = {};
            part = nullptr;
        }
        if (part && line.find('"') != line.npos)
            *part += unquoted(line);
    }
    return texts;
}

std::vector<std::string> languages() {
    std::ifstream file(MORVANE_PO "/LINGUAS");
    std::vector<std::string> all;
    for (std::string line; std::getline(file, line);)
        all.push_back(line);
    return all;
}

/// Each catalogue, as a program in that language has it.
class CataloguesTest : public testing::TestWithParam<std::string> {
  protected:
    CataloguesTest() {
        setenv("MORVANE_LOCALE_DIR", MORVANE_CATALOGUES, 1);
        setenv("LANGUAGE", GetParam().c_str(), 1);
        std::setlocale(LC_ALL, "C.UTF-8");
        ++_nl_msg_cat_cntr;
        KDLocalizedString::setLookup({});  // which forgets the language before
    }
    ~CataloguesTest() override { std::setlocale(LC_ALL, "C"); }
};

const std::vector<Phrase> arguments{
    "\xc2\xab"
    "1\xc2\xbb",
    "\xc2\xab"
    "2\xc2\xbb",
    "\xc2\xab"
    "3\xc2\xbb",
    "\xc2\xab"
    "4\xc2\xbb",
    "\xc2\xab"
    "5\xc2\xbb"};

/// The arguments that stand in `text`.
std::multiset<std::string> argumentsIn(const std::string& text) {
    std::multiset<std::string> found;
    for (const auto& argument : arguments) {
        for (auto at = text.find(argument.english()); at != text.npos;
             at = text.find(argument.english(), at + 1))
            found.insert(argument.english());
    }
    return found;
}

/// The places for values in texts of a program in C ("%s"), and other percent signs ("100%").
std::multiset<std::string> percentsIn(const std::string& text) {
    std::multiset<std::string> found;
    for (auto at = text.find('%'); at != text.npos; at = text.find('%', at + 1)) {
        const bool isPlace = std::islower(static_cast<unsigned char>(text[at + 1])) != 0;
        found.insert(text.substr(at, isPlace ? 2 : 1));
    }
    return found;
}

/// Whether a text has words, which no two languages write alike.
bool hasWords(const std::string& key) {
    std::size_t letters = 0;
    for (std::size_t i = 0; i != key.size(); ++i) {
        if (key[i] == '%')
            ++i;
        else
            letters += std::isalpha(static_cast<unsigned char>(key[i])) != 0;
    }
    return letters > 1;
}

/// Words that some of the languages have in common with English.
const std::set<std::string> sharedWords{"Usage",      "Administration", "Options", "OPTIONS",
                                        "Status %1.", "%1 excludes %2", "no",      "total",
                                        "Menu",       "_Permissions",   "Mode"};

TEST_P(CataloguesTest, EachTextIsTranslatedWithAllItsArguments) {
    const auto texts = textsOfList();
    ASSERT_GT(texts.size(), 300U);
    for (const auto& text : texts) {
        if (!text.many.empty())
            continue;
        const auto phrase = text.table.empty() ? Phrase::withKey(text.one, arguments)
                                               : Phrase::inTable(text.table, text.one);
        const auto said = phrase.localized();
        EXPECT_EQ(argumentsIn(said), argumentsIn(phrase.english())) << text.one;
        EXPECT_EQ(percentsIn(said), percentsIn(phrase.english())) << said;
        const bool mayBeSame = !hasWords(text.one) || sharedWords.contains(text.one);
        EXPECT_TRUE(mayBeSame || said != phrase.english()) << said;
        EXPECT_FALSE(said.empty()) << text.one;
    }
}

TEST_P(CataloguesTest, EachTextWithACountIsTranslatedForEachCount) {
    std::size_t seen = 0;
    for (const auto& text : textsOfList()) {
        if (text.many.empty())
            continue;
        ++seen;
        for (const std::uint64_t count : {1, 2, 5, 11, 21, 100, 1'000'000}) {
            auto counted = arguments;
            counted.front() = Phrase(count);
            const auto phrase = Phrase::withCount(text.one, text.many, count, counted);
            const auto said = phrase.localized();
            EXPECT_EQ(argumentsIn(said), argumentsIn(phrase.english())) << said;
            EXPECT_TRUE(count == 1 || text.many.find("%1") == text.many.npos ||
                        said.find(std::to_string(count)) != said.npos)
                << said;
            EXPECT_EQ(percentsIn(said), percentsIn(phrase.english())) << said;
            EXPECT_TRUE(said != phrase.english() || !hasWords(text.one)) << said;
        }
    }
    EXPECT_GE(seen, 6U);
}

TEST_P(CataloguesTest, BoxesHaveNamesOfTheirOwnWithoutCommas) {
    std::set<std::string> names;
    std::size_t all = 0;
    for (const auto& text : textsOfList()) {
        if (text.table != "ACL")
            continue;
        const auto name = KDLocalizedString::localize(text.one, "ACL");
        EXPECT_TRUE(names.insert(name).second) << name;
        EXPECT_EQ(name.find(", "), name.npos) << name;
        EXPECT_EQ(name.find('/'), name.npos) << name;
        // A name that is looked up again stays what it is.
        EXPECT_EQ(KDLocalizedString::localize(name, "ACL"), name);
        ++all;
    }
    EXPECT_GE(all, 27U);
}

TEST_P(CataloguesTest, ItSaysThatItIsToBeReviewedAndHasNoDraftOfATranslation) {
    std::ifstream file(std::string(MORVANE_PO) + "/" + GetParam() + ".po");
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    // (A failure does not print the catalogue.)
    EXPECT_NE(text.find("# To be reviewed: "), text.npos);
    EXPECT_EQ(text.find("fuzzy"), text.npos);
    EXPECT_EQ(text.find("\n#~"), text.npos);
}

INSTANTIATE_TEST_SUITE_P(All, CataloguesTest, testing::ValuesIn(languages()),
                         [](const auto& language) { return language.param; });

}  // namespace
}  // namespace morvane
