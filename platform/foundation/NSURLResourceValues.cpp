// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/foundation/NSURLResourceValues.h>
#include <MorvaneOperation/platform/foundation/SystemPart.h>

#include <utility>

namespace morvane {
namespace {

SystemPart<FileInformation>& fileInformation() {
    static auto& part = *new SystemPart<FileInformation>(systemFileInformation);
    return part;
}

}  // namespace

FileInformation::~FileInformation() = default;

void FileInformation::setCurrent(std::shared_ptr<FileInformation> information) {
    fileInformation().replace(std::move(information));
}

NSURLResourceValues NSURLResourceValues::valuesForURL(const NSURL& url) {
    return fileInformation().current().read(url);
}

}  // namespace morvane
