// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSURLResourceValues.h>

#include <map>

/// Files that a test describes; every other file has no values.
namespace morvane {

class FakeFileInformation final : public FileInformation {
  public:
    NSURLResourceValues read(const NSURL& url) override {
        const auto found = files.find(url);
        return found == files.end() ? NSURLResourceValues() : found->second;
    }

    std::map<NSURL, NSURLResourceValues> files;
};

}  // namespace morvane
