// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/foundation/NSError.h>
#include <MorvaneOperation/platform/foundation/Phrase.h>
#include <MorvaneOperation/platform/host/KDLocalizedString.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <system_error>

namespace morvane {
namespace {

/// A language in which each key stands between brackets, with its table.
class PhraseTest : public testing::Test {
  protected:
    PhraseTest() {
        KDLocalizedString::setLookup([](const std::string& key, const std::string& table) {
            return (table.empty() ? "" : table + ":") + "[" + key + "]";
        });
    }
    ~PhraseTest() override { KDLocalizedString::setLookup({}); }

    /// What another process makes of a phrase that is sent.
    static Phrase sent(const Phrase& phrase) {
        return Phrase::decoded(phrase.code(), phrase.english());
    }
};

TEST_F(PhraseTest, ASentenceWithArgumentsIsSaidInBothLanguages) {
    const auto text = phrase("There is no entry %1; '%2' has %3.", 7, "a%1b", 3U);
    EXPECT_EQ(text.english(), "There is no entry 7; 'a%1b' has 3.");
    EXPECT_EQ(text.localized(), "[There is no entry 7; 'a%1b' has 3.]");
}

TEST_F(PhraseTest, ANameIsTheSameInEveryLanguageAndHasNoCode) {
    const Phrase name("name");
    EXPECT_EQ(name.localized(), "name");
    EXPECT_EQ(name.code(), "");
    EXPECT_EQ(Phrase().localized(), "");
    EXPECT_TRUE(phrase("").empty());
}

TEST_F(PhraseTest, APercentSignWithoutAnArgumentStays) {
    EXPECT_EQ(phrase("100% of %1, %2 %", "x").english(), "100% of x, %2 %");
}

TEST_F(PhraseTest, PhrasesWithinAPhraseAreTranslatedWithIt) {
    const auto list = Phrase::list("; ", {Phrase::inTable("ACL", "Read"), "b", phrase("c")});
    const auto text = sent(phrase("Lost: %1.", list));
    EXPECT_EQ(text.english(), "Lost: Read; b; c.");
    EXPECT_EQ(text.localized(), "[Lost: ACL:[Read][; ]b[; ][c].]");
}

TEST_F(PhraseTest, ACountChoosesItsKey) {
    const auto text = [](std::uint64_t count) {
        return sent(countedPhrase("%1 item of %2", "%1 items of %2", count, "all"));
    };
    EXPECT_EQ(text(1).english(), "1 item of all");
    EXPECT_EQ(text(1).localized(), "[1 item of all]");
    EXPECT_EQ(text(0).localized(), "[0 items of all]");
    EXPECT_EQ(text(2).localized(), "[2 items of all]");
}

TEST_F(PhraseTest, ASystemErrorIsSaidByTheSystemOfWhoeverReadsIt) {
    const auto text = Phrase::ofSystemError(ENOENT);
    EXPECT_EQ(text.english(), std::generic_category().message(ENOENT));
    EXPECT_EQ(Phrase::decoded("e2:4:gone", "gone").localized(), text.english());
}

TEST_F(PhraseTest, ACodeThatSaysSomethingElseInEnglishCountsForNothing) {
    const auto code = phrase("Nothing was changed.").code();
    const auto text = Phrase::decoded(code, "Everything was changed.");
    EXPECT_EQ(text.localized(), "Everything was changed.");
    EXPECT_EQ(text.code(), "");
}

TEST_F(PhraseTest, AMalformedCodeCountsForNothing) {
    for (const std::string code :
         {"", "x", "=", "=5:abc", "=3:abcd", "=-1:", "=99999999999999999999:a", "k2:ab",
          "k2:ab1:", "k2:ab99999999999999999:", "t3:ACL", "c1:1:a", "c-1:1:a1:b0:", "l1:;2:=1:a",
          "e:1:a", "e99999999999:1:a", "k2:%10:=1:a"})
        EXPECT_EQ(Phrase::decoded(code, "text").localized(), "text") << code;
}

TEST_F(PhraseTest, ACodeThatUnfoldsIntoTooMuchCountsForNothing) {
    // Each key doubles its argument, and its translation does so too.
    std::string code = "=9:aaaaaaaaa";
    std::string english = "aaaaaaaaa";
    for (int i = 0; i != 12; ++i) {
        code = "k4:%1%11:" + code;
        english += english;
    }
    EXPECT_EQ(Phrase::decoded(code, english).localized(), english);
}

TEST_F(PhraseTest, ACodeIsNotReadToAnyDepth) {
    std::string code;
    for (int i = 0; i != 100'000; ++i)
        code += "k2:%11:";
    EXPECT_EQ(Phrase::decoded(code + "=1:a", "a").localized(), "a");
}

TEST_F(PhraseTest, ARefusalIsACodeOrAKey) {
    EXPECT_EQ(Phrase::received(phrase("Ask for %1.", 5).code()).localized(), "[Ask for 5.]");
    EXPECT_EQ(Phrase::received("Ask later.").localized(), "[Ask later.]");
    EXPECT_EQ(Phrase::received("").english(), "");
}

TEST_F(PhraseTest, AnErrorHasItsTextInEnglishAndSaysItInTheLanguageOfTheProcess) {
    const auto error = NSError::errorWithDescription("domain", 1, phrase("No entry %1.", 3),
                                                     phrase("Ask again."), {{"key", "value"}});
    EXPECT_EQ(std::get<std::string>(error->userInfo().at(NSLocalizedDescriptionKey)),
              "No entry 3.");
    EXPECT_EQ(error->localizedDescription(), "[No entry 3.]");
    EXPECT_EQ(error->localizedRecoverySuggestion(), "[Ask again.]");
    EXPECT_EQ(std::get<std::string>(error->userInfo().at("key")), "value");
}

TEST_F(PhraseTest, ATextThatWasPutInItsPlaceIsSaidAsItIs) {
    const auto error = NSError::errorWithDescription("domain", 1, phrase("No entry %1.", 3));
    auto userInfo = error->userInfo();
    userInfo[NSLocalizedDescriptionKey] = "Kein Eintrag.";
    EXPECT_EQ(NSError::errorWithDomain("domain", 1, userInfo)->localizedDescription(),
              "Kein Eintrag.");
}

TEST_F(PhraseTest, AnErrorWithoutATextSaysItsDomainAndCode) {
    EXPECT_EQ(NSError::errorWithDomain("domain", 7)->localizedDescription(),
              "[The operation could not be completed (domain error 7).]");
}

}  // namespace
}  // namespace morvane
