// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/foundation/NSException.h>
#include <MorvaneOperation/platform/foundation/NSURL.h>
#include <gtest/gtest.h>

#include <filesystem>

namespace morvane {
namespace {

using namespace std::string_view_literals;

std::optional<std::string> pathOf(std::string_view text) {
    const auto url = NSURL::URLWithString(text);
    return url ? std::optional(url->path()) : std::nullopt;
}

TEST(NSURL, AFilesTextEscapesWhatAPathMayNotHoldThere) {
    EXPECT_EQ(NSURL::fileURLWithPath("/home/me/My Files").absoluteString(),
              "file:///home/me/My%20Files");
    EXPECT_EQ(NSURL::fileURLWithPath("/a?b#c%d\"<>\\^`{|}[];").absoluteString(),
              "file:///a%3Fb%23c%25d%22%3C%3E%5C%5E%60%7B%7C%7D%5B%5D%3B");
    EXPECT_EQ(NSURL::fileURLWithPath("/caf\xc3\xa9\x01\x7f").absoluteString(),
              "file:///caf%C3%A9%01%7F");
}

TEST(NSURL, AFilesTextKeepsWhatStandsForItself) {
    const std::string path = "/AZaz09-._~!$&'()*+,=:@/x";
    EXPECT_EQ(NSURL::fileURLWithPath(path).absoluteString(), "file://" + path);
}

TEST(NSURL, EveryByteButNulSurvivesTheTextForm) {
    std::string path = "/";
    for (int byte = 1; byte < 256; ++byte)
        path += static_cast<char>(byte);
    const auto url = NSURL::fileURLWithPath(path);
    EXPECT_EQ(url.path(), path);
    EXPECT_EQ(NSURL::URLWithString(url.absoluteString()), url);
}

TEST(NSURL, APathIsNotNormalised) {
    EXPECT_EQ(NSURL::fileURLWithPath("/a//b/../c/./").path(), "/a//b/../c/./");
}

TEST(NSURL, ARelativePathIsTakenFromTheCurrentFolder) {
    EXPECT_EQ(NSURL::fileURLWithPath("a/b").path(),
              (std::filesystem::current_path() / "a/b").string());
}

TEST(NSURL, APathThatIsEmptyOrHoldsNulIsRefused) {
    for (const auto path : {""sv, "/a\0b"sv, "\0"sv}) {
        try {
            NSURL::fileURLWithPath(path);
            ADD_FAILURE() << "taken";
        } catch (const NSException& e) {
            EXPECT_EQ(e.name(), NSInvalidArgumentException);
        }
    }
}

TEST(NSURL, ParsesTheFormsOfAFileUrl) {
    EXPECT_EQ(pathOf("file:///etc/passwd"), "/etc/passwd");
    EXPECT_EQ(pathOf("file://localhost/etc/passwd"), "/etc/passwd");
    EXPECT_EQ(pathOf("file:/etc/passwd"), "/etc/passwd");
    EXPECT_EQ(pathOf("file:///"), "/");
}

TEST(NSURL, TheSchemeAndLocalhostAreOfEitherCase) {
    EXPECT_EQ(pathOf("FILE:///a"), "/a");
    EXPECT_EQ(pathOf("File://LocalHost/a"), "/a");
    EXPECT_TRUE(NSURL::URLWithString("FILE:///a")->isFileURL());
}

TEST(NSURL, ReadsEscapesOfEitherCase) {
    EXPECT_EQ(pathOf("file:///%c3%A9%20%25"), "/\xc3\xa9 %");
    EXPECT_EQ(pathOf("file:///a%2Fb"), "/a/b");
    EXPECT_EQ(pathOf("file:///%FF"), "/\xff");
}

TEST(NSURL, AMalformedEscapeIsRefused) {
    for (const auto text : {"file:///%", "file:///%4", "file:///%zz", "file:///%4g", "file:///%g4",
                            "file:///a%%20", "file:///%-1"})
        EXPECT_EQ(NSURL::URLWithString(text), std::nullopt) << text;
}

TEST(NSURL, NulIsRefusedEscapedOrNot) {
    EXPECT_EQ(NSURL::URLWithString("file:///a%00b"), std::nullopt);
    EXPECT_EQ(NSURL::URLWithString("file:///a\0b"sv), std::nullopt);
    EXPECT_EQ(NSURL::URLWithString("http://a\0b"sv), std::nullopt);
}

TEST(NSURL, AFileElsewhereOrWithoutAnAbsolutePathIsRefused) {
    for (const auto text : {"file://server/share", "file://localhost", "file://localhostess/a",
                            "file:relative", "file:", "file://"})
        EXPECT_EQ(NSURL::URLWithString(text), std::nullopt) << text;
}

TEST(NSURL, ATextWithoutASchemeIsRefused) {
    for (const auto text : {"", "/etc/passwd", "a/b:c", ":x", "1http://x", "ht tp://x", "a"})
        EXPECT_EQ(NSURL::URLWithString(text), std::nullopt) << text;
}

TEST(NSURL, AnotherSchemeIsKeptAsItIsAndHasNoPath) {
    const auto url = NSURL::URLWithString("svn+ssh-1.0://host/a%20b?q#f");
    ASSERT_TRUE(url);
    EXPECT_FALSE(url->isFileURL());
    EXPECT_EQ(url->absoluteString(), "svn+ssh-1.0://host/a%20b?q#f");
    EXPECT_EQ(url->path(), "");
    EXPECT_EQ(url->lastPathComponent(), "");
    EXPECT_EQ(url->URLByAppendingPathComponent("c").absoluteString(),
              "svn+ssh-1.0://host/a%20b?q#f/c");
}

TEST(NSURL, TheLastComponentIsTheNameAfterTheLastSlash) {
    EXPECT_EQ(NSURL::fileURLWithPath("/a/b").lastPathComponent(), "b");
    EXPECT_EQ(NSURL::fileURLWithPath("/a/b//").lastPathComponent(), "b");
    EXPECT_EQ(NSURL::fileURLWithPath("/").lastPathComponent(), "/");
    EXPECT_EQ(NSURL::fileURLWithPath("//").lastPathComponent(), "/");
}

TEST(NSURL, AppendsAComponentWithOneSlashBetween) {
    EXPECT_EQ(NSURL::fileURLWithPath("/a").URLByAppendingPathComponent("b").path(), "/a/b");
    EXPECT_EQ(NSURL::fileURLWithPath("/a/").URLByAppendingPathComponent("b").path(), "/a/b");
    EXPECT_EQ(NSURL::fileURLWithPath("/").URLByAppendingPathComponent("100%").absoluteString(),
              "file:///100%25");
}

TEST(NSURL, IsComparedByContent) {
    EXPECT_EQ(NSURL::URLWithString("file://localhost/a%62"), NSURL::fileURLWithPath("/ab"));
    EXPECT_NE(NSURL::fileURLWithPath("/a"), NSURL::fileURLWithPath("/a/"));
    EXPECT_LT(NSURL::fileURLWithPath("/a"), NSURL::fileURLWithPath("/b"));
}

}  // namespace
}  // namespace morvane
