// SPDX-License-Identifier: MIT
// A folder whose files are renamed.
#pragma once

#include <MorvaneOperation/platform/foundation/NSURL.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "RenameRequests.h"
#include "TemporaryFolder.h"

namespace morvane {

using Codes = std::vector<std::int64_t>;
/// What stands in a folder: each file's name, and what is in it.
using Contents = std::map<std::string, std::string>;

class RenameTest : public testing::Test {
  protected:
    std::string path(const std::string& name) const { return folder_ + '/' + name; }
    NSURL url(const std::string& name) const { return NSURL::fileURLWithPath(path(name)); }
    /// Each file holds the name that it has first.
    void make(const std::vector<std::string>& names) const {
        for (const auto& name : names)
            std::ofstream(path(name)) << name;
    }
    Contents contents() const {
        Contents result;
        for (const auto& entry : std::filesystem::directory_iterator(folder_)) {
            std::ifstream file(entry.path());
            result[entry.path().filename()] = {std::istreambuf_iterator<char>(file), {}};
        }
        return result;
    }
    RenameAnswer rename(const std::vector<std::pair<std::string, std::string>>& pairs,
                        const RenameCall& call = systemRename,
                        const std::function<bool()>& goesOn = {}) const {
        std::vector<NSURL> urls;
        std::vector<std::string> names;
        for (const auto& [from, to] : pairs) {
            urls.push_back(url(from));
            names.push_back(to);
        }
        return renameUrlsTo(urls, names, {}, call, goesOn);
    }
    std::vector<std::string> pathsOf(const RenameAnswer& answer) const {
        std::vector<std::string> result;
        for (const auto& each : answer.urls)
            result.push_back(std::filesystem::relative(each.path(), folder_));
        return result;
    }

    const TemporaryFolder temporary_;
    const std::string folder_ = temporary_.path();
};

using Names = std::vector<std::string>;

}  // namespace morvane
