#include <gtest/gtest.h>

#include <cerrno>

#include "AclRequests.h"
#include "RequestErrors.h"

namespace morvane {
namespace {

const NSURL* urlOf(const NSErrorRef& error) {
    const auto found = error->userInfo().find(NSURLErrorKey);
    return found == error->userInfo().end() ? nullptr : std::get_if<NSURL>(&found->second);
}

void expectError(const NSErrorRef& error, std::int64_t code, const NSURL& url) {
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain(), NSPOSIXErrorDomain);
    EXPECT_EQ(error->code(), code);
    ASSERT_TRUE(urlOf(error));
    EXPECT_EQ(*urlOf(error), url);
}

TEST(AclRequests, ARealFileHasItsEntriesAndNoError) {
    const auto answer = aclEntriesOfUrl(NSURL::fileURLWithPath("/etc/passwd"));
    EXPECT_FALSE(answer.error);
    ASSERT_GE(answer.entries.size(), 3U);
    EXPECT_EQ(answer.entries.front()->uuid(), uuidOfPosixIdentity(CBPosixUser{0}));
}

TEST(AclRequests, AMissingItemIsAPosixErrorWithTheUrl) {
    const auto url = NSURL::fileURLWithPath("/etc/there-is-no-such-file");
    const auto answer = aclEntriesOfUrl(url);
    EXPECT_TRUE(answer.entries.empty());
    expectError(answer.error, ENOENT, url);
    EXPECT_EQ(answer.error->localizedDescription(), "No such file or directory");
}

TEST(AclRequests, AUrlOfSomethingElseThanAFileIsRefused) {
    const auto url = NSURL::URLWithString("https://example.org/x");
    ASSERT_TRUE(url);
    const auto answer = aclEntriesOfUrl(*url);
    expectError(answer.error, EINVAL, *url);
    EXPECT_EQ(answer.error->localizedDescription(),
              "Only files and folders have an access-control list.");
}

}  // namespace
}  // namespace morvane
