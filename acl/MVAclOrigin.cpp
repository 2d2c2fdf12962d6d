// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVAclOrigin.h>
#include <MorvaneOperation/platform/archive/NSKeyedArchiver.h>
#include <MorvaneOperation/platform/archive/NSKeyedUnarchiver.h>

#include <utility>

namespace morvane {

namespace {

/// Digests of this library have 32 characters.
constexpr std::size_t maxDigest = 64;
/// The kernel reads and writes no attribute that is longer.
constexpr std::size_t maxStoredList = 65536;

std::uint32_t idOf(std::int64_t value, std::string_view key) {
    if (!std::in_range<std::uint32_t>(value))
        throw NSArchiveFailure(key, "a user or group has another number");
    return static_cast<std::uint32_t>(value);
}

}  // namespace

const NSClass& MVAclOrigin::classObject() {
    static const NSClass c{"MVAclOrigin", &NSObject::classObject(), &initWithCoder};
    return c;
}

std::shared_ptr<const MVAclOrigin> MVAclOrigin::initWithValues(Values values) {
    return std::make_shared<const MVAclOrigin>(std::move(values));
}

std::shared_ptr<const MVAclOrigin> MVAclOrigin::initWithValues(Values values, StoredLists stored) {
    return std::make_shared<const MVAclOrigin>(std::move(values), std::move(stored));
}

bool MVAclOrigin::isEqual(const NSObject* other) const {
    const auto* origin = dynamic_cast<const MVAclOrigin*>(other);
    return origin && origin->values_ == values_ && origin->stored_ == stored_;
}

void MVAclOrigin::encodeWithCoder(NSKeyedArchiver& coder) const {
    coder.encodeURL(values_.url, "url");
    coder.encodeBool(values_.isDirectory, "directory");
    coder.encodeInt64(values_.owner, "owner");
    coder.encodeInt64(values_.group, "group");
    coder.encodeInt32(static_cast<std::int32_t>(values_.storage), "storage");
    coder.encodeString(std::string_view(values_.digest), "digest");
    if (!stored_.list.empty())
        coder.encodeData(stored_.list, "stored");
    if (!stored_.defaults.empty())
        coder.encodeData(stored_.defaults, "storedDefaults");
}

std::shared_ptr<NSObject> MVAclOrigin::initWithCoder(NSKeyedUnarchiver& coder) {
    auto url = coder.decodeURL("url");
    if (!url)
        throw NSArchiveFailure("url", "an origin has no URL");
    const bool isDirectory = coder.decodeBool("directory");
    const auto owner = idOf(coder.decodeInt64("owner"), "owner");
    const auto group = idOf(coder.decodeInt64("group"), "group");
    const auto storage = coder.decodeInt32("storage");
    if (storage < static_cast<std::int32_t>(MVAclStorage::posix) ||
        storage > static_cast<std::int32_t>(MVAclStorage::nfs4))
        throw NSArchiveFailure("storage", "there is no such storage");
    auto digest = coder.decodeString("digest").value_or(std::string());
    if (digest.size() > maxDigest)
        throw NSArchiveFailure("digest", "a digest is too long");
    const auto stored = [&](const char* key) {
        auto list = coder.decodeData(key).value_or(NSData());
        if (list.size() > maxStoredList)
            throw NSArchiveFailure(key, "a list is too long");
        return list;
    };
    return std::make_shared<MVAclOrigin>(
        Values{std::move(*url), isDirectory, owner, group, static_cast<MVAclStorage>(storage),
               std::move(digest)},
        StoredLists{stored("stored"), stored("storedDefaults")});
}

const MVAclOrigin::Values& MVAclOrigin::values() const {
    return values_;
}

const MVAclOrigin::StoredLists& MVAclOrigin::storedLists() const {
    return stored_;
}

}  // namespace morvane
