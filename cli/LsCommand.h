#pragma once

#include <MorvaneOperation/platform/foundation/NSError.h>
#include <MorvaneOperation/platform/foundation/NSURL.h>

#include <functional>
#include <string>
#include <vector>

#include "Outcome.h"

/// `morvane ls DIR`: lists a folder in its own order.
namespace morvane {

struct LsOptions {
    std::string path;
    bool json = false;
};

struct ContentsAnswer {
    std::vector<NSURL> contents;
    NSErrorRef error;
};

using ContentsSource = std::function<ContentsAnswer(const NSURL& directory)>;

Outcome runLs(const LsOptions& options, const ContentsSource& source);

}  // namespace morvane
