// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVOperationError.h>
#include <MorvaneOperation/platform/host/FileAccess.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace morvane {
namespace {

NSErrorRef posix(std::int64_t code, NSErrorUserInfo userInfo = {}) {
    return NSError::errorWithDomain(NSPOSIXErrorDomain, code, std::move(userInfo));
}

/// Answers as a test says, and records what it was asked.
class ScriptedAccess final : public FileAccess {
  public:
    int access(const char* path, int mode) override {
        asked = path;
        askedMode = mode;
        return answer;
    }
    int answer = 0;
    int askedMode = -1;
    std::string asked;
};

class PermissionErrorTest : public testing::Test {
  protected:
    PermissionErrorTest() { FileAccess::setCurrent(access); }
    ~PermissionErrorTest() override { FileAccess::setCurrent(nullptr); }
    std::shared_ptr<ScriptedAccess> access = std::make_shared<ScriptedAccess>();
};

TEST_F(PermissionErrorTest, EaccesIsOneWhateverTheUserInfo) {
    EXPECT_TRUE(isPermissionError(posix(EACCES)));
    EXPECT_TRUE(isPermissionError(posix(EACCES, {{NSURLErrorKey, std::string()}})));
    EXPECT_EQ(access->askedMode, -1);
}

TEST_F(PermissionErrorTest, EpermWithoutAPathIsNone) {
    EXPECT_FALSE(isPermissionError(posix(EPERM)));
    EXPECT_FALSE(isPermissionError(posix(EPERM, {{NSURLErrorKey, std::string()}})));
    EXPECT_FALSE(isPermissionError(posix(EPERM, {{NSURLErrorKey, std::int64_t{4}}})));
    EXPECT_EQ(access->askedMode, -1);
}

TEST_F(PermissionErrorTest, EpermAsksWhetherTheItemMayBeReadAndWritten) {
    EXPECT_TRUE(isPermissionError(posix(EPERM, {{NSURLErrorKey, NSURL::fileURLWithPath("/a b")}})));
    EXPECT_EQ(access->asked, "/a b");
    EXPECT_EQ(access->askedMode, 6);
    EXPECT_TRUE(isPermissionError(posix(EPERM, {{NSURLErrorKey, std::string("/path")}})));
    EXPECT_EQ(access->asked, "/path");
}

TEST_F(PermissionErrorTest, EpermCountsWhereAccessIsRefusedAndForNoOtherReason) {
    const auto error = posix(EPERM, {{NSURLErrorKey, NSURL::fileURLWithPath("/x")}});
    access->answer = EACCES;
    EXPECT_TRUE(isPermissionError(error));
    for (const int code : {ENOENT, EROFS, EPERM, ELOOP, ENOTDIR}) {
        access->answer = code;
        EXPECT_FALSE(isPermissionError(error)) << code;
    }
}

TEST_F(PermissionErrorTest, NoOtherCodeAndNoOtherDomainCounts) {
    EXPECT_FALSE(isPermissionError(posix(ENOENT)));
    EXPECT_FALSE(isPermissionError(posix(0)));
    for (const char* domain : {NSOSStatusErrorDomain, NSCocoaErrorDomain}) {
        for (const int code : {EACCES, EPERM}) {
            EXPECT_FALSE(isPermissionError(NSError::errorWithDomain(
                domain, code, {{NSURLErrorKey, NSURL::fileURLWithPath("/")}})));
        }
    }
    EXPECT_FALSE(isPermissionError(nullptr));
}

TEST(PermissionError, OfARealFileGoesWithTheFile) {
    char path[] = "/tmp/morvane-error-XXXXXX";
    const int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    close(fd);
    const auto error = posix(EPERM, {{NSURLErrorKey, NSURL::fileURLWithPath(path)}});
    EXPECT_TRUE(isPermissionError(error));
    std::remove(path);
    errno = 0;
    EXPECT_FALSE(isPermissionError(error));
    EXPECT_EQ(errno, ENOENT);
}

TEST(ErrorWithError, MovesADescriptionWithoutSuggestionIntoTheSuggestion) {
    const auto source = posix(2, {{NSLocalizedDescriptionKey, std::string("X")}});
    const auto result = errorWithError(source, "New");
    EXPECT_EQ(result->localizedDescription(), "New");
    EXPECT_EQ(result->localizedRecoverySuggestion(), "X");
    EXPECT_EQ(source->localizedDescription(), "X");
}

TEST(ErrorWithError, JoinsDescriptionAndSuggestionByOneBlank) {
    const auto source = posix(2, {{NSLocalizedDescriptionKey, std::string("X")},
                                  {NSLocalizedRecoverySuggestionErrorKey, std::string("Y")}});
    EXPECT_EQ(errorWithError(source, "New")->localizedRecoverySuggestion(), "X Y");
}

TEST(ErrorWithError, KeepsDomainCodeAndEverythingElse) {
    const auto underlying = posix(5);
    const auto source = NSError::errorWithDomain(
        "Domain", 77,
        {{NSUnderlyingErrorKey, underlying}, {NSURLErrorKey, NSURL::fileURLWithPath("/x")}});
    const auto result = errorWithError(source, "New");
    EXPECT_EQ(result->domain(), "Domain");
    EXPECT_EQ(result->code(), 77);
    EXPECT_EQ(std::get<NSErrorRef>(result->userInfo().at(NSUnderlyingErrorKey)), underlying);
    EXPECT_EQ(std::get<NSURL>(result->userInfo().at(NSURLErrorKey)).path(), "/x");
}

TEST(ErrorWithError, ANilDescriptionRemovesTheKey) {
    const auto source = posix(2, {{NSLocalizedDescriptionKey, std::string("X")}});
    const auto result = errorWithError(source, std::nullopt);
    EXPECT_FALSE(result->userInfo().contains(NSLocalizedDescriptionKey));
    EXPECT_EQ(result->localizedRecoverySuggestion(), "X");
}

}  // namespace
}  // namespace morvane
