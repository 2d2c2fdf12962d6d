// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVAclEntry.h>
#include <MorvaneOperation/platform/archive/NSKeyedArchiver.h>
#include <MorvaneOperation/platform/archive/NSKeyedUnarchiver.h>
#include <glib-object.h>

#include <cstdint>
#include <cstdio>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "Allocations.h"
#include "Rows.h"
#include "VirtualCall.h"

namespace bench {
namespace {

using namespace morvane;

class CountingObserver final : public NSKeyValueObserver {
  public:
    void observeValueForKeyPath(const NSKeyPath&, NSObject&) override { ++changes_; }

  private:
    std::uint64_t changes_ = 0;
};

std::function<double(std::size_t)> stateChanges(MVAclPermission& permission) {
    return [&permission](std::size_t count) {
        return timed([&] {
            for (std::size_t i = 0; i < count; ++i)
                permission.setState(static_cast<std::int64_t>(i & 1));
        });
    };
}

Contender virtualCalls() {
    return {"virtual call", [target = &countingTarget()](std::size_t count) {
                return timed([&] {
                    for (std::size_t i = 0; i < count; ++i)
                        target->stateWasSet(static_cast<std::int64_t>(i & 1));
                });
            }};
}

/// Adds `batch` observers to one object and removes them in the order of their adding, again and
/// again; the time is that of one of them.
std::function<double(std::size_t)> observers(std::size_t batch) {
    return [batch](std::size_t count) {
        const auto observed = MVAclPermission::initWithName("Read Data", 2, MVStateOff);
        CountingObserver observer;
        std::vector<NSObject> origins(batch);
        const auto rounds = (count + batch - 1) / batch;
        const auto time = timed([&] {
            for (std::size_t round = 0; round < rounds; ++round) {
                for (auto& origin : origins)
                    observed->addObserver(&observer, MVTreeNode::representedObjectStateKeyPath,
                                          origin);
                for (auto& origin : origins)
                    observed->removeObserver(&observer, MVTreeNode::representedObjectStateKeyPath,
                                             origin);
            }
        });
        return time * static_cast<double>(count) / static_cast<double>(rounds * batch);
    };
}

void ignoreSignal() {}

/// The same with the handlers of a GObject's signal.
Contender signalHandlers(std::size_t batch) {
    return {"GObject handlers", [batch](std::size_t count) {
                auto* const object = G_OBJECT(g_object_new(G_TYPE_OBJECT, nullptr));
                std::vector<gulong> handlers(batch);
                const auto rounds = (count + batch - 1) / batch;
                const auto time = timed([&] {
                    for (std::size_t round = 0; round < rounds; ++round) {
                        for (auto& handler : handlers)
                            handler = g_signal_connect(object, "notify::state",
                                                       G_CALLBACK(ignoreSignal), nullptr);
                        for (const auto handler : handlers)
                            g_signal_handler_disconnect(object, handler);
                    }
                });
                g_object_unref(object);
                return time * static_cast<double>(count) / static_cast<double>(rounds * batch);
            }};
}

/// Makes entries `batch` at a time, all of which live until the batch is done. The time of letting
/// go of them does not count.
template <class Make>
std::function<double(std::size_t)> inBatches(std::size_t batch, Make make) {
    return [=](std::size_t count) {
        const auto batches = (count + batch - 1) / batch;
        double time = 0;
        for (std::size_t i = 0; i < batches; ++i) {
            decltype(make(batch)) made;
            time += timed([&] { made = make(batch); });
            keep(made);
        }
        return time * static_cast<double>(count) / static_cast<double>(batches * batch);
    };
}

template <class Make>
std::string allocationNote(std::size_t batch, Make make) {
    const auto before = allocationCount();
    const auto made = make(batch);
    const auto each = static_cast<double>(allocationCount() - before) / static_cast<double>(batch);
    char text[48];
    std::snprintf(text, sizeof text, "%.1f allocations each", each);
    return text;
}

/// Lines for several numbers of entries, each beside the smallest: the time for one stays the same.
template <class MakeFor>
Lines linear(const std::string& row, MakeFor makeFor, const Options& options) {
    constexpr std::size_t batches[] = {100, 1000, 10000};
    constexpr double tolerance = 1.5;  // more memory is touched, and caches miss
    Lines lines;
    for (std::size_t batch : batches) {
        const auto make = makeFor(batch);
        Comparison comparison{.row = row + " " + std::to_string(batch),
                              .ours = {"", inBatches(batch, make)},
                              .peers = {},
                              .required = {},
                              .limit = {},
                              .note = allocationNote(batch, make)};
        if (batch != batches[0]) {
            comparison.peers.push_back(
                {std::to_string(batches[0]), inBatches(batches[0], makeFor(batches[0]))});
            comparison.required = Requirement::atMostTimes(tolerance);
        }
        auto measured = compare(comparison, options);
        std::move(measured.begin(), measured.end(), std::back_inserter(lines));
    }
    return lines;
}

}  // namespace

Lines stateChange(const Options& options) {
    const auto observed = MVAclPermission::initWithName("Read Data", 2, MVStateOff);
    CountingObserver observer;
    observed->addObserver(&observer, MVAclPermission::stateKeyPath);
    auto lines = compare({.row = "state-change",
                          .ours = {"", stateChanges(*observed)},
                          .peers = {virtualCalls()},
                          .required = Requirement::atMostTimes(3),
                          .limit = {},
                          .note = {}},
                         options);
    observed->removeObserver(&observer, MVAclPermission::stateKeyPath);

    // The observer of nearly every box: its entry, here while it does not listen.
    const auto entry = MVAclEntry::newEntryForDirectory(true);
    entry->setUpdatingPermissions(true);
    auto& box = *MVTreeNode::permissionOf(*entry->permissions()[0]->childNodeAtIndex(0));
    const auto more = compare({.row = "state-change entry",
                               .ours = {"", stateChanges(box)},
                               .peers = {virtualCalls()},
                               .required = Requirement::atMostTimes(3),
                               .limit = {},
                               .note = {}},
                              options);
    lines.insert(lines.end(), more.begin(), more.end());
    return lines;
}

Lines observe1000(const Options& options) {
    constexpr std::size_t batch = 1000;
    return compare({.row = "observe-1000",
                    .ours = {"", observers(batch)},
                    .peers = {signalHandlers(batch)},
                    .required = Requirement::atMostTimes(1),
                    .limit = {},
                    .note = "one added and removed"},
                   options);
}

Lines observe100000(const Options& options) {
    constexpr std::size_t batch = 100000;
    constexpr double tolerance = 3;  // beside a thousand, which the caches hold
    auto lines = compare({.row = "observe-100000",
                          .ours = {"", observers(batch)},
                          .peers = {signalHandlers(batch)},
                          .required = Requirement::atMostTimes(1),
                          .limit = {},
                          .note = "one added and removed"},
                         options);
    const auto more = compare({.row = "observe-100000",
                               .ours = {"", observers(batch)},
                               .peers = {{"1000", observers(1000)}},
                               .required = Requirement::atMostTimes(tolerance),
                               .limit = {},
                               .note = {}},
                              options);
    lines.insert(lines.end(), more.begin(), more.end());
    return lines;
}

Lines newFolderEntry(const Options& options) {
    return linear(
        "new-folder-entry",
        [](std::size_t) {
            return [](std::size_t count) {
                std::vector<std::shared_ptr<MVAclEntry>> entries(count);
                for (auto& entry : entries)
                    entry = MVAclEntry::newEntryForDirectory(true);
                return entries;
            };
        },
        options);
}

Lines decode1000Entries(const Options& options) {
    return linear(
        "decode-1000-entries",
        [](std::size_t batch) {
            std::vector<std::shared_ptr<MVAclEntry>> entries(batch);
            for (auto& entry : entries)
                entry = MVAclEntry::newEntryForDirectory(true);
            NSKeyedArchiver coder;
            coder.encodeObjects(entries, "entries");
            return [archive = std::make_shared<const NSData>(coder.finishEncoding())](std::size_t) {
                const NSClassSet classes{&NSArrayClass, &MVAclEntry::classObject()};
                NSKeyedUnarchiver decoder(*archive);
                return decoder.decodeObjects("entries", classes);
            };
        },
        options);
}

Lines encode1000Entries(const Options& options) {
    constexpr std::size_t batches[] = {10, 1000, 10000};
    constexpr double tolerance = 1.5;  // more memory is touched
    const auto encodes = [](std::size_t batch) -> std::function<double(std::size_t)> {
        std::vector<std::shared_ptr<MVAclEntry>> entries(batch);
        for (auto& entry : entries)
            entry = MVAclEntry::newEntryForDirectory(true);
        return [entries, batch](std::size_t count) {
            const auto rounds = (count + batch - 1) / batch;
            const auto time = timed([&] {
                for (std::size_t round = 0; round < rounds; ++round) {
                    NSKeyedArchiver coder;
                    coder.encodeObjects(entries, "entries");
                    keep(coder.finishEncoding());
                }
            });
            return time * static_cast<double>(count) / static_cast<double>(rounds * batch);
        };
    };
    Lines lines;
    for (const auto batch : batches) {
        Comparison comparison{.row = "encode-1000-entries " + std::to_string(batch),
                              .ours = {"", encodes(batch)},
                              .peers = {},
                              .required = {},
                              .limit = {},
                              .note = {}};
        if (batch != batches[0]) {
            comparison.peers.push_back({std::to_string(batches[0]), encodes(batches[0])});
            comparison.required = Requirement::atMostTimes(tolerance);
        }
        auto measured = compare(comparison, options);
        std::move(measured.begin(), measured.end(), std::back_inserter(lines));
    }
    return lines;
}

Lines convertEntry(const Options& options) {
    // Converting uses an entry up, so each one is made for it, which does not count.
    return compare(
        {.row = "convert-entry",
         .ours = {"",
                  [](std::size_t count) {
                      constexpr std::size_t batch = 100;
                      double time = 0;
                      for (std::size_t done = 0; done < count; done += batch) {
                          std::vector<std::shared_ptr<MVAclEntry>> entries(batch);
                          for (auto& entry : entries) {
                              entry = MVAclEntry::newEntryForDirectory(true);
                              const auto childFiles = entry->permissions()[3]->childNodeAtIndex(1);
                              MVTreeNode::permissionOf(*childFiles)->setState(MVStateOn);
                          }
                          time += timed([&] {
                              for (const auto& entry : entries)
                                  keep(entry->convertInheritedToFileEntry());
                          });
                      }
                      const auto made = (count + batch - 1) / batch * batch;
                      return time * static_cast<double>(count) / static_cast<double>(made);
                  }},
         .peers = {{"new entry", inBatches(100,
                                           [](std::size_t count) {
                                               std::vector<std::shared_ptr<MVAclEntry>> entries(
                                                   count);
                                               for (auto& entry : entries)
                                                   entry = MVAclEntry::newEntryForDirectory(true);
                                               return entries;
                                           })}},
         .required = {},
         .limit = {},
         .note = {}},
        options);
}

}  // namespace bench
