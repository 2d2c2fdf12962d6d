// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVAclEntry.h>
#include <MorvaneOperation/MVFileRequest.h>
#include <MorvaneOperation/platform/xpc/NSXPCConnection.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace bench {

/// The real file service, which is started with this, or the privileged helper, which must be
/// there; each call waits for the answer and throws if it is an error.
class FileService {
  public:
    enum class Kind { own, privileged };
    explicit FileService(Kind kind = Kind::own);
    ~FileService();
    FileService(const FileService&) = delete;
    FileService& operator=(const FileService&) = delete;

    using Entries = std::vector<std::shared_ptr<morvane::MVAclEntry>>;

    /// Of the service, which has answered before.
    std::int64_t processIdentifier() const;

    std::int64_t sizeOf(const std::string& path);
    Entries aclOf(const std::string& path);
    void propagate(const Entries& entries, const std::string& path);
    void rename(const std::vector<morvane::NSURL>& urls, const std::vector<std::string>& names);

  private:
    std::shared_ptr<morvane::NSXPCConnection> connection_;
};

}  // namespace bench
