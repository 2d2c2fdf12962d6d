#include <MorvaneOperation/platform/foundation/NSURLResourceValues.h>

#include <utility>

namespace morvane {
namespace {
std::shared_ptr<FileInformation>& current() {
    static auto* const information = new std::shared_ptr(systemFileInformation());
    return *information;
}
}  // namespace

FileInformation::~FileInformation() = default;

void FileInformation::setCurrent(std::shared_ptr<FileInformation> information) {
    current() = information ? std::move(information) : systemFileInformation();
}

NSURLResourceValues NSURLResourceValues::valuesForURL(const NSURL& url) {
    return current()->read(url);
}

}  // namespace morvane
