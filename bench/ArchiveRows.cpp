// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVAclEntry.h>
#include <MorvaneOperation/platform/archive/NSKeyedArchiver.h>
#include <MorvaneOperation/platform/archive/NSKeyedUnarchiver.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "PlistDocument.h"
#include "Rows.h"

namespace bench {
namespace {

using namespace morvane;

/// A folder's entry of 4 groups and 17 boxes, as ours and as the peer's, checked to be the same.
struct Document {
    std::shared_ptr<MVAclEntry> entry = MVAclEntry::newEntryForDirectory(true);
    NSData archive = NSKeyedArchiver::archivedDataWithRootObject(*entry);
    PlistEntry record = recordOf(*entry);

    Document() {
        if (decodeWithPlist(archive) != record ||
            decodeWithPlist(encodeWithPlist(record)) != record)
            throw std::runtime_error("libplist's document is not the one that is compared");
    }
    std::string note() const { return std::to_string(archive.size()) + " bytes"; }
};

}  // namespace

Lines archiveEncodeEntry(const Options& options) {
    const Document document;
    return compare(
        {.row = "archive-encode-entry",
         .ours = {"", repeated([&] {
                      keep(NSKeyedArchiver::archivedDataWithRootObject(*document.entry));
                  })},
         .peers = {{"libplist", repeated([&] { keep(encodeWithPlist(document.record)); })}},
         .required = Requirement::timesFaster(30),
         .limit = {},
         .note = document.note()},
        options);
}

Lines archiveDecodeEntry(const Options& options) {
    const Document document;
    const NSClassSet classes{&MVAclEntry::classObject()};
    return compare(
        {.row = "archive-decode-entry",
         .ours = {"", repeated([&] {
                      NSErrorRef error;
                      const auto entry = NSKeyedUnarchiver::unarchivedObjectOfClasses(
                          classes, document.archive, &error);
                      if (!entry)
                          throw std::runtime_error(error->localizedDescription());
                  })},
         .peers = {{"libplist", repeated([&] { keep(decodeWithPlist(document.archive)); })}},
         .required = Requirement::timesFaster(10),
         .limit = {},
         .note = "to a live entry"},
        options);
}

}  // namespace bench
