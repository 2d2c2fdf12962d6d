// SPDX-License-Identifier: MIT
#include "NamesLater.h"

#include <MorvaneOperation/platform/identity/CBIdentityAuthority.h>

#include <chrono>
#include <exception>
#include <system_error>
#include <utility>

namespace morvane {

namespace {

/// Less than two frames of a display.
constexpr std::chrono::milliseconds soon{20};

/// Of those whom only a directory knows.
template <class Row>
std::vector<Row> rowsOf(const MVFileAcl::Entries& entries) {
    std::vector<Row> rows;
    rows.reserve(entries.size());
    for (const auto& entry : entries) {
        const auto who = entry->uuid() ? posixIdentityOfUUID(*entry->uuid()) : std::nullopt;
        if (!who || (!std::holds_alternative<CBPosixUser>(*who) &&
                     !std::holds_alternative<CBPosixGroup>(*who)))
            continue;
        rows.push_back({entry, *entry->uuid()});
        entry->setFoundIdentity(nullptr);  // not yet
    }
    return rows;
}

}  // namespace

NamesLater::NamesLater(const MVFileAcl::Entries& entries, MVFileClient::Executor executor)
    : rows_(rowsOf<Row>(entries)), executor_(std::move(executor)) {}

void NamesLater::lookUp(DispatchQueue& queue) {
    try {
        queue.async([self = shared_from_this()] { self->run(); });
    } catch (const std::system_error&) {
        run();  // here, if there is no thread
    }
}

void NamesLater::run() {
    for (const auto& row : rows_) {
        if (row.entry.expired())
            return;  // nobody looks at the list any more
        try {
            find(row);
        } catch (const std::exception&) {
            // Who is not named is shown by number.
        }
    }
    const std::lock_guard lock(mutex_);
    isDone_ = true;
    known_.notify_one();
}

void NamesLater::find(const Row& row) {
    auto identity = CBIdentity::identityWithUniqueIdentifier(
        row.uuid, CBIdentityAuthority::defaultIdentityAuthority());
    if (!identity)
        return;
    {
        const std::lock_guard lock(mutex_);
        if (!isHandedOver_) {
            found_.emplace_back(row.entry, std::move(identity));
            return;
        }
    }
    executor_([entry = row.entry, identity] {
        if (const auto shown = entry.lock())
            shown->setFoundIdentity(identity);
    });
}

void NamesLater::handOver() {
    std::unique_lock lock(mutex_);
    known_.wait_for(lock, soon, [this] { return isDone_; });
    isHandedOver_ = true;
    for (const auto& [entry, identity] : found_) {
        if (const auto known = entry.lock())
            known->setFoundIdentity(identity);
    }
}

}  // namespace morvane
