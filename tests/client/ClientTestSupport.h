// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVFileClient.h>
#include <MorvaneOperation/platform/host/Log.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "TemporaryFolder.h"
#include "service/ServiceTestSupport.h"

namespace morvane {

/// A loop of the test's thread, which runs only while the test waits.
class ClientLoop {
  public:
    /// It may be used after the end of the loop; what it is given then is never run.
    MVFileClient::Executor executor() {
        return [tasks = tasks_](std::function<void()> task) {
            const std::lock_guard lock(tasks->mutex);
            tasks->waiting.push_back(std::move(task));
            tasks->added.notify_all();
        };
    }

    /// Runs tasks until `isDone`; false if that does not come.
    bool runUntil(const std::function<bool()>& isDone) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!isDone()) {
            std::function<void()> task;
            {
                std::unique_lock lock(tasks_->mutex);
                if (!tasks_->added.wait_until(lock, end,
                                              [this] { return !tasks_->waiting.empty(); }))
                    return false;
                task = std::move(tasks_->waiting.front());
                tasks_->waiting.pop_front();
            }
            task();
        }
        return true;
    }

  private:
    struct Tasks {
        std::mutex mutex;
        std::condition_variable added;
        std::deque<std::function<void()>> waiting;
    };
    const std::shared_ptr<Tasks> tasks_ = std::make_shared<Tasks>();
};

/// A client with the services of a folder: the file service, and "helper" in the helper's place.
class ClientTest : public AuthorizationTest {
  protected:
    ClientTest() {
        setLogSink([](std::string_view) {});
        std::filesystem::permissions(folder, std::filesystem::perms(0755));
        services_ = folder / "services";
        std::filesystem::create_directory(services_);
        setenv("MORVANE_LIBEXEC_DIR", services_.c_str(), 1);
        std::filesystem::create_symlink(MORVANE_FILE_SERVICE, services_ / "helper");
        serve(MORVANE_FILE_SERVICE);
        client = MVFileClient::init(loop.executor(), [this] { return connector(); });
    }
    ~ClientTest() override {
        client.reset();
        unsetenv("MORVANE_LIBEXEC_DIR");
        setLogSink({});
    }

    /// Puts a program in the file service's place.
    void serve(const std::string& program) {
        std::filesystem::remove(services_ / MVFileServiceName);
        std::filesystem::create_symlink(program, services_ / MVFileServiceName);
    }
    /// Has the file service run as a user who owns nothing. Only root can.
    void serveAsNobody() {
        // Where that user can reach it.
        std::filesystem::copy_file(MORVANE_FILE_SERVICE, folder / "service");
        std::filesystem::permissions(folder / "service", std::filesystem::perms(0755));
        std::filesystem::remove(services_ / MVFileServiceName);
        std::ofstream(services_ / MVFileServiceName)
            << "#!/bin/sh\nexec setpriv --reuid=65534 --regid=65534 --clear-groups '"
            << (folder / "service").string() << "'\n";
        std::filesystem::permissions(services_ / MVFileServiceName, std::filesystem::perms(0755));
    }

    std::shared_ptr<MVFileConnector> connector() {
        const auto made = MVConnector::init<MVFileConnector>();
        const auto helper = NSXPCConnection::initWithServiceName("helper");
        const auto remote = NSXPCInterface::interfaceWithProtocol<MVFileRequest>();
        for (const auto& [selector, classes] : made->remoteEncodableClasses())
            remote->setClasses(classes, selector, 0, true);
        const auto exported = NSXPCInterface::interfaceWithProtocol<MVCountedResponse>();
        for (const auto& [selector, classes] : made->exportedEncodableClasses())
            exported->setClasses(classes, selector, 0, false);
        helper->setRemoteObjectInterface(remote);
        helper->setExportedInterface(exported);
        helper->setExportedObject<MVCountedResponse>(made->responder());
        helper->resume();
        made->setAuthConnection(helper);
        const std::lock_guard lock(mutex_);
        ++connectors_;
        return made;
    }
    /// How many were made.
    int connectors() {
        const std::lock_guard lock(mutex_);
        return connectors_;
    }

    /// What the operation that `begin` begins brings.
    template <class Answer>
    Answer waitFor(const std::function<void(MVFileClient::Completion<Answer>)>& begin) {
        std::optional<Answer> come;
        begin([&](Answer answer) {
            EXPECT_FALSE(come);
            come = std::move(answer);
        });
        EXPECT_FALSE(come) << "inside the call";
        if (!loop.runUntil([&] { return come.has_value(); })) {
            ADD_FAILURE() << "no completion came";
            std::abort();
        }
        return std::move(*come);
    }
    Result<MVFileAcl> read(const std::filesystem::path& path, MVOperationOptions options = {}) {
        return waitFor<Result<MVFileAcl>>([&](auto completion) {
            client->readAcl(NSURL::fileURLWithPath(path.string()), options, completion);
        });
    }
    NSErrorRef write(const MVFileAcl& acl, MVOperationOptions options = {}) {
        return waitFor<NSErrorRef>(
            [&](auto completion) { client->writeAcl(acl, options, completion); });
    }

    std::filesystem::path makeFile(const std::string& name, unsigned mode = 0644) {
        const auto path = folder / name;
        std::ofstream(path) << "text";
        std::filesystem::permissions(path, std::filesystem::perms(mode));
        return path;
    }
    static unsigned modeOf(const std::filesystem::path& path) {
        return static_cast<unsigned>(std::filesystem::status(path).permissions()) & 0777;
    }
    static void setOthers(const MVFileAcl& acl, std::int64_t code) {
        acl.entries.back()->setPermissionGroup(code);
    }

    const TemporaryFolder temporary;
    const std::filesystem::path& folder = temporary.path();
    ClientLoop loop;
    std::shared_ptr<MVFileClient> client;

  private:
    std::filesystem::path services_;
    std::mutex mutex_;
    int connectors_ = 0;
};

inline void expectCancelled(const NSErrorRef& error) {
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain(), NSPOSIXErrorDomain);
    EXPECT_EQ(error->code(), ECANCELED);
    EXPECT_TRUE(isCancellation(error));
}

}  // namespace morvane
