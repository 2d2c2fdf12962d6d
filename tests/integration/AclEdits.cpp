// SPDX-License-Identifier: MIT
#include <cerrno>
#include <iostream>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include "EditCommand.h"
#include "EntryJson.h"
#include "FileServices.h"

namespace {

using namespace morvane;

/// What passes between `morvane acl PATH --edit SCRIPT` and the service.
class RecordedEdit {
  public:
    RecordedEdit(FileServices& services, EditOptions options)
        : services_(services), options_(std::move(options)) {}

    Json run() {
        Json answer;
        if (options_.lossy) {
            // Else what is asked for never leaves the host, which works the nearest list out
            // itself.
            options_.lossy = false;
            edit([&](const EntryList& entries, const NSURL&) {
                asked_ = entries;
                return NSError::errorWithDomain(NSPOSIXErrorDomain, ECANCELED, {});
            });
            options_.lossy = true;
            answer["asked"] = jsonOfEntries(asked_);
        }
        const auto outcome = edit([&](const EntryList& entries, const NSURL& url) {
            asked_ = entries;
            return services_.setAclEntries(entries, url);
        });
        if (!options_.lossy)
            answer["asked"] = jsonOfEntries(asked_);
        answer["read"] = read_;
        answer["exit"] = static_cast<int>(outcome.exitCode);
        answer["message"] = outcome.message;
        return answer;
    }

  private:
    Outcome edit(const AclSink& sink) {
        read_ = nullptr;
        const AclSource source = [&](const NSURL& url) {
            auto answer = services_.aclEntries(url);
            if (answer && read_.is_null())
                read_ = jsonOfEntries(*answer);
            return answer;
        };
        return runAclEdit(options_, source, sink, nullptr, nullptr, Style(false));
    }

    FileServices& services_;
    EditOptions options_;
    EntryList asked_;
    Json read_;
};

}  // namespace

/// Each line of standard input is an edit: an object with the strings "path" and "script", and with
/// "lossy". The line printed for it has the entries that were "read" and that were "asked" for,
/// both in the order in which they count, and the "exit" status and the "message" of the command.
int main() {
    FileServices services("acl-edits");
    for (std::string line; std::getline(std::cin, line);) {
        const auto edit = Json::parse(line);
        EditOptions options;
        options.path = edit.at("path");
        options.script = edit.at("script").get<std::string>();
        options.lossy = edit.at("lossy");
        std::cout << RecordedEdit(services, options).run().dump() << std::endl;
    }
}
