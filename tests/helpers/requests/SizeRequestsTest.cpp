// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVItemFailures.h>
#include <MorvaneOperation/platform/xpc/ConnectionCore.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <mutex>
#include <string>
#include <vector>

#include "FileRequestHandler.h"
#include "SizeRequests.h"
#include "TemporaryFolder.h"
#include "platform/fake/FakeStreamSocket.h"

namespace morvane {
namespace {

namespace fs = std::filesystem;
using std::chrono::hours;
using std::chrono::milliseconds;
using Items = std::vector<std::shared_ptr<MVFileSizeItem>>;

constexpr std::chrono::seconds watchdog{30};

/// The host's end of a connection in this process, and the service's.
class Host final : public MVFileResponse {
  public:
    std::function<bool(const Items&)> onUpdate = [](const Items&) { return true; };
    std::function<bool()> onProgress = [] { return true; };

    void updateFileSizes(Items sizes, NSXPCReply<bool> reply) override { reply(onUpdate(sizes)); }
    void progressWithReply(NSXPCReply<bool> reply) override { reply(onProgress()); }
};

class SizeRequestsTest : public testing::Test {
  protected:
    SizeRequestsTest() {
        auto [hosts, services] = FakeStreamSocket::pair();
        connection = std::make_shared<NSXPCConnection>(
            std::make_shared<NSXPCConnection::Core>("service", hosts));
        auto responses = NSXPCInterface::interfaceWithProtocol<MVFileResponse>();
        responses->setClasses({&NSArrayClass, &MVFileSizeItem::classObject()},
                              "updateFileSizes:reply:", 0, false);
        connection->setExportedInterface(responses);
        connection->setExportedObject<MVFileResponse>(host);
        connection->setInvalidationHandler([this] { hostEnded.set_value(); });
        connection->resume();
        client = std::make_shared<NSXPCConnection>(
            std::make_shared<NSXPCConnection::Core>("host", services));
        FileRequestHandler::configure(client);
        client->setInvalidationHandler([this] { clientEnded.set_value(); });
        client->resume();
    }
    ~SizeRequestsTest() override {
        connection->invalidate();
        client->invalidate();
        hostEnded.get_future().wait_for(watchdog);
        clientEnded.get_future().wait_for(watchdog);
    }

    NSURL url(const fs::path& name) const {
        return NSURL::fileURLWithPath((folder / name).native());
    }
    NSURL file(const fs::path& name, std::uintmax_t size) const {
        fs::create_directories((folder / name).parent_path());
        std::ofstream(folder / name).flush();
        fs::resize_file(folder / name, size);
        return url(name);
    }
    /// Much more than a host waits for: a folder of 100 folders, asked for again and again.
    std::vector<NSURL> muchWork() const {
        for (int i = 0; i < 100; ++i)
            file("much/" + std::to_string(i) + "/file", 10);
        return std::vector<NSURL>(20000, url("much"));
    }
    static constexpr std::int64_t muchSize = 1000;

    /// Ends the test program if the answer does not come.
    SizesAnswer sizes(const std::vector<NSURL>& urls,
                      milliseconds interval = milliseconds(250)) const {
        auto answer =
            std::async(std::launch::async, [&] { return sizesOfUrls(urls, client, {}, interval); });
        if (answer.wait_for(watchdog) != std::future_status::ready) {
            ADD_FAILURE() << "the work did not end";
            std::abort();
        }
        return answer.get();
    }

    const TemporaryFolder temporary;
    const fs::path& folder = temporary.path();
    std::shared_ptr<Host> host = std::make_shared<Host>();
    std::shared_ptr<NSXPCConnection> connection;
    std::shared_ptr<NSXPCConnection> client;
    std::promise<void> hostEnded;
    std::promise<void> clientEnded;
};

void expectCancelled(const SizesAnswer& answer, std::size_t count) {
    ASSERT_TRUE(answer.error);
    EXPECT_EQ(answer.error->domain(), NSPOSIXErrorDomain);
    EXPECT_EQ(answer.error->code(), ECANCELED);
    EXPECT_EQ(answer.error->localizedDescription(), "The computation was cancelled.");
    ASSERT_EQ(answer.sizes.size(), count);
    EXPECT_TRUE(answer.sizes.back()->busy());
    EXPECT_EQ(answer.sizes.back()->size(), -1);
}

TEST_F(SizeRequestsTest, TheAnswerHasAFinishedItemForEachUrl) {
    const auto answer = sizes({file("a", 5), file("b/c", 7), url("")});
    EXPECT_FALSE(answer.error);
    ASSERT_EQ(answer.sizes.size(), 3U);
    EXPECT_EQ(answer.sizes[0]->size(), 5);
    EXPECT_EQ(answer.sizes[1]->size(), 7);
    EXPECT_EQ(answer.sizes[2]->size(), 12);
    for (const auto& item : answer.sizes)
        EXPECT_FALSE(item->busy());
}

TEST_F(SizeRequestsTest, AFileWithSeveralNamesCountsOnceWithinEachItem) {
    const auto one = file("folder/one", 100);
    fs::create_hard_link(folder / "folder/one", folder / "folder/again");
    const auto answer = sizes({url("folder/again"), one, url("folder")});
    EXPECT_FALSE(answer.error);
    ASSERT_EQ(answer.sizes.size(), 3U);
    for (const auto& item : answer.sizes)
        EXPECT_EQ(item->size(), 100);
}

TEST_F(SizeRequestsTest, AHostIsNotCalledBeforeTheFirstIntervalIsOver) {
    host->onUpdate = [](const Items&) { return ADD_FAILURE(), true; };
    host->onProgress = [] { return ADD_FAILURE(), true; };
    file("a/b/c", 5);
    const auto answer = sizes({url("")}, hours(1));
    EXPECT_FALSE(answer.error);
    EXPECT_EQ(answer.sizes.at(0)->size(), 5);
}

TEST_F(SizeRequestsTest, AnUpdateHasFinishedItemsThenABusyOneThenUnknownOnes) {
    const auto urls = muchWork();
    bool sawFinished = false;
    bool sawBegun = false;
    host->onUpdate = [&](const Items& items) {
        EXPECT_EQ(items.size(), urls.size());
        std::size_t i = 0;
        for (; i < items.size() && !items[i]->busy(); ++i)
            EXPECT_EQ(items[i]->size(), muchSize);
        sawFinished |= i > 0;
        // What is just being opened is as unknown as those behind it.
        if (items.at(i)->size() != -1) {
            sawBegun = true;
            EXPECT_GE(items[i]->size(), 0);
            EXPECT_LE(items[i]->size(), muchSize);
        }
        for (++i; i < items.size(); ++i) {
            EXPECT_EQ(items[i]->size(), -1);
            EXPECT_TRUE(items[i]->busy());
        }
        return !sawFinished || !sawBegun;
    };
    expectCancelled(sizes(urls, milliseconds(0)), urls.size());
    EXPECT_TRUE(sawFinished);
    EXPECT_TRUE(sawBegun);
}

TEST_F(SizeRequestsTest, UpdateAndProgressComeTogetherAndNotBeforeTheLastWereAnswered) {
    const auto urls = muchWork();
    std::atomic<int> updates = 0;
    std::atomic<int> questions = 0;
    host->onUpdate = [&](const Items&) {
        EXPECT_EQ(updates++, questions);
        return true;
    };
    host->onProgress = [&] {
        EXPECT_EQ(++questions, updates);
        return questions < 5;
    };
    expectCancelled(sizes(urls, milliseconds(0)), urls.size());
    EXPECT_EQ(questions, 5);
}

TEST_F(SizeRequestsTest, AHostIsCalledNoSoonerThanAfterAnInterval) {
    using Clock = std::chrono::steady_clock;
    constexpr milliseconds interval(20);
    const auto urls = muchWork();
    const auto begun = Clock::now();
    std::atomic<int> updates = 0;
    host->onUpdate = [&](const Items&) {
        ++updates;
        EXPECT_GE(Clock::now() - begun, interval * updates.load());
        return updates < 3;
    };
    expectCancelled(sizes(urls, interval), urls.size());
    EXPECT_EQ(updates, 3);
}

TEST_F(SizeRequestsTest, ANoToAnUpdateStopsTheWork) {
    const auto urls = muchWork();
    host->onUpdate = [](const Items&) { return false; };
    expectCancelled(sizes(urls, milliseconds(0)), urls.size());
}

TEST_F(SizeRequestsTest, ANoToTheQuestionStopsTheWork) {
    const auto urls = muchWork();
    host->onProgress = [] { return false; };
    expectCancelled(sizes(urls, milliseconds(0)), urls.size());
}

TEST_F(SizeRequestsTest, AHostThatGoesAwayStopsTheWork) {
    const auto urls = muchWork();
    host->onUpdate = [this](const Items&) {
        connection->invalidate();
        return true;
    };
    expectCancelled(sizes(urls, milliseconds(0)), urls.size());
}

TEST_F(SizeRequestsTest, AConnectionThatIsNoMoreStopsTheWork) {
    const auto urls = muchWork();
    const std::weak_ptr<NSXPCConnection> gone;
    const auto answer = sizesOfUrls(urls, gone, {}, milliseconds(0));
    expectCancelled(answer, urls.size());
}

TEST_F(SizeRequestsTest, ACancelledOneTellsWhatCouldNotBeReadBefore) {
    auto urls = muchWork();
    urls.insert(urls.begin(), url("none"));
    // Not before the first is done.
    host->onUpdate = [](const Items& items) { return items.front()->busy(); };
    const auto answer = sizes(urls, milliseconds(0));
    ASSERT_TRUE(answer.error);
    EXPECT_EQ(answer.error->code(), ECANCELED);
    EXPECT_EQ(answer.error->localizedDescription(),
              "The computation was cancelled. 1 item could not be read and counts as nothing: \"" +
                  folder.string() + "/none\" (No such file or directory).");
}

TEST_F(SizeRequestsTest, WhatCannotBeReadIsCountedAndTheFirstIsNamed) {
    const auto there = file("there", 5);
    const auto answer = sizes({url("a b"), there, url("c")});
    ASSERT_TRUE(answer.error);
    EXPECT_EQ(answer.error->domain(), NSPOSIXErrorDomain);
    EXPECT_EQ(answer.error->code(), ENOENT);
    EXPECT_EQ(answer.error->localizedDescription(),
              "2 items could not be read and count as nothing; the first is \"" + folder.string() +
                  "/a b\" (No such file or directory)");
    const auto failures = failuresOfError(*answer.error);
    EXPECT_EQ(failures.counts.failed, 2U);
    ASSERT_EQ(failures.errors.size(), 2U);
    EXPECT_EQ(std::get<NSURL>(failures.errors[1]->userInfo().at(NSURLErrorKey)), url("c"));
    EXPECT_EQ(failures.errors[1]->code(), ENOENT);
    ASSERT_EQ(answer.sizes.size(), 3U);
    EXPECT_EQ(answer.sizes[0]->size(), -1) << "it is unknown";
    EXPECT_EQ(answer.sizes[1]->size(), 5);
    EXPECT_FALSE(answer.sizes[2]->busy());
}

TEST_F(SizeRequestsTest, ASingleItemThatCannotBeReadIsNamed) {
    const auto answer = sizes({url("none")});
    ASSERT_TRUE(answer.error);
    EXPECT_EQ(answer.error->localizedDescription(),
              "1 item could not be read and counts as nothing: \"" + folder.string() +
                  "/none\" (No such file or directory)");
}

TEST_F(SizeRequestsTest, APathThatIsNoTextIsNamedAsFarAsItIsAndKeptWhole) {
    const auto item = url("caf\xe9 \xc3\xa9\n");
    const auto answer = sizes({item});
    ASSERT_TRUE(answer.error);
    EXPECT_EQ(answer.error->localizedDescription(),
              "1 item could not be read and counts as nothing: \"" + folder.string() +
                  "/caf\xef\xbf\xbd \xc3\xa9\n\" (No such file or directory)");
    EXPECT_EQ(std::get<NSURL>(answer.error->userInfo().at(NSURLErrorKey)), item);
}

TEST_F(SizeRequestsTest, OnlyFilesHaveASize) {
    const auto answer = sizes({*NSURL::URLWithString("http://example.org/")});
    EXPECT_TRUE(answer.sizes.empty());
    ASSERT_TRUE(answer.error);
    EXPECT_EQ(answer.error->code(), EINVAL);
    EXPECT_EQ(answer.error->localizedDescription(), "Only files and folders have a size.");
}

TEST_F(SizeRequestsTest, NoUrlsHaveNoSizes) {
    const auto answer = sizes({}, milliseconds(0));
    EXPECT_TRUE(answer.sizes.empty());
    EXPECT_FALSE(answer.error);
}

TEST_F(SizeRequestsTest, OnBehalfOfAnotherNoLinkOnTheWayIsFollowed) {
    file("real/file", 5);
    fs::create_directory_symlink("real", folder / "link");
    const auto uid = static_cast<std::uint32_t>(::getuid());
    const auto answer =
        sizesOfUrls({url("link/file"), url("real/file"), url("none")}, client, {uid});
    ASSERT_EQ(answer.sizes.size(), 3U);
    EXPECT_EQ(answer.sizes[0]->size(), -1);
    EXPECT_EQ(answer.sizes[1]->size(), 5);
    EXPECT_EQ(answer.sizes[2]->size(), -1);
    ASSERT_TRUE(answer.error);
    EXPECT_EQ(answer.error->code(), ELOOP);
    EXPECT_EQ(answer.error->localizedDescription(),
              "2 items could not be read and count as nothing; the first is \"" + folder.string() +
                  "/link/file\" (Too many levels of symbolic links)");
    const auto direct = sizesOfUrls({url("real"), url("real/file"), url("link")}, client, {uid});
    EXPECT_FALSE(direct.error);
    ASSERT_EQ(direct.sizes.size(), 3U);
    EXPECT_EQ(direct.sizes[0]->size(), 5);
    EXPECT_EQ(direct.sizes[1]->size(), 5);
    EXPECT_EQ(direct.sizes[2]->size(), 0);
}

}  // namespace
}  // namespace morvane
