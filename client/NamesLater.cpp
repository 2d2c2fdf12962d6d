// SPDX-License-Identifier: MIT
#include "NamesLater.h"

#include <MorvaneOperation/platform/identity/CBIdentityAuthority.h>

#include <chrono>
#include <exception>
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
        if (who && (std::holds_alternative<CBPosixUser>(*who) ||
                    std::holds_alternative<CBPosixGroup>(*who)))
            rows.push_back({entry, *entry->uuid()});
    }
    return rows;
}

}  // namespace

NamesLater::NamesLater(const MVFileAcl::Entries& entries, MVFileClient::Executor executor)
    : rows_(rowsOf<Row>(entries)), executor_(std::move(executor)) {}

void NamesLater::lookUp(DispatchQueue& queue) {
    queue.async([self = shared_from_this()] {
        try {
            self->run();
        } catch (const std::exception&) {
            // Who is not named is shown by number.
        }
    });
}

void NamesLater::run() {
    const auto& authority = CBIdentityAuthority::defaultIdentityAuthority();
    for (const auto& row : rows_) {
        if (row.entry.expired())
            return;  // nobody looks at the list any more
        auto identity = CBIdentity::identityWithUniqueIdentifier(row.uuid, authority);
        {
            const std::lock_guard lock(mutex_);
            if (!isHandedOver_) {
                found_.push_back(std::move(identity));
                if (found_.size() == rows_.size())
                    known_.notify_one();
                continue;
            }
        }
        if (identity)
            executor_([entry = row.entry, identity] {
                if (const auto shown = entry.lock())
                    shown->setFoundIdentity(identity);
            });
    }
}

void NamesLater::handOver() {
    std::unique_lock lock(mutex_);
    known_.wait_for(lock, soon, [this] { return found_.size() == rows_.size(); });
    isHandedOver_ = true;
    for (std::size_t i = 0; i != rows_.size(); ++i) {
        if (const auto entry = rows_[i].entry.lock())
            entry->setFoundIdentity(i < found_.size() ? found_[i] : nullptr);
    }
}

}  // namespace morvane
