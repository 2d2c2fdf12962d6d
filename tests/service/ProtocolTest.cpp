// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVFileRequest.h>
#include <MorvaneOperation/MVItemProgress.h>
#include <MorvaneOperation/platform/xpc/NSXPCInterface.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <string>

namespace morvane {
namespace {

TEST(MVFileRequest, HasTheMessagesOfTheProtocolWithTheirArgumentsAndRights) {
    struct Expected {
        const char* selector;
        std::size_t arguments;
        std::size_t replyArguments;
        const char* right;
    };
    constexpr Expected expected[] = {
        {"getAclEntriesWithUrl:reply:", 1, 2, ".GetFileAcl"},
        {"getAclAccessWithUrl:uuid:reply:", 2, 2, ".GetFileAccess"},
        {"setAclEntries:url:reply:", 2, 1, ".SetFileAcl"},
        {"propagateAclEntries:url:reply:", 2, 1, ".PropagateFileAcl"},
        {"renameUrls:names:reply:", 2, 3, ".RenameFiles"},
        {"getSizesWithUrls:reply:", 1, 2, ".GetFileSize"},
        {"getContentsOfDirectory:indexPath:reply:", 2, 2, ".GetFileSize"},
    };
    const auto& messages = protocolDescription<MVFileRequest>().messages;
    ASSERT_EQ(messages.size(), std::size(expected));
    for (std::size_t i = 0; i < messages.size(); ++i) {
        EXPECT_EQ(messages[i].selector, expected[i].selector);
        EXPECT_EQ(messages[i].arguments.size(), expected[i].arguments);
        EXPECT_EQ(messages[i].replyArguments.size(), expected[i].replyArguments);
        EXPECT_EQ(MVFileRequestRights[i].selector, expected[i].selector);
        EXPECT_EQ(MVFileRequestRights[i].right,
                  MVApplicationIdentifierPrefix + std::string(expected[i].right));
    }
}

TEST(MVFileRequest, RepliesOfErrorsAloneTakeTheirClassesAtPositionZero) {
    const auto interface = NSXPCInterface::interfaceWithProtocol<MVFileRequest>();
    for (const char* selector : {"setAclEntries:url:reply:", "propagateAclEntries:url:reply:"}) {
        const auto& classes = interface->classesForSelector(selector, 0, true);
        EXPECT_NE(std::find(classes.begin(), classes.end(), &NSError::classObject()),
                  classes.end());
    }
}

TEST(MVFileResponse, HasTheTwoCallbacks) {
    const auto& messages = protocolDescription<MVFileResponse>().messages;
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_EQ(messages[0].selector, "progressWithReply:");
    EXPECT_EQ(messages[0].arguments.size(), 0u);
    EXPECT_EQ(messages[0].replyArguments.size(), 1u);
    EXPECT_EQ(messages[1].selector, "updateFileSizes:reply:");
    EXPECT_EQ(messages[1].arguments.size(), 1u);
    EXPECT_EQ(messages[1].replyArguments.size(), 1u);
}

TEST(MVCountedResponse, HasTheTwoCallbacksFirst) {
    const auto& messages = protocolDescription<MVCountedResponse>().messages;
    const auto& fixed = protocolDescription<MVFileResponse>().messages;
    ASSERT_EQ(messages.size(), fixed.size() + 1);
    for (std::size_t i = 0; i != fixed.size(); ++i) {
        EXPECT_EQ(messages[i].selector, fixed[i].selector);
        EXPECT_EQ(messages[i].arguments, fixed[i].arguments);
        EXPECT_EQ(messages[i].replyArguments, fixed[i].replyArguments);
    }
    EXPECT_EQ(messages.back().selector, "updateItemCounts:failed:reply:");
    EXPECT_EQ(messages.back().arguments.size(), 2u);
    EXPECT_EQ(messages.back().replyArguments.size(), 1u);
}

}  // namespace
}  // namespace morvane
